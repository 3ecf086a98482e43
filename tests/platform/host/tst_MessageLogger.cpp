#include "MessageLogger.h"

#include <QtTest>

#include <fcntl.h>
#include <unistd.h>

// The logger writes every message to stderr as well; floods of test messages
// go to /dev/null instead of the test's output.
class TestMessageLogger : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void writesToItsFile_data();
    void writesToItsFile();
    void rotatesPastTheLimit();

private:
    QString logText(const QString& path) const;
    void flood(qint64 bytes, const QString& marker);

    QTemporaryDir m_dir;
};

void TestMessageLogger::initTestCase()
{
    QVERIFY(m_dir.isValid());
    MessageLogger::install(m_dir.path());
    QCOMPARE(QFileInfo(MessageLogger::logFilePath()).absolutePath(), QFileInfo(m_dir.path()).absoluteFilePath());
}

void TestMessageLogger::cleanupTestCase() { qInstallMessageHandler(nullptr); }

QString TestMessageLogger::logText(const QString& path) const
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return QString();
    return QString::fromLocal8Bit(file.readAll());
}

void TestMessageLogger::flood(qint64 bytes, const QString& marker)
{
    const int saved = dup(STDERR_FILENO);
    const int null = open("/dev/null", O_WRONLY);
    dup2(null, STDERR_FILENO);
    const QString chunk(64 * 1024, QLatin1Char('x'));
    for (qint64 written = 0; written < bytes; written += chunk.size()) qWarning().noquote() << marker << chunk;
    dup2(saved, STDERR_FILENO);
    close(null);
    close(saved);
}

void TestMessageLogger::writesToItsFile_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("tag");
    QTest::newRow("debug stream") << int(QtDebugMsg) << "[debug]";
    QTest::newRow("warning") << int(QtWarningMsg) << "[warning]";
    QTest::newRow("info") << int(QtInfoMsg) << "[info]";
}

void TestMessageLogger::writesToItsFile()
{
    QFETCH(int, kind);
    QFETCH(QString, tag);
    const QString marker = QStringLiteral("marker-%1-%2").arg(kind).arg(QDateTime::currentMSecsSinceEpoch());
    if (kind == QtDebugMsg)
        MessageLogger::debug() << "\n**************\n" << marker << 42;
    else if (kind == QtWarningMsg)
        qWarning().noquote() << marker;
    else
        qInfo().noquote() << marker;
    const QString text = logText(MessageLogger::logFilePath());
    const int at = text.indexOf(marker);
    QVERIFY2(at >= 0, "the message is not in the log file");
    QVERIFY(text.lastIndexOf(tag, at) >= 0);
}

void TestMessageLogger::rotatesPastTheLimit()
{
    const QString path = MessageLogger::logFilePath();
    const QString first = QStringLiteral("first-of-all");
    flood(MessageLogger::kMaxBytes / 2, first);

    // Each flood fills at least one file; after one rotation more than the
    // files kept, the oldest message is gone and the newest is in the log.
    for (int i = 1; i <= MessageLogger::kKeepFiles + 1; ++i) {
        flood(MessageLogger::kMaxBytes, QStringLiteral("flood-%1").arg(i));
        QVERIFY2(QFileInfo(path).size() < MessageLogger::kMaxBytes, "the log was not rotated");
    }
    const QString newest = QStringLiteral("newest-of-all");
    qWarning().noquote() << newest;
    QVERIFY(logText(path).contains(newest));

    for (int i = 1; i <= MessageLogger::kKeepFiles; ++i) {
        const QString old = path + QStringLiteral(".%1").arg(i);
        QVERIFY2(QFileInfo::exists(old), qPrintable(old));
        QVERIFY(QFileInfo(old).size() >= MessageLogger::kMaxBytes);
        QVERIFY(!logText(old).contains(first));
    }
    QVERIFY(!QFileInfo::exists(path + QStringLiteral(".%1").arg(MessageLogger::kKeepFiles + 1)));
    QVERIFY(!logText(path).contains(first));
}

QTEST_GUILESS_MAIN(TestMessageLogger)
#include "tst_MessageLogger.moc"
