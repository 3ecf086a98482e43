// Ground filters: the cloth simulation filter and the Patchwork++-style
// segmentation, on generated scenes whose ground is known by construction and
// on the ISPRS filter-test reference samples.
#include <QFile>
#include <QTextStream>
#include <QVector4D>
#include <QtTest>
#include <cmath>

#include "Algo_ClothFilter.h"
#include "Algo_PatchworkGround.h"
#include "PtCloud_SimpleProgress.h"

using namespace ptCloud;

namespace {

constexpr int kGround = 2;

struct Scene {
    std::vector<pcVec3f> points;
    std::vector<bool> ground;  // truth
    void add(float x, float y, float z, bool isGround)
    {
        points.emplace_back(x, y, z);
        ground.push_back(isGround);
    }
};

// Error measures of the filter literature, in percent.
struct Errors {
    double typeI = 0, typeII = 0, total = 0;
};

Errors errorsOf(const Scene& scene, const std::vector<int>& labels)
{
    size_t groundCount = 0, objectCount = 0, groundLost = 0, objectKept = 0;
    for (size_t i = 0; i < labels.size(); ++i) {
        const bool saidGround = labels[i] == kGround;
        if (scene.ground[i]) {
            ++groundCount;
            groundLost += !saidGround;
        } else {
            ++objectCount;
            objectKept += saidGround;
        }
    }
    Errors e;
    e.typeI = groundCount ? 100.0 * double(groundLost) / double(groundCount) : 0.0;
    e.typeII = objectCount ? 100.0 * double(objectKept) / double(objectCount) : 0.0;
    e.total = labels.empty() ? 0.0 : 100.0 * double(groundLost + objectKept) / double(labels.size());
    return e;
}

// "x y z label" lines, label 0 = bare earth; coordinates made relative to the
// first point as a dataset origin would.
bool loadIsprs(const QString& name, Scene* scene)
{
    QFile file(QStringLiteral(PTCLOUD_SHARED_DATA_DIR "/isprs/") + name);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) return false;
    QTextStream in(&file);
    double x, y, z, ox = 0, oy = 0, oz = 0;
    int label;
    while (true) {
        in >> x >> y >> z >> label;
        if (in.status() != QTextStream::Ok) break;
        if (scene->points.empty()) ox = x, oy = y, oz = z;
        scene->add(float(x - ox), float(y - oy), float(z - oz), label == 0);
    }
    return !scene->points.empty();
}

// A plane z = slope * x on a regular grid with flat-roofed boxes on it; roof
// and wall points are objects. Boxes: (centre x, centre y, side, height).
Scene terrainWithBoxes(float extent, float spacing, float slope, const std::vector<QVector4D>& boxes)
{
    Scene s;
    for (float x = 0; x < extent; x += spacing)
        for (float y = 0; y < extent; y += spacing) {
            const float ground = slope * x;
            bool covered = false;
            for (const QVector4D& b : boxes)
                if (std::fabs(x - b.x()) <= b.z() / 2 && std::fabs(y - b.y()) <= b.z() / 2) {
                    covered = true;
                    s.add(x, y, ground + b.w(), false);
                }
            if (!covered) s.add(x, y, ground, true);
        }
    return s;
}

// A car-mounted scan: 32 beams from 1.8 m above flat ground at (50, 50),
// each beam's ground hits on a ring, thinning out with range, plus the
// walls and roofs of boxes (side, height) standing at given ranges east.
Scene vehicleScan(const std::vector<QVector3D>& boxes)
{
    Scene s;
    const float cx = 50, cy = 50, height = 1.8f;
    auto inBox = [&](float x, float y, const QVector3D& b) {
        return std::fabs(x - (cx + b.x())) <= b.y() / 2 && std::fabs(y - cy) <= b.y() / 2;
    };
    for (int beam = 0; beam < 32; ++beam) {
        const double down = (2.0 + beam * 0.7) * M_PI / 180;  // 2 to 23.7 degrees below level
        const float r = float(height / std::tan(down));
        if (r > 78) continue;
        for (int a = 0; a < 1440; ++a) {
            const double az = a * 2 * M_PI / 1440;
            const float x = cx + r * float(std::cos(az)), y = cy + r * float(std::sin(az));
            bool hidden = false;
            for (const QVector3D& b : boxes) hidden |= inBox(x, y, b);
            if (!hidden) s.add(x, y, 0.f, true);
        }
    }
    for (const QVector3D& b : boxes) {
        const float x0 = cx + b.x() - b.y() / 2, y0 = cy - b.y() / 2;
        // the face towards the car, from above the height that counts as
        // ground by the distance threshold; sampled more thinly than the
        // ground next to the car, as a scanner would
        for (float u = 0; u <= b.y(); u += 0.25f)
            for (float v = 0.3f; v <= b.z(); v += 0.25f) s.add(x0, y0 + u, v, false);
        for (float u = 0; u <= b.y(); u += 0.25f)
            for (float w = 0; w <= b.y(); w += 0.25f) s.add(x0 + u, y0 + w, b.z(), false);
    }
    return s;
}

enum Filter { Cloth, Patchwork };

bool runFilter(Filter filter, const std::vector<pcVec3f>& points, std::vector<int>* labels,
               PtCloud_SimpleProgress* progress, QString* error)
{
    return filter == Cloth ? Algo_ClothFilter::run(points, Algo_ClothFilter::Params(), labels, progress, error)
                           : Algo_PatchworkGround::run(points, Algo_PatchworkGround::Params(), labels, progress, error);
}

Algo_ClothFilter::Params clothParamsWith(const QString& field, double value)
{
    Algo_ClothFilter::Params p;
    if (field == "rigidness") p.rigidness = int(value);
    if (field == "timeStep") p.timeStep = value;
    if (field == "iterations") p.iterations = int(value);
    if (field == "classThreshold") p.classThreshold = value;
    if (field == "clothResolution") p.clothResolution = value;
    return p;
}

}  // namespace

Q_DECLARE_METATYPE(Filter)

class TstAlgoGround : public QObject {
    Q_OBJECT

private slots:
    void clothScenes_data();
    void clothScenes();
    void isprs_data();
    void isprs();
    void clothParams_data();
    void clothParams();
    void clothDeterministic();
    void clothSpacingDefaults();
    void smallInputs_data();
    void smallInputs();
    void stops_data();
    void stops();
    void patchworkScenes_data();
    void patchworkScenes();
    void patchworkRejectsBadParams();
};

void TstAlgoGround::clothScenes_data()
{
    QTest::addColumn<float>("slope");
    QTest::addColumn<int>("rigidness");
    QTest::addColumn<bool>("slopeSmooth");
    QTest::addColumn<QList<QVector4D>>("boxes");
    const QList<QVector4D> flatBoxes = {{20, 20, 6, 3}, {60, 30, 20, 8}, {35, 70, 38, 12}};
    QTest::newRow("flat ground, three boxes") << 0.f << 3 << false << flatBoxes;
    QTest::newRow("flat ground, soft cloth, small boxes") << 0.f << 1 << true
                                                          << QList<QVector4D>{{25, 25, 8, 4}, {70, 60, 10, 6}};
    // 15 degrees: a building on a hillside
    QTest::newRow("slope with a building") << float(std::tan(15 * M_PI / 180)) << 2 << true
                                           << QList<QVector4D>{{50, 50, 16, 9}};
}

void TstAlgoGround::clothScenes()
{
    QFETCH(float, slope);
    QFETCH(int, rigidness);
    QFETCH(bool, slopeSmooth);
    QFETCH(QList<QVector4D>, boxes);
    const Scene scene = terrainWithBoxes(100.f, 1.f, slope, std::vector<QVector4D>(boxes.begin(), boxes.end()));
    Algo_ClothFilter::Params p;
    p.rigidness = rigidness;
    p.slopeSmooth = slopeSmooth;
    std::vector<int> labels;
    QString error;
    QVERIFY2(Algo_ClothFilter::run(scene.points, p, &labels, nullptr, &error), qPrintable(error));
    QCOMPARE(labels.size(), scene.points.size());
    const Errors e = errorsOf(scene, labels);
    // Only the ground right at a wall foot may be hidden by the cloth's bend.
    QVERIFY2(e.typeII == 0.0, qPrintable(QString::number(e.typeII)));
    QVERIFY2(e.typeI < 1.0, qPrintable(QString::number(e.typeI)));
}

// Published CSF results (Zhang et al. 2016, Table 3) with the parameters of
// each sample's group. Our cloth differs from the authors' in its constants
// (gravity, settling test, removal of deep echoes), so the same total error
// is not expected to the digit. The established filters of the comparison
// average 2.7 to 4.8 % total error, about two points apart; three points
// above the published figure keeps our cloth within that family while
// leaving room for those differences.
// A plane per bin cannot follow the ISPRS sites' hills, terraces and large
// roofs the way the cloth does, and on the forested slopes of samp52 it
// loses more ground than calling every point ground would: its errors are
// reported for comparison and held only to a loose bound.
void TstAlgoGround::isprs_data()
{
    QTest::addColumn<Filter>("filter");
    QTest::addColumn<QString>("file");
    QTest::addColumn<int>("rigidness");
    QTest::addColumn<bool>("slopeSmooth");
    QTest::addColumn<double>("maxTotal");
    QTest::newRow("cloth, samp11 (group II)") << Cloth << "samp11.txt" << 2 << true << 12.01 + 3.0;
    QTest::newRow("cloth, samp31 (group I)") << Cloth << "samp31.txt" << 3 << false << 1.61 + 3.0;
    QTest::newRow("cloth, samp52 (group III)") << Cloth << "samp52.txt" << 1 << true << 3.93 + 3.0;
    for (const char* f : {"samp11.txt", "samp31.txt", "samp52.txt"})
        QTest::addRow("patchwork, %s", f) << Patchwork << f << 0 << false << 30.0;
}

void TstAlgoGround::isprs()
{
    QFETCH(Filter, filter);
    QFETCH(QString, file);
    QFETCH(int, rigidness);
    QFETCH(bool, slopeSmooth);
    QFETCH(double, maxTotal);
    Scene scene;
    if (!loadIsprs(file, &scene)) QSKIP(qPrintable("ISPRS sample not found in the shared data folder: " + file));
    Algo_ClothFilter::Params p;  // 0.5 m cloth, 0.5 m threshold, time step 0.65: all groups
    p.rigidness = rigidness;
    p.slopeSmooth = slopeSmooth;
    std::vector<int> labels;
    QString error;
    const bool ok = filter == Cloth ? Algo_ClothFilter::run(scene.points, p, &labels, nullptr, &error)
                                    : runFilter(filter, scene.points, &labels, nullptr, &error);
    QVERIFY2(ok, qPrintable(error));
    const Errors e = errorsOf(scene, labels);
    qInfo("%s: type I %.2f %%, type II %.2f %%, total %.2f %% (bound %.2f %%)", qPrintable(file), e.typeI, e.typeII,
          e.total, maxTotal);
    QVERIFY(e.total < maxTotal);
}

// Each limit is accepted at its edge and refused just past it, with a reason
// and the labels left as they were.
void TstAlgoGround::clothParams_data()
{
    QTest::addColumn<QString>("field");
    QTest::addColumn<double>("value");
    QTest::addColumn<QString>("reason");  // empty: accepted
    QTest::newRow("rigidness 1") << "rigidness" << 1.0 << QString();
    QTest::newRow("rigidness 100") << "rigidness" << 100.0 << QString();
    QTest::newRow("time step 0.01") << "timeStep" << 0.01 << QString();
    QTest::newRow("time step 100") << "timeStep" << 100.0 << QString();
    QTest::newRow("iterations 5") << "iterations" << 5.0 << QString();
    QTest::newRow("iterations 10000") << "iterations" << 10000.0 << QString();
    QTest::newRow("threshold 0.0001") << "classThreshold" << 0.0001 << QString();
    QTest::newRow("threshold 10000: all ground") << "classThreshold" << 10000.0 << QString();
    QTest::newRow("resolution 100") << "clothResolution" << 100.0 << QString();
    QTest::newRow("resolution too fine") << "clothResolution" << 0.0001 << "too fine";
    QTest::newRow("resolution 0") << "clothResolution" << 0.0 << "cloth resolution";
    QTest::newRow("threshold 0") << "classThreshold" << 0.0 << "class threshold";
    QTest::newRow("rigidness 0") << "rigidness" << 0.0 << "rigidness";
    QTest::newRow("iterations 0") << "iterations" << 0.0 << "iterations";
    QTest::newRow("time step negative") << "timeStep" << -1.0 << "time step";
}

void TstAlgoGround::clothParams()
{
    QFETCH(QString, field);
    QFETCH(double, value);
    QFETCH(QString, reason);
    const Scene scene = terrainWithBoxes(60.f, 1.f, 0.f, {{30, 30, 10, 5}});
    std::vector<int> labels{7, 7};
    QString error;
    const bool ok = Algo_ClothFilter::run(scene.points, clothParamsWith(field, value), &labels, nullptr, &error);
    if (!reason.isEmpty()) {
        QVERIFY(!ok);
        QVERIFY2(error.contains(reason), qPrintable(error));
        QCOMPARE(labels, (std::vector<int>{7, 7}));
        return;
    }
    QVERIFY2(ok, qPrintable(error));
    QCOMPARE(labels.size(), scene.points.size());
    size_t ground = 0;
    for (int l : labels) {
        QVERIFY(l == 1 || l == 2);
        ground += l == kGround;
    }
    if (field == "classThreshold" && value > 100) QCOMPARE(ground, labels.size());
}

void TstAlgoGround::clothDeterministic()
{
    const Scene scene = terrainWithBoxes(70.f, 0.7f, 0.1f, {{20, 30, 12, 6}, {50, 45, 9, 4}});
    std::vector<int> first, second;
    QString error;
    PtCloud_SimpleProgress progress;
    QVERIFY(Algo_ClothFilter::run(scene.points, Algo_ClothFilter::Params(), &first, &progress, &error));
    QCOMPARE(progress.progress(), 100);
    QVERIFY(Algo_ClothFilter::run(scene.points, Algo_ClothFilter::Params(), &second, nullptr, &error));
    QCOMPARE(first, second);
}

void TstAlgoGround::clothSpacingDefaults()
{
    QCOMPARE(Algo_ClothFilter::Params::forSpacing(0.05).clothResolution, 0.5);
    QCOMPARE(Algo_ClothFilter::Params::forSpacing(0.05).timeStep, 0.65);
    const Algo_ClothFilter::Params sparse = Algo_ClothFilter::Params::forSpacing(3.0);
    QCOMPARE(sparse.clothResolution, 1.5);
    QCOMPARE(sparse.timeStep, 0.65 * 3);
    QCOMPARE(Algo_ClothFilter::Params::forSpacing(40.0).clothResolution, 5.0);
}

void TstAlgoGround::smallInputs_data()
{
    QTest::addColumn<Filter>("filter");
    QTest::addColumn<int>("loneLabel");
    QTest::addColumn<float>("extent");
    QTest::addColumn<float>("echoDepth");
    // the cloth calls a lone point ground; one point is too few for a plane
    QTest::newRow("cloth") << Cloth << kGround << 40.f << -30.f;
    QTest::newRow("patchwork") << Patchwork << 1 << 100.f << -12.f;
}

void TstAlgoGround::smallInputs()
{
    QFETCH(Filter, filter);
    QFETCH(int, loneLabel);
    QFETCH(float, extent);
    QFETCH(float, echoDepth);
    std::vector<int> labels{5};
    QString error;
    QVERIFY(runFilter(filter, {}, &labels, nullptr, &error));
    QVERIFY(labels.empty());
    QVERIFY(runFilter(filter, {pcVec3f(3, 4, 5)}, &labels, nullptr, &error));
    QCOMPARE(labels, std::vector<int>{loneLabel});
    // a lone deep echo under flat ground is noise: it neither holds the cloth
    // up nor tilts the plane, so the ground around it stays ground
    Scene scene = terrainWithBoxes(extent, 1.f, 0.f, {});
    scene.add(extent / 2 + 0.3f, extent / 2 + 0.3f, echoDepth, false);
    QVERIFY(runFilter(filter, scene.points, &labels, nullptr, &error));
    const Errors e = errorsOf(scene, labels);
    QCOMPARE(e.typeI, 0.0);
    QCOMPARE(e.typeII, 0.0);
}

void TstAlgoGround::stops_data()
{
    QTest::addColumn<Filter>("filter");
    QTest::addColumn<int>("polls");
    QTest::newRow("cloth at once") << Cloth << 0;
    QTest::newRow("cloth while simulating") << Cloth << 20;
    QTest::newRow("cloth late in the simulation") << Cloth << 60;
    for (int polls : {0, 1, 2}) QTest::addRow("patchwork after %d polls", polls) << Patchwork << polls;
}

void TstAlgoGround::stops()
{
    QFETCH(Filter, filter);
    QFETCH(int, polls);
    const Scene scene = filter == Cloth ? terrainWithBoxes(80.f, 1.f, 0.f, {{40, 40, 30, 10}})
                                        : terrainWithBoxes(200.f, 0.5f, 0.f, {{100, 100, 30, 10}});
    PtCloud_SimpleProgress progress;
    progress.stopAfterPolls(polls);
    std::vector<int> labels{9};
    QString error;
    const bool ok = filter == Cloth ? Algo_ClothFilter::run(scene.points, clothParamsWith("iterations", 10000), &labels,
                                                            &progress, &error)
                                    : runFilter(filter, scene.points, &labels, &progress, &error);
    QVERIFY(!ok);
    QCOMPARE(error, QStringLiteral("cancelled"));
    QCOMPARE(labels, std::vector<int>{9});
}

void TstAlgoGround::patchworkScenes_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<float>("slope");
    QTest::addColumn<double>("maxTypeI");
    QTest::addColumn<double>("maxTypeII");
    QTest::newRow("airborne, flat") << "airborne" << 0.f << 2.0 << 2.0;
    QTest::newRow("airborne, 10 % slope") << "airborne" << 0.1f << 3.0 << 3.0;
    QTest::newRow("vehicle") << "vehicle" << 0.f << 1.0 << 1.0;
}

// Bins are coarse, so a few ground points on a bin shared with a building
// may go (type I), and roof points of a building filling most of a bin
// are the risk on the other side; both stay small on these scenes.
void TstAlgoGround::patchworkScenes()
{
    QFETCH(QString, kind);
    QFETCH(float, slope);
    QFETCH(double, maxTypeI);
    QFETCH(double, maxTypeII);
    const Scene scene = kind == "vehicle"
                            ? vehicleScan({{8, 3, 1.5f}, {25, 8, 6}})
                            : terrainWithBoxes(200.f, 1.f, slope, {{40, 50, 12, 6}, {150, 60, 20, 9}, {90, 150, 16, 4}});
    std::vector<int> labels;
    QString error;
    PtCloud_SimpleProgress progress;
    QVERIFY2(runFilter(Patchwork, scene.points, &labels, &progress, &error), qPrintable(error));
    QCOMPARE(progress.progress(), 100);
    const Errors e = errorsOf(scene, labels);
    QVERIFY2(e.typeI <= maxTypeI && e.typeII <= maxTypeII,
             qPrintable(QString("type I %1 %, type II %2 %").arg(e.typeI).arg(e.typeII)));
}

void TstAlgoGround::patchworkRejectsBadParams()
{
    std::vector<int> labels{4};
    QString error;
    Algo_PatchworkGround::Params bad;
    bad.distanceThreshold = -1;
    QVERIFY(!Algo_PatchworkGround::run({pcVec3f(1, 2, 3)}, bad, &labels, nullptr, &error));
    QVERIFY(error.contains("distance threshold"));
    QCOMPARE(labels, std::vector<int>{4});
    bad = Algo_PatchworkGround::Params();
    bad.layout = Algo_PatchworkGround::Layout::Vehicle;
    bad.minRange = 90;
    QVERIFY(!Algo_PatchworkGround::run({pcVec3f(1, 2, 3)}, bad, &labels, nullptr, &error));
    QVERIFY(error.contains("ranges"));
}

QTEST_GUILESS_MAIN(TstAlgoGround)
#include "tst_algo_ground.moc"
