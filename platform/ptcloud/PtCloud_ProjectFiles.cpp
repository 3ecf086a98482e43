#include "PtCloud_ProjectFiles.h"

#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QStringList>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace ptCloud {

namespace {
const QLatin1String kPrefix(".part-");

bool within(const QString& path, const QString& root) { return path.startsWith(root + QLatin1Char('/')); }

bool processRuns(qint64 pid)
{
    // EPERM: it runs under another user.
    return pid > 0 && (::kill(pid_t(pid), 0) == 0 || errno == EPERM);
}

// The process id of a temporary's name, 0 when the name is none.
qint64 ownerOf(const QString& fileName)
{
    if (!fileName.startsWith(kPrefix)) return 0;
    const int dot = fileName.indexOf(QLatin1Char('.'), kPrefix.size());
    return dot < 0 ? 0 : fileName.midRef(kPrefix.size(), dot - kPrefix.size()).toLongLong();
}
}  // namespace

QString PtCloud_ProjectFiles::confined(const QString& root, const QString& rel, QString* error)
{
    const QString clean = QDir::cleanPath(rel);
    auto refuse = [&](const QString& why) {
        if (error) *error = QStringLiteral("\"%1\" %2").arg(rel, why);
        return QString();
    };
    if (rel.isEmpty() || clean == QLatin1String(".") || QDir::isAbsolutePath(rel) || clean == QLatin1String("..") ||
        clean.startsWith(QLatin1String("../")))
        return refuse(QStringLiteral("leads outside %1").arg(root));
    const QFileInfo rootInfo(root);
    const QString real = rootInfo.canonicalFilePath();
    if (real.isEmpty() || rootInfo.isSymLink()) return refuse(QStringLiteral("lies in %1, which is missing or a symbolic link").arg(root));
    const QString path = real + QLatin1Char('/') + clean;
    QString probe = path;
    while (!QFileInfo::exists(probe) && !QFileInfo(probe).isSymLink()) probe = QFileInfo(probe).path();
    const QString resolved = QFileInfo(probe).canonicalFilePath();  // empty for a dangling link
    if (resolved.isEmpty() || !(resolved == real || within(resolved, real)))
        return refuse(QStringLiteral("leads outside %1 through a symbolic link").arg(root));
    return path;
}

bool PtCloud_ProjectFiles::removeFolder(const QString& root, const QString& folder, QString* error)
{
    const QString inside = confined(root, QDir(root).relativeFilePath(folder), error);
    if (inside.isEmpty()) return false;
    if (QFileInfo(inside).canonicalFilePath() == QFileInfo(root).canonicalFilePath()) {
        if (error) *error = QStringLiteral("refusing to remove %1 itself").arg(root);
        return false;
    }
    if (!QDir(inside).removeRecursively()) {
        if (error) *error = QStringLiteral("cannot remove all of %1").arg(inside);
        return false;
    }
    return true;
}

QString PtCloud_ProjectFiles::temporaryFor(const QString& finalPath)
{
    const QFileInfo info(finalPath);
    return info.path() + QLatin1Char('/') + kPrefix + QString::number(QCoreApplication::applicationPid()) +
           QLatin1Char('.') + info.fileName();
}

bool PtCloud_ProjectFiles::isTemporary(const QString& path) { return ownerOf(QFileInfo(path).fileName()) != 0; }

QString PtCloud_ProjectFiles::finalNameOf(const QString& temporary)
{
    const QFileInfo info(temporary);
    const QString name = info.fileName();
    return info.path() + QLatin1Char('/') + name.mid(name.indexOf(QLatin1Char('.'), kPrefix.size()) + 1);
}

bool PtCloud_ProjectFiles::publish(const QString& temporary, QString* error)
{
    const QString target = finalNameOf(temporary);
    errno = EINVAL;
    if (!isTemporary(temporary) ||
        ::rename(QFile::encodeName(temporary).constData(), QFile::encodeName(target).constData()) != 0) {
        if (error)
            *error = QStringLiteral("cannot move %1 into place: %2").arg(temporary, QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    return true;
}

void PtCloud_ProjectFiles::removeTemporaries(const QString& folder, Owners owners)
{
    const qint64 self = QCoreApplication::applicationPid();
    QStringList stale;
    QDirIterator it(folder, {kPrefix + QLatin1Char('*')}, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const qint64 pid = ownerOf(it.fileName());
        if (pid && (owners == ThisProcess ? pid == self : pid != self && !processRuns(pid))) stale << path;
    }
    for (const QString& path : stale) {
        const QFileInfo info(path);
        if (info.isDir() && !info.isSymLink())
            QDir(path).removeRecursively();
        else
            QFile::remove(path);
        // A content folder made for the temporary alone goes with it.
        if (QDir(info.path()) != QDir(folder)) QDir().rmdir(info.path());
    }
}

}  // namespace ptCloud
