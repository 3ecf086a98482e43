// ptcloud run, volume and section end to end on the demo scene, whose
// stockpile has a known volume: what each prints, what it adopts into the
// project, and that refusals and stops leave the project as it was.

#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>
#include <cmath>
#include <cstring>
#include <csignal>
#include <memory>
#include <set>

#include "LasReader.h"
#include "PtCloudDataSet.h"
#include "PtCloud_BlockFileWriter.h"
#include "PtCloud_ContourFile.h"
#include "PtCloud_Controller.h"
#include "PtCloud_DataSetFile.h"
#include "PtCloud_DemoScene.h"
#include "PtCloud_Project.h"
#include "tst_cli_runner.h"

using namespace ptCloud;

namespace {
// Dense enough for a 1 m grid to find points in most cells of the stockpile.
const quint64 kScenePoints = 300000;

// Class histogram of a LAS file.
QMap<int, quint64> classesOf(const QString& las, QString* error)
{
    QMap<int, quint64> histogram;
    LasReader reader;
    if (!reader.open(las, error)) return histogram;
    stPtCloud_PointArray chunk;
    qint64 n;
    while ((n = reader.readChunk(chunk, 65536, {DSC_Location, DSC_Classification}, pcVec3d(), error)) > 0) {
        const quint8* classes = chunk.columnData<quint8>(DSC_Classification);
        for (qint64 i = 0; i < n; ++i) ++histogram[classes[i]];
    }
    return histogram;
}

// The signed 32-bit extra-bytes field "label" of every record, found the
// way other software finds it: through the Extra Bytes record's descriptor.
QList<int> extraLabelsOf(const QString& las, QString* error)
{
    QFile f(las);
    if (!f.open(QIODevice::ReadOnly)) {
        *error = f.errorString();
        return {};
    }
    const QByteArray data = f.readAll();
    auto at = [&](int offset, auto value) {
        std::memcpy(&value, data.constData() + offset, sizeof(value));
        return value;
    };
    const int recordLength = at(105, quint16());
    const quint64 count = at(247, quint64());
    int vlr = at(94, quint16());
    for (quint32 k = 0, vlrs = at(100, quint32()); k < vlrs; ++k) {
        const int length = at(vlr + 20, quint16());
        const char* d = data.constData() + vlr + 54;
        if (QByteArray(data.constData() + vlr + 2) == "LASF_Spec" && at(vlr + 18, quint16()) == 4 && length == 192 &&
            d[2] == 6 && QByteArray(d + 4) == "label") {
            QList<int> labels;
            const int first = int(at(96, quint32()));
            for (quint64 i = 0; i < count; ++i)
                labels << at(first + int(i) * recordLength + recordLength - 4, qint32());
            return labels;
        }
        vlr += 54 + length;
    }
    *error = QStringLiteral("no \"label\" extra bytes");
    return {};
}

// The files below dir with their hashes: folders made on the way do not count.
QMap<QString, QByteArray> filesOf(const QString& dir)
{
    QMap<QString, QByteArray> files = TstCliRunner::snapshot(dir);
    for (auto it = files.begin(); it != files.end();)
        it = it.value() == "folder" ? files.erase(it) : it + 1;
    return files;
}

// Adds a split "labelled" to dataset "demo" of a project: a row of points
// carrying the given labels, as a clustering would leave them.
bool addLabelledSplit(const QString& dir, const QList<int>& labels, QString* error)
{
    PtCloud_Project project;
    if (!project.open(dir, error)) return false;
    PtCloudDataSet* ds = project.getController()->getDataSet("demo");
    std::unique_ptr<PtCloud_DataSetFile> file(ds->createEmptyLocatedContent_Split("labelled"));
    stPtCloud_PointArray block;
    block.origin = pcVec3d(500000.0, 4000000.0, 100.0);
    for (int i = 0; i < labels.size(); ++i) block.positions.emplace_back(float(i), 0.f, 0.f);
    block.count = labels.size();
    block.addColumn(DSC_Label);
    std::copy(labels.begin(), labels.end(), block.columnData<qint32>(DSC_Label));
    stPtCloud_DataSetHeader header;
    header.type = DST_Split;
    header.coloringMode = CM_Cluster;
    header.origin = block.origin;
    header.columns = block.columnList();
    PtCloud_BlockFileWriter writer(file->getFilepath());
    if (!writer.begin(header, error) || !writer.writeBlock(0, block, error) || !writer.commit(error)) return false;
    return ds->addContent_Split("labelled", file.release());
}

QString coordinates(double x, double y)
{
    return QStringLiteral("%1,%2").arg(x, 0, 'f', 3).arg(y, 0, 'f', 3);
}

// A square around the stockpile, well inside its flat pad.
QString stockpileSquare()
{
    const PtCloud_DemoScene::Stockpile s = PtCloud_DemoScene::stockpile();
    const double h = 25.0;
    return QStringList{coordinates(s.x - h, s.y - h), coordinates(s.x + h, s.y - h), coordinates(s.x + h, s.y + h),
                       coordinates(s.x - h, s.y + h)}
        .join(QLatin1Char(';'));
}
}  // namespace

class TstCliRun : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void stockpileVolume_data();
    void stockpileVolume();
    void volumeAsText();
    void sectionKeepsTheStrip_data();
    void sectionKeepsTheStrip();
    void demReplacesProducts();
    void clothSplitExportsClasses();
    void sampleKeepsShare();
    void splitLabelsBecomeClasses_data();
    void splitLabelsBecomeClasses();
    void refusals_data();
    void refusals();
    void interruptAdoptsNothing();

private:
    // Runs a command that must succeed quietly; returns its stdout.
    QByteArray ok(const QStringList& args);
    // A new project with the demo scene as dataset "demo".
    QString freshProject(const QString& name);
    // Exports a content of "demo" as LAS and reads its classes back.
    QMap<int, quint64> exportedClasses(const QString& project, const QString& content);

    QTemporaryDir m_tmp;
    QString m_las;
    QString m_plain;  // never changed by a test
    QString m_site;   // with a DEM
    int m_exports = 0;
};

QByteArray TstCliRun::ok(const QStringList& args)
{
    const TstCliRunner::Result r = TstCliRunner::run(args);
    if (!r.ok() || !r.err.isEmpty()) {
        QTest::qFail(qPrintable(args.join(' ') + ": " + r.describe()), __FILE__, __LINE__);
        return QByteArray("failed");
    }
    return r.out;
}

QString TstCliRun::freshProject(const QString& name)
{
    const QString dir = m_tmp.filePath(name);
    ok({"import", m_las, "--project", dir});
    return dir;
}

QMap<int, quint64> TstCliRun::exportedClasses(const QString& project, const QString& content)
{
    const QString las = m_tmp.filePath(QStringLiteral("export_%1.las").arg(++m_exports));
    ok({"dataset", "export", project, "demo", las, "--content", content});
    QString error;
    const QMap<int, quint64> classes = classesOf(las, &error);
    if (!error.isEmpty()) QTest::qFail(qPrintable(las + ": " + error), __FILE__, __LINE__);
    return classes;
}

void TstCliRun::initTestCase()
{
    QVERIFY(m_tmp.isValid());
    m_las = m_tmp.filePath("demo.las");
    ok({"demo", m_las, "--points", QString::number(kScenePoints)});
    m_plain = freshProject("plain");
    m_site = freshProject("site");
    // The studio's list: 1920 pixels, 50 contour levels.
    QCOMPARE(ok({"run", m_site, "demo", "--func", "3"}),
             QByteArray("result: 0\ndem: mesh, height map, contour, classify\n"));
}

void TstCliRun::stockpileVolume_data()
{
    QTest::addColumn<QString>("method");
    QTest::addColumn<bool>("fixedGround");
    QTest::addColumn<double>("grid");
    QTest::newRow("grid, ground at the pad") << "grid" << true << 0.5;
    QTest::newRow("grid, boundary average") << "grid" << false << 1.0;
    QTest::newRow("dtm, ground at the pad") << "dtm" << true << 0.5;
    QTest::newRow("dtm, boundary average") << "dtm" << false << 1.0;
}

void TstCliRun::stockpileVolume()
{
    QFETCH(QString, method);
    QFETCH(bool, fixedGround);
    QFETCH(double, grid);
    const PtCloud_DemoScene::Stockpile s = PtCloud_DemoScene::stockpile();
    const QMap<QString, QByteArray> before = TstCliRunner::snapshot(m_site);
    // The top keeps high outliers and nothing of the pile out.
    const QString ground = fixedGround ? QStringLiteral("fixed:%1").arg(s.baseZ, 0, 'f', 4) : QStringLiteral("avg");
    const QByteArray out = ok({"volume", m_site, "demo", "--polygon", stockpileSquare(), "--ground", ground, "--top",
                               QString::number(s.baseZ + s.height + 2.0), "--grid", QString::number(grid), "--method",
                               method, "--json"});
    const QJsonObject o = QJsonDocument::fromJson(out).object();
    QCOMPARE(o.value("method").toString(), method);
    const double expected = s.volume();  // pi r^2 h / 3
    const double dig = o.value("dig").toDouble(), fill = o.value("fill").toDouble();
    QVERIFY2(std::fabs(dig - expected) < 0.03 * expected,
             qPrintable(QStringLiteral("dig %1, cone %2").arg(dig).arg(expected)));
    QVERIFY2(fill < 0.01 * expected, qPrintable(QStringLiteral("fill %1").arg(fill)));
    // The pad is flat: the outline's average is its height.
    QVERIFY2(std::fabs(o.value("boundaryAverage").toDouble() - s.baseZ) < 0.05, out.constData());
    QCOMPARE(o.value("ground").toDouble(), fixedGround ? std::round(s.baseZ * 1e4) / 1e4
                                                       : o.value("boundaryAverage").toDouble());
    QVERIFY(o.value(method == "grid" ? "points" : "cells").toInt() > 0);
    QCOMPARE(TstCliRunner::snapshot(m_site), before);
}

void TstCliRun::volumeAsText()
{
    const PtCloud_DemoScene::Stockpile s = PtCloud_DemoScene::stockpile();
    const QString out = QString::fromUtf8(ok({"volume", m_site, "demo", "--polygon", stockpileSquare(), "--top",
                                              QString::number(s.baseZ + s.height + 2.0), "--grid", "1"}));
    auto line = [&](const char* pattern) {
        return QRegularExpression(QString::fromUtf8(pattern), QRegularExpression::MultilineOption).match(out);
    };
    const QRegularExpressionMatch dig = line("^dig: +(\\d+\\.\\d\\d) m³$");
    QVERIFY2(dig.hasMatch(), qPrintable(out));
    QVERIFY(std::fabs(dig.captured(1).toDouble() - s.volume()) < 0.03 * s.volume());
    QVERIFY2(line("^fill: +\\d+\\.\\d\\d m³$").hasMatch(), qPrintable(out));
    QVERIFY2(line("^boundary average: +\\d+\\.\\d\\d m$").hasMatch(), qPrintable(out));
}

void TstCliRun::sectionKeepsTheStrip_data()
{
    QTest::addColumn<double>("angle");
    QTest::addColumn<double>("width");
    QTest::newRow("east over the pile, 3 m") << 0.0 << 3.0;
    QTest::newRow("north-north-west, 0.5 m") << 112.0 << 0.5;
}

void TstCliRun::sectionKeepsTheStrip()
{
    QFETCH(double, angle);
    QFETCH(double, width);
    const PtCloud_DemoScene::Stockpile s = PtCloud_DemoScene::stockpile();
    const double dx = std::cos(angle * M_PI / 180), dy = std::sin(angle * M_PI / 180), length = 100.0;
    const double ax = s.x - 50 * dx, ay = s.y - 50 * dy;
    // The classes of the points of a LAS file that lie in the strip (widened
    // by margin), from their absolute coordinates: along the line from its
    // start and across it.
    auto strip = [&](const QString& las, double margin, QString* error) {
        QMap<int, quint64> classes;
        LasReader reader;
        if (!reader.open(las, error)) return classes;
        stPtCloud_PointArray chunk;
        while (reader.readChunk(chunk, 65536, {DSC_Location, DSC_Classification}, pcVec3d(ax, ay, 0), error) > 0) {
            const quint8* cls = chunk.columnData<quint8>(DSC_Classification);
            for (int i = 0; i < chunk.count; ++i) {
                const pcVec3f& p = chunk.positions[size_t(i)];
                const double along = p.x * dx + p.y * dy, across = p.y * dx - p.x * dy;
                if (along >= -margin && along <= length + margin && std::fabs(across) <= width / 2 + margin)
                    ++classes[cls[i]];
            }
        }
        return classes;
    };
    const QString out = m_tmp.filePath(QStringLiteral("section_%1.las").arg(angle));
    ok({"section", m_plain, "demo", "--from", coordinates(ax, ay), "--to", coordinates(ax + length * dx, ay + length * dy),
        "--width", QString::number(width), out});
    QString error;
    const QMap<int, quint64> kept = strip(out, 0.001, &error);
    QVERIFY2(error.isEmpty(), qPrintable(error));
    // Every point written lies in the strip (to the file's millimetre) with
    // its class, and they are the source's points there, give or take those
    // within a millimetre of an edge.
    QCOMPARE(classesOf(out, &error), kept);
    const QMap<int, quint64> fewest = strip(m_las, -0.001, &error), most = strip(m_las, 0.001, &error);
    QVERIFY(!fewest.isEmpty());
    for (auto it = most.cbegin(); it != most.cend(); ++it)
        QVERIFY2(kept.value(it.key()) >= fewest.value(it.key()) && kept.value(it.key()) <= it.value(),
                 qPrintable(QStringLiteral("class %1: %2 in [%3, %4]").arg(it.key()).arg(kept.value(it.key()))
                                .arg(fewest.value(it.key())).arg(it.value())));
}

void TstCliRun::demReplacesProducts()
{
    // The site has the DEM of initTestCase: it goes, the new one comes.
    QCOMPARE(ok({"run", m_site, "demo", "--func", "3", "--params", "[800, 20]"}),
             QByteArray("result: 0\ndem: mesh, height map, contour, classify\n"));
    {
        PtCloud_Project project;
        QString error;
        QVERIFY2(project.open(m_site, &error), qPrintable(error));
        PtCloudDataSet* ds = project.getController()->getDataSet("demo");
        QVERIFY(ds && ds->getContent_Dem_Mesh() && ds->getContent_Dem_Classify());
        QImage* map = ds->getContent_Dem_HeightMap();
        QVERIFY(map);
        QCOMPARE(std::max(map->width(), map->height()), 800);
        PtCloud_ContourFile* contours = ds->getContent_Dem_Contour();
        QVERIFY(contours && contours->openFile());
        std::set<double> levels;
        for (const PtCloud_ContourFile::Polyline& line : contours->lines()) levels.insert(line.level);
        QVERIFY2(levels.size() > 1 && levels.size() <= 20, qPrintable(QString::number(levels.size())));
    }
    // The classification as LAS: every point, ground or not.
    const QMap<int, quint64> classes = exportedClasses(m_site, "dem-classify");
    QCOMPARE(classes.keys(), QList<int>({1, 2}));
    QCOMPARE(classes.value(1) + classes.value(2), kScenePoints);
}

void TstCliRun::clothSplitExportsClasses()
{
    const QString p = freshProject("cloth");
    QCOMPARE(ok({"run", p, "demo", "--func", "107", "--params", "[true, 0.5, 0.5, 500, 3, 0.65, false]", "--target",
                 "ground"}),
             QByteArray("result: 0\nsplit: ground\n"));
    const QMap<int, quint64> classes = exportedClasses(p, "split:ground");
    QCOMPARE(classes.keys(), QList<int>({1, 2}));
    QCOMPARE(classes.value(1) + classes.value(2), kScenePoints);
    // How well the cloth finds the ground is its own tests' business; here
    // the classes must be the filter's, so near the scene's own ground.
    QString error;
    const quint64 truth = classesOf(m_las, &error).value(2);
    QVERIFY2(std::fabs(double(classes.value(2)) - double(truth)) < 0.1 * double(truth),
             qPrintable(QStringLiteral("ground %1, scene %2").arg(classes.value(2)).arg(truth)));

    // Removing the ground, unnamed: the same cloth keeps exactly the non-ground points.
    QCOMPARE(ok({"run", p, "demo", "--func", "107", "--params", "[true, 0.5, 0.5, 500, 3, 0.65, true]"}),
             QByteArray("result: 0\nsplit: CSF 1\n"));
    const QMap<int, quint64> kept = exportedClasses(p, "split:CSF 1");
    QCOMPARE(kept.keys(), QList<int>({1}));
    QCOMPARE(kept.value(1), classes.value(1));
}

void TstCliRun::sampleKeepsShare()
{
    const QString p = freshProject("sample");
    QCOMPARE(ok({"run", p, "demo", "--func", "200", "--params", "[0.25, 5.0, 0.1]"}),
             QByteArray("result: 0\npoints: demo\n"));
    QString error;
    const QJsonObject info = TstCliRunner::info(p, "demo", &error);
    QVERIFY2(error.isEmpty(), qPrintable(error));
    QCOMPARE(info.value("points").toDouble(), std::round(0.25 * double(kScenePoints)));
}

void TstCliRun::splitLabelsBecomeClasses_data()
{
    QTest::addColumn<QList<int>>("labels");
    QTest::addColumn<bool>("asClasses");
    QTest::newRow("clusters") << QList<int>{0, 1, 1, 7, 7, 7, 255} << true;
    QTest::newRow("beyond a byte") << QList<int>{3, 256, 4, 70000} << false;
    QTest::newRow("negative") << QList<int>{3, -1} << false;
}

void TstCliRun::splitLabelsBecomeClasses()
{
    QFETCH(QList<int>, labels);
    QFETCH(bool, asClasses);
    const QString p = freshProject(QStringLiteral("labels %1").arg(QTest::currentDataTag()));
    QString error;
    QVERIFY2(addLabelledSplit(p, labels, &error), qPrintable(error));
    const QString las = m_tmp.filePath(QStringLiteral("labels_%1.las").arg(QTest::currentDataTag()));
    const TstCliRunner::Result r =
        TstCliRunner::run({"dataset", "export", p, "demo", las, "--content", "split:labelled"});
    QVERIFY2(r.ok(), r.describe().constData());
    // A class that would stand for another cluster is never written: such
    // labels live in the extra field only, and the user is told.
    QCOMPARE(r.err.contains("do not fit the LAS classification"), !asClasses);
    QMap<int, quint64> expected;
    for (int label : labels) ++expected[asClasses ? label : 0];
    QCOMPARE(classesOf(las, &error), expected);
    QCOMPARE(extraLabelsOf(las, &error), labels);
    QVERIFY2(error.isEmpty(), qPrintable(error));
}

void TstCliRun::refusals_data()
{
    // %P: a project without a DEM; %O: an output file. Each refusal leaves both as they were.
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("reason");
    const QStringList run{"run", "%P", "demo"};
    QTest::newRow("unknown code") << run + QStringList{"--func", "4"} << 1 << "function can not execute";
    QTest::newRow("code above the sample") << run + QStringList{"--func", "201", "--params", "[1]"} << 1
                                           << "function can not execute";
    QTest::newRow("bad JSON") << run + QStringList{"--func", "107", "--params", "[1,2"} << 2 << "JSON list";
    QTest::newRow("JSON object") << run + QStringList{"--func", "100", "--params", "{\"epsilon\": 0.2}"} << 2
                                 << "JSON list";
    QTest::newRow("too few entries") << run + QStringList{"--func", "100", "--params", "[0.2]"} << 2
                                     << "takes 3 entries";
    QTest::newRow("fraction for a count") << run + QStringList{"--func", "100", "--params", "[0.2, 4.5, true]"}
                                          << 2 << "entry 2 is min pts";
    QTest::newRow("number for a flag") << run + QStringList{"--func", "100", "--params", "[0.2, 45, 1]"} << 2
                                       << "entry 3 is retain noise";
    QTest::newRow("share above one") << run + QStringList{"--func", "200", "--params", "[1.5, 5, 0.1]"} << 2
                                     << "entry 1 is target share";
    QTest::newRow("no code") << run << 2 << "--func";
    QTest::newRow("code not a number") << run + QStringList{"--func", "csf"} << 2 << "--func";
    QTest::newRow("target of a sample") << run + QStringList{"--func", "200", "--target", "x"} << 2 << "--target";
    QTest::newRow("target with a slash") << run + QStringList{"--func", "107", "--target", "a/b"} << 2 << "--target";
    QTest::newRow("missing dataset") << QStringList{"run", "%P", "nope", "--func", "107"} << 1 << "no dataset nope";
    QTest::newRow("not a project") << QStringList{"run", "%P/none", "demo", "--func", "107"} << 1
                                   << "is not a project";

    const QStringList volume{"volume", "%P", "demo", "--polygon"};
    QTest::newRow("two vertices") << volume + QStringList{"1,1;2,2"} << 2 << "three vertices";
    QTest::newRow("vertex not x,y") << volume + QStringList{"1,1;2;3,3"} << 2 << "\"2\" is not x,y";
    QTest::newRow("ground word") << volume + QStringList{stockpileSquare(), "--ground", "low"} << 2 << "--ground";
    QTest::newRow("grid of zero") << volume + QStringList{stockpileSquare(), "--grid", "0"} << 2 << "--grid";
    QTest::newRow("unknown method") << volume + QStringList{stockpileSquare(), "--method", "tin"} << 2 << "--method";
    QTest::newRow("no polygon") << QStringList{"volume", "%P", "demo"} << 2 << "--polygon";
    QTest::newRow("volume of a missing dataset") << QStringList{"volume", "%P", "nope", "--polygon", stockpileSquare()}
                                                 << 1 << "no dataset nope";
    QTest::newRow("dtm without a DEM") << volume + QStringList{stockpileSquare(), "--method", "dtm"} << 1
                                       << "no DEM mesh";

    const QStringList exportLas{"dataset", "export", "%P", "demo", "%O", "--content"};
    QTest::newRow("missing split") << exportLas + QStringList{"split:nope"} << 1 << "no split \"nope\"";
    QTest::newRow("unknown content") << exportLas + QStringList{"tin:x"} << 1 << "--content";
    QTest::newRow("no DEM to export") << exportLas + QStringList{"dem-classify"} << 1 << "no DEM classification";
}

void TstCliRun::refusals()
{
    QFETCH(QStringList, args);
    QFETCH(int, exitCode);
    QFETCH(QString, reason);
    const QString output = m_tmp.filePath("refused.las");
    args.replaceInStrings("%P", m_plain);
    args.replaceInStrings("%O", output);
    const QMap<QString, QByteArray> before = TstCliRunner::snapshot(m_plain);
    const TstCliRunner::Result r = TstCliRunner::run(args);
    const QString what = args.join(' ') + ": " + QString::fromUtf8(r.err);
    QVERIFY2(r.finished && r.exitCode == exitCode, qPrintable(what));
    QVERIFY2(r.out.isEmpty(), qPrintable(what));
    QVERIFY2(r.err.count('\n') == 1 && r.errLine().startsWith("ptcloud: "), qPrintable(what));
    QVERIFY2(r.errLine().contains(reason), qPrintable(what));
    QCOMPARE(TstCliRunner::snapshot(m_plain), before);
    QVERIFY(!QFileInfo::exists(output));
}

void TstCliRun::interruptAdoptsNothing()
{
    const QString p = freshProject("interrupted");
    const QMap<QString, QByteArray> files = filesOf(p), before = TstCliRunner::snapshot(p);
    QProcess process;
    process.start(TstCliRunner::binary(), {"run", p, "demo", "--func", "107", "--target", "stopped"});
    QVERIFY(process.waitForStarted());
    // The split's folder appears just before the action starts; the cloth
    // then runs for seconds on this scene.
    QElapsedTimer waited;
    waited.start();
    while (TstCliRunner::snapshot(p) == before && process.state() == QProcess::Running && waited.elapsed() < 60000)
        QThread::msleep(10);
    QThread::msleep(100);
    QCOMPARE(process.state(), QProcess::Running);
    QCOMPARE(::kill(pid_t(process.processId()), SIGINT), 0);
    QVERIFY(process.waitForFinished(120000));
    const QString err = QString::fromUtf8(process.readAllStandardError());
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 1);
    QVERIFY2(err.contains("cancelled"), qPrintable(err));
    QCOMPARE(filesOf(p), files);
}

QTEST_GUILESS_MAIN(TstCliRun)
#include "tst_cli_run.moc"
