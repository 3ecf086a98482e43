#pragma once
// Runs the ptcloud binary for the end-to-end tests and looks at what it left.

#include <QByteArray>
#include <QJsonObject>
#include <QMap>
#include <QString>
#include <QStringList>

class TstCliRunner {
public:
    struct Result {
        int exitCode = -1;
        bool finished = false;
        QByteArray out, err;
        QString errLine() const { return QString::fromUtf8(err).trimmed(); }
        bool ok() const { return finished && exitCode == 0; }
        // Diagnostic for QVERIFY2.
        QByteArray describe() const;
    };

    static QString binary() { return QStringLiteral(PTCLOUD_CLI); }
    // limitBytes >= 0: every write past that many bytes of a file fails in
    // the command, as writes do on a full disk.
    static Result run(const QStringList& args, int timeoutMs = 300000, qint64 limitBytes = -1);
    // ptcloud dataset info DIR NAME --json, parsed; empty with *error on failure.
    static QJsonObject info(const QString& project, const QString& name, QString* error);
    // Every file and folder below dir (relative path) with a hash of its
    // content: equal snapshots mean nothing was added, removed or changed.
    static QMap<QString, QByteArray> snapshot(const QString& dir);
};
