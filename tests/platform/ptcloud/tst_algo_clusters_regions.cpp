// Normal estimation and region growing on generated surfaces with known
// geometry: planes at known tilts, a sphere, a roof of two faces at a known
// angle, a sheet folded along a crease; edges, bad parameters and stops.

#include <QtTest>
#include <cmath>
#include <map>
#include <random>
#include <set>
#include <vector>

#include "Algo_NormalEstimation.h"
#include "Algo_RegionGrowing.h"
#include "tst_algo_mesh_progress.h"

using namespace ptCloud;

namespace {

constexpr double kPi = 3.14159265358979323846;

// A square grid sheet of `side` x `side` points `step` apart, tilted by
// `tiltDegrees` about the x axis, with a little noise along its normal.
std::vector<pcVec3f> tiltedSheet(int side, float step, double tiltDegrees, float noise, pcVec3f& normal) {
    const double t = tiltDegrees * kPi / 180.0;
    const pcVec3f u(1.f, 0.f, 0.f), v(0.f, float(std::cos(t)), float(std::sin(t)));
    normal = pcVec3f(0.f, float(-std::sin(t)), float(std::cos(t)));
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> jitter(-noise, noise);
    std::vector<pcVec3f> points;
    for (int i = 0; i < side; ++i)
        for (int j = 0; j < side; ++j)
            points.push_back(u * (i * step) + v * (j * step) + normal * jitter(rng));
    return points;
}

// A gable roof: two faces sloping down from a ridge along y at x = 0, each
// at `pitchDegrees` to the horizontal, so their normals are 2 * pitch
// apart. Points are generated face by face; truth is 0 / 1 by face (the
// ridge line itself belongs to face 0).
std::vector<pcVec3f> roof(double pitchDegrees, std::vector<int>& truth) {
    const float slope = float(std::tan(pitchDegrees * kPi / 180.0));
    std::vector<pcVec3f> points;
    truth.clear();
    for (int face = 0; face < 2; ++face)
        for (int i = face; i <= 40; ++i)  // face 1 skips the shared ridge line
            for (int j = 0; j <= 60; ++j) {
                const float run = 0.1f * float(i) * (face == 0 ? 1.f : -1.f);
                points.emplace_back(run, 0.1f * float(j), -std::fabs(run) * slope);
                truth.push_back(face);
            }
    return points;
}

int regionCount(const std::vector<int>& labels) {
    std::set<int> ids(labels.begin(), labels.end());
    ids.erase(-1);
    return int(ids.size());
}

// Share of the points of each true part that carry that part's most
// common label, the smallest over the parts.
double worstPurity(const std::vector<int>& labels, const std::vector<int>& truth) {
    std::map<int, std::map<int, int>> votes;
    std::map<int, int> sizes;
    for (size_t i = 0; i < labels.size(); ++i) {
        ++votes[truth[i]][labels[i]];
        ++sizes[truth[i]];
    }
    double worst = 1.0;
    for (const auto& v : votes) {
        int most = 0;
        for (const auto& l : v.second)
            if (l.first >= 0) most = std::max(most, l.second);
        worst = std::min(worst, double(most) / sizes[v.first]);
    }
    return worst;
}

}  // namespace

class TstAlgoClustersRegions : public QObject {
    Q_OBJECT
private slots:
    void planeNormalsFollowTheTilt_data();
    void planeNormalsFollowTheTilt();
    void curvatureGrowsOffThePlane();
    void normalEdges_data();
    void normalEdges();
    void roofFacesSplitByAngle_data();
    void roofFacesSplitByAngle();
    void cureStopsGrowthAtACrease_data();
    void cureStopsGrowthAtACrease();
    void sizeWindowAndRangeEnds_data();
    void sizeWindowAndRangeEnds();
    void badParameters_data();
    void badParameters();
    void stopLeavesNothing_data();
    void stopLeavesNothing();
};

void TstAlgoClustersRegions::planeNormalsFollowTheTilt_data() {
    QTest::addColumn<double>("tilt");
    QTest::addColumn<int>("k");
    QTest::newRow("flat") << 0.0 << 20;
    QTest::newRow("30 degrees") << 30.0 << 20;
    QTest::newRow("60 degrees, few neighbours") << 60.0 << 5;
    QTest::newRow("89 degrees") << 89.0 << 30;
    QTest::newRow("120 degrees: turned up") << 120.0 << 20;
}

void TstAlgoClustersRegions::planeNormalsFollowTheTilt() {
    QFETCH(double, tilt);
    QFETCH(int, k);
    pcVec3f truth;
    const std::vector<pcVec3f> points = tiltedSheet(40, 0.1f, tilt, 0.001f, truth);
    if (truth.z < 0.f) truth = truth * -1.f;  // the estimate is turned up
    std::vector<pcVec3f> normals;
    std::vector<float> curvature;
    QString error;
    QVERIFY2(Algo_NormalEstimation::run(points, {k}, normals, curvature, nullptr, &error), qPrintable(error));
    QCOMPARE(normals.size(), points.size());
    const float cosOneDegree = float(std::cos(kPi / 180.0));
    // five points (the point and its four grid neighbours) feel the noise more
    const float limit = k < 10 ? float(std::cos(3.0 * kPi / 180.0)) : cosOneDegree;
    for (size_t i = 0; i < points.size(); ++i) {
        const pcVec3f& n = normals[i];
        QVERIFY(std::fabs(n.length() - 1.f) < 1e-4f);
        QVERIFY(n.z >= 0.f);
        const float dot = n.x * truth.x + n.y * truth.y + n.z * truth.z;
        QVERIFY2(dot >= limit, qPrintable(QString("point %1: cos %2").arg(i).arg(dot)));
        QVERIFY(curvature[i] >= 0.f && curvature[i] < 0.01f);
    }
}

void TstAlgoClustersRegions::curvatureGrowsOffThePlane() {
    // A unit sphere sampled by a Fibonacci spiral, and a flat grid: the
    // sphere's surface variation is clearly above the plane's, and its
    // normals are radial (turned up).
    std::vector<pcVec3f> sphere;
    const int n = 4000;
    for (int i = 0; i < n; ++i) {
        const double z = 1.0 - 2.0 * (i + 0.5) / n, r = std::sqrt(1.0 - z * z);
        const double phi = i * kPi * (3.0 - std::sqrt(5.0));
        sphere.emplace_back(float(r * std::cos(phi)), float(r * std::sin(phi)), float(z));
    }
    std::vector<pcVec3f> normals;
    std::vector<float> curvature;
    QVERIFY(Algo_NormalEstimation::run(sphere, {20}, normals, curvature, nullptr, nullptr));
    double mean = 0.0;
    for (size_t i = 0; i < sphere.size(); ++i) {
        pcVec3f radial = sphere[i];
        if (radial.z < 0.f) radial = radial * -1.f;
        QVERIFY(std::fabs(normals[i].x * radial.x + normals[i].y * radial.y + normals[i].z * radial.z) > 0.99f);
        mean += curvature[i];
    }
    mean /= n;
    // 20 neighbours cover a cap of angular radius r ~ 0.14 rad: the spread
    // along the normal (the cap's sag, r^2/2 at most) is about r^2/6 of the
    // spread across it
    QVERIFY2(mean > 1e-4 && mean < 0.01, qPrintable(QString::number(mean)));

    // the corner of a cube, where three faces meet, is as curved as can be
    std::vector<pcVec3f> corner;
    for (int a = 0; a < 6; ++a)
        for (int b = 0; b < 6; ++b) {
            corner.emplace_back(0.1f * a, 0.1f * b, 0.f);
            corner.emplace_back(0.1f * a, 0.f, 0.1f * b);
            corner.emplace_back(0.f, 0.1f * a, 0.1f * b);
        }
    corner.emplace_back(0.f, 0.f, 0.f);
    QVERIFY(Algo_NormalEstimation::run(corner, {30}, normals, curvature, nullptr, nullptr));
    QVERIFY2(curvature.back() > 0.15f && curvature.back() <= 1.f / 3.f + 1e-6f,
             qPrintable(QString::number(curvature.back())));
}

void TstAlgoClustersRegions::normalEdges_data() {
    QTest::addColumn<QString>("cloud");
    QTest::addColumn<int>("points");
    QTest::newRow("empty") << "" << 0;
    QTest::newRow("one point") << "line" << 1;
    QTest::newRow("two points") << "line" << 2;
    QTest::newRow("one spot") << "spot" << 50;
    QTest::newRow("a line") << "line" << 50;
}

void TstAlgoClustersRegions::normalEdges() {
    QFETCH(QString, cloud);
    QFETCH(int, points);
    std::vector<pcVec3f> p;
    for (int i = 0; i < points; ++i) p.emplace_back(cloud == "line" ? 0.1f * i : 1.f, 2.f, 3.f);
    std::vector<pcVec3f> normals{pcVec3f()};
    std::vector<float> curvature{5.f};
    QVERIFY(Algo_NormalEstimation::run(p, {10}, normals, curvature, nullptr, nullptr));
    QCOMPARE(normals.size(), size_t(points));
    QCOMPARE(curvature.size(), size_t(points));
    for (int i = 0; i < points; ++i) {
        QVERIFY(std::fabs(normals[size_t(i)].length() - 1.f) < 1e-4f);
        QVERIFY(curvature[size_t(i)] < 1e-6f);  // no plane, or a line: no variation off it
        if (cloud == "spot" || points < 3) QCOMPARE(normals[size_t(i)], pcVec3f(0.f, 0.f, 1.f));
        else QVERIFY(std::fabs(normals[size_t(i)].x) < 1e-4f);  // across the line
    }
}

void TstAlgoClustersRegions::roofFacesSplitByAngle_data() {
    QTest::addColumn<double>("pitch");
    QTest::addColumn<double>("smooth");
    QTest::addColumn<int>("regions");
    // faces at 30 degrees each: normals 60 degrees apart
    QTest::newRow("30/30, smooth 10") << 30.0 << 10.0 << 2;
    QTest::newRow("30/30, smooth 55") << 30.0 << 55.0 << 2;
    QTest::newRow("30/30, smooth 65") << 30.0 << 65.0 << 1;
    QTest::newRow("30/30, smooth 89") << 30.0 << 89.0 << 1;
    // a flatter roof: normals 20 degrees apart
    QTest::newRow("10/10, smooth 15") << 10.0 << 15.0 << 2;
    QTest::newRow("10/10, smooth 25") << 10.0 << 25.0 << 1;
}

void TstAlgoClustersRegions::roofFacesSplitByAngle() {
    QFETCH(double, pitch);
    QFETCH(double, smooth);
    QFETCH(int, regions);
    std::vector<int> truth;
    const std::vector<pcVec3f> points = roof(pitch, truth);
    std::vector<int> labels;
    QString error;
    Algo_RegionGrowing::Params p;
    p.neighbours = 20;
    p.smoothDegrees = smooth;
    p.curvature = 1.0;
    // the ridge line, whose normals sit between the faces', makes a narrow
    // region of its own when smooth is small; it is kept out of the count
    p.minCluster = 500;
    QVERIFY2(Algo_RegionGrowing::run(points, p, labels, nullptr, &error), qPrintable(error));
    QCOMPARE(regionCount(labels), regions);
    if (regions == 2) {
        // each face is one region, short of the few ridge points the other took
        QVERIFY2(worstPurity(labels, truth) > 0.95, qPrintable(QString::number(worstPurity(labels, truth))));
        QVERIFY(labels.front() != labels.back());
    }
    std::vector<int> again;
    QVERIFY(Algo_RegionGrowing::run(points, p, again, nullptr, nullptr));
    QCOMPARE(again, labels);
}

void TstAlgoClustersRegions::cureStopsGrowthAtACrease_data() {
    QTest::addColumn<double>("cure");
    QTest::addColumn<int>("regions");
    QTest::newRow("every point grows") << 1.0 << 1;
    QTest::newRow("flat points grow") << 0.001 << 2;
}

void TstAlgoClustersRegions::cureStopsGrowthAtACrease() {
    QFETCH(double, cure);
    QFETCH(int, regions);
    // a roof folded by 80 degrees, with the smooth test out of the way:
    // only the curvature along the crease can keep the faces apart
    std::vector<int> truth;
    const std::vector<pcVec3f> points = roof(40.0, truth);
    Algo_RegionGrowing::Params p;
    p.neighbours = 15;
    p.smoothDegrees = 90.0;
    p.curvature = cure;
    p.minCluster = 50;
    std::vector<int> labels;
    QVERIFY(Algo_RegionGrowing::run(points, p, labels, nullptr, nullptr));
    QCOMPARE(regionCount(labels), regions);
    QVERIFY(worstPurity(labels, truth) > 0.95);
}

void TstAlgoClustersRegions::sizeWindowAndRangeEnds_data() {
    QTest::addColumn<int>("neighbours");
    QTest::addColumn<double>("smooth");
    QTest::addColumn<int>("minCluster");
    QTest::addColumn<int>("maxCluster");
    QTest::addColumn<int>("regions");
    QTest::newRow("both sheets") << 20 << 10.0 << 50 << 1000000 << 2;
    QTest::newRow("small sheet below min") << 20 << 10.0 << 500 << 1000000 << 1;
    QTest::newRow("large sheet above max") << 20 << 10.0 << 50 << 1000 << 1;
    QTest::newRow("nothing in the window") << 20 << 10.0 << 500 << 1000 << 0;
    QTest::newRow("tolerance 1") << 1 << 10.0 << 1 << 10000000 << -1;
    QTest::newRow("smooth 0: nothing joins") << 20 << 0.0 << 5 << 10000000 << 0;
}

void TstAlgoClustersRegions::sizeWindowAndRangeEnds() {
    QFETCH(int, neighbours);
    QFETCH(double, smooth);
    QFETCH(int, minCluster);
    QFETCH(int, maxCluster);
    QFETCH(int, regions);
    // a 40 x 40 sheet and, 5 m above it, a 15 x 15 one
    pcVec3f normal;
    std::vector<pcVec3f> points = tiltedSheet(40, 0.1f, 0.0, 0.002f, normal);
    for (const pcVec3f& q : tiltedSheet(15, 0.1f, 0.0, 0.002f, normal)) points.push_back(q + pcVec3f(0.f, 0.f, 5.f));
    Algo_RegionGrowing::Params p;
    p.neighbours = neighbours;
    p.smoothDegrees = smooth;
    p.minCluster = minCluster;
    p.maxCluster = maxCluster;
    std::vector<int> labels;
    QString error;
    QVERIFY2(Algo_RegionGrowing::run(points, p, labels, nullptr, &error), qPrintable(error));
    QCOMPARE(labels.size(), points.size());
    if (regions >= 0) QCOMPARE(regionCount(labels), regions);
    else QVERIFY(regionCount(labels) > 100);  // growth through one neighbour: many small regions
    // labels are compact
    const int count = regionCount(labels);
    for (int l : labels) QVERIFY(l >= -1 && l < count);
}

void TstAlgoClustersRegions::badParameters_data() {
    QTest::addColumn<int>("neighbours");
    QTest::addColumn<double>("smooth");
    QTest::addColumn<double>("cure");
    QTest::addColumn<int>("minCluster");
    QTest::addColumn<int>("maxCluster");
    QTest::newRow("no neighbour") << 0 << 10.0 << 1.0 << 50 << 100;
    QTest::newRow("negative smooth") << 20 << -1.0 << 1.0 << 50 << 100;
    QTest::newRow("smooth above 180") << 20 << 181.0 << 1.0 << 50 << 100;
    QTest::newRow("NaN smooth") << 20 << std::nan("") << 1.0 << 50 << 100;
    QTest::newRow("negative cure") << 20 << 10.0 << -0.5 << 50 << 100;
    QTest::newRow("min 0") << 20 << 10.0 << 1.0 << 0 << 100;
    QTest::newRow("max below min") << 20 << 10.0 << 1.0 << 50 << 49;
}

void TstAlgoClustersRegions::badParameters() {
    QFETCH(int, neighbours);
    QFETCH(double, smooth);
    QFETCH(double, cure);
    QFETCH(int, minCluster);
    QFETCH(int, maxCluster);
    pcVec3f normal;
    const std::vector<pcVec3f> points = tiltedSheet(10, 0.1f, 0.0, 0.f, normal);
    std::vector<int> labels{4};
    QString error;
    QVERIFY(!Algo_RegionGrowing::run(points, {neighbours, smooth, cure, minCluster, maxCluster}, labels, nullptr,
                                     &error));
    QVERIFY(!error.isEmpty() && error != "cancelled");
    QVERIFY(labels.empty());

    std::vector<pcVec3f> normals{normal};
    std::vector<float> curvature{1.f};
    QVERIFY(!Algo_NormalEstimation::run(points, {2}, normals, curvature, nullptr, &error));
    QVERIFY(normals.empty() && curvature.empty());
}

void TstAlgoClustersRegions::stopLeavesNothing_data() {
    QTest::addColumn<bool>("regions");
    QTest::addColumn<int>("stopAfter");
    for (bool regions : {false, true})
        for (int after : {-1, 0, 1, 4, 20})
            QTest::newRow(qPrintable(QString("%1, stop after %2 polls")
                                         .arg(regions ? "region growing" : "normals")
                                         .arg(after)))
                << regions << after;
}

void TstAlgoClustersRegions::stopLeavesNothing() {
    QFETCH(bool, regions);
    QFETCH(int, stopAfter);
    pcVec3f normal;
    static const std::vector<pcVec3f> points = tiltedSheet(400, 0.05f, 20.0, 0.01f, normal);
    AlgoTestProgress progress(stopAfter);
    std::vector<int> labels{1};
    std::vector<pcVec3f> normals{normal};
    std::vector<float> curvature{1.f};
    QString error;
    const bool ok = regions ? Algo_RegionGrowing::run(points, Algo_RegionGrowing::Params(), labels, &progress, &error)
                            : Algo_NormalEstimation::run(points, {20}, normals, curvature, &progress, &error);
    QVERIFY(progress.wellFormed());
    if (stopAfter < 0) {
        QVERIFY2(ok, qPrintable(error));
        QCOMPARE(progress.progress(), 100);
        QVERIFY2(progress.polls() > 20, qPrintable(QString::number(progress.polls())));
        return;
    }
    QVERIFY(!ok);
    QCOMPARE(error, QString("cancelled"));
    if (regions) QVERIFY(labels.empty());
    else QVERIFY(normals.empty() && curvature.empty());
    QCOMPARE(progress.polls(), stopAfter + 1);
}

QTEST_GUILESS_MAIN(TstAlgoClustersRegions)
#include "tst_algo_clusters_regions.moc"
