#pragma once

#include <QString>

// Last folder used by each open/save dialog, by key, kept in QSettings.
class OpenSaveDirectoryHistory {
public:
    // The folder last stored under key; empty when none.
    QString getHistory(const QString& key) const;
    // Stores the folder of path (or path itself when it is a folder).
    void setHistory(const QString& key, const QString& path);
};
