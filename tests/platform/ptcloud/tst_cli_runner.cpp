#include "tst_cli_runner.h"

#include <QCryptographicHash>
#include <QDirIterator>
#include <QFile>
#include <QJsonDocument>
#include <QProcess>
#include <csignal>
#include <sys/resource.h>

namespace {
class LimitedProcess : public QProcess {
public:
    explicit LimitedProcess(qint64 limit) : m_limit(limit) {}

protected:
    void setupChildProcess() override
    {
        if (m_limit < 0) return;
        const rlimit limit{rlim_t(m_limit), rlim_t(m_limit)};
        setrlimit(RLIMIT_FSIZE, &limit);
        std::signal(SIGXFSZ, SIG_IGN);  // the write fails with EFBIG instead of ending the process
    }

private:
    qint64 m_limit;
};
}  // namespace

QByteArray TstCliRunner::Result::describe() const
{
    return QStringLiteral("exit %1%2, stderr: %3").arg(exitCode).arg(finished ? "" : " (did not finish)")
        .arg(QString::fromUtf8(err)).toUtf8();
}

TstCliRunner::Result TstCliRunner::run(const QStringList& args, int timeoutMs, qint64 limitBytes)
{
    LimitedProcess process(limitBytes);
    process.start(binary(), args);
    Result r;
    r.finished = process.waitForFinished(timeoutMs) && process.exitStatus() == QProcess::NormalExit;
    if (!r.finished) process.kill();
    r.exitCode = process.exitCode();
    r.out = process.readAllStandardOutput();
    r.err = process.readAllStandardError();
    return r;
}

QJsonObject TstCliRunner::info(const QString& project, const QString& name, QString* error)
{
    const Result r = run({"dataset", "info", project, name, "--json"});
    if (!r.ok()) {
        *error = QString::fromUtf8(r.describe());
        return {};
    }
    QJsonParseError parse;
    const QJsonDocument doc = QJsonDocument::fromJson(r.out, &parse);
    if (!doc.isObject()) *error = QStringLiteral("not one JSON object: %1").arg(parse.errorString());
    return doc.object();
}

QMap<QString, QByteArray> TstCliRunner::snapshot(const QString& dir)
{
    QMap<QString, QByteArray> out;
    QDirIterator it(dir, QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString rel = path.mid(dir.size());
        QByteArray hash("folder");
        if (it.fileInfo().isFile()) {
            QFile f(path);
            QCryptographicHash h(QCryptographicHash::Sha256);
            hash = f.open(QIODevice::ReadOnly) && h.addData(&f) ? h.result().toHex() : QByteArray("unreadable");
        }
        out.insert(rel, hash);
    }
    return out;
}
