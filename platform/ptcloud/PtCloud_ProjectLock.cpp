#include "PtCloud_ProjectLock.h"

#include <QDir>
#include <QFile>

#include "PtCloud_FileCommit.h"

namespace ptCloud {

namespace {
// Long enough to outlast any manifest change of another command (they take
// milliseconds), short enough that a script learns soon of a stuck holder.
const int kWaitMs = 10000;
}  // namespace

QString PtCloud_ProjectLock::fileName() { return QStringLiteral(".lock"); }

PtCloud_ProjectLock::PtCloud_ProjectLock(const QString& projectFolder)
    : m_path(QDir(projectFolder).filePath(fileName())), m_file(m_path)
{
    // A live holder is never stale, however long it holds the lock; a dead
    // one is recognised by its process id.
    m_file.setStaleLockTime(0);
}

PtCloud_ProjectLock::~PtCloud_ProjectLock() = default;

bool PtCloud_ProjectLock::acquire(QString* error)
{
    if (m_depth > 0) {
        ++m_depth;
        return true;
    }
    if (m_file.tryLock(kWaitMs)) {
        m_depth = 1;
        return true;
    }
    if (error) {
        qint64 pid = 0;
        QString host, app;
        if (m_file.error() == QLockFile::LockFailedError && m_file.getLockInfo(&pid, &host, &app))
            *error = QStringLiteral("project is busy (locked by PID %1)").arg(pid);
        else if (m_file.error() == QLockFile::LockFailedError)
            *error = QStringLiteral("project is busy (locked by another process)");
        else
            *error = QStringLiteral("cannot lock the project: %1").arg(writeProblem());
    }
    return false;
}

QString PtCloud_ProjectLock::writeProblem() const
{
    // QLockFile gives no reason; a file written beside it fails with it.
    QFile probe(m_path + QStringLiteral(".probe"));
    QString why;
    if (!probe.open(QIODevice::WriteOnly))
        why = QStringLiteral("cannot write %1: %2").arg(m_path, probe.errorString());
    else if (probe.write(QByteArray(64, '\n')) != 64 || !probe.flush())
        why = PtCloud_FileCommit::writeFailure(probe);
    else
        why = QStringLiteral("cannot write %1").arg(m_path);
    probe.close();
    probe.remove();
    return why;
}

void PtCloud_ProjectLock::release()
{
    if (m_depth > 0 && --m_depth == 0) m_file.unlock();
}

}  // namespace ptCloud
