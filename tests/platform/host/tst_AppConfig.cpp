#include "AppConfig.h"

#include <QtTest>

// Settings, directory history and resource lookup, with QSettings pointed at
// a temporary folder so that the user's own settings are never touched.
class TestAppConfig : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void skinPersists_data();
    void skinPersists();
    void directoryHistory_data();
    void directoryHistory();
    void historyKeysAreIndependent();
    void resourceFile_data();
    void resourceFile();

private:
    QTemporaryDir m_settingsDir;
    QTemporaryDir m_filesDir;
    QTemporaryDir m_resourceDir;
};

void TestAppConfig::initTestCase()
{
    QVERIFY(m_settingsDir.isValid() && m_filesDir.isValid() && m_resourceDir.isValid());
    QCoreApplication::setOrganizationName(QStringLiteral("PtCloudTest"));
    QCoreApplication::setApplicationName(QStringLiteral("tst_AppConfig"));
    QSettings::setDefaultFormat(QSettings::IniFormat);
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, m_settingsDir.path());
    qputenv("PTCLOUD_3D_RESOURCE_DIR", m_resourceDir.path().toLocal8Bit());
    const QSettings settings;
    QVERIFY2(settings.fileName().startsWith(m_settingsDir.path()), qPrintable(settings.fileName()));
}

void TestAppConfig::skinPersists_data()
{
    QTest::addColumn<int>("skin");
    QTest::newRow("light") << 0;
    QTest::newRow("dark") << 1;
}

void TestAppConfig::skinPersists()
{
    QFETCH(int, skin);
    AppConfig::getInstance().module_userSettings().setSelectedSkin(skin);
    // A new instance reads what the first one wrote, which is on disk.
    QCOMPARE(UserSettings().getSelectedSkin(), skin);
    QVERIFY(QFileInfo(QSettings().fileName()).size() > 0);
}

void TestAppConfig::directoryHistory_data()
{
    QTest::addColumn<QString>("stored");
    QTest::addColumn<QString>("folder");

    const QString base = m_filesDir.path();
    QVERIFY(QDir(base).mkpath(QStringLiteral("survey/2024 spring")));
    QFile las(base + QStringLiteral("/survey/2024 spring/site A.las"));
    QVERIFY(las.open(QIODevice::WriteOnly));
    las.close();

    QTest::newRow("a file: its folder") << base + QStringLiteral("/survey/2024 spring/site A.las")
                                        << base + QStringLiteral("/survey/2024 spring");
    QTest::newRow("a folder: itself") << base + QStringLiteral("/survey") << base + QStringLiteral("/survey");
    QTest::newRow("a file not written yet: its folder")
        << base + QStringLiteral("/survey/export.las") << base + QStringLiteral("/survey");
}

void TestAppConfig::directoryHistory()
{
    QFETCH(QString, stored);
    QFETCH(QString, folder);
    const QString key = QStringLiteral("dir_his_points_cloud_import_las");
    AppConfig::getInstance().module_openSaveHistory().setHistory(key, stored);
    QCOMPARE(QDir(OpenSaveDirectoryHistory().getHistory(key)).canonicalPath(), QDir(folder).canonicalPath());
}

void TestAppConfig::historyKeysAreIndependent()
{
    OpenSaveDirectoryHistory history;
    const QString a = m_filesDir.path();
    QVERIFY(QDir(a).mkpath(QStringLiteral("other")));
    const QString b = a + QStringLiteral("/other");
    history.setHistory(QStringLiteral("key_a"), a);
    history.setHistory(QStringLiteral("key_b"), b);
    QCOMPARE(OpenSaveDirectoryHistory().getHistory(QStringLiteral("key_a")), QFileInfo(a).absoluteFilePath());
    QCOMPARE(OpenSaveDirectoryHistory().getHistory(QStringLiteral("key_b")), QFileInfo(b).absoluteFilePath());
    QCOMPARE(OpenSaveDirectoryHistory().getHistory(QStringLiteral("never_stored")), QString());
}

void TestAppConfig::resourceFile_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("shipped");
    QTest::addColumn<bool>("fallsBack");

    QTest::newRow("label font, not shipped") << QStringLiteral("SimSun.ttf") << false << true;
    QTest::newRow("label font, shipped") << QStringLiteral("SimSun.ttf") << true << false;
    QTest::newRow("other resource, absent") << QStringLiteral("marker.png") << false << false;
    QTest::newRow("other resource, present") << QStringLiteral("marker.png") << true << false;
}

void TestAppConfig::resourceFile()
{
    QFETCH(QString, name);
    QFETCH(bool, shipped);
    QFETCH(bool, fallsBack);

    const QString inFolder = QDir(m_resourceDir.path()).filePath(name);
    QFile::remove(inFolder);
    if (shipped) {
        QFile file(inFolder);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("resource");
    }
    const QString path = AppConfig::getInstance().get3DResourceFilepath(name);
    if (fallsBack) {
        QVERIFY2(path != inFolder, qPrintable(path));
        QVERIFY2(QFileInfo(path).isFile(), qPrintable(QStringLiteral("no free font found: ") + path));
    } else {
        QCOMPARE(QFileInfo(path).absoluteFilePath(), QFileInfo(inFolder).absoluteFilePath());
        QCOMPARE(QFileInfo::exists(path), shipped);
    }
}

QTEST_GUILESS_MAIN(TestAppConfig)
#include "tst_AppConfig.moc"
