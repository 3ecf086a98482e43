// DEM products: the interpolated grid and its mesh, contours and the height
// map with its world file, on surfaces whose heights and contours are known
// analytically.
#include <QFile>
#include <QTemporaryDir>
#include <QVector3D>
#include <QtTest>
#include <cmath>
#include <functional>

#include "Algo_ClothFilter.h"
#include "Algo_Contours.h"
#include "Algo_DemGrid.h"
#include "Algo_HeightMap.h"
#include "PtCloud_SimpleProgress.h"

using namespace ptCloud;

namespace {

using Surface = std::function<float(float, float)>;

// Points on a surface over [0, size]^2, about `spacing` apart, each moved off
// the regular grid by a fixed pseudo-random amount so no point sits on a node.
std::vector<pcVec3f> sampled(const Surface& f, float size, float spacing)
{
    std::vector<pcVec3f> pts;
    unsigned state = 12345;
    auto jitter = [&state, spacing] {
        state = state * 1103515245u + 12345u;
        return (float((state >> 8) % 1000) / 1000.f - 0.5f) * 0.8f * spacing;
    };
    for (float y = 0; y <= size + 1e-3f; y += spacing)
        for (float x = 0; x <= size + 1e-3f; x += spacing) {
            const float px = std::clamp(x + jitter(), 0.f, size), py = std::clamp(y + jitter(), 0.f, size);
            pts.emplace_back(px, py, f(px, py));
        }
    return pts;
}

// A cone of height 15 and base radius 30 centred at (40, 40), on flat
// ground at 0.
constexpr float kConeHeight = 15.f, kConeRadius = 30.f, kConeX = 40.f, kConeY = 40.f;
float cone(float x, float y)
{
    return std::max(0.f, kConeHeight * (1.f - std::hypot(x - kConeX, y - kConeY) / kConeRadius));
}

Algo_DemGrid::Grid gridOf(const std::vector<pcVec3f>& pts, double cell)
{
    Algo_DemGrid::Params p;
    p.cellSize = cell;
    Algo_DemGrid::Grid g;
    QString error;
    if (!Algo_DemGrid::build(pts, {}, 2, p, &g, nullptr, &error)) qWarning("%s", qPrintable(error));
    return g;
}

}  // namespace

class TstAlgoGroundDem : public QObject {
    Q_OBJECT

private slots:
    void gridReproducesPlanes_data();
    void gridReproducesPlanes();
    void gridUsesOnlyGround();
    void gridOfFewPoints_data();
    void gridOfFewPoints();
    void gridRefuses_data();
    void gridRefuses();
    void meshOfGrid();
    void meanSpacing_data();
    void meanSpacing();
    void planeContoursAreStraight();
    void coneContoursAreCircles();
    void contourEdges();
    void heightMapPlacement_data();
    void heightMapPlacement();
    void heightMapShading();
    void heightMapSaveFailsCleanly();
    void stops_data();
    void stops();
    void demOfIsprsSample();
};

void TstAlgoGroundDem::gridReproducesPlanes_data()
{
    QTest::addColumn<float>("holeRadius");
    QTest::addColumn<float>("tolerance");
    QTest::newRow("dense") << 0.f << 1e-3f;
    // Filled holes follow a plane closely, though not exactly.
    QTest::newRow("with a 6 m hole") << 6.f << 0.15f;
}

void TstAlgoGroundDem::gridReproducesPlanes()
{
    QFETCH(float, holeRadius);
    QFETCH(float, tolerance);
    auto plane = [](float x, float y) { return 5.f + 0.3f * x - 0.1f * y; };
    std::vector<pcVec3f> pts;
    for (const pcVec3f& p : sampled(plane, 50.f, 0.5f))
        if (std::hypot(p.x - 25.f, p.y - 25.f) >= holeRadius) pts.push_back(p);
    const Algo_DemGrid::Grid g = gridOf(pts, 1.0);
    QCOMPARE(g.cols, 51);
    QCOMPARE(g.rows, 51);
    float worst = 0;
    for (int r = 0; r < g.rows; ++r)
        for (int c = 0; c < g.cols; ++c)
            worst = std::max(worst, std::fabs(g.at(c, r) - plane(float(g.x0 + c * g.cell), float(g.y0 + r * g.cell))));
    QVERIFY2(worst < tolerance, qPrintable(QString::number(worst)));
}

void TstAlgoGroundDem::gridUsesOnlyGround()
{
    std::vector<pcVec3f> pts = sampled([](float, float) { return 2.f; }, 30.f, 0.5f);
    std::vector<int> labels(pts.size(), 2);
    // a box of objects standing on the ground
    for (float x = 10; x <= 20; x += 0.5f)
        for (float y = 10; y <= 20; y += 0.5f) {
            pts.emplace_back(x, y, 12.f);
            labels.push_back(1);
        }
    Algo_DemGrid::Grid g;
    QString error;
    QVERIFY(Algo_DemGrid::build(pts, labels, 2, Algo_DemGrid::Params(), &g, nullptr, &error));
    float lo, hi;
    g.range(&lo, &hi);
    QCOMPARE(lo, 2.f);
    QCOMPARE(hi, 2.f);
    // the automatic cell is twice the ground's spacing
    QVERIFY2(std::fabs(g.cell - 1.0) < 0.1, qPrintable(QString::number(g.cell)));
}

void TstAlgoGroundDem::gridOfFewPoints_data()
{
    QTest::addColumn<QList<QVector3D>>("points");
    QTest::newRow("one point") << QList<QVector3D>{{3, 4, 7}};
    QTest::newRow("two points") << QList<QVector3D>{{0, 0, 6}, {10, 0, 8}};
}

// Too few points for a plane anywhere: a level grid at their mean height.
void TstAlgoGroundDem::gridOfFewPoints()
{
    QFETCH(QList<QVector3D>, points);
    std::vector<pcVec3f> pts;
    for (const QVector3D& p : points) pts.emplace_back(p.x(), p.y(), p.z());
    Algo_DemGrid::Grid g;
    QString error;
    QVERIFY2(Algo_DemGrid::build(pts, {}, 2, Algo_DemGrid::Params(), &g, nullptr, &error), qPrintable(error));
    QVERIFY(!g.z.empty());
    for (float z : g.z) QCOMPARE(z, 7.f);
    std::vector<PtCloud_ContourFile::Polyline> lines;
    QVERIFY(Algo_Contours::trace(g, Algo_Contours::Params(), 0.0, &lines, nullptr, &error));
    QVERIFY(lines.empty());
}

void TstAlgoGroundDem::gridRefuses_data()
{
    QTest::addColumn<double>("cell");
    QTest::addColumn<bool>("groundless");
    QTest::addColumn<QString>("reason");
    QTest::newRow("no ground points") << 1.0 << true << "no ground";
    QTest::newRow("cell too fine") << 0.0001 << false << "too fine";
    QTest::newRow("negative cell") << -1.0 << false << "cell size";
}

void TstAlgoGroundDem::gridRefuses()
{
    QFETCH(double, cell);
    QFETCH(bool, groundless);
    QFETCH(QString, reason);
    const std::vector<pcVec3f> pts = sampled([](float, float) { return 0.f; }, 20.f, 1.f);
    const std::vector<int> labels(pts.size(), groundless ? 1 : 2);
    Algo_DemGrid::Params p;
    p.cellSize = cell;
    Algo_DemGrid::Grid g;
    g.cols = 7;
    QString error;
    QVERIFY(!Algo_DemGrid::build(pts, labels, 2, p, &g, nullptr, &error));
    QVERIFY2(error.contains(reason), qPrintable(error));
    QCOMPARE(g.cols, 7);
    QVERIFY(!Algo_DemGrid::build({}, {}, 2, Algo_DemGrid::Params(), &g, nullptr, &error));
}

void TstAlgoGroundDem::meshOfGrid()
{
    const Algo_DemGrid::Grid g = gridOf(sampled(cone, 80.f, 1.f), 2.0);
    std::vector<pcVec3f> vertices;
    std::vector<unsigned int> triangles;
    Algo_DemGrid::triangulate(g, &vertices, &triangles);
    QCOMPARE(vertices.size(), size_t(g.cols) * size_t(g.rows));
    QCOMPARE(triangles.size(), size_t(g.cols - 1) * size_t(g.rows - 1) * 6);
    double area = 0;
    for (size_t t = 0; t < triangles.size(); t += 3) {
        const pcVec3f a = vertices[triangles[t]], b = vertices[triangles[t + 1]], c = vertices[triangles[t + 2]];
        const pcVec3f u = b - a, v = c - a;
        const float nz = u.x * v.y - u.y * v.x;
        QVERIFY(nz > 0);  // counter-clockwise from above
        area += nz / 2;
    }
    QCOMPARE(area, 80.0 * 80.0);
    QCOMPARE(vertices[size_t(g.cols) + 1].x, float(g.x0 + g.cell));
}

void TstAlgoGroundDem::meanSpacing_data()
{
    QTest::addColumn<bool>("diagonal");
    QTest::newRow("square") << false;
    QTest::newRow("diagonal strip") << true;  // a bounding box four times too big
}

void TstAlgoGroundDem::meanSpacing()
{
    QFETCH(bool, diagonal);
    std::vector<pcVec3f> pts;
    for (float a = 0; a < 200; a += 0.5f)
        for (float b = 0; b < (diagonal ? 20.f : 200.f); b += 0.5f)
            pts.push_back(diagonal ? pcVec3f(a + b, a - b, 0) * float(M_SQRT1_2) : pcVec3f(a, b, 0));
    const double s = Algo_DemGrid::meanSpacing(pts);
    QVERIFY2(std::fabs(s - 0.5) < 0.1, qPrintable(QString::number(s)));
    QCOMPARE(Algo_DemGrid::meanSpacing({pcVec3f(1, 1, 1)}), 0.0);
    QCOMPARE(Algo_DemGrid::meanSpacing({pcVec3f(0, 0, 0), pcVec3f(10, 0, 0)}), 5.0);
}

void TstAlgoGroundDem::planeContoursAreStraight()
{
    // z = 0.5 x: contours run north-south at x = 2 z
    const Algo_DemGrid::Grid g = gridOf(sampled([](float x, float) { return 0.5f * x; }, 40.f, 0.5f), 1.0);
    std::vector<PtCloud_ContourFile::Polyline> lines;
    QString error;
    Algo_Contours::Params p;
    p.levels = 9;
    QVERIFY(Algo_Contours::trace(g, p, 100.0, &lines, nullptr, &error));
    QCOMPARE(lines.size(), size_t(9));
    for (int k = 0; k < 9; ++k) {
        const PtCloud_ContourFile::Polyline& line = lines[size_t(k)];
        const double level = 2.0 * (k + 1);  // 0 to 20 in ten steps
        QVERIFY(std::fabs(line.level - (100.0 + level)) < 1e-3);
        QVERIFY(!line.closed);
        QCOMPARE(line.points.size(), size_t(g.rows));
        for (const pcVec3f& pt : line.points) {
            QVERIFY(std::fabs(pt.x - 2 * level) < 1e-2);
            QVERIFY(std::fabs(pt.z - level) < 1e-4);
        }
        QCOMPARE(std::fabs(line.points.front().y - line.points.back().y), 40.f);
    }
}

void TstAlgoGroundDem::coneContoursAreCircles()
{
    const Algo_DemGrid::Grid g = gridOf(sampled(cone, 80.f, 0.5f), 1.0);
    std::vector<PtCloud_ContourFile::Polyline> lines;
    QString error;
    QVERIFY(Algo_Contours::trace(g, Algo_Contours::Params(), 0.0, &lines, nullptr, &error));
    QCOMPARE(lines.size(), size_t(50));
    float lo, hi;
    g.range(&lo, &hi);
    for (int k = 0; k < 50; ++k) {
        const PtCloud_ContourFile::Polyline& line = lines[size_t(k)];
        QVERIFY(std::fabs(line.level - Algo_Contours::level(lo, hi, k + 1, 50)) < 1e-4);
        QVERIFY(line.closed);
        const double radius = kConeRadius * (1.0 - line.level / kConeHeight);
        double worst = 0;
        for (const pcVec3f& pt : line.points)
            worst = std::max(worst, std::fabs(std::hypot(pt.x - kConeX, pt.y - kConeY) - radius));
        // the grid rounds off the apex and the foot over about a cell
        QVERIFY2(worst < 0.35, qPrintable(QString("level %1: %2").arg(line.level).arg(worst)));
    }
}

void TstAlgoGroundDem::contourEdges()
{
    std::vector<PtCloud_ContourFile::Polyline> lines(1);
    QString error;
    const Algo_DemGrid::Grid flat = gridOf(sampled([](float, float) { return 3.f; }, 10.f, 1.f), 1.0);
    QVERIFY(Algo_Contours::trace(flat, Algo_Contours::Params(), 0.0, &lines, nullptr, &error));
    QVERIFY(lines.empty());
    Algo_Contours::Params p;
    p.levels = 0;
    lines.resize(1);
    QVERIFY(!Algo_Contours::trace(flat, p, 0.0, &lines, nullptr, &error));
    QCOMPARE(lines.size(), size_t(1));
    // a saddle: two lines of one level must not cross or merge
    Algo_DemGrid::Grid saddle;
    saddle.cols = saddle.rows = 2;
    saddle.z = {1.f, 0.f, 0.f, 1.f};  // sw, se, then nw, ne: rows run south to north
    p.levels = 1;
    QVERIFY(Algo_Contours::trace(saddle, p, 0.0, &lines, nullptr, &error));
    QCOMPARE(lines.size(), size_t(2));
    for (const auto& line : lines) QCOMPARE(line.points.size(), size_t(2));
}

void TstAlgoGroundDem::heightMapPlacement_data()
{
    QTest::addColumn<int>("cols");
    QTest::addColumn<int>("rows");
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");
    QTest::newRow("wide") << 101 << 51 << 1920 << 960;
    QTest::newRow("tall") << 31 << 121 << 480 << 1920;
}

void TstAlgoGroundDem::heightMapPlacement()
{
    QFETCH(int, cols);
    QFETCH(int, rows);
    QFETCH(int, width);
    QFETCH(int, height);
    Algo_DemGrid::Grid g;
    g.x0 = 10;
    g.y0 = 20;
    g.cell = 2;
    g.cols = cols;
    g.rows = rows;
    g.z.assign(size_t(cols) * size_t(rows), 0.f);
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c) g.z[size_t(r) * size_t(cols) + size_t(c)] = float(c + r);
    QImage image;
    QString error;
    QVERIFY(Algo_HeightMap::render(g, Algo_HeightMap::Params(), &image, nullptr, &error));
    QCOMPARE(image.size(), QSize(width, height));

    QTemporaryDir dir;
    const QString png = dir.filePath("dem heightmap.png");
    const pcVec3d origin(500000.0, 5400000.0, 300.0);
    const Algo_HeightMap::Placement place = Algo_HeightMap::placement(g, 1920);
    QVERIFY2(Algo_HeightMap::save(image, place, origin, png, &error), qPrintable(error));
    QCOMPARE(QImage(png).size(), image.size());
    QFile world(dir.filePath("dem heightmap.pgw"));
    QVERIFY(world.open(QIODevice::ReadOnly | QIODevice::Text));
    const QStringList v = QString::fromUtf8(world.readAll()).split('\n', Qt::SkipEmptyParts);
    QCOMPARE(v.size(), 6);
    const double px = (cols - 1) * 2.0 / width, py = (rows - 1) * 2.0 / height;
    QVERIFY(std::fabs(v[0].toDouble() - px) < 1e-6);
    QCOMPARE(v[1].toDouble(), 0.0);
    QCOMPARE(v[2].toDouble(), 0.0);
    QVERIFY(std::fabs(v[3].toDouble() + py) < 1e-6);
    // pixel (0, 0) starts at the grid's north-west corner: its centre is half a pixel in
    QVERIFY(std::fabs(v[4].toDouble() - (500000.0 + 10 + px / 2)) < 1e-5);
    QVERIFY(std::fabs(v[5].toDouble() - (5400000.0 + 20 + (rows - 1) * 2.0 - py / 2)) < 1e-5);
}

void TstAlgoGroundDem::heightMapShading()
{
    // A ridge along y: its west face looks towards the north-west light.
    const Algo_DemGrid::Grid g = gridOf(sampled([](float x, float) { return 20.f - std::fabs(x - 20.f); }, 40.f, 0.5f), 1.0);
    QImage image;
    QString error;
    Algo_HeightMap::Params p;
    p.longerSide = 400;
    QVERIFY(Algo_HeightMap::render(g, p, &image, nullptr, &error));
    const QColor west = image.pixelColor(100, 200), east = image.pixelColor(300, 200);
    QVERIFY(west.lightness() > east.lightness());
    // the lowland is green, the top pale
    const QColor low = image.pixelColor(1, 200), top = image.pixelColor(200, 200);
    QVERIFY(low.green() > low.red() && low.green() > low.blue());
    QVERIFY(top.lightness() > low.lightness());
}

void TstAlgoGroundDem::heightMapSaveFailsCleanly()
{
    QTemporaryDir dir;
    const QString png = dir.filePath("missing folder/dem.png");
    QString error;
    QImage image(4, 4, QImage::Format_RGB32);
    QVERIFY(!Algo_HeightMap::save(image, Algo_HeightMap::Placement(), pcVec3d(), png, &error));
    QVERIFY(!error.isEmpty());
    QVERIFY(!QFile::exists(png));
    QVERIFY(!QFile::exists(Algo_HeightMap::worldFilePath(png)));
    QCOMPARE(Algo_HeightMap::worldFilePath("/a/b.c/dem.png"), QStringLiteral("/a/b.c/dem.pgw"));
}

void TstAlgoGroundDem::stops_data()
{
    QTest::addColumn<QString>("stage");
    QTest::addColumn<int>("polls");
    for (const char* stage : {"grid", "contours", "height map"})
        for (int polls : {0, 3})
            QTest::newRow(qPrintable(QString("%1 after %2 polls").arg(stage).arg(polls))) << stage << polls;
}

void TstAlgoGroundDem::stops()
{
    QFETCH(QString, stage);
    QFETCH(int, polls);
    const std::vector<pcVec3f> pts = sampled(cone, 80.f, 0.5f);
    const Algo_DemGrid::Grid g = gridOf(pts, 0.5);
    PtCloud_SimpleProgress progress;
    progress.stopAfterPolls(polls);
    QString error;
    bool ok = true;
    if (stage == "grid") {
        Algo_DemGrid::Grid out;
        ok = Algo_DemGrid::build(pts, {}, 2, Algo_DemGrid::Params(), &out, &progress, &error);
        QVERIFY(out.z.empty());
    } else if (stage == "contours") {
        std::vector<PtCloud_ContourFile::Polyline> lines;
        ok = Algo_Contours::trace(g, Algo_Contours::Params(), 0.0, &lines, &progress, &error);
        QVERIFY(lines.empty());
    } else {
        QImage image;
        ok = Algo_HeightMap::render(g, Algo_HeightMap::Params(), &image, &progress, &error);
        QVERIFY(image.isNull());
    }
    QVERIFY(!ok);
    QCOMPARE(error, QStringLiteral("cancelled"));
}

// The whole DEM chain on real data: the cloth with density defaults, then the
// grid; the grid must pass close to the reference bare-earth points.
void TstAlgoGroundDem::demOfIsprsSample()
{
    QFile file(PTCLOUD_SHARED_DATA_DIR "/isprs/samp52.txt");
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) QSKIP("ISPRS sample samp52 not found in the shared data folder");
    std::vector<pcVec3f> pts;
    std::vector<bool> bare;
    double ox = 0, oy = 0, oz = 0;
    while (!file.atEnd()) {
        const QList<QByteArray> f = file.readLine().simplified().split(' ');
        if (f.size() < 4) continue;
        if (pts.empty()) ox = f[0].toDouble(), oy = f[1].toDouble(), oz = f[2].toDouble();
        pts.emplace_back(float(f[0].toDouble() - ox), float(f[1].toDouble() - oy), float(f[2].toDouble() - oz));
        bare.push_back(f[3].toInt() == 0);
    }
    const double spacing = Algo_DemGrid::meanSpacing(pts);
    std::vector<int> labels;
    QString error;
    QVERIFY(Algo_ClothFilter::run(pts, Algo_ClothFilter::Params::forSpacing(spacing), &labels, nullptr, &error));
    Algo_DemGrid::Grid g;
    QVERIFY(Algo_DemGrid::build(pts, labels, 2, Algo_DemGrid::Params(), &g, nullptr, &error));
    double sum2 = 0;
    size_t n = 0;
    for (size_t i = 0; i < pts.size(); ++i)
        if (bare[i]) {
            const double d = g.sample(pts[i].x, pts[i].y) - pts[i].z;
            sum2 += d * d;
            ++n;
        }
    const double rms = std::sqrt(sum2 / double(n));
    qInfo("samp52: spacing %.2f m, cell %.2f m, RMS to bare earth %.3f m", spacing, g.cell, rms);
    // steep forested slopes: a cell of a few metres cannot follow every point
    QVERIFY(rms < 1.0);
}

QTEST_GUILESS_MAIN(TstAlgoGroundDem)
#include "tst_algo_ground_dem.moc"
