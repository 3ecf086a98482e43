// Meshing generated surfaces with known geometry: a sampled sphere (closed,
// radius R, area 4 pi R^2) and a sampled plane (flat, facing up); alpha
// below the spacing; Poisson's density trimming; meshes of real scans that
// stay within twice the point spacing of the data; the edges and stops.

#include <QtTest>
#include <cmath>
#include <map>
#include <random>

#include "Algo_KdTree.h"
#include "Algo_Mesh.h"
#include "tst_algo_mesh_progress.h"
#include "tst_las_data.h"

using ptCloud::Algo_Mesh;
using ptCloud::pcVec3f;

namespace {

constexpr float kRadius = 2.f;
constexpr float kPlaneSpacing = 0.1f;
constexpr int kPlaneSide = 40;

// Evenly spread points on a sphere about the origin (a Fibonacci spiral).
std::vector<pcVec3f> sphere(int count) {
    std::vector<pcVec3f> points;
    const double golden = M_PI * (3.0 - std::sqrt(5.0));
    for (int k = 0; k < count; ++k) {
        const double z = 1.0 - 2.0 * (k + 0.5) / count, r = std::sqrt(1.0 - z * z);
        points.emplace_back(float(kRadius * r * std::cos(golden * k)), float(kRadius * r * std::sin(golden * k)),
                            float(kRadius * z));
    }
    return points;
}

// A square grid on z = 0 with a millimetre of height noise, as a scan has.
std::vector<pcVec3f> plane() {
    std::mt19937 rng(9);
    std::uniform_real_distribution<float> noise(-0.001f, 0.001f);
    std::vector<pcVec3f> points;
    for (int j = 0; j < kPlaneSide; ++j)
        for (int i = 0; i < kPlaneSide; ++i) points.emplace_back(i * kPlaneSpacing, j * kPlaneSpacing, noise(rng));
    return points;
}

// size: the alpha, the ball radius or the Poisson depth, whichever the method reads.
Algo_Mesh::Params params(Algo_Mesh::Method method, bool fastNormal, double size) {
    Algo_Mesh::Params p;
    p.method = method;
    p.fastNormal = fastNormal;
    p.alpha = size;
    p.ballRadius = size;
    p.depth = unsigned(size);
    p.width = 0.0;
    return p;
}

// A size that suits the plane (and the sphere) for each method.
double typicalSize(int method) {
    const double sizes[] = {0.3, 0.1, 6.0};
    return sizes[method];
}

struct Mesh {
    std::vector<pcVec3f> vertices, normals;
    std::vector<unsigned int> triangles;

    size_t triangleCount() const { return triangles.size() / 3; }
    pcVec3f corner(size_t t, int c) const { return vertices[triangles[3 * t + size_t(c)]]; }
    static pcVec3f cross(const pcVec3f& a, const pcVec3f& b) {
        return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
    }
    // Twice the area, along the winding's normal.
    pcVec3f areaVector(size_t t) const {
        return cross(corner(t, 1) - corner(t, 0), corner(t, 2) - corner(t, 0));
    }
    double area() const {
        double sum = 0.0;
        for (size_t t = 0; t < triangleCount(); ++t) sum += 0.5 * areaVector(t).length();
        return sum;
    }
    // Edges used by exactly one triangle: none on a closed surface.
    size_t boundaryEdges() const {
        std::map<std::pair<unsigned, unsigned>, int> uses;
        for (size_t t = 0; t < triangleCount(); ++t)
            for (int c = 0; c < 3; ++c) {
                const unsigned a = triangles[3 * t + size_t(c)], b = triangles[3 * t + size_t((c + 1) % 3)];
                ++uses[{std::min(a, b), std::max(a, b)}];
            }
        return size_t(std::count_if(uses.begin(), uses.end(), [](const auto& e) { return e.second == 1; }));
    }
};

bool build(const std::vector<pcVec3f>& points, const Algo_Mesh::Params& p, Mesh& mesh, QString* error,
           AlgoTestProgress* progress = nullptr) {
    return Algo_Mesh::run(points, p, mesh.vertices, mesh.triangles, &mesh.normals, progress, error);
}

float dot(const pcVec3f& a, const pcVec3f& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

}  // namespace

class TstAlgoMesh : public QObject {
    Q_OBJECT
private slots:
    void sphereBecomesAClosedSurface_data();
    void sphereBecomesAClosedSurface();
    void planeBecomesAFlatUpwardMesh_data();
    void planeBecomesAFlatUpwardMesh();
    void sizesBelowTheSpacingMakeNoTriangles_data();
    void sizesBelowTheSpacingMakeNoTriangles();
    void coarsestPoissonStillCoversTheSphere_data();
    void coarsestPoissonStillCoversTheSphere();
    void densityDivideKeepsTheDensestShare();
    void meshOfAScanStaysOnIt_data();
    void meshOfAScanStaysOnIt();
    void isDeterministic_data();
    void isDeterministic();
    void rejectsBadInput_data();
    void rejectsBadInput();
    void stopLeavesTheOutputUntouched_data();
    void stopLeavesTheOutputUntouched();
};

void TstAlgoMesh::sphereBecomesAClosedSurface_data() {
    QTest::addColumn<int>("method");
    QTest::addColumn<double>("size");  // alpha, ball radius or Poisson depth
    QTest::addColumn<float>("radialTolerance");
    QTest::addColumn<double>("areaTolerance");
    // Alpha beyond the radius keeps every tetrahedron: the hull, a closed sphere.
    QTest::newRow("alpha shape") << int(Algo_Mesh::Method::AlphaShape) << 3.0 << 1e-6f << 0.01;
    QTest::newRow("ball pivoting") << int(Algo_Mesh::Method::BallPivoting) << 0.12 << 1e-6f << 0.02;
    QTest::newRow("poisson") << int(Algo_Mesh::Method::Poisson) << 6.0 << 0.02f * kRadius << 0.03;
}

void TstAlgoMesh::sphereBecomesAClosedSurface() {
    QFETCH(int, method);
    QFETCH(double, size);
    QFETCH(float, radialTolerance);
    QFETCH(double, areaTolerance);
    const Algo_Mesh::Params p = params(Algo_Mesh::Method(method), false, size);
    Mesh mesh;
    QString error;
    AlgoTestProgress progress;
    QVERIFY2(build(sphere(4000), p, mesh, &error, &progress), qPrintable(error));
    QVERIFY(progress.wellFormed());
    QCOMPARE(progress.progress(), 100);
    QVERIFY(mesh.triangleCount() > 4000);
    QCOMPARE(mesh.normals.size(), mesh.vertices.size());
    float worst = 0.f;
    int outward = 0;
    for (size_t v = 0; v < mesh.vertices.size(); ++v) {
        worst = std::max(worst, std::abs(mesh.vertices[v].length() - kRadius));
        if (dot(mesh.normals[v], mesh.vertices[v]) > 0.f) ++outward;
    }
    QVERIFY2(worst <= radialTolerance, qPrintable(QString::number(worst)));
    QVERIFY(outward >= int(0.99 * mesh.vertices.size()));
    const double expected = 4.0 * M_PI * kRadius * kRadius;
    QVERIFY2(std::abs(mesh.area() - expected) <= areaTolerance * expected, qPrintable(QString::number(mesh.area())));
    QVERIFY2(mesh.boundaryEdges() <= mesh.triangleCount() / 100, qPrintable(QString::number(mesh.boundaryEdges())));
}

void TstAlgoMesh::planeBecomesAFlatUpwardMesh_data() {
    QTest::addColumn<int>("method");
    QTest::addColumn<double>("size");
    QTest::addColumn<double>("densityDivide");
    QTest::newRow("alpha shape") << int(Algo_Mesh::Method::AlphaShape) << 0.2 << 1.0;
    QTest::newRow("ball pivoting") << int(Algo_Mesh::Method::BallPivoting) << 0.1 << 1.0;
    QTest::newRow("poisson, trimmed") << int(Algo_Mesh::Method::Poisson) << 6.0 << 2.0;
}

void TstAlgoMesh::planeBecomesAFlatUpwardMesh() {
    QFETCH(int, method);
    QFETCH(double, size);
    QFETCH(double, densityDivide);
    Algo_Mesh::Params p = params(Algo_Mesh::Method(method), true, size);
    p.densityDivide = densityDivide;
    Mesh mesh;
    QString error;
    QVERIFY2(build(plane(), p, mesh, &error), qPrintable(error));
    QVERIFY(mesh.triangleCount() > 1000);
    // Over the scanned square the mesh lies on the plane and faces up.
    const float far = (kPlaneSide - 1) * kPlaneSpacing;
    int inside = 0, flat = 0, up = 0;
    for (size_t v = 0; v < mesh.vertices.size(); ++v) {
        const pcVec3f& q = mesh.vertices[v];
        if (q.x < 0.f || q.y < 0.f || q.x > far || q.y > far) continue;
        ++inside;
        if (std::abs(q.z) < 0.01f) ++flat;
        if (mesh.normals[v].z > 0.95f) ++up;
    }
    QVERIFY(inside > 1000);
    QVERIFY2(flat >= int(0.95 * inside), qPrintable(QString("%1 of %2").arg(flat).arg(inside)));
    QVERIFY2(up >= int(0.95 * inside), qPrintable(QString("%1 of %2").arg(up).arg(inside)));
}

void TstAlgoMesh::sizesBelowTheSpacingMakeNoTriangles_data() {
    QTest::addColumn<int>("method");
    QTest::addColumn<double>("size");
    QTest::newRow("alpha a fifth of the spacing") << int(Algo_Mesh::Method::AlphaShape) << 0.2 * kPlaneSpacing;
    QTest::newRow("smallest alpha") << int(Algo_Mesh::Method::AlphaShape) << 0.0001;
    QTest::newRow("smallest ball") << int(Algo_Mesh::Method::BallPivoting) << 0.0001;
}

void TstAlgoMesh::sizesBelowTheSpacingMakeNoTriangles() {
    QFETCH(int, method);
    QFETCH(double, size);
    Mesh mesh;
    QString error;
    QVERIFY2(build(plane(), params(Algo_Mesh::Method(method), true, size), mesh, &error), qPrintable(error));
    QVERIFY(mesh.triangleCount() <= 10);
    QCOMPARE(mesh.vertices.size(), mesh.normals.size());
}

void TstAlgoMesh::coarsestPoissonStillCoversTheSphere_data() {
    QTest::addColumn<unsigned int>("depth");
    QTest::addColumn<double>("width");
    QTest::newRow("depth 1, run as 2") << 1u << 0.0;
    QTest::newRow("width wider than the sphere") << 8u << 10.0;
}

void TstAlgoMesh::coarsestPoissonStillCoversTheSphere() {
    QFETCH(unsigned int, depth);
    QFETCH(double, width);
    Algo_Mesh::Params p = params(Algo_Mesh::Method::Poisson, false, depth);
    p.width = width;
    Mesh mesh;
    QString error;
    QVERIFY2(build(sphere(2000), p, mesh, &error), qPrintable(error));
    QVERIFY(mesh.triangleCount() > 0);
    // A coarse octree gives a rough blob, but one around the sphere's centre.
    pcVec3f centre;
    for (const pcVec3f& v : mesh.vertices) centre = centre + v * (1.f / float(mesh.vertices.size()));
    QVERIFY2(centre.length() < 0.25f * kRadius, qPrintable(QString::number(centre.length())));
}

void TstAlgoMesh::densityDivideKeepsTheDensestShare() {
    Algo_Mesh::Params p = params(Algo_Mesh::Method::Poisson, true, 6.0);
    Mesh whole, quarter;
    QString error;
    QVERIFY2(build(plane(), p, whole, &error), qPrintable(error));
    p.densityDivide = 4.0;
    QVERIFY2(build(plane(), p, quarter, &error), qPrintable(error));
    // The densest quarter of all the vertices, of which the trim to the data keeps nearly all.
    QVERIFY2(quarter.vertices.size() < whole.vertices.size() / 3 &&
                 quarter.vertices.size() >= whole.vertices.size() / 5,
             qPrintable(QString("%1 of %2").arg(quarter.vertices.size()).arg(whole.vertices.size())));
    // Poisson carries an open patch on past the edges of the data: trimmed
    // at twice the spacing, it does not reach beyond.
    auto beyondTheScan = [](const Mesh& m) {
        const float reach = 2 * kPlaneSpacing, far = (kPlaneSide - 1) * kPlaneSpacing + reach;
        return std::count_if(m.vertices.begin(), m.vertices.end(), [reach, far](const pcVec3f& q) {
            return q.x < -reach || q.y < -reach || q.x > far || q.y > far;
        });
    };
    QCOMPARE(beyondTheScan(whole), 0);
    QCOMPARE(beyondTheScan(quarter), 0);
}

void TstAlgoMesh::meshOfAScanStaysOnIt_data() {
    LAS_REQUIRE_SHARED_DATA();
    QTest::addColumn<QString>("key");
    QTest::addColumn<int>("method");
    QTest::addColumn<double>("size");
    QTest::newRow("poisson, autzen_trim") << "las/autzen_trim.las" << int(Algo_Mesh::Method::Poisson) << 0.0;
    QTest::newRow("poisson, bcts_1") << "las/bcts_1.las" << int(Algo_Mesh::Method::Poisson) << 0.0;
    QTest::newRow("ball pivoting, autzen_trim") << "las/autzen_trim.las" << int(Algo_Mesh::Method::BallPivoting)
                                                << 3.0;
}

// The largest distance from a triangle to the nearest scan point, sampled at
// the corners, the edge midpoints and the centre of every triangle, stays
// within twice the mean distance between neighbouring points.
void TstAlgoMesh::meshOfAScanStaysOnIt() {
    QFETCH(QString, key);
    QFETCH(int, method);
    QFETCH(double, size);
    ptCloud::LasReader reader;
    ptCloud::stPtCloud_PointArray scan;
    QString error;
    QVERIFY2(reader.open(lasTestData::path(key), &error), qPrintable(error));
    const ptCloud::pcVec3d centre = lasTestData::centre(lasTestData::manifest().value(key).toObject());
    QVERIFY2(lasTestData::readAll(reader, {ptCloud::DSC_Location}, centre, 1 << 16, scan, &error), qPrintable(error));
    Algo_Mesh::Params p = params(Algo_Mesh::Method(method), true, size);
    p.depth = 8;
    p.width = 0.5;
    Mesh mesh;
    QVERIFY2(build(scan.positions, p, mesh, &error), qPrintable(error));
    QVERIFY(mesh.triangleCount() > 1000);

    ptCloud::Algo_KdTree tree;
    QVERIFY(tree.build(scan.positions));
    std::vector<ptCloud::Algo_KdTree::Neighbour> found;
    auto nearest = [&](const pcVec3f& q, size_t k) {
        tree.knn(q, k, std::numeric_limits<float>::max(), found);
        return std::sqrt(double(found.back().dist2));
    };
    double spacing = 0.0;
    for (const pcVec3f& q : scan.positions) spacing += nearest(q, 2);
    spacing /= double(scan.positions.size());
    double farthest = 0.0;
    for (size_t t = 0; t < mesh.triangleCount(); ++t) {
        const pcVec3f a = mesh.corner(t, 0), b = mesh.corner(t, 1), c = mesh.corner(t, 2);
        for (const pcVec3f& q : {a, b, c, (a + b) * 0.5f, (b + c) * 0.5f, (c + a) * 0.5f, (a + b + c) * (1.f / 3.f)})
            farthest = std::max(farthest, nearest(q, 1));
    }
    qInfo("%s: farthest %.3f m from the scan, mean spacing %.3f m", qPrintable(key), farthest, spacing);
    QVERIFY2(farthest <= 2.0 * spacing, qPrintable(QString::number(farthest)));
}

void TstAlgoMesh::isDeterministic_data() {
    QTest::addColumn<int>("method");
    QTest::newRow("alpha shape") << int(Algo_Mesh::Method::AlphaShape);
    QTest::newRow("ball pivoting") << int(Algo_Mesh::Method::BallPivoting);
    QTest::newRow("poisson") << int(Algo_Mesh::Method::Poisson);
}

void TstAlgoMesh::isDeterministic() {
    QFETCH(int, method);
    const Algo_Mesh::Params p = params(Algo_Mesh::Method(method), true, typicalSize(method));
    Mesh first, second;
    QString error;
    QVERIFY2(build(plane(), p, first, &error), qPrintable(error));
    QVERIFY2(build(plane(), p, second, &error), qPrintable(error));
    QVERIFY(first.vertices == second.vertices);
    QVERIFY(first.triangles == second.triangles);
}

void TstAlgoMesh::rejectsBadInput_data() {
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("method");
    QTest::addColumn<double>("value");
    QTest::addColumn<QString>("reason");
    const int alpha = int(Algo_Mesh::Method::AlphaShape), ball = int(Algo_Mesh::Method::BallPivoting),
              poisson = int(Algo_Mesh::Method::Poisson);
    QTest::newRow("no points") << 0 << alpha << 1.0 << "at least four";
    QTest::newRow("three points") << 3 << ball << 1.0 << "at least four";
    QTest::newRow("alpha zero") << 100 << alpha << 0.0 << "alpha";
    QTest::newRow("negative radius") << 100 << ball << -1.0 << "radius";
    QTest::newRow("depth zero") << 100 << poisson << 0.0 << "depth";
    QTest::newRow("depth seventeen") << 100 << poisson << 17.0 << "depth";
    QTest::newRow("unknown method") << 100 << 3 << 1.0 << "unknown";
}

void TstAlgoMesh::rejectsBadInput() {
    QFETCH(int, count);
    QFETCH(int, method);
    QFETCH(double, value);
    QFETCH(QString, reason);
    std::vector<pcVec3f> points = plane();
    points.resize(size_t(count));
    const Algo_Mesh::Params p = params(Algo_Mesh::Method(method), true, value);
    Mesh mesh;
    mesh.vertices.assign(1, pcVec3f(1, 2, 3));
    QString error;
    QVERIFY(!build(points, p, mesh, &error));
    QVERIFY2(error.contains(reason), qPrintable(error));
    QCOMPARE(mesh.vertices.size(), size_t(1));
}

void TstAlgoMesh::stopLeavesTheOutputUntouched_data() {
    QTest::addColumn<int>("method");
    QTest::addColumn<bool>("fastNormal");
    QTest::addColumn<int>("stopAfter");
    const char* names[] = {"alpha shape", "ball pivoting", "poisson"};
    for (int method = 0; method < 3; ++method)
        for (int stopAfter : {0, 2, 6})
            for (bool fast : {true, false})
                QTest::addRow("%s, %s, stop after %d polls", names[method], fast ? "fast" : "consistent", stopAfter)
                    << method << fast << stopAfter;
}

void TstAlgoMesh::stopLeavesTheOutputUntouched() {
    QFETCH(int, method);
    QFETCH(bool, fastNormal);
    QFETCH(int, stopAfter);
    const std::vector<pcVec3f> points = sphere(20000);
    Mesh mesh;
    mesh.vertices.assign(1, pcVec3f(1, 2, 3));
    QString error;
    AlgoTestProgress progress(stopAfter);
    QVERIFY(!build(points, params(Algo_Mesh::Method(method), fastNormal, typicalSize(method)), mesh, &error,
                   &progress));
    QCOMPARE(error, QString("cancelled"));
    QCOMPARE(mesh.vertices.size(), size_t(1));
    QVERIFY(mesh.triangles.empty());
    // The next run waits for the abandoned library call and then succeeds.
    QVERIFY2(build(sphere(500), params(Algo_Mesh::Method::AlphaShape, true, 3.0), mesh, &error), qPrintable(error));
    QVERIFY(mesh.triangleCount() > 500);
}

QTEST_GUILESS_MAIN(TstAlgoMesh)
#include "tst_algo_mesh.moc"
