#pragma once

#include <QDebug>
#include <QString>

// The application's message log: every Qt message goes to stderr and to a
// log file in the user's data folder, rotated when it grows past a limit.
// debug() is the stream for diagnostic records.
class MessageLogger {
public:
    // Installs the message handler; logFolder empty means the user's data
    // folder (QStandardPaths::AppLocalDataLocation). Safe to call again.
    static void install(const QString& logFolder = QString());
    static QDebug debug();
    static QString logFilePath();

    // Largest size of the log file before it is rotated, and how many old
    // files are kept (app.log.1 .. app.log.N).
    static constexpr qint64 kMaxBytes = 4 * 1024 * 1024;
    static constexpr int kKeepFiles = 3;
};
