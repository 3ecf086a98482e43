#pragma once

#include <QLockFile>
#include <QString>

namespace ptCloud {

// The advisory lock between processes that share a project: every
// read-modify-write of one of its manifests happens while it is held, so
// that two commands at the same moment never lose each other's change.
// Nested acquisitions by one process count; the file goes with the last
// release. A lock left by a process that no longer runs is taken over.
class PtCloud_ProjectLock {
public:
    explicit PtCloud_ProjectLock(const QString& projectFolder);
    ~PtCloud_ProjectLock();

    // Waits up to a few seconds for another holder, then fails with
    // "project is busy (locked by PID n)".
    bool acquire(QString* error);
    void release();

    static QString fileName();

private:
    // Why the lock file cannot be made.
    QString writeProblem() const;
    QString m_path;
    QLockFile m_file;
    int m_depth = 0;
};

}  // namespace ptCloud
