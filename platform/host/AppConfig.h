#pragma once

#include <QString>

#include "OpenSaveDirectoryHistory.h"
#include "UserSettings.h"

// Application-wide configuration: user settings, directory history and
// resource lookup. Settings live in QSettings under the application's
// organisation and name, so tests point QSettings at a temporary folder.
class AppConfig {
public:
    static AppConfig& getInstance();

    UserSettings& module_userSettings();
    OpenSaveDirectoryHistory& module_openSaveHistory();

    // Absolute path of a file of the 3D resource folder. The folder is
    // $PTCLOUD_3D_RESOURCE_DIR when set, else "resources/3d" beside or above
    // the executable. Fonts that are not shipped (we ship no proprietary
    // font) fall back to a free font installed with the system.
    QString get3DResourceFilepath(const QString& name) const;
    QString get3DResourceFolder() const;

private:
    AppConfig() = default;
    UserSettings m_userSettings;
    OpenSaveDirectoryHistory m_history;
};
