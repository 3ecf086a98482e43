// Earth volumes on generated surfaces whose volumes are known in closed form:
// a box and a cone on flat ground, a pit, a plateau under a non-convex
// outline; the grid and DTM methods on the same surface.

#include <QPolygonF>
#include <QtTest>
#include <cmath>
#include <random>

#include "Algo_EarthVolume.h"
#include "tst_algo_mesh_progress.h"

using ptCloud::Algo_EarthVolume;
using ptCloud::pcVec3f;

namespace {

enum Scene { FlatGround, Box, Cone, RaisedCone, Pit, Plateau };

constexpr double kConeRadius = 10.0, kConeHeight = 5.0;
constexpr double kBase = 3.0;  // ground height of RaisedCone

double heightAt(Scene scene, double x, double y) {
    switch (scene) {
    case FlatGround:
        return 0.0;
    case Box:  // 10 x 8 x 2 m
        return (std::abs(x) <= 5.0 && std::abs(y) <= 4.0) ? 2.0 : 0.0;
    case Cone:
    case RaisedCone: {
        const double r = std::hypot(x, y);
        const double cone = r < kConeRadius ? kConeHeight * (1.0 - r / kConeRadius) : 0.0;
        return cone + (scene == RaisedCone ? kBase : 0.0);
    }
    case Pit:  // 8 x 6 x 1.5 m
        return (std::abs(x) <= 4.0 && std::abs(y) <= 3.0) ? -1.5 : 0.0;
    case Plateau:
        return 1.0;
    }
    return 0.0;
}

// A scan of the surface over [-half, half]^2: a jittered grid of the given spacing.
std::vector<pcVec3f> scan(Scene scene, double half = 15.0, double spacing = 0.05) {
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> jitter(-0.4 * spacing, 0.4 * spacing);
    std::vector<pcVec3f> points;
    const int n = int(std::lround(2.0 * half / spacing));
    points.reserve(size_t(n) * size_t(n));
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) {
            const double x = -half + (i + 0.5) * spacing + jitter(rng);
            const double y = -half + (j + 0.5) * spacing + jitter(rng);
            points.emplace_back(float(x), float(y), float(heightAt(scene, x, y)));
        }
    return points;
}

// The DEM-style mesh of the surface: a regular grid, two triangles per square.
void demMesh(Scene scene, double half, double spacing, std::vector<pcVec3f>& vertices,
             std::vector<unsigned int>& triangles) {
    const int n = int(std::lround(2.0 * half / spacing)) + 1;
    vertices.clear();
    triangles.clear();
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) {
            const double x = -half + i * spacing, y = -half + j * spacing;
            vertices.emplace_back(float(x), float(y), float(heightAt(scene, x, y)));
        }
    for (int j = 0; j + 1 < n; ++j)
        for (int i = 0; i + 1 < n; ++i) {
            const unsigned int a = unsigned(j * n + i), b = a + 1, c = a + unsigned(n), d = c + 1;
            triangles.insert(triangles.end(), {a, b, d, a, d, c});
        }
}

std::vector<pcVec3f> outline(const QPolygonF& polygon) {
    std::vector<pcVec3f> ring;
    for (const QPointF& p : polygon) ring.emplace_back(float(p.x()), float(p.y()), 0.f);
    return ring;
}

QPolygonF square(double half) {
    return QPolygonF({QPointF(-half, -half), QPointF(half, -half), QPointF(half, half), QPointF(-half, half)});
}

// An L: the 12 x 12 square around the origin without its upper-right 6 x 6 quarter.
QPolygonF ellShape() {
    return QPolygonF({QPointF(-6, -6), QPointF(6, -6), QPointF(6, 0), QPointF(0, 0), QPointF(0, 6),
                      QPointF(-6, 6)});
}

Algo_EarthVolume::Params fixedGround(double height, double grid) {
    Algo_EarthVolume::Params p;
    p.groundMode = Algo_EarthVolume::GroundMode::Fixed;
    p.groundHeight = height;
    p.gridSize = grid;
    return p;
}

}  // namespace

class TstAlgoVolume : public QObject {
    Q_OBJECT
private slots:
    void gridMethodMatchesAnalyticVolumes_data();
    void gridMethodMatchesAnalyticVolumes();
    void methodsAgreeOnTheSameSurface_data();
    void methodsAgreeOnTheSameSurface();
    void pointsAboveTheSkyLimitAreIgnored();
    void holesAreFilledFromNeighbours();
    void boundaryAverageIsTheHeightAroundTheOutline();
    void rejectsWhatItCannotMeasure_data();
    void rejectsWhatItCannotMeasure();
    void stopLeavesTheResultUntouched_data();
    void stopLeavesTheResultUntouched();
};

void TstAlgoVolume::gridMethodMatchesAnalyticVolumes_data() {
    QTest::addColumn<int>("scene");
    QTest::addColumn<QPolygonF>("boundary");
    QTest::addColumn<bool>("boundaryAverage");
    QTest::addColumn<double>("dig");
    QTest::addColumn<double>("fill");
    const double cone = M_PI * kConeRadius * kConeRadius * kConeHeight / 3.0;
    QTest::newRow("box on flat ground") << int(Box) << square(8) << false << 160.0 << 0.0;
    QTest::newRow("cone stockpile") << int(Cone) << square(12) << false << cone << 0.0;
    QTest::newRow("cone on raised ground, boundary average") << int(RaisedCone) << square(12) << true << cone << 0.0;
    QTest::newRow("pit") << int(Pit) << square(6) << false << 0.0 << 72.0;
    QTest::newRow("plateau under a non-convex outline") << int(Plateau) << ellShape() << false << 108.0 << 0.0;
    QTest::newRow("flat ground") << int(FlatGround) << square(5) << true << 0.0 << 0.0;
}

void TstAlgoVolume::gridMethodMatchesAnalyticVolumes() {
    QFETCH(int, scene);
    QFETCH(QPolygonF, boundary);
    QFETCH(bool, boundaryAverage);
    QFETCH(double, dig);
    QFETCH(double, fill);
    Algo_EarthVolume::Params params = fixedGround(0.0, 0.1);
    if (boundaryAverage) params.groundMode = Algo_EarthVolume::GroundMode::BoundaryAverage;
    AlgoTestProgress progress;
    Algo_EarthVolume::Result result;
    QString error;
    QVERIFY2(Algo_EarthVolume::computeGrid(scan(Scene(scene)), outline(boundary), params, result, &progress, &error),
             qPrintable(error));
    // Within 1% of the analytic volume (and a litre of absolute slack for zero).
    QVERIFY2(std::abs(result.digVolume - dig) <= 0.01 * dig + 1e-3,
             qPrintable(QString("dig %1, expected %2").arg(result.digVolume).arg(dig)));
    QVERIFY2(std::abs(result.fillVolume - fill) <= 0.01 * fill + 1e-3,
             qPrintable(QString("fill %1, expected %2").arg(result.fillVolume).arg(fill)));
    QVERIFY(progress.wellFormed());
    QCOMPARE(progress.progress(), 100);
}

void TstAlgoVolume::methodsAgreeOnTheSameSurface_data() {
    QTest::addColumn<int>("scene");
    QTest::addColumn<double>("grid");
    QTest::newRow("cone, fine grid") << int(Cone) << 0.1;
    QTest::newRow("cone, coarse grid") << int(Cone) << 0.5;
    QTest::newRow("raised cone") << int(RaisedCone) << 0.2;
}

void TstAlgoVolume::methodsAgreeOnTheSameSurface() {
    QFETCH(int, scene);
    QFETCH(double, grid);
    const double ground = scene == RaisedCone ? kBase : 0.0;
    const Algo_EarthVolume::Params params = fixedGround(ground, grid);
    const std::vector<pcVec3f> ring = outline(ellShape().translated(3, 3));
    std::vector<pcVec3f> vertices;
    std::vector<unsigned int> triangles;
    demMesh(Scene(scene), 15.0, 0.25, vertices, triangles);
    Algo_EarthVolume::Result onGrid, onDtm;
    QString error;
    QVERIFY2(Algo_EarthVolume::computeGrid(scan(Scene(scene)), ring, params, onGrid, nullptr, &error),
             qPrintable(error));
    QVERIFY2(Algo_EarthVolume::computeDtm(vertices, triangles, ring, params, onDtm, nullptr, &error),
             qPrintable(error));
    QVERIFY(onGrid.digVolume > 100.0);
    QCOMPARE(onGrid.insideCells, onDtm.insideCells);
    QVERIFY2(std::abs(onGrid.digVolume - onDtm.digVolume) <= 0.01 * onGrid.digVolume,
             qPrintable(QString("grid %1, dtm %2").arg(onGrid.digVolume).arg(onDtm.digVolume)));
    QVERIFY(onDtm.fillVolume < 1e-3);
}

void TstAlgoVolume::pointsAboveTheSkyLimitAreIgnored() {
    std::vector<pcVec3f> points = scan(Box);
    // Birds and wires over the box: some alone in their cell, some among box points.
    for (int k = 0; k < 400; ++k) points.emplace_back(-4.0f + 0.02f * k, 0.013f * k - 3.0f, 40.0f);
    Algo_EarthVolume::Params params = fixedGround(0.0, 0.1);
    params.maxTopHeight = 10.0;
    Algo_EarthVolume::Result result;
    QString error;
    QVERIFY2(Algo_EarthVolume::computeGrid(points, outline(square(8)), params, result, nullptr, &error),
             qPrintable(error));
    QVERIFY2(std::abs(result.digVolume - 160.0) <= 1.6, qPrintable(QString::number(result.digVolume)));
    params.maxTopHeight = 99999.0;
    QVERIFY(Algo_EarthVolume::computeGrid(points, outline(square(8)), params, result, nullptr, &error));
    QVERIFY(result.digVolume > 165.0);
}

void TstAlgoVolume::holesAreFilledFromNeighbours() {
    std::vector<pcVec3f> points;
    for (const pcVec3f& p : scan(Plateau))
        if (std::hypot(p.x, p.y) > 2.0f) points.push_back(p);  // a round gap in the scan
    Algo_EarthVolume::Result result;
    QString error;
    QVERIFY2(Algo_EarthVolume::computeGrid(points, outline(square(5)), fixedGround(0.0, 0.1), result, nullptr, &error),
             qPrintable(error));
    QVERIFY(result.filledCells >= 1200);  // about pi * 20^2 cells of 0.1 m
    QCOMPARE(result.insideCells, qint64(10000));
    QVERIFY(std::abs(result.digVolume - 100.0) < 1e-3);
}

void TstAlgoVolume::boundaryAverageIsTheHeightAroundTheOutline() {
    Algo_EarthVolume::Params params;
    params.gridSize = 0.2;
    Algo_EarthVolume::Result result;
    QString error;
    QVERIFY(Algo_EarthVolume::computeGrid(scan(RaisedCone), outline(square(12)), params, result, nullptr, &error));
    QVERIFY(result.hasBoundaryAverage);
    QVERIFY(std::abs(result.boundaryAverage - kBase) < 1e-4);
    QCOMPARE(result.groundHeight, result.boundaryAverage);
    // A fixed ground still reports the boundary average but measures from its own height.
    params = fixedGround(kBase + kConeHeight, 0.2);
    QVERIFY(Algo_EarthVolume::computeGrid(scan(RaisedCone), outline(square(12)), params, result, nullptr, &error));
    QVERIFY(std::abs(result.boundaryAverage - kBase) < 1e-4);
    QVERIFY(result.digVolume < 1.0);
    QVERIFY(std::abs(result.fillVolume - (24.0 * 24.0 * kConeHeight - M_PI * 100.0 * kConeHeight / 3.0)) < 25.0);
}

void TstAlgoVolume::rejectsWhatItCannotMeasure_data() {
    QTest::addColumn<bool>("dtm");
    QTest::addColumn<bool>("withPoints");
    QTest::addColumn<QPolygonF>("boundary");
    QTest::addColumn<double>("grid");
    QTest::addColumn<bool>("boundaryAverage");
    QTest::addColumn<QString>("reason");
    const QPolygonF far = square(2).translated(100, 100);
    QTest::newRow("no points") << false << false << square(5) << 0.1 << false << "no points inside";
    QTest::newRow("points elsewhere") << false << true << far << 0.1 << false << "no points inside";
    QTest::newRow("two-point boundary") << false << true << QPolygonF(QVector<QPointF>{QPointF(0, 0), QPointF(1, 1)}) << 0.1
                                        << false << "at least three";
    QTest::newRow("collinear boundary") << false << true
                                        << QPolygonF(QVector<QPointF>{QPointF(0, 0), QPointF(1, 1), QPointF(2, 2)}) << 0.1 << false
                                        << "no area";
    QTest::newRow("grid far too fine") << false << true << square(10) << 0.001 << false << "too fine";
    QTest::newRow("zero grid") << false << true << square(5) << 0.0 << false << "positive";
    QTest::newRow("largest grid") << false << true << square(5) << 99999.0 << false << "smaller grid size";
    QTest::newRow("nothing near the outline to average")
        << false << true << square(14.9) << 0.05 << true << "to average";
    QTest::newRow("mesh elsewhere") << true << true << far << 0.1 << false << "does not reach";
}

void TstAlgoVolume::rejectsWhatItCannotMeasure() {
    QFETCH(bool, dtm);
    QFETCH(bool, withPoints);
    QFETCH(QPolygonF, boundary);
    QFETCH(double, grid);
    QFETCH(bool, boundaryAverage);
    QFETCH(QString, reason);
    Algo_EarthVolume::Params params = fixedGround(0.0, grid);
    if (boundaryAverage) params.groundMode = Algo_EarthVolume::GroundMode::BoundaryAverage;
    std::vector<pcVec3f> points;
    if (withPoints) points = scan(Cone, 8.0, 0.1);
    std::vector<pcVec3f> vertices;
    std::vector<unsigned int> triangles;
    demMesh(Cone, 8.0, 0.5, vertices, triangles);
    Algo_EarthVolume::Result result;
    result.digVolume = -1.0;
    QString error;
    const bool ok = dtm ? Algo_EarthVolume::computeDtm(vertices, triangles, outline(boundary), params, result,
                                                       nullptr, &error)
                        : Algo_EarthVolume::computeGrid(points, outline(boundary), params, result, nullptr, &error);
    QVERIFY(!ok);
    QVERIFY2(error.contains(reason), qPrintable(error));
    QCOMPARE(result.digVolume, -1.0);
}

void TstAlgoVolume::stopLeavesTheResultUntouched_data() {
    QTest::addColumn<bool>("dtm");
    QTest::addColumn<int>("stopAfter");
    for (int stopAfter : {0, 1, 3, 20}) {
        QTest::addRow("grid, stop after %d polls", stopAfter) << false << stopAfter;
        QTest::addRow("dtm, stop after %d polls", stopAfter) << true << stopAfter;
    }
}

void TstAlgoVolume::stopLeavesTheResultUntouched() {
    QFETCH(bool, dtm);
    QFETCH(int, stopAfter);
    std::vector<pcVec3f> vertices, points;
    std::vector<unsigned int> triangles;
    if (dtm)
        demMesh(Cone, 12.0, 0.02, vertices, triangles);
    else
        points = scan(Cone, 12.0, 0.02);
    AlgoTestProgress progress(stopAfter);
    Algo_EarthVolume::Result result;
    result.digVolume = -1.0;
    QString error;
    const Algo_EarthVolume::Params params = fixedGround(0.0, 0.05);
    const bool ok = dtm ? Algo_EarthVolume::computeDtm(vertices, triangles, outline(square(11)), params, result,
                                                       &progress, &error)
                        : Algo_EarthVolume::computeGrid(points, outline(square(11)), params, result, &progress, &error);
    QVERIFY(!ok);
    QCOMPARE(error, QString("cancelled"));
    QCOMPARE(result.digVolume, -1.0);
}

QTEST_GUILESS_MAIN(TstAlgoVolume)
#include "tst_algo_volume.moc"
