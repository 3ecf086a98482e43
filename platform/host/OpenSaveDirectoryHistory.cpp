#include "OpenSaveDirectoryHistory.h"

#include <QFileInfo>
#include <QSettings>

namespace {
QString settingsKey(const QString& key) { return QStringLiteral("dir_history/") + key; }
}

QString OpenSaveDirectoryHistory::getHistory(const QString& key) const
{
    return QSettings().value(settingsKey(key)).toString();
}

void OpenSaveDirectoryHistory::setHistory(const QString& key, const QString& path)
{
    const QFileInfo info(path);
    const QString dir = info.isDir() ? info.absoluteFilePath() : info.absolutePath();
    QSettings().setValue(settingsKey(key), dir);
}
