// Projects under faults, through the command line: manifests naming places
// outside the project, writes failing part-way, two commands at once, runs
// interrupted at any moment. Whatever happens, nothing outside the project is
// touched, a failed command changes nothing, and a command that reported
// success kept its change.

#include <QJsonDocument>
#include <QJsonObject>
#include <QLockFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "tst_cli_runner.h"
#include "tst_las_data.h"

class TstCliSafety : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void escapingPathsAreRefused_data();
    void escapingPathsAreRefused();
    void failedWritesChangeNothing_data();
    void failedWritesChangeNothing();
    void racingCommandsLoseNothing_data();
    void racingCommandsLoseNothing();
    void lockIsWaitedForOrTakenOver_data();
    void lockIsWaitedForOrTakenOver();
    void interruptedRunsLeaveNothing_data();
    void interruptedRunsLeaveNothing();

private:
    // A fresh copy of the template project (simple.las as dataset "simple", with a DEM).
    QString freshProject(const QString& name);
    QStringList dataSets(const QString& project);
    QMap<QString, QByteArray> state(const QString& project);
    QTemporaryDir m_tmp;
    QString m_template, m_demo;
};

namespace {
bool copyTree(const QString& from, const QString& to)
{
    return QProcess::execute(QStringLiteral("cp"), {QStringLiteral("-a"), from, to}) == 0;
}

QStringList withProject(QStringList args, const QString& project)
{
    for (QString& arg : args)
        if (arg == QLatin1String("P")) arg = project;
    return args;
}
}  // namespace

QString TstCliSafety::freshProject(const QString& name)
{
    const QString path = m_tmp.filePath(name);
    QDir(path).removeRecursively();
    return copyTree(m_template, path) ? path : QString();
}

QStringList TstCliSafety::dataSets(const QString& project)
{
    const TstCliRunner::Result r = TstCliRunner::run({"dataset", "list", project});
    return r.ok() ? QString::fromUtf8(r.out).split('\n', Qt::SkipEmptyParts) : QStringList{"(unreadable)"};
}

// The project's files, less the lock file a killed holder may leave (the next
// holder takes it over).
QMap<QString, QByteArray> TstCliSafety::state(const QString& project)
{
    QMap<QString, QByteArray> files = TstCliRunner::snapshot(project);
    files.remove(QStringLiteral("/.lock"));
    return files;
}

void TstCliSafety::initTestCase()
{
    LAS_REQUIRE_SHARED_DATA();
    QVERIFY(m_tmp.isValid());
    for (const char* copy : {"simple.las", "a.las", "b.las"})
        QVERIFY(QFile::copy(lasTestData::path("las/simple.las"), m_tmp.filePath(copy)));
    m_template = m_tmp.filePath("template");
    m_demo = m_tmp.filePath("demo");  // runs long enough to be interrupted half-way
    for (const QStringList& step :
         {QStringList{"import", m_tmp.filePath("simple.las"), "--project", m_template},
          QStringList{"run", m_template, "simple", "--func", "3", "--params", "[64, 5]"},
          QStringList{"demo", m_tmp.filePath("demo.las"), "--points", "400000"},
          QStringList{"import", m_tmp.filePath("demo.las"), "--project", m_demo},
          QStringList{"run", m_demo, "demo", "--func", "3", "--params", "[64, 5]"}}) {
        const TstCliRunner::Result r = TstCliRunner::run(step);
        QVERIFY2(r.ok(), r.describe());
    }
}

void TstCliSafety::escapingPathsAreRefused_data()
{
    QTest::addColumn<QString>("folder");         // dataset x's folder in project.json ("" keeps the manifest)
    QTest::addColumn<QString>("meshPath");       // a mesh of dataset simple in its dataset.json
    QTest::addColumn<QStringList>("command");
    QTest::addColumn<QString>("reason");
    const QStringList removeX{"dataset", "remove", "P", "x"};
    QTest::newRow("parent folder") << "../victim" << "" << removeX << "is not inside";
    QTest::newRow("climbing out of datasets") << "datasets/../../victim" << "" << removeX << "is not inside";
    QTest::newRow("absolute") << "VICTIM" << "" << removeX << "is not inside";
    QTest::newRow("symbolic link out") << "datasets/link" << "" << removeX << "is not inside";
    QTest::newRow("content outside its dataset") << "" << "../../../victim/keep.pcb"
                                                 << QStringList{"dataset", "copy", "P", "simple", "copied"}
                                                 << "leads outside";
    // An unreadable dataset manifest is never written over: it would forget the contents.
    QTest::newRow("truncated dataset manifest") << "" << "TRUNCATE"
                                                << QStringList{"run", "P", "simple", "--func", "101", "--params", "[5, 3]"}
                                                << "until repaired";
}

void TstCliSafety::escapingPathsAreRefused()
{
    QFETCH(QString, folder);
    QFETCH(QString, meshPath);
    QFETCH(QStringList, command);
    QFETCH(QString, reason);
    const QString row = m_tmp.filePath(QString::number(qHash(QTest::currentDataTag())));
    QVERIFY(QDir().mkpath(row + "/victim"));
    const QString project = row + "/project", canary = row + "/victim/keep.pcb";
    QVERIFY(copyTree(m_template, project));
    QFile keep(canary);
    QVERIFY(keep.open(QIODevice::WriteOnly) && keep.write("keep") == 4);
    keep.close();
    QVERIFY(QFile::link(row + "/victim", project + "/datasets/link"));
    auto edit = [](const QString& path, const QString& key, const QString& name, const QString& value) {
        QFile f(path);
        if (!f.open(QIODevice::ReadWrite)) return false;
        QJsonObject o = QJsonDocument::fromJson(f.readAll()).object();
        QJsonObject inner = o.value(key).toObject();
        inner.insert(name, value);
        o.insert(key, inner);
        return f.resize(0) && f.write(QJsonDocument(o).toJson()) > 0;
    };
    if (!folder.isEmpty())
        QVERIFY(edit(project + "/project.json", "datasets", "x", folder == "VICTIM" ? row + "/victim" : folder));
    if (meshPath == "TRUNCATE")
        QVERIFY(QFile::resize(project + "/datasets/simple/dataset.json", 20));
    else if (!meshPath.isEmpty())
        QVERIFY(edit(project + "/datasets/simple/dataset.json", "meshes", "m", meshPath));

    const QMap<QString, QByteArray> before = state(project);
    const TstCliRunner::Result r = TstCliRunner::run(withProject(command, project));
    QVERIFY2(!r.ok() && r.errLine().contains(reason), r.describe());
    QVERIFY(QFileInfo::exists(canary));
    QCOMPARE(state(project), before);
}

void TstCliSafety::failedWritesChangeNothing_data()
{
    QTest::addColumn<QStringList>("command");
    const QString other = m_tmp.filePath("a.las");
    QTest::newRow("rename") << QStringList{"dataset", "rename", "P", "simple", "renamed"};
    QTest::newRow("remove") << QStringList{"dataset", "remove", "P", "simple"};
    QTest::newRow("reference a LAS file") << QStringList{"las", "import", "P", other};
    QTest::newRow("import") << QStringList{"import", other, "--project", "P"};
    QTest::newRow("make") << QStringList{"dataset", "make", "P", "made", "--las", "simple.las"};
    QTest::newRow("copy") << QStringList{"dataset", "copy", "P", "simple", "copied"};
    QTest::newRow("merge") << QStringList{"dataset", "merge", "P", "merged", "simple"};
    QTest::newRow("split") << QStringList{"run", "P", "simple", "--func", "101", "--params", "[5, 3]"};
    QTest::newRow("DEM again") << QStringList{"run", "P", "simple", "--func", "3", "--params", "[64, 5]"};
    QTest::newRow("thinning") << QStringList{"run", "P", "simple", "--func", "200"};
}

void TstCliSafety::failedWritesChangeNothing()
{
    QFETCH(QStringList, command);
    const QString project = freshProject("full");
    const QMap<QString, QByteArray> before = state(project);
    // Room for the lock file, not for a manifest, block file or LAS reference.
    const TstCliRunner::Result r = TstCliRunner::run(withProject(command, project), 300000, 100);
    QVERIFY2(!r.ok() && r.errLine().contains(QString::fromLocal8Bit(std::strerror(EFBIG))), r.describe());
    QVERIFY(!r.errLine().contains('\n'));
    QCOMPARE(state(project), before);
    QCOMPARE(dataSets(project), QStringList{"simple"});
}

void TstCliSafety::racingCommandsLoseNothing_data()
{
    // Each command with the names it leaves present and absent when it reports success.
    QTest::addColumn<QStringList>("first");
    QTest::addColumn<QStringList>("second");
    QTest::addColumn<QStringList>("presentAfterFirst");
    QTest::addColumn<QStringList>("presentAfterSecond");
    QTest::addColumn<QString>("goneAfterSecond");
    const QStringList importA{"import", m_tmp.filePath("a.las"), "--project", "P"};
    QTest::newRow("import and import") << importA << QStringList{"import", m_tmp.filePath("b.las"), "--project", "P"}
                                       << QStringList{"a"} << QStringList{"b"} << "";
    QTest::newRow("import and rename") << importA << QStringList{"dataset", "rename", "P", "simple", "renamed"}
                                       << QStringList{"a"} << QStringList{"renamed"} << "simple";
    QTest::newRow("copy and remove") << QStringList{"dataset", "copy", "P", "simple", "copied"}
                                     << QStringList{"dataset", "remove", "P", "simple"} << QStringList{"copied"}
                                     << QStringList{} << "simple";
}

void TstCliSafety::racingCommandsLoseNothing()
{
    QFETCH(QStringList, first);
    QFETCH(QStringList, second);
    QFETCH(QStringList, presentAfterFirst);
    QFETCH(QStringList, presentAfterSecond);
    QFETCH(QString, goneAfterSecond);
    for (int round = 0; round < 20; ++round) {
        const QString project = freshProject("race");
        QProcess a, b;
        a.start(TstCliRunner::binary(), withProject(first, project));
        b.start(TstCliRunner::binary(), withProject(second, project));
        QVERIFY(a.waitForFinished(60000) && b.waitForFinished(60000));
        const QStringList names = dataSets(project);
        QStringList expected;
        if (a.exitCode() == 0) expected << presentAfterFirst;
        if (b.exitCode() == 0) expected << presentAfterSecond;
        for (const QString& name : expected) {
            QVERIFY2(names.contains(name), qPrintable(QStringLiteral("round %1: %2 missing from %3")
                                                          .arg(round).arg(name, names.join(' '))));
            QString error;
            QVERIFY2(!TstCliRunner::info(project, name, &error).isEmpty(), qPrintable(error));
        }
        if (b.exitCode() == 0 && !goneAfterSecond.isEmpty()) QVERIFY(!names.contains(goneAfterSecond));
    }
}

void TstCliSafety::lockIsWaitedForOrTakenOver_data()
{
    QTest::addColumn<bool>("holderRuns");
    QTest::newRow("left by a process that ended") << false;
    QTest::newRow("held by a running process") << true;
}

void TstCliSafety::lockIsWaitedForOrTakenOver()
{
    QFETCH(bool, holderRuns);
    const QString project = freshProject("locked");
    QLockFile held(project + "/.lock");
    QProcess ended;
    if (holderRuns) {
        QVERIFY(held.tryLock(0));
    } else {
        // The lock file as a process that has ended would have left it.
        ended.start(QStringLiteral("true"), QStringList());
        QVERIFY(ended.waitForStarted());
        const qint64 pid = ended.processId();
        QVERIFY(ended.waitForFinished());
        QFile f(project + "/.lock");
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(QByteArray::number(pid) + "\nptcloud\n" + QSysInfo::machineHostName().toUtf8() + "\n");
    }
    const TstCliRunner::Result r = TstCliRunner::run({"dataset", "rename", project, "simple", "renamed"});
    if (holderRuns) {
        QVERIFY2(!r.ok() && r.errLine().endsWith(
                                QStringLiteral("project is busy (locked by PID %1)").arg(QCoreApplication::applicationPid())),
                 r.describe());
        QCOMPARE(dataSets(project), QStringList{"simple"});
    } else {
        QVERIFY2(r.ok(), r.describe());
        QCOMPARE(dataSets(project), QStringList{"renamed"});
    }
}

void TstCliSafety::interruptedRunsLeaveNothing_data()
{
    QTest::addColumn<QStringList>("run");
    QTest::addColumn<int>("signal");
    const QStringList dem{"run", "P", "demo", "--func", "3", "--params", "[64, 5]"};
    const QStringList thinning{"run", "P", "demo", "--func", "200", "--params", "[0.5, 5, 0.1]"};
    const QStringList split{"run", "P", "demo", "--func", "101", "--params", "[50, 8]", "--target", "k"};
    for (int sig : {SIGINT, SIGKILL}) {
        const char* how = sig == SIGINT ? "stopped" : "killed";
        QTest::addRow("DEM again, %s", how) << dem << sig;
        QTest::addRow("thinning, %s", how) << thinning << sig;
        QTest::addRow("split, %s", how) << split << sig;
    }
}

void TstCliSafety::interruptedRunsLeaveNothing()
{
    QFETCH(QStringList, run);
    QFETCH(int, signal);
    const QString project = m_tmp.filePath("interrupted");
    QDir(project).removeRecursively();
    QVERIFY(copyTree(m_demo, project));
    const QMap<QString, QByteArray> before = state(project);
    QProcess process;
    process.start(TstCliRunner::binary(), withProject(run, project));
    QVERIFY(process.waitForStarted());
    QVERIFY2(!process.waitForFinished(700), "the run ended before it could be interrupted");
    ::kill(pid_t(process.processId()), signal);
    QVERIFY(process.waitForFinished(60000));
    if (signal == SIGINT) QVERIFY(process.readAllStandardError().contains("cancelled"));
    // Opening the project again clears what the killed process left.
    QCOMPARE(dataSets(project), QStringList{"demo"});
    QCOMPARE(state(project), before);
}

QTEST_GUILESS_MAIN(TstCliSafety)
#include "tst_cli_safety.moc"
