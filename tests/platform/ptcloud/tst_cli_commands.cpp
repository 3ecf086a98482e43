// The ptcloud subcommands end to end on temporary folders: what each prints,
// what it changes, and how it refuses what it cannot do.

#include <QTemporaryDir>
#include <QtTest>

#include "tst_cli_runner.h"
#include "tst_las_data.h"

class TstCliCommands : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void lasReferences();
    void makeChoosesColumns_data();
    void makeChoosesColumns();
    void dataSetOperations();
    void importBesideTheFile();
    void importRefusesTakenName();
    void usageErrors_data();
    void usageErrors();
    void onlyInitMakesProjects_data();
    void onlyInitMakesProjects();

private:
    // Runs a command that must succeed quietly (no progress bar off a terminal).
    QByteArray ok(const QStringList& args);
    // Runs a command that must fail with one line containing reason.
    void fails(const QStringList& args, const QString& reason);

    QTemporaryDir m_tmp;
    QString m_simple, m_point10;
};

QByteArray TstCliCommands::ok(const QStringList& args)
{
    const TstCliRunner::Result r = TstCliRunner::run(args);
    if (!r.ok() || !r.err.isEmpty()) {
        QTest::qFail(qPrintable(args.join(' ') + ": " + r.describe()), __FILE__, __LINE__);
        return QByteArray("failed");
    }
    return r.out;
}

void TstCliCommands::fails(const QStringList& args, const QString& reason)
{
    const TstCliRunner::Result r = TstCliRunner::run(args);
    const QString what = args.join(' ') + ": " + QString::fromUtf8(r.err);
    QVERIFY2(r.finished && r.exitCode == 1, qPrintable(what));
    QVERIFY2(r.out.isEmpty(), qPrintable(what));
    QVERIFY2(r.err.count('\n') == 1 && r.errLine().startsWith("ptcloud: "), qPrintable(what));
    QVERIFY2(r.errLine().contains(reason), qPrintable(what));
}

void TstCliCommands::initTestCase()
{
    LAS_REQUIRE_SHARED_DATA();
    QVERIFY(m_tmp.isValid());
    // simple.las: format 3 (colour, GPS time); point10.las: format 0, same scene.
    m_simple = QFileInfo(lasTestData::path("las/simple.las")).absoluteFilePath();
    m_point10 = QFileInfo(lasTestData::path("las/point10.las")).absoluteFilePath();
}

void TstCliCommands::lasReferences()
{
    const QString p = m_tmp.filePath("refs");
    QCOMPARE(ok({"project", "init", p}), QByteArray());
    QCOMPARE(ok({"project", "init", p}), QByteArray());  // again: still the same project
    QCOMPARE(ok({"las", "import", p, m_simple, m_point10}), QByteArray("simple.las\npoint10.las\n"));
    // Another file of the same name gets a key of its own; the same file keeps its key.
    const QString twin = m_tmp.filePath("simple.las");
    QVERIFY(QFile::copy(m_simple, twin));
    QCOMPARE(ok({"las", "import", p, twin}), QByteArray("simple_2.las\n"));
    QCOMPARE(ok({"las", "import", p, m_simple}), QByteArray("simple.las\n"));
    const QString listing = QStringLiteral("point10.las\t%1\nsimple.las\t%2\nsimple_2.las\t%3\n")
                                .arg(m_point10, m_simple, QFileInfo(twin).absoluteFilePath());
    QCOMPARE(QString::fromUtf8(ok({"las", "list", p})), listing);
    QCOMPARE(ok({"las", "remove", p, "simple_2.las"}), QByteArray());
    QVERIFY(!ok({"las", "list", p}).contains("simple_2.las"));
    fails({"las", "remove", p, "simple_2.las"}, "simple_2.las");
    fails({"las", "import", p, m_tmp.filePath("missing.las")}, "missing.las");
}

void TstCliCommands::makeChoosesColumns_data()
{
    QTest::addColumn<QString>("las");
    QTest::addColumn<QString>("columns");  // the --columns value; "-" for none
    QTest::addColumn<QString>("expected");  // the dataset's columns, or the error
    QTest::addColumn<bool>("succeeds");
    const QString lasColumns = "Intensity,ReturnNumber,NumberOfReturnsGivenPulse,ScanDirectionFlag,"
                               "EdgeOfFlightingLine,Classification,ScanAngleRank,UserData,PointSourceId";
    QTest::newRow("default: all of one file") << "simple.las" << "-"
        << "Location,Color," + lasColumns + ",GpsTime" << true;
    QTest::newRow("all: those common to both") << "simple.las,point10.las" << "all" << "Location," + lasColumns
        << true;
    QTest::newRow("chosen, in value order, Location kept") << "simple.las" << "GpsTime,Color,Classification"
        << "Location,Color,Classification,GpsTime" << true;
    QTest::newRow("a column one file lacks") << "simple.las,point10.las" << "Color"
        << "Color is not in every chosen LAS file" << false;
    QTest::newRow("unknown column") << "simple.las" << "Colour" << "unknown column \"Colour\"" << false;
    QTest::newRow("unknown LAS key") << "nothing.las" << "-" << "nothing.las" << false;
}

void TstCliCommands::makeChoosesColumns()
{
    QFETCH(QString, las);
    QFETCH(QString, columns);
    QFETCH(QString, expected);
    QFETCH(bool, succeeds);
    const QString p = m_tmp.filePath("columns");
    if (!QFileInfo::exists(p)) {
        ok({"project", "init", p});
        ok({"las", "import", p, m_simple, m_point10});
    }
    const QString name = QString("set%1").arg(QTest::currentDataTag()).remove(QRegularExpression("[^A-Za-z]"));
    QStringList args{"dataset", "make", p, name, "--las", las};
    if (columns != "-") args << "--columns" << columns;
    if (!succeeds) {
        const QMap<QString, QByteArray> before = TstCliRunner::snapshot(p);
        fails(args, expected);
        QCOMPARE(TstCliRunner::snapshot(p), before);
        return;
    }
    ok(args);
    QString error;
    const QJsonObject info = TstCliRunner::info(p, name, &error);
    QVERIFY2(!info.isEmpty(), qPrintable(error));
    QCOMPARE(info.value("columns").toVariant().toStringList().join(','), expected);
}

void TstCliCommands::dataSetOperations()
{
    const QString p = m_tmp.filePath("sets");
    ok({"project", "init", p});
    ok({"las", "import", p, m_simple, m_point10});
    ok({"dataset", "make", p, "zeta", "--las", "simple.las"});
    ok({"dataset", "make", p, "alpha", "--las", "point10.las"});
    QCOMPARE(ok({"dataset", "list", p}), QByteArray("alpha\nzeta\n"));

    ok({"dataset", "copy", p, "zeta", "zeta copy"});
    ok({"dataset", "rename", p, "zeta copy", "eta"});
    ok({"dataset", "merge", p, "both", "alpha", "zeta"});
    QCOMPARE(ok({"dataset", "list", p}), QByteArray("alpha\nboth\neta\nzeta\n"));
    QString error;
    const QJsonObject eta = TstCliRunner::info(p, "eta", &error);
    const QJsonObject zeta = TstCliRunner::info(p, "zeta", &error);
    const QJsonObject both = TstCliRunner::info(p, "both", &error);
    QVERIFY2(!both.isEmpty(), qPrintable(error));
    QCOMPARE(eta.value("points").toDouble(), 1065.0);
    QCOMPARE(eta.value("bounds"), zeta.value("bounds"));
    QCOMPARE(both.value("points").toDouble(), 2130.0);

    ok({"dataset", "remove", p, "alpha"});
    QCOMPARE(ok({"dataset", "list", p}), QByteArray("both\neta\nzeta\n"));
    fails({"dataset", "rename", p, "eta", "ZETA"}, "ZETA");  // names differ by more than case
    fails({"dataset", "copy", p, "alpha", "again"}, "alpha");
    fails({"dataset", "remove", p, "alpha"}, "alpha");
    fails({"dataset", "info", p, "alpha"}, "no dataset alpha");
    fails({"dataset", "export", p, "alpha", m_tmp.filePath("alpha.las")}, "no dataset alpha");
    QVERIFY(!QFileInfo::exists(m_tmp.filePath("alpha.las")));

    const QString text = QString::fromUtf8(ok({"dataset", "info", p, "eta"}));
    QVERIFY2(text.contains("points:  1065 in ") && text.contains("classes: 1: ") && text.contains("Color"),
             qPrintable(text));
}

void TstCliCommands::importBesideTheFile()
{
    QTemporaryDir folder;
    const QString copy = folder.filePath("survey.day1.las");
    QVERIFY(QFile::copy(m_point10, copy));
    const QString project = folder.filePath("survey.day1.ptcloud");
    QCOMPARE(QString::fromUtf8(ok({"import", copy})).trimmed(), project);
    QCOMPARE(ok({"dataset", "list", project}), QByteArray("survey.day1\n"));
    QCOMPARE(ok({"las", "list", project}), QStringLiteral("survey.day1.las\t%1\n").arg(copy).toUtf8());
}

void TstCliCommands::importRefusesTakenName()
{
    const QString p = m_tmp.filePath("taken");
    ok({"import", m_simple, "--project", p});
    const QMap<QString, QByteArray> before = TstCliRunner::snapshot(p);
    fails({"import", m_simple, "--project", p}, "\"simple\"");
    QCOMPARE(TstCliRunner::snapshot(p), before);
}

void TstCliCommands::usageErrors_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("reason");
    QTest::newRow("nothing") << QStringList{} << "no command given";
    QTest::newRow("unknown command") << QStringList{"frobnicate", "x"} << "unknown command \"frobnicate x\"";
    QTest::newRow("missing argument") << QStringList{"dataset", "info", "p"} << "usage: ptcloud dataset info";
    QTest::newRow("extra argument") << QStringList{"las", "list", "p", "q"} << "usage: ptcloud las list";
    QTest::newRow("unknown option") << QStringList{"dataset", "list", "p", "--all"} << "unknown option --all";
    QTest::newRow("option without value") << QStringList{"demo", "x.las", "--points"} << "--points needs a value";
    QTest::newRow("not a number") << QStringList{"demo", "x.las", "--points", "many"} << "--points wants a whole number";
    QTest::newRow("zero points") << QStringList{"demo", "x.las", "--points", "0"} << "--points wants a whole number";
    QTest::newRow("make without --las") << QStringList{"dataset", "make", "p", "n"} << "--las";
}

void TstCliCommands::usageErrors()
{
    QFETCH(QStringList, args);
    QFETCH(QString, reason);
    const TstCliRunner::Result r = TstCliRunner::run(args);
    QVERIFY2(r.finished && r.exitCode == 2, r.describe());
    QVERIFY2(r.errLine().startsWith("ptcloud: ") && r.errLine().contains(reason), r.describe());
    QVERIFY(!r.errLine().contains('\n'));
}

void TstCliCommands::onlyInitMakesProjects_data()
{
    QTest::addColumn<QStringList>("args");  // DIR stands for the folder
    QTest::newRow("las list") << QStringList{"las", "list", "DIR"};
    QTest::newRow("las import") << QStringList{"las", "import", "DIR", m_simple};
    QTest::newRow("dataset make") << QStringList{"dataset", "make", "DIR", "n", "--las", "simple.las"};
}

void TstCliCommands::onlyInitMakesProjects()
{
    QFETCH(QStringList, args);
    QTemporaryDir folder;
    for (const QString& dir : {folder.filePath("missing"), folder.path()}) {
        QStringList call = args;
        call.replaceInStrings(QRegularExpression("^DIR$"), dir);
        fails(call, "is not a project");
        QCOMPARE(TstCliRunner::snapshot(folder.path()), (QMap<QString, QByteArray>()));
    }
}

QTEST_GUILESS_MAIN(TstCliCommands)
#include "tst_cli_commands.moc"
