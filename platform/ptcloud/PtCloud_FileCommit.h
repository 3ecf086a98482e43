#pragma once

#include <QString>

class QFileDevice;
class QSaveFile;

namespace ptCloud {

// The last step of every atomic write. QSaveFile::commit() neither reports a
// failed flush of its buffer (a small file is written only then, so on a full
// disk the write "succeeds" and an empty file is renamed into place) nor a
// failed sync; here both are checked before the rename, and a failure
// discards the temporary file and names the system's reason.
class PtCloud_FileCommit {
public:
    // Flushes, syncs and renames file over its target. False with
    // "cannot write <target>: <reason>" when any of them fails.
    static bool commit(QSaveFile& file, QString* error);
    // "cannot write <path>: <strerror(errorNumber)>".
    static QString writeError(const QString& path, int errorNumber);
    // The same for a write to file that failed, with the system's reason:
    // Qt gives none for a write cut short (as a full disk cuts it).
    static QString writeFailure(QFileDevice& file);

    // Test hook: every sync fails with errorNumber (0: none fail), as a disk
    // that fills or breaks under the cache would.
    static void setSyncFailureForTesting(int errorNumber);
};

}  // namespace ptCloud
