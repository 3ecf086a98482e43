#pragma once

#include <QString>

// The user's interface preferences, kept in QSettings.
class UserSettings {
public:
    // 0: light skin; any other value: dark skin.
    int getSelectedSkin() const;
    void setSelectedSkin(int skin);
};
