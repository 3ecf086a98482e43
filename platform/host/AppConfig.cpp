#include "AppConfig.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

namespace {
// Free fonts from Debian packages, in order of preference; the first also covers CJK.
const char* const kFallbackFonts[] = {
    "/usr/share/fonts/truetype/wqy/wqy-microhei.ttc",
    "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf",
    "/usr/share/fonts/truetype/liberation/LiberationSans-Regular.ttf",
};

bool isFontName(const QString& name)
{
    const QString suffix = QFileInfo(name).suffix().toLower();
    return suffix == QLatin1String("ttf") || suffix == QLatin1String("ttc") ||
           suffix == QLatin1String("otf");
}
}  // namespace

AppConfig& AppConfig::getInstance()
{
    static AppConfig instance;
    return instance;
}

UserSettings& AppConfig::module_userSettings() { return m_userSettings; }

OpenSaveDirectoryHistory& AppConfig::module_openSaveHistory() { return m_history; }

QString AppConfig::get3DResourceFolder() const
{
    const QString env = qEnvironmentVariable("PTCLOUD_3D_RESOURCE_DIR");
    if (!env.isEmpty()) return QDir(env).absolutePath();
    const QString appDir = QCoreApplication::instance() ? QCoreApplication::applicationDirPath()
                                                        : QDir::currentPath();
    for (const char* rel : {"resources/3d", "../resources/3d", "../share/ptcloud/3d"}) {
        const QDir d(QDir(appDir).filePath(QLatin1String(rel)));
        if (d.exists()) return d.absolutePath();
    }
    return QDir(appDir).filePath(QStringLiteral("resources/3d"));
}

QString AppConfig::get3DResourceFilepath(const QString& name) const
{
    const QString path = QDir(get3DResourceFolder()).filePath(name);
    if (QFileInfo::exists(path) || !isFontName(name)) return path;
    for (const char* font : kFallbackFonts)
        if (QFileInfo::exists(QLatin1String(font))) return QString::fromLatin1(font);
    return path;
}
