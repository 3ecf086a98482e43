// Clustering stages on generated scenes with known answers: the k-d tree
// and DBSCAN / Euclidean clustering against brute-force references written
// here independently of the stages, fast Euclidean against Euclidean, KMeans
// on separated blobs; bad parameters, edges, and stops at many points.

#include <QtTest>
#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <vector>

#include "Algo_Dbscan.h"
#include "Algo_EuclideanCluster.h"
#include "Algo_FastEuclideanCluster.h"
#include "Algo_KMeans.h"
#include "Algo_KdTree.h"
#include "tst_algo_mesh_progress.h"

using namespace ptCloud;

namespace {

struct Scene {
    std::vector<pcVec3f> points;
    std::vector<int> truth;  // generating blob, -1 for background noise
};

// `blobs` Gaussian blobs of `perBlob` points on a line `spacing` apart,
// generated blob by blob, then `noise` uniform points over the scene's box.
Scene makeBlobs(int blobs, int perBlob, float spacing, float sigma, int noise, unsigned seed) {
    Scene s;
    std::mt19937 rng(seed);
    std::normal_distribution<float> gauss(0.f, sigma);
    for (int b = 0; b < blobs; ++b)
        for (int i = 0; i < perBlob; ++i) {
            s.points.emplace_back(b * spacing + gauss(rng), gauss(rng), gauss(rng));
            s.truth.push_back(b);
        }
    std::uniform_real_distribution<float> ux(-3.f, blobs * spacing + 3.f), uyz(-3.f, 3.f);
    for (int i = 0; i < noise; ++i) {
        s.points.emplace_back(ux(rng), uyz(rng), uyz(rng));
        s.truth.push_back(-1);
    }
    return s;
}

// Points on a 0.1 m lattice: many equal distances, so the tie rules matter.
Scene makeLattice(int n, unsigned seed) {
    Scene s;
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> cell(0, 14);
    for (int i = 0; i < n; ++i) {
        s.points.emplace_back(0.1f * cell(rng), 0.1f * cell(rng), 0.1f * (cell(rng) % 3));
        s.truth.push_back(0);
    }
    return s;
}

Scene sceneByName(const QString& name) {
    if (name == "separated") return makeBlobs(4, 250, 8.f, 0.25f, 0, 11);
    if (name == "touching") return makeBlobs(2, 300, 1.2f, 0.3f, 0, 12);
    if (name == "in noise") return makeBlobs(3, 200, 6.f, 0.25f, 300, 13);
    if (name == "sparse") return makeBlobs(0, 0, 1.f, 1.f, 400, 14);
    if (name == "lattice") return makeLattice(700, 15);
    if (name == "far from the origin") {
        Scene s = makeBlobs(3, 200, 1.5f, 0.3f, 100, 16);
        for (pcVec3f& p : s.points) p = p + pcVec3f(4000.f, -2500.f, 300.f);
        return s;
    }
    if (name == "wide, duplicates") {
        // spread over 20 km: with a tenth of a millimetre the cells need
        // more than 64 bits to number; only repeated points are neighbours
        Scene s;
        std::mt19937 rng(17);
        std::uniform_real_distribution<float> u(-10000.f, 10000.f);
        for (int i = 0; i < 300; ++i) {
            const pcVec3f p(u(rng), u(rng), u(rng));
            for (int copy = 0; copy <= i % 3; ++copy) s.points.push_back(p);
        }
        s.truth.assign(s.points.size(), 0);
        return s;
    }
    // The scenes below lie along x, so the k-d tree's first cuts are planes
    // x = const near the middle: clusters that cross them, meet only
    // across them, or sit on them.
    if (name == "chains across the cuts") {
        // blobs at both ends; a 0.2 m chain forming a U whose arms cross the
        // middle and whose bend is on the right, so its left pieces join
        // only through the right; a zigzag crossing the middle many times
        Scene s = makeBlobs(2, 200, 24.f, 0.3f, 0, 18);
        for (pcVec3f& p : s.points) p.x -= 12.f;
        for (int i = 0; i <= 60; ++i) s.points.emplace_back(-6.f + 0.2f * float(i), 0.f, 0.f);
        for (int i = 1; i < 15; ++i) s.points.emplace_back(6.f, 0.2f * float(i), 0.f);
        for (int i = 0; i <= 60; ++i) s.points.emplace_back(6.f - 0.2f * float(i), 3.f, 0.f);
        for (int i = 0; i <= 200; ++i)
            s.points.emplace_back(1.5f * std::sin(0.1f * float(i)), -2.f - 0.005f * float(i), 0.f);
        s.truth.assign(s.points.size(), 0);
        return s;
    }
    if (name == "meeting across the middle") {
        // two 0.2 m grids whose nearest columns are 0.3 m apart across x = 0
        Scene s;
        for (int side : {-1, 1})
            for (int i = 0; i < 20; ++i)
                for (int j = 0; j < 8; ++j) s.points.emplace_back(float(side) * (0.15f + 0.2f * float(i)), 0.2f * float(j), 0.f);
        s.truth.assign(s.points.size(), 0);
        return s;
    }
    if (name == "sheet on the middle") {
        // a 0.2 m grid exactly on x = 0 among scattered points: the median
        // is a tie shared by many points
        Scene s;
        for (int j = 0; j < 20; ++j)
            for (int k = 0; k < 20; ++k) s.points.emplace_back(0.f, 0.2f * float(j), 0.2f * float(k));
        std::mt19937 rng(19);
        std::uniform_real_distribution<float> ux(-4.f, 4.f), uyz(0.f, 4.f);
        for (int i = 0; i < 400; ++i) s.points.emplace_back(ux(rng), uyz(rng), uyz(rng));
        s.truth.assign(s.points.size(), 0);
        return s;
    }
    if (name == "one spot") {
        Scene s;
        s.points.assign(300, pcVec3f(1.f, 2.f, 3.f));
        s.truth.assign(s.points.size(), 0);
        return s;
    }
    if (name == "one point" || name == "two points") {
        Scene s;
        s.points = {pcVec3f(0.f, 0.f, 0.f), pcVec3f(0.3f, 0.f, 0.f)};
        s.points.resize(name == "one point" ? 1 : 2);
        s.truth.assign(s.points.size(), 0);
        return s;
    }
    if (name == "line") {
        // 0.9 m apart along a slanted line
        Scene s;
        for (int i = 0; i < 60; ++i) s.points.emplace_back(0.6f * float(i), 0.6f * float(i), 0.3f * float(i));
        s.truth.assign(s.points.size(), 0);
        return s;
    }
    return Scene();
}

// Neighbour lists by brute force, with the stages' own float arithmetic so
// that pairs exactly at the radius fall the same way.
std::vector<std::vector<int>> bruteNeighbours(const std::vector<pcVec3f>& p, double radius) {
    const float r2 = static_cast<float>(radius * radius);
    std::vector<std::vector<int>> nb(p.size());
    for (size_t i = 0; i < p.size(); ++i)
        for (size_t j = 0; j < p.size(); ++j)
            if (i != j && Algo_KdTree::dist2(p[i], p[j]) <= r2) nb[i].push_back(int(j));
    return nb;
}

// Renumbers labels >= 0 by first appearance.
std::vector<int> byFirstAppearance(const std::vector<int>& raw) {
    std::map<int, int> ids;
    std::vector<int> out;
    for (int l : raw) {
        if (l < 0) {
            out.push_back(-1);
            continue;
        }
        const auto it = ids.emplace(l, int(ids.size())).first;
        out.push_back(it->second);
    }
    return out;
}

// Textbook DBSCAN with the stages' rules for border points (nearest core
// point, lower index on ties) and for noise.
std::vector<int> referenceDbscan(const std::vector<pcVec3f>& p, double eps, int minPts, bool retainNoise) {
    const auto nb = bruteNeighbours(p, eps);
    const size_t n = p.size();
    std::vector<char> core(n);
    for (size_t i = 0; i < n; ++i) core[i] = int(nb[i].size()) + 1 >= minPts;
    std::vector<int> comp(n, -1);
    for (size_t s = 0; s < n; ++s) {
        if (!core[s] || comp[s] >= 0) continue;
        std::vector<int> stack{int(s)};
        comp[s] = int(s);
        while (!stack.empty()) {
            const int c = stack.back();
            stack.pop_back();
            for (int j : nb[size_t(c)])
                if (core[size_t(j)] && comp[size_t(j)] < 0) {
                    comp[size_t(j)] = int(s);
                    stack.push_back(j);
                }
        }
    }
    std::vector<int> raw(n, -1);
    for (size_t i = 0; i < n; ++i) {
        if (core[i]) {
            raw[i] = comp[i];
            continue;
        }
        int best = -1;
        for (int j : nb[i]) {
            if (!core[size_t(j)]) continue;
            const float d = Algo_KdTree::dist2(p[i], p[size_t(j)]);
            const float bd = best < 0 ? 0.f : Algo_KdTree::dist2(p[i], p[size_t(best)]);
            if (best < 0 || d < bd || (d == bd && j < best)) best = j;
        }
        raw[i] = best < 0 ? -1 : comp[size_t(best)];
    }
    std::vector<int> out = byFirstAppearance(raw);
    const int clusters = out.empty() ? 0 : *std::max_element(out.begin(), out.end()) + 1;
    if (retainNoise)
        for (int& l : out)
            if (l < 0) l = clusters;
    return out;
}

std::vector<int> referenceEuclidean(const std::vector<pcVec3f>& p, double tol, int minSize, int maxSize) {
    const auto nb = bruteNeighbours(p, tol);
    std::vector<int> comp(p.size(), -1);
    std::map<int, int> sizes;
    for (size_t s = 0; s < p.size(); ++s) {
        if (comp[s] >= 0) continue;
        std::vector<int> stack{int(s)};
        comp[s] = int(s);
        while (!stack.empty()) {
            const int c = stack.back();
            stack.pop_back();
            ++sizes[int(s)];
            for (int j : nb[size_t(c)])
                if (comp[size_t(j)] < 0) {
                    comp[size_t(j)] = int(s);
                    stack.push_back(j);
                }
        }
    }
    for (int& c : comp)
        if (sizes[c] < minSize || sizes[c] > maxSize) c = -1;
    return byFirstAppearance(comp);
}

size_t mostNeighbours(const std::vector<pcVec3f>& p, double radius) {
    size_t most = 0;
    for (const auto& l : bruteNeighbours(p, radius)) most = std::max(most, l.size());
    return most;
}

int clusterCount(const std::vector<int>& labels) {
    std::set<int> ids(labels.begin(), labels.end());
    ids.erase(-1);
    return int(ids.size());
}

// True when every cluster of `fine` lies inside one cluster of `coarse`.
bool refines(const std::vector<int>& fine, const std::vector<int>& coarse) {
    std::map<int, int> parent;
    for (size_t i = 0; i < fine.size(); ++i) {
        if (fine[i] < 0) continue;
        const auto it = parent.emplace(fine[i], coarse[i]).first;
        if (it->second != coarse[i]) return false;
    }
    return true;
}

using StageRun =
    std::function<bool(const std::vector<pcVec3f>&, std::vector<int>&, ILongLiveActionProgress*, QString*)>;

}  // namespace

class TstAlgoClusters : public QObject {
    Q_OBJECT
private slots:
    void kdTreeMatchesBruteForce_data();
    void kdTreeMatchesBruteForce();
    void leafPairsAreEachClosePairOnce();
    void kdTreePartsSplitThePoints_data();
    void kdTreePartsSplitThePoints();
    void dbscanMatchesReference_data();
    void dbscanMatchesReference();
    void dbscanFindsSeparatedBlobs();
    void dbscanEdges_data();
    void dbscanEdges();
    void euclideanMatchesReference_data();
    void euclideanMatchesReference();
    void fastEuclideanEqualsEuclidean_data();
    void fastEuclideanEqualsEuclidean();
    void fastEuclideanSmallCapRefines();
    void fastEuclideanCapCountsTheCellsNextPoint_data();
    void fastEuclideanCapCountsTheCellsNextPoint();
    void kmeansFindsBlobs();
    void kmeansClampsAndConverges_data();
    void kmeansClampsAndConverges();
    void kmeansStopsSeedingOnOneSpot();
    void kmeansExtraFollowsColour();
    void resultDoesNotDependOnPointOrder_data();
    void resultDoesNotDependOnPointOrder();
    void badParameters_data();
    void badParameters();
    void progressRunsToTheEnd_data();
    void progressRunsToTheEnd();
    void stopLeavesNothing_data();
    void stopLeavesNothing();
};

void TstAlgoClusters::kdTreeMatchesBruteForce_data() {
    QTest::addColumn<QString>("scene");
    QTest::addColumn<double>("radius");
    QTest::addColumn<int>("k");
    QTest::newRow("blobs") << "separated" << 0.3 << 12;
    QTest::newRow("noise, k above n") << "sparse" << 1.5 << 500;
    QTest::newRow("lattice ties") << "lattice" << 0.1 << 9;
    QTest::newRow("lattice, radius exactly two cells") << "lattice" << 0.2 << 30;
}

void TstAlgoClusters::kdTreeMatchesBruteForce() {
    QFETCH(QString, scene);
    QFETCH(double, radius);
    QFETCH(int, k);
    const Scene s = sceneByName(scene);
    Algo_KdTree tree;
    QVERIFY(tree.build(s.points));
    QCOMPARE(tree.size(), s.points.size());
    const float r2 = float(radius * radius);
    std::vector<int> got;
    std::vector<Algo_KdTree::Neighbour> knn;
    for (size_t q = 0; q < s.points.size(); q += 7) {
        std::vector<std::pair<float, int>> all;
        std::vector<int> within;
        for (size_t j = 0; j < s.points.size(); ++j) {
            const float d = Algo_KdTree::dist2(s.points[q], s.points[j]);
            all.emplace_back(d, int(j));
            if (d <= r2) within.push_back(int(j));
        }
        tree.radius(s.points[q], r2, got);
        std::sort(got.begin(), got.end());
        QCOMPARE(got, within);

        std::sort(all.begin(), all.end());
        tree.knn(s.points[q], size_t(k), r2, knn);
        std::vector<int> expected;
        for (const auto& a : all)
            if (a.first <= r2 && expected.size() < size_t(k)) expected.push_back(a.second);
        std::vector<int> knnIds;
        for (const auto& nb : knn) knnIds.push_back(nb.index);
        QCOMPARE(knnIds, expected);  // nearest first, ties to the lower index
    }
}

void TstAlgoClusters::leafPairsAreEachClosePairOnce() {
    const Scene s = makeBlobs(3, 300, 1.5f, 0.4f, 100, 21);
    const double radius = 0.35;
    Algo_KdTree tree;
    QVERIFY(tree.build(s.points));
    std::multiset<std::pair<int, int>> seen;
    Algo_KdTree::LeafScratch scratch;
    for (size_t leaf = 0; leaf < tree.leafCount(); ++leaf) {
        tree.gatherLeaf(leaf, Algo_KdTree::gatherReach(radius), scratch);
        size_t first, last;
        tree.leafRange(leaf, first, last);
        for (size_t at = first; at < last; ++at) {
            const int i = tree.order()[at];
            Algo_KdTree::withinGathered(s.points[size_t(i)], float(radius * radius), at - first + 1, scratch);
            for (const auto& nb : scratch.within) seen.emplace(std::min(i, nb.index), std::max(i, nb.index));
        }
    }
    std::multiset<std::pair<int, int>> expected;
    const auto nb = bruteNeighbours(s.points, radius);
    for (size_t i = 0; i < nb.size(); ++i)
        for (int j : nb[i])
            if (int(i) < j) expected.emplace(int(i), j);
    QCOMPARE(seen.size(), expected.size());
    QVERIFY(seen == expected);
}

void TstAlgoClusters::kdTreePartsSplitThePoints_data() {
    QTest::addColumn<QString>("scene");
    QTest::addColumn<int>("levels");
    QTest::newRow("whole tree") << "in noise" << 0;
    QTest::newRow("halves") << "in noise" << 1;
    QTest::newRow("quarters, ties on the middle") << "sheet on the middle" << 2;
    QTest::newRow("down to leaves") << "separated" << 12;
    QTest::newRow("one point") << "one point" << 3;
    QTest::newRow("empty") << "empty" << 1;
}

void TstAlgoClusters::kdTreePartsSplitThePoints() {
    QFETCH(QString, scene);
    QFETCH(int, levels);
    const Scene s = sceneByName(scene);
    Algo_KdTree tree;
    QVERIFY(tree.build(s.points));
    const std::vector<Algo_KdTree::Part> parts = tree.parts(levels);
    QVERIFY(parts.size() <= (size_t(1) << levels));
    QCOMPARE(parts.empty(), s.points.empty());
    size_t next = 0;  // disjoint runs of order(), in order, covering it
    for (const auto& part : parts) {
        QCOMPARE(part.begin, next);
        QVERIFY(part.end > part.begin);
        next = part.end;
    }
    QCOMPARE(next, s.points.size());

    const float r2 = 0.35f * 0.35f;
    const std::vector<int32_t>& order = tree.order();
    std::vector<int> got;
    std::vector<int32_t> left;
    for (const auto& part : parts) {
        // a Remaining over the part with every other point taken
        Algo_KdTree::Remaining rest(tree, part);
        for (size_t at = part.begin; at < part.end; at += 2) rest.take(at);
        for (size_t q = 0; q < s.points.size(); q += 5) {
            const pcVec3f& p = s.points[q];
            std::vector<int> within;
            std::vector<int32_t> untaken;
            for (size_t at = part.begin; at < part.end; ++at) {
                const float d = Algo_KdTree::dist2(p, s.points[size_t(order[at])]);
                QVERIFY(tree.partDist2(part, p) <= d);
                if (d > r2) continue;
                within.push_back(order[at]);
                if ((at - part.begin) % 2) untaken.push_back(int32_t(at));
            }
            tree.radius(p, r2, got, part);
            std::sort(got.begin(), got.end());
            std::sort(within.begin(), within.end());
            QCOMPARE(got, within);
            rest.radius(p, r2, left);
            std::sort(left.begin(), left.end());
            QCOMPARE(left, untaken);
        }
    }
}

void TstAlgoClusters::dbscanMatchesReference_data() {
    QTest::addColumn<QString>("scene");
    QTest::addColumn<double>("eps");
    QTest::addColumn<int>("minPts");
    QTest::addColumn<bool>("retainNoise");
    QTest::newRow("separated") << "separated" << 0.3 << 8 << true;
    QTest::newRow("touching") << "touching" << 0.3 << 8 << false;
    QTest::newRow("in noise, kept") << "in noise" << 0.35 << 10 << true;
    QTest::newRow("in noise, dropped") << "in noise" << 0.35 << 10 << false;
    QTest::newRow("lattice ties") << "lattice" << 0.1 << 6 << false;
    QTest::newRow("lattice, wide") << "lattice" << 0.2 << 25 << true;
    QTest::newRow("min pts 1: every point core") << "in noise" << 0.5 << 1 << false;
}

void TstAlgoClusters::dbscanMatchesReference() {
    QFETCH(QString, scene);
    QFETCH(double, eps);
    QFETCH(int, minPts);
    QFETCH(bool, retainNoise);
    const Scene s = sceneByName(scene);
    std::vector<int> labels;
    QString error;
    QVERIFY2(Algo_Dbscan::run(s.points, {eps, minPts, retainNoise}, labels, nullptr, &error), qPrintable(error));
    const std::vector<int> expected = referenceDbscan(s.points, eps, minPts, retainNoise);
    QCOMPARE(labels, expected);
    QVERIFY(clusterCount(labels) > 0);
}

void TstAlgoClusters::dbscanFindsSeparatedBlobs() {
    const Scene s = makeBlobs(4, 250, 8.f, 0.25f, 200, 31);
    std::vector<int> labels;
    QVERIFY(Algo_Dbscan::run(s.points, {0.3, 8, false}, labels, nullptr, nullptr));
    // every blob is one cluster, numbered in generation order; the scattered
    // background is noise
    std::map<int, std::map<int, int>> votes;  // blob -> label -> points
    int backgroundClustered = 0;
    for (size_t i = 0; i < labels.size(); ++i) {
        if (s.truth[i] >= 0)
            ++votes[s.truth[i]][labels[i]];
        else if (labels[i] >= 0)
            ++backgroundClustered;
    }
    for (int b = 0; b < 4; ++b) {
        const auto& v = votes[b];
        const int inBlobLabel = v.count(b) ? v.at(b) : 0;
        QVERIFY2(inBlobLabel >= 240, qPrintable(QString("blob %1: %2 points in its cluster").arg(b).arg(inBlobLabel)));
        QVERIFY(v.size() <= 2);  // its own label, perhaps a few outliers as noise
    }
    QVERIFY(backgroundClustered < 10);
    QCOMPARE(clusterCount(labels), 4);
}

void TstAlgoClusters::dbscanEdges_data() {
    QTest::addColumn<int>("points");
    QTest::addColumn<double>("eps");
    QTest::addColumn<int>("minPts");
    QTest::addColumn<bool>("retainNoise");
    QTest::addColumn<QList<int>>("distinctLabels");
    QTest::newRow("empty") << 0 << 0.2 << 5 << true << QList<int>{};
    QTest::newRow("one point, core") << 1 << 0.2 << 1 << false << QList<int>{0};
    QTest::newRow("one point, noise kept") << 1 << 0.2 << 5 << true << QList<int>{0};
    QTest::newRow("one point, noise dropped") << 1 << 0.2 << 5 << false << QList<int>{-1};
    QTest::newRow("all noise kept: one label") << 400 << 0.2 << 45 << true << QList<int>{0};
    QTest::newRow("all noise dropped") << 400 << 0.2 << 45 << false << QList<int>{-1};
    QTest::newRow("smallest epsilon") << 400 << 0.0001 << 5 << false << QList<int>{-1};
    QTest::newRow("largest epsilon: one cluster") << 400 << 100.0 << 5 << false << QList<int>{0};
    QTest::newRow("min pts above n") << 400 << 100.0 << 10000000 << false << QList<int>{-1};
}

void TstAlgoClusters::dbscanEdges() {
    QFETCH(int, points);
    QFETCH(double, eps);
    QFETCH(int, minPts);
    QFETCH(bool, retainNoise);
    QFETCH(QList<int>, distinctLabels);
    Scene s = makeBlobs(0, 0, 1.f, 1.f, points, 41);
    std::vector<int> labels{7, 7};  // replaced, not appended to
    QString error;
    QVERIFY2(Algo_Dbscan::run(s.points, {eps, minPts, retainNoise}, labels, nullptr, &error), qPrintable(error));
    QCOMPARE(labels.size(), size_t(points));
    const std::set<int> got(labels.begin(), labels.end());
    QCOMPARE(QList<int>(got.begin(), got.end()), distinctLabels);
}

void TstAlgoClusters::euclideanMatchesReference_data() {
    QTest::addColumn<QString>("scene");
    QTest::addColumn<double>("tolerance");
    QTest::addColumn<int>("minCluster");
    QTest::addColumn<int>("maxCluster");
    QTest::newRow("separated") << "separated" << 0.3 << 1 << 1000000;
    QTest::newRow("touching") << "touching" << 0.25 << 1 << 1000000;
    QTest::newRow("in noise, size window") << "in noise" << 0.3 << 20 << 250;
    QTest::newRow("lattice ties") << "lattice" << 0.1 << 2 << 10000000;
    QTest::newRow("nothing in range") << "separated" << 0.3 << 300 << 10000000;
    QTest::newRow("max below a blob") << "separated" << 0.3 << 1 << 100;
    QTest::newRow("U and zigzag across the cuts") << "chains across the cuts" << 0.25 << 1 << 10000000;
    QTest::newRow("grids meeting across the middle") << "meeting across the middle" << 0.31 << 1 << 10000000;
    QTest::newRow("grids apart across the middle") << "meeting across the middle" << 0.29 << 1 << 10000000;
    QTest::newRow("grid on the middle") << "sheet on the middle" << 0.25 << 1 << 10000000;
    QTest::newRow("every point on one spot") << "one spot" << 0.0001 << 300 << 300;
    QTest::newRow("two points, close") << "two points" << 0.31 << 1 << 2;
    QTest::newRow("two points, apart") << "two points" << 0.29 << 1 << 2;
    QTest::newRow("one point") << "one point" << 0.3 << 1 << 1;
    QTest::newRow("empty") << "empty" << 0.3 << 1 << 1;
}

void TstAlgoClusters::euclideanMatchesReference() {
    QFETCH(QString, scene);
    QFETCH(double, tolerance);
    QFETCH(int, minCluster);
    QFETCH(int, maxCluster);
    const Scene s = sceneByName(scene);
    std::vector<int> labels{4};
    QString error;
    QVERIFY2(Algo_EuclideanCluster::run(s.points, {tolerance, minCluster, maxCluster}, labels, nullptr, &error),
             qPrintable(error));
    QCOMPARE(labels, referenceEuclidean(s.points, tolerance, minCluster, maxCluster));
}

void TstAlgoClusters::fastEuclideanEqualsEuclidean_data() {
    QTest::addColumn<QString>("scene");
    QTest::addColumn<double>("tolerance");
    QTest::addColumn<int>("cap");  // 0: the most neighbours any point has, which can never bind
    QTest::newRow("separated") << "separated" << 0.3 << 0;
    QTest::newRow("touching") << "touching" << 0.25 << 0;
    QTest::newRow("in noise") << "in noise" << 0.4 << 0;
    QTest::newRow("lattice ties") << "lattice" << 0.1 << 0;
    QTest::newRow("lattice, threshold two cells") << "lattice" << 0.2 << 0;
    QTest::newRow("far from the origin") << "far from the origin" << 0.3 << 0;
    QTest::newRow("wide, 128-bit cells") << "wide, duplicates" << 0.0001 << 0;
    QTest::newRow("one point") << "one point" << 0.3 << 0;
    QTest::newRow("empty") << "empty" << 0.3 << 0;
    // documented bounds of the cap: at most 62 cells after a cell, so a cap
    // of 63 never binds however dense; one look is enough for a line
    QTest::newRow("dense, cap 63") << "touching" << 0.8 << 63;
    QTest::newRow("line, one look each") << "line" << 1.0 << 1;
}

void TstAlgoClusters::fastEuclideanEqualsEuclidean() {
    QFETCH(QString, scene);
    QFETCH(double, tolerance);
    QFETCH(int, cap);
    const Scene s = sceneByName(scene);
    std::vector<int> exact, fast{5};
    QVERIFY(Algo_EuclideanCluster::run(s.points, {tolerance, 1, std::max(int(s.points.size()), 1)}, exact, nullptr,
                                       nullptr));
    if (cap == 0) cap = int(std::max<size_t>(mostNeighbours(s.points, tolerance), 1));
    else QVERIFY(mostNeighbours(s.points, tolerance) > size_t(cap));
    QString error;
    QVERIFY2(Algo_FastEuclideanCluster::run(s.points, {tolerance, cap}, fast, nullptr, &error), qPrintable(error));
    QCOMPARE(fast, exact);
}

void TstAlgoClusters::fastEuclideanSmallCapRefines() {
    const Scene s = makeBlobs(3, 300, 2.f, 0.5f, 300, 51);
    std::vector<int> exact, fast;
    QVERIFY(Algo_EuclideanCluster::run(s.points, {0.5, 1, 10000000}, exact, nullptr, nullptr));
    QVERIFY(mostNeighbours(s.points, 0.5) > 2);
    QVERIFY(Algo_FastEuclideanCluster::run(s.points, {0.5, 2}, fast, nullptr, nullptr));
    // fewer links can only split clusters, never join what Euclidean keeps apart
    QVERIFY(refines(fast, exact));
    QVERIFY(clusterCount(fast) > clusterCount(exact));
    // which links a point keeps does not depend on the threads' timing
    for (int run = 0; run < 3; ++run) {
        std::vector<int> again;
        QVERIFY(Algo_FastEuclideanCluster::run(s.points, {0.5, 2}, again, nullptr, nullptr));
        QCOMPARE(again, fast);
    }
}

void TstAlgoClusters::fastEuclideanCapCountsTheCellsNextPoint_data() {
    QTest::addColumn<int>("cap");
    QTest::addColumn<QList<int>>("expected");
    QTest::newRow("one look: spent on its cell") << 1 << QList<int>{0, 0, 1};
    QTest::newRow("two looks") << 2 << QList<int>{0, 0, 0};
}

void TstAlgoClusters::fastEuclideanCapCountsTheCellsNextPoint() {
    QFETCH(int, cap);
    QFETCH(QList<int>, expected);
    // a and b share the first cell (side 1 / sqrt(3) from the lowest
    // corner); only a is within 1 of c, which lies in the next cell along x
    const std::vector<pcVec3f> points{{0.f, 0.f, 0.f}, {0.f, 0.5f, 0.f}, {0.95f, 0.f, 0.f}};
    std::vector<int> labels;
    QVERIFY(Algo_FastEuclideanCluster::run(points, {1.0, cap}, labels, nullptr, nullptr));
    QCOMPARE(QList<int>(labels.begin(), labels.end()), expected);
}

void TstAlgoClusters::kmeansFindsBlobs() {
    const Scene s = makeBlobs(5, 200, 6.f, 0.4f, 0, 61);
    std::vector<int> labels;
    QString error;
    QVERIFY2(Algo_KMeans::run(s.points, {50, 5}, labels, nullptr, &error), qPrintable(error));
    // k-means++ seeding puts one centre in each well-separated blob
    QCOMPARE(labels, s.truth);
}

void TstAlgoClusters::kmeansClampsAndConverges_data() {
    QTest::addColumn<int>("points");
    QTest::addColumn<int>("clusters");
    QTest::addColumn<int>("iterations");
    QTest::addColumn<int>("expectedClusters");
    QTest::newRow("empty") << 0 << 100 << 10 << 0;
    QTest::newRow("one point") << 1 << 100 << 10 << 1;
    QTest::newRow("more clusters than points") << 30 << 10000000 << 100 << 30;
    QTest::newRow("one cluster") << 500 << 1 << 1 << 1;
    QTest::newRow("one iteration") << 500 << 20 << 1 << 20;
}

void TstAlgoClusters::kmeansClampsAndConverges() {
    QFETCH(int, points);
    QFETCH(int, clusters);
    QFETCH(int, iterations);
    QFETCH(int, expectedClusters);
    const Scene s = makeBlobs(0, 0, 1.f, 1.f, points, 71);
    std::vector<int> labels, again;
    QVERIFY(Algo_KMeans::run(s.points, {iterations, clusters}, labels, nullptr, nullptr));
    QCOMPARE(labels.size(), size_t(points));
    QCOMPARE(clusterCount(labels), expectedClusters);
    QVERIFY(std::find(labels.begin(), labels.end(), -1) == labels.end());
    QVERIFY(Algo_KMeans::run(s.points, {iterations, clusters}, again, nullptr, nullptr));
    QCOMPARE(again, labels);  // fixed seed
    if (points == 0) return;
    // converged: every point sits with its nearest centre
    std::map<int, std::pair<pcVec3f, int>> sums;
    for (size_t i = 0; i < labels.size(); ++i) {
        auto& e = sums[labels[i]];
        e.first = e.first + s.points[i];
        ++e.second;
    }
    std::map<int, pcVec3f> centre;
    for (const auto& e : sums) centre[e.first] = e.second.first * (1.f / float(e.second.second));
    if (iterations < 100) return;
    for (size_t i = 0; i < labels.size(); ++i) {
        const float own = Algo_KdTree::dist2(s.points[i], centre[labels[i]]);
        for (const auto& c : centre) QVERIFY(own <= Algo_KdTree::dist2(s.points[i], c.second) + 1e-4f);
    }
}

void TstAlgoClusters::kmeansStopsSeedingOnOneSpot() {
    // k-means++ never seeds on a point that sits on a centre: one place, one cluster
    const std::vector<pcVec3f> spot(50, pcVec3f(1.f, 2.f, 3.f));
    std::vector<int> labels;
    QVERIFY(Algo_KMeans::run(spot, {10, 10}, labels, nullptr, nullptr));
    QCOMPARE(labels, std::vector<int>(50, 0));
    std::vector<pcVec3f> two = spot;
    two.resize(80, pcVec3f(4.f, 2.f, 3.f));
    QVERIFY(Algo_KMeans::run(two, {10, 10}, labels, nullptr, nullptr));
    QCOMPARE(clusterCount(labels), 2);
    QCOMPARE(labels[0], 0);
    QCOMPARE(labels[79], 1);
}

void TstAlgoClusters::kmeansExtraFollowsColour() {
    // two interleaved materials on one surface: by position alone k-means
    // halves the slab; with colour it separates the materials
    std::vector<pcVec3f> points;
    std::vector<pcVec4f> colours;
    std::vector<float> intensity;
    std::mt19937 rng(81);
    std::uniform_real_distribution<float> u(0.f, 10.f);
    std::vector<int> truth;
    for (int i = 0; i < 800; ++i) {
        const bool red = (i % 2) == 0;
        points.emplace_back(u(rng), u(rng), 0.f);
        colours.emplace_back(red ? 0.9f : 0.1f, 0.2f, red ? 0.1f : 0.8f, 1.f);
        intensity.push_back(red ? 0.8f : 0.3f);
        truth.push_back(red ? 0 : 1);
    }
    std::vector<int> labels;
    QString error;
    QVERIFY2(Algo_KMeans::runExtra(points, colours, intensity, {20, 2}, labels, nullptr, &error), qPrintable(error));
    QCOMPARE(labels, truth);
    QVERIFY(Algo_KMeans::run(points, {20, 2}, labels, nullptr, nullptr));
    QVERIFY(labels != truth);
    // without colour or intensity it is plain k-means on position
    std::vector<int> plain;
    QVERIFY(Algo_KMeans::runExtra(points, {}, {}, {20, 2}, plain, nullptr, nullptr));
    QCOMPARE(plain, labels);
    QVERIFY(!Algo_KMeans::runExtra(points, std::vector<pcVec4f>(3), {}, {20, 2}, plain, nullptr, &error));
    QVERIFY(plain.empty());
}

void TstAlgoClusters::resultDoesNotDependOnPointOrder_data() {
    QTest::addColumn<int>("stage");
    QTest::newRow("DBSCAN") << 100;
    QTest::newRow("Euclidean") << 103;
    QTest::newRow("fast Euclidean") << 104;
}

void TstAlgoClusters::resultDoesNotDependOnPointOrder() {
    QFETCH(int, stage);
    const Scene s = makeBlobs(3, 300, 1.5f, 0.35f, 150, 91);
    std::vector<int> perm(s.points.size());
    for (size_t i = 0; i < perm.size(); ++i) perm[i] = int(i);
    std::shuffle(perm.begin(), perm.end(), std::mt19937(92));
    std::vector<pcVec3f> shuffled;
    for (int i : perm) shuffled.push_back(s.points[size_t(i)]);
    auto run = [&](const std::vector<pcVec3f>& p, std::vector<int>& out) {
        if (stage == 100) return Algo_Dbscan::run(p, {0.3, 6, false}, out, nullptr, nullptr);
        if (stage == 103) return Algo_EuclideanCluster::run(p, {0.3, 5, 100000}, out, nullptr, nullptr);
        return Algo_FastEuclideanCluster::run(p, {0.3, 10000}, out, nullptr, nullptr);
    };
    std::vector<int> a, b;
    QVERIFY(run(s.points, a));
    QVERIFY(run(shuffled, b));
    // same partition: map b back to the original order and renumber
    std::vector<int> back(a.size());
    for (size_t i = 0; i < perm.size(); ++i) back[size_t(perm[i])] = b[i];
    QCOMPARE(byFirstAppearance(back), a);
}

void TstAlgoClusters::badParameters_data() {
    QTest::addColumn<int>("stage");
    QTest::addColumn<double>("length");
    QTest::addColumn<int>("a");
    QTest::addColumn<int>("b");
    const double nan = std::numeric_limits<double>::quiet_NaN();
    QTest::newRow("DBSCAN epsilon 0") << 100 << 0.0 << 5 << 0;
    QTest::newRow("DBSCAN epsilon NaN") << 100 << nan << 5 << 0;
    QTest::newRow("DBSCAN min pts 0") << 100 << 0.2 << 0 << 0;
    QTest::newRow("KMeans no iteration") << 101 << 0.0 << 0 << 10;
    QTest::newRow("KMeans no cluster") << 101 << 0.0 << 10 << 0;
    QTest::newRow("Euclidean negative tolerance") << 103 << -0.1 << 1 << 10;
    QTest::newRow("Euclidean max below min") << 103 << 0.1 << 20 << 10;
    QTest::newRow("Euclidean min 0") << 103 << 0.1 << 0 << 10;
    QTest::newRow("fast Euclidean infinite threshold") << 104 << std::numeric_limits<double>::infinity() << 50 << 0;
    QTest::newRow("fast Euclidean max size 0") << 104 << 0.2 << 0 << 0;
    QTest::newRow("fast Euclidean NaN coordinate") << 104 << 0.2 << 50 << 1;
    QTest::newRow("fast Euclidean infinite coordinate") << 104 << 0.2 << 50 << 2;
}

void TstAlgoClusters::badParameters() {
    QFETCH(int, stage);
    QFETCH(double, length);
    QFETCH(int, a);
    QFETCH(int, b);
    Scene s = makeBlobs(2, 50, 3.f, 0.3f, 0, 101);
    if (stage == 104 && b > 0)
        s.points[7].y = b == 1 ? std::numeric_limits<float>::quiet_NaN() : std::numeric_limits<float>::infinity();
    std::vector<int> labels{1, 2, 3};
    QString error;
    bool ok = true;
    if (stage == 100) ok = Algo_Dbscan::run(s.points, {length, a, true}, labels, nullptr, &error);
    if (stage == 101) ok = Algo_KMeans::run(s.points, {a, b}, labels, nullptr, &error);
    if (stage == 103) ok = Algo_EuclideanCluster::run(s.points, {length, a, b}, labels, nullptr, &error);
    if (stage == 104) ok = Algo_FastEuclideanCluster::run(s.points, {length, a}, labels, nullptr, &error);
    QVERIFY(!ok);
    QVERIFY(!error.isEmpty());
    QVERIFY(error != "cancelled");
    QVERIFY(labels.empty());
}

namespace {

// Large enough for a few hundred polls in every stage.
const Scene& stopScene() {
    static const Scene s = makeBlobs(6, 20000, 4.f, 0.6f, 20000, 111);
    return s;
}

StageRun stageRun(int stage) {
    return [stage](const std::vector<pcVec3f>& p, std::vector<int>& out, ILongLiveActionProgress* pr, QString* err) {
        const std::vector<pcVec4f> colours(stage == 102 ? p.size() : 0, pcVec4f(0.5f, 0.5f, 0.5f, 1.f));
        switch (stage) {
        case 100: return Algo_Dbscan::run(p, {0.3, 10, true}, out, pr, err);
        case 101: return Algo_KMeans::run(p, {10, 200}, out, pr, err);
        case 102: return Algo_KMeans::runExtra(p, colours, {}, {10, 200}, out, pr, err);
        case 103: return Algo_EuclideanCluster::run(p, {0.3, 20, 1000000}, out, pr, err);
        default: return Algo_FastEuclideanCluster::run(p, {0.3, 50}, out, pr, err);
        }
    };
}

}  // namespace

void TstAlgoClusters::progressRunsToTheEnd_data() {
    QTest::addColumn<int>("stage");
    for (int stage : {100, 101, 102, 103, 104}) QTest::newRow(qPrintable(QString("stage %1").arg(stage))) << stage;
}

void TstAlgoClusters::progressRunsToTheEnd() {
    QFETCH(int, stage);
    AlgoTestProgress progress;
    std::vector<int> labels;
    QVERIFY(stageRun(stage)(stopScene().points, labels, &progress, nullptr));
    QCOMPARE(labels.size(), stopScene().points.size());
    QVERIFY(progress.wellFormed());
    QCOMPARE(progress.progress(), 100);
    // polled from inside the long loops, not only between phases
    QVERIFY2(progress.polls() > 15, qPrintable(QString("only %1 polls").arg(progress.polls())));
}

void TstAlgoClusters::stopLeavesNothing_data() {
    QTest::addColumn<int>("stage");
    QTest::addColumn<int>("percent");  // progress reported when the stop comes
    for (int stage : {100, 101, 102, 103, 104})
        for (int percent : {0, 25, 50, 75})
            QTest::newRow(qPrintable(QString("stage %1, stop at %2 %").arg(stage).arg(percent))) << stage << percent;
}

void TstAlgoClusters::stopLeavesNothing() {
    QFETCH(int, stage);
    QFETCH(int, percent);
    AlgoTestProgress stopping;
    stopping.stopOnceProgressReaches(percent);
    std::vector<int> labels{1, 2};
    QString error;
    QVERIFY(!stageRun(stage)(stopScene().points, labels, &stopping, &error));
    QCOMPARE(error, QString("cancelled"));
    QVERIFY(labels.empty());
    QVERIFY(stopping.wellFormed());
    // nothing is polled after the stop was seen
    QCOMPARE(stopping.polls(), stopping.stopSeenAt());
}

QTEST_GUILESS_MAIN(TstAlgoClusters)
#include "tst_algo_clusters.moc"
