#include "UserSettings.h"

#include <QSettings>

namespace {
const char* const kSkinKey = "ui/skin";
}

int UserSettings::getSelectedSkin() const
{
    return QSettings().value(kSkinKey, 1).toInt();
}

void UserSettings::setSelectedSkin(int skin)
{
    QSettings().setValue(kSkinKey, skin);
}
