// Poisson-disk thinning on generated grids and clouds: exact kept counts, no
// two kept points closer than the radius, evener than a random subset,
// determinism, stop, and the edges.

#include <QElapsedTimer>
#include <QtTest>
#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <unordered_map>

#include "Algo_KdTree.h"
#include "Algo_PoissonDiskSample.h"
#include "tst_algo_mesh_progress.h"

using ptCloud::Algo_KdTree;
using ptCloud::Algo_PoissonDiskSample;
using ptCloud::pcVec3f;

namespace {

constexpr float kSpacing = 0.05f;

// A square grid of side x side points with the given spacing, from (x0, 0).
std::vector<pcVec3f> grid(int side, float spacing, float x0 = 0.f) {
    std::vector<pcVec3f> points;
    for (int j = 0; j < side; ++j)
        for (int i = 0; i < side; ++i) points.emplace_back(x0 + i * spacing, j * spacing, 0.f);
    return points;
}

Algo_PoissonDiskSample::Params params(double share, double alpha = 1.0) {
    Algo_PoissonDiskSample::Params p;
    p.targetShare = share;
    p.meshAlpha = alpha;
    return p;
}

std::vector<unsigned int> thin(const std::vector<pcVec3f>& points, const Algo_PoissonDiskSample::Params& p,
                               double* radius = nullptr) {
    std::vector<unsigned int> kept;
    QString error;
    AlgoTestProgress progress;
    if (!Algo_PoissonDiskSample::run(points, p, kept, &progress, &error, radius)) qWarning() << error;
    if (!progress.wellFormed()) qWarning() << "progress went backwards";
    return kept;
}

// Brute force, squared as the thinning measures it.
float minimumDistance2(const std::vector<pcVec3f>& points, const std::vector<unsigned int>& subset) {
    float best = std::numeric_limits<float>::max();
    for (size_t a = 0; a < subset.size(); ++a)
        for (size_t b = a + 1; b < subset.size(); ++b)
            best = std::min(best, Algo_KdTree::dist2(points[subset[a]], points[subset[b]]));
    return best;
}

// The same through a map of cells of side `reach`: pairs closer than reach
// are all found, farther ones may be missed (the minimum is then >= reach).
float minimumDistance2Within(const std::vector<pcVec3f>& points, const std::vector<unsigned int>& subset,
                             float reach) {
    std::unordered_map<qint64, std::vector<unsigned int>> cells;
    auto cellOf = [&](const pcVec3f& p, int d) {
        return (qint64(std::floor(p.x / reach)) + d % 3 - 1) * 1000003 * 1000003 +
               (qint64(std::floor(p.y / reach)) + d / 3 % 3 - 1) * 1000003 + qint64(std::floor(p.z / reach)) + d / 9 - 1;
    };
    for (unsigned int i : subset) cells[cellOf(points[i], 13)].push_back(i);
    float best = reach * reach;
    for (unsigned int i : subset)
        for (int d = 0; d < 27; ++d) {
            const auto it = cells.find(cellOf(points[i], d));
            if (it == cells.end()) continue;
            for (unsigned int j : it->second)
                if (j != i) best = std::min(best, Algo_KdTree::dist2(points[i], points[j]));
        }
    return best;
}

// Coefficient of variation of the kept counts in square cells: 0 for a
// perfectly even subset, about 1/sqrt(mean count) for a random one.
double unevenness(const std::vector<pcVec3f>& points, const std::vector<unsigned int>& subset, float cell) {
    std::map<std::pair<int, int>, int> counts;
    for (const pcVec3f& p : points) counts[{int(p.x / cell), int(p.y / cell)}] = 0;
    for (unsigned int i : subset) ++counts[{int(points[i].x / cell), int(points[i].y / cell)}];
    double sum = 0.0, sum2 = 0.0;
    for (const auto& c : counts) {
        sum += c.second;
        sum2 += double(c.second) * c.second;
    }
    const double mean = sum / double(counts.size());
    return std::sqrt(std::max(0.0, sum2 / double(counts.size()) - mean * mean)) / mean;
}

std::vector<unsigned int> randomSubset(size_t n, size_t count) {
    std::vector<unsigned int> all(n);
    for (size_t i = 0; i < n; ++i) all[i] = unsigned(i);
    std::mt19937 rng(11);
    std::shuffle(all.begin(), all.end(), rng);
    all.resize(count);
    std::sort(all.begin(), all.end());
    return all;
}

}  // namespace

class TstAlgoSample : public QObject {
    Q_OBJECT
private slots:
    void keepsExactlyTheTargetShare_data();
    void keepsExactlyTheTargetShare();
    void spreadsKeptPointsEvenly_data();
    void spreadsKeptPointsEvenly();
    void keepsNoTwoPointsCloserThanTheRadius_data();
    void keepsNoTwoPointsCloserThanTheRadius();
    void isDeterministic();
    void edges_data();
    void edges();
    void rejectsBadParameters_data();
    void rejectsBadParameters();
    void stopLeavesTheOutputUntouched_data();
    void stopLeavesTheOutputUntouched();
};

void TstAlgoSample::keepsExactlyTheTargetShare_data() {
    QTest::addColumn<double>("share");
    QTest::addColumn<double>("initFactor");
    QTest::addColumn<double>("alpha");
    QTest::newRow("all") << 1.0 << 5.0 << 1.0;
    QTest::newRow("half") << 0.5 << 5.0 << 1.0;
    QTest::newRow("quarter") << 0.25 << 5.0 << 1.0;
    QTest::newRow("quarter, first guess far too small") << 0.25 << 1.0 << 1.0;
    QTest::newRow("quarter, first guess far too large") << 0.25 << 100.0 << 1.0;
    QTest::newRow("quarter, smallest alpha") << 0.25 << 5.0 << 0.0001;
    QTest::newRow("quarter, largest alpha") << 0.25 << 5.0 << 100.0;
    QTest::newRow("a tenth") << 0.1 << 5.0 << 1.0;
    QTest::newRow("the smallest share") << 0.01 << 5.0 << 1.0;
}

void TstAlgoSample::keepsExactlyTheTargetShare() {
    QFETCH(double, share);
    QFETCH(double, initFactor);
    QFETCH(double, alpha);
    const std::vector<pcVec3f> points = grid(150, kSpacing);
    Algo_PoissonDiskSample::Params p = params(share, alpha);
    p.initFactor = initFactor;
    const std::vector<unsigned int> kept = thin(points, p);
    QCOMPARE(kept.size(), size_t(std::llround(share * double(points.size()))));
    QVERIFY(std::adjacent_find(kept.begin(), kept.end(), std::greater_equal<unsigned int>()) == kept.end());
    QVERIFY(kept.back() < points.size());
}

void TstAlgoSample::spreadsKeptPointsEvenly_data() {
    QTest::addColumn<float>("jitter");
    QTest::addColumn<float>("minimumGap");
    // On an exact lattice a quarter cannot keep diagonal neighbours apart by
    // dart throwing (disks past the diagonal keep under a fifth), so the
    // diagonal is the bound there.
    QTest::newRow("lattice") << 0.f << 1.4f;
    QTest::newRow("jittered grid") << 0.3f << 1.3f;
}

void TstAlgoSample::spreadsKeptPointsEvenly() {
    QFETCH(float, jitter);
    QFETCH(float, minimumGap);
    std::vector<pcVec3f> points = grid(100, kSpacing);
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> shift(-jitter * kSpacing, jitter * kSpacing);
    for (pcVec3f& p : points) p = p + pcVec3f(shift(rng), shift(rng), 0.f);
    const std::vector<unsigned int> kept = thin(points, params(0.25));
    QCOMPARE(kept.size(), size_t(2500));
    const std::vector<unsigned int> random = randomSubset(points.size(), kept.size());
    // A random quarter keeps close neighbours; the disks keep points well apart.
    QVERIFY(minimumDistance2(points, random) <= kSpacing * kSpacing);
    const float gap = std::sqrt(minimumDistance2(points, kept));
    QVERIFY2(gap >= minimumGap * kSpacing, qPrintable(QString::number(gap)));
    const double ours = unevenness(points, kept, 0.25f), theirs = unevenness(points, random, 0.25f);
    QVERIFY2(ours < 0.6 * theirs, qPrintable(QString("%1 vs random %2").arg(ours).arg(theirs)));
}

void TstAlgoSample::keepsNoTwoPointsCloserThanTheRadius_data() {
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("dimensions");
    QTest::addColumn<double>("share");
    QTest::addColumn<bool>("dense");  // the points fill the space densely at the radius
    // Brute force on small clouds, a map of cells on large ones.
    QTest::newRow("plane, a quarter") << 3000 << 2 << 0.25 << true;
    QTest::newRow("plane, most") << 3000 << 2 << 0.9 << false;
    QTest::newRow("cube, a tenth") << 3000 << 3 << 0.1 << true;
    QTest::newRow("large plane, a quarter") << 400000 << 2 << 0.25 << true;
    QTest::newRow("large cube, a twentieth") << 200000 << 3 << 0.05 << true;
}

void TstAlgoSample::keepsNoTwoPointsCloserThanTheRadius() {
    QFETCH(int, count);
    QFETCH(int, dimensions);
    QFETCH(double, share);
    QFETCH(bool, dense);
    constexpr float side = 20.f;
    std::mt19937 rng(9);
    std::uniform_real_distribution<float> u(0.f, side);
    std::vector<pcVec3f> points;
    for (int k = 0; k < count; ++k) points.emplace_back(u(rng), u(rng), dimensions == 3 ? u(rng) : 0.f);
    double radius = 0.0;
    const std::vector<unsigned int> kept = thin(points, params(share), &radius);
    QCOMPARE(kept.size(), size_t(std::llround(share * count)));
    const float r2 = float(radius) * float(radius);
    const float gap2 = count <= 5000 ? minimumDistance2(points, kept) : minimumDistance2Within(points, kept, float(radius));
    QVERIFY2(gap2 >= r2, qPrintable(QString("closest %1 m, radius %2 m").arg(std::sqrt(gap2)).arg(radius)));
    // Before the surplus goes the disks of radius r around the kept points
    // cover every point, so where the points fill the space r cannot be much
    // below the radius of a covering by as many disks.
    if (!dense) return;
    const double ball = dimensions == 2 ? M_PI : 4.0 * M_PI / 3.0;
    const double covering = std::pow(std::pow(side, dimensions) / (double(kept.size()) * ball), 1.0 / dimensions);
    QVERIFY2(radius >= 0.8 * covering, qPrintable(QString("radius %1 m, covering %2 m").arg(radius).arg(covering)));
}

void TstAlgoSample::isDeterministic() {
    std::vector<pcVec3f> points;
    std::mt19937 rng(5);
    std::normal_distribution<float> g;
    for (int k = 0; k < 20000; ++k) points.emplace_back(g(rng), g(rng), 0.1f * g(rng));
    const std::vector<unsigned int> first = thin(points, params(0.3));
    QCOMPARE(first.size(), size_t(6000));
    QCOMPARE(thin(points, params(0.3)), first);
    Algo_PoissonDiskSample::Params other = params(0.3);
    other.seed = 77;
    QVERIFY(thin(points, other) != first);
}

void TstAlgoSample::edges_data() {
    QTest::addColumn<int>("count");
    QTest::addColumn<bool>("stacked");
    QTest::addColumn<double>("share");
    QTest::addColumn<int>("expected");
    QTest::newRow("one point") << 1 << false << 0.5 << 1;
    QTest::newRow("share below one point keeps one") << 10 << false << 0.01 << 1;
    QTest::newRow("all points stacked on one spot") << 100 << true << 0.5 << 50;
    QTest::newRow("a short line") << 7 << false << 0.5 << 4;
}

void TstAlgoSample::edges() {
    QFETCH(int, count);
    QFETCH(bool, stacked);
    QFETCH(double, share);
    QFETCH(int, expected);
    std::vector<pcVec3f> points;
    for (int k = 0; k < count; ++k) points.emplace_back(stacked ? 1.f : 0.1f * k, 2.f, 3.f);
    QCOMPARE(thin(points, params(share)).size(), size_t(expected));
}

void TstAlgoSample::rejectsBadParameters_data() {
    QTest::addColumn<int>("count");
    QTest::addColumn<double>("share");
    QTest::addColumn<double>("alpha");
    QTest::addColumn<QString>("reason");
    QTest::newRow("no points") << 0 << 0.5 << 0.1 << "no points";
    QTest::newRow("share zero") << 100 << 0.0 << 0.1 << "target share";
    QTest::newRow("share above one") << 100 << 1.5 << 0.1 << "target share";
    QTest::newRow("alpha zero") << 100 << 0.5 << 0.0 << "positive";
}

void TstAlgoSample::rejectsBadParameters() {
    QFETCH(int, count);
    QFETCH(double, share);
    QFETCH(double, alpha);
    QFETCH(QString, reason);
    const std::vector<pcVec3f> points = grid(int(std::sqrt(count)), kSpacing);
    std::vector<unsigned int> kept{42};
    QString error;
    QVERIFY(!Algo_PoissonDiskSample::run(points, params(share, alpha), kept, nullptr, &error));
    QVERIFY2(error.contains(reason), qPrintable(error));
    QCOMPARE(kept, std::vector<unsigned int>{42});
}

void TstAlgoSample::stopLeavesTheOutputUntouched_data() {
    QTest::addColumn<int>("stopAfter");
    for (int stopAfter : {0, 1, 5, 40, 200}) QTest::addRow("after %d polls", stopAfter) << stopAfter;
}

void TstAlgoSample::stopLeavesTheOutputUntouched() {
    QFETCH(int, stopAfter);
    struct Timed : AlgoTestProgress {
        using AlgoTestProgress::AlgoTestProgress;
        QElapsedTimer asked;
        bool isStopRequested() override {
            const bool stop = AlgoTestProgress::isStopRequested();
            if (stop && !asked.isValid()) asked.start();
            return stop;
        }
    } progress(stopAfter);
    const std::vector<pcVec3f> points = grid(1000, kSpacing);
    std::vector<unsigned int> kept{42};
    QString error;
    QVERIFY(!Algo_PoissonDiskSample::run(points, params(0.2), kept, &progress, &error));
    QCOMPARE(error, QString("cancelled"));
    QCOMPARE(kept, std::vector<unsigned int>{42});
    QVERIFY2(progress.asked.elapsed() < 500, qPrintable(QString::number(progress.asked.elapsed())));
}

QTEST_GUILESS_MAIN(TstAlgoSample)
#include "tst_algo_sample.moc"
