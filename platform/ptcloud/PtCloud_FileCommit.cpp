#include "PtCloud_FileCommit.h"

#include <QSaveFile>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace ptCloud {

namespace {
std::atomic<int> g_syncFailure{0};
}

void PtCloud_FileCommit::setSyncFailureForTesting(int errorNumber) { g_syncFailure.store(errorNumber); }

QString PtCloud_FileCommit::writeError(const QString& path, int errorNumber)
{
    return QStringLiteral("cannot write %1: %2").arg(path, QString::fromLocal8Bit(std::strerror(errorNumber)));
}

QString PtCloud_FileCommit::writeFailure(QFileDevice& file)
{
    // One more byte at the end of the file, which is discarded anyway, fails
    // with the reason the cut-short write had.
    const int fd = file.handle();
    const char byte = 0;
    const off_t end = fd >= 0 ? ::lseek(fd, 0, SEEK_END) : -1;
    if (end >= 0 && ::pwrite(fd, &byte, 1, end) < 0) return writeError(file.fileName(), errno);
    return QStringLiteral("cannot write %1: %2").arg(file.fileName(), file.errorString());
}

bool PtCloud_FileCommit::commit(QSaveFile& file, QString* error)
{
    const QString target = file.fileName();
    auto discard = [&](const QString& why) {
        file.cancelWriting();
        file.commit();  // after cancelWriting() this only removes the temporary file
        if (error) *error = why;
        return false;
    };
    if (!file.flush()) return discard(writeFailure(file));
    int syncError = g_syncFailure.load();
    if (!syncError && ::fsync(file.handle()) != 0) syncError = errno;
    if (syncError) return discard(writeError(target, syncError));
    if (file.commit()) return true;
    if (error) *error = QStringLiteral("cannot write %1: %2").arg(target, file.errorString());
    return false;
}

}  // namespace ptCloud
