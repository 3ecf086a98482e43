#include "MessageLogger.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QMutex>
#include <QMutexLocker>
#include <QStandardPaths>
#include <cstdio>

namespace {
QMutex g_mutex;
QString g_path;
QFile* g_file = nullptr;

void rotateIfNeeded()
{
    if (!g_file || g_file->size() < MessageLogger::kMaxBytes) return;
    g_file->close();
    for (int i = MessageLogger::kKeepFiles - 1; i >= 1; --i) {
        QFile::remove(g_path + QStringLiteral(".%1").arg(i + 1));
        QFile::rename(g_path + QStringLiteral(".%1").arg(i), g_path + QStringLiteral(".%1").arg(i + 1));
    }
    QFile::remove(g_path + QStringLiteral(".1"));
    QFile::rename(g_path, g_path + QStringLiteral(".1"));
    g_file->open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text);
}

void handler(QtMsgType type, const QMessageLogContext&, const QString& msg)
{
    static const char* const kinds[] = {"debug", "warning", "critical", "fatal", "info"};
    const char* kind = (type >= 0 && type <= 4) ? kinds[type] : "message";
    const QByteArray line = QStringLiteral("%1 [%2] %3\n")
                                .arg(QDateTime::currentDateTime().toString(Qt::ISODateWithMs),
                                     QLatin1String(kind), msg)
                                .toLocal8Bit();
    QMutexLocker lock(&g_mutex);
    std::fwrite(line.constData(), 1, size_t(line.size()), stderr);
    if (g_file && g_file->isOpen()) {
        g_file->write(line);
        g_file->flush();
        rotateIfNeeded();
    }
}
}  // namespace

void MessageLogger::install(const QString& logFolder)
{
    QMutexLocker lock(&g_mutex);
    QString folder = logFolder;
    if (folder.isEmpty()) folder = QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation);
    QDir().mkpath(folder);
    g_path = QDir(folder).filePath(QStringLiteral("ptcloud.log"));
    delete g_file;
    g_file = new QFile(g_path);
    if (!g_file->open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text))
        std::fprintf(stderr, "cannot open log file %s\n", qPrintable(g_path));
    qInstallMessageHandler(handler);
}

QDebug MessageLogger::debug() { return qDebug().noquote(); }

QString MessageLogger::logFilePath()
{
    QMutexLocker lock(&g_mutex);
    return g_path;
}
