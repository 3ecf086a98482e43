// Times the clustering stages on a real airborne scene of 1 million points
// (the two adjacent forest tiles bcts_3 and bcts_1, cut at that count) and,
// in the same run, Open3D's own DBSCAN on the same points as the baseline.
// Each figure is the median of a few runs, in wall and process CPU seconds:
// the CPU figure stays meaningful on a machine shared with other jobs. The
// load average is printed at the start and the end.
//
//   bench_algo_clusters [points = 1000000] [epsilon m = 1.0] [min pts = 10]
//                       [parts = defkro] [runs = 5]
//
// parts: d DBSCAN, e Euclidean, f fast Euclidean (against e when both run),
// k KMeans, r normals and region growing, o Open3D's DBSCAN (against d and e).

#include <QCoreApplication>
#include <QStringList>
#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <vector>

#include <open3d/geometry/PointCloud.h>

#include "Algo_Dbscan.h"
#include "Algo_EuclideanCluster.h"
#include "Algo_FastEuclideanCluster.h"
#include "Algo_KMeans.h"
#include "Algo_KdTree.h"
#include "Algo_NormalEstimation.h"
#include "Algo_RegionGrowing.h"
#include "BenchTiming.h"
#include "LasReader.h"

using namespace ptCloud;

namespace {

bool readScene(size_t wanted, std::vector<pcVec3f>& points) {
    const QString dir = QStringLiteral(PTCLOUD_SHARED_DATA_DIR "/las/");
    const pcVec3d origin(885000.0, 629000.0, 300.0);
    for (const char* name : {"bcts_3.las", "bcts_1.las"}) {
        LasReader reader;
        QString error;
        if (!reader.open(dir + QLatin1String(name), &error)) {
            std::fprintf(stderr, "%s: %s\n", name, qPrintable(error));
            return false;
        }
        stPtCloud_PointArray chunk;
        while (points.size() < wanted) {
            const qint64 got = reader.readChunk(chunk, 65536, {DSC_Location}, origin, &error);
            if (got < 0) {
                std::fprintf(stderr, "%s: %s\n", name, qPrintable(error));
                return false;
            }
            if (got == 0) break;
            const size_t take = std::min(static_cast<size_t>(got), wanted - points.size());
            points.insert(points.end(), chunk.positions.begin(), chunk.positions.begin() + long(take));
        }
    }
    return true;
}

using Timing = BenchTiming::Result;

Timing timeIt(const char* what, const std::function<QString()>& fn, int runs) {
    QString note;
    const Timing r = BenchTiming::median([&] { note = fn(); }, runs);
    std::printf("%-36s wall %7.2f s  cpu %7.2f s  (wall %.2f..%.2f s)  %s\n", what, r.wall, r.cpu, r.fastestWall,
                r.slowestWall, qPrintable(note));
    std::fflush(stdout);
    return r;
}

QString summary(const std::vector<int>& labels) {
    std::map<int, size_t> sizes;
    for (int l : labels) ++sizes[l];
    size_t noise = sizes.count(-1) ? sizes[-1] : 0;
    return QStringLiteral("%1 clusters, %2 unlabelled").arg(sizes.size() - (noise ? 1 : 0)).arg(noise);
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    const size_t wanted = args.size() > 1 ? args[1].toULong() : 1000000;
    const double eps = args.size() > 2 ? args[2].toDouble() : 1.0;
    const int minPts = args.size() > 3 ? args[3].toInt() : 10;
    const QString parts = args.size() > 4 ? args[4] : QStringLiteral("defkro");
    const int runs = std::max(args.size() > 5 ? args[5].toInt() : 5, 1);
    auto part = [&](char c) { return parts.contains(QLatin1Char(c)); };

    std::vector<pcVec3f> points;
    if (!readScene(wanted, points)) return 1;
    std::printf("scene: %zu points, epsilon %.3f m, min pts %d, %d threads, median of %d runs, load %s\n",
                points.size(), eps, minPts, Algo_KdTree::Job::threadCount(), runs, qPrintable(BenchTiming::loadAverage()));

    timeIt("k-d tree build", [&] {
        Algo_KdTree tree;
        tree.build(points);
        return QString();
    }, runs);
    std::vector<int> labels, exactLabels;
    QString error;
    Timing dbscan, euclid;
    if (part('d'))
        dbscan = timeIt("DBSCAN (100)", [&] {
            Algo_Dbscan::run(points, {eps, minPts, true}, labels, nullptr, &error);
            return summary(labels);
        }, runs);
    if (part('e'))
        euclid = timeIt("Euclidean (103)", [&] {
            Algo_EuclideanCluster::run(points, {eps, 1, int(points.size())}, exactLabels, nullptr, &error);
            return summary(exactLabels);
        }, runs);
    if (part('f')) {
        std::vector<int> fastLabels;
        const Timing fast = timeIt("fast Euclidean (104), max size 50", [&] {
            Algo_FastEuclideanCluster::run(points, {eps, 50}, fastLabels, nullptr, &error);
            return summary(fastLabels);
        }, runs);
        if (part('e'))
            std::printf("fast Euclidean vs Euclidean: %.1fx wall, %.1fx cpu, labels %s\n", euclid.wall / fast.wall,
                        euclid.cpu / fast.cpu, fastLabels == exactLabels ? "identical" : "differ");
    }

    if (part('k')) {
        timeIt("KMeans (101), 100 clusters, 10 it.", [&] {
            Algo_KMeans::run(points, {10, 100}, labels, nullptr, &error);
            return summary(labels);
        }, runs);
        timeIt("KMeans (101), 10000 clusters, 10 it.", [&] {
            Algo_KMeans::run(points, {10, 10000}, labels, nullptr, &error);
            return summary(labels);
        }, runs);
        std::vector<float> heights(points.size());
        for (size_t i = 0; i < points.size(); ++i) heights[i] = points[i].z;
        timeIt("KMeans Extra (102), intensity = z", [&] {
            Algo_KMeans::runExtra(points, {}, heights, {10, 100}, labels, nullptr, &error);
            return summary(labels);
        }, runs);
    }

    if (part('r')) {
        std::vector<pcVec3f> normals;
        std::vector<float> curvature;
        timeIt("normals, 20 neighbours", [&] {
            Algo_NormalEstimation::run(points, {20}, normals, curvature, nullptr, &error);
            return QString();
        }, runs);
        timeIt("region growing (105), defaults", [&] {
            Algo_RegionGrowing::run(points, Algo_RegionGrowing::Params(), labels, nullptr, &error);
            return summary(labels);
        }, runs);
    }

    if (part('o')) {
        open3d::geometry::PointCloud cloud;
        cloud.points_.reserve(points.size());
        for (const pcVec3f& p : points) cloud.points_.emplace_back(p.x, p.y, p.z);
        const Timing o3d = timeIt("Open3D ClusterDBSCAN", [&] {
            const std::vector<int> o = cloud.ClusterDBSCAN(eps, size_t(minPts), false);
            return summary(o);
        }, runs);
        if (part('d'))
            std::printf("DBSCAN vs Open3D: %.1fx wall, %.1fx cpu\n", o3d.wall / dbscan.wall, o3d.cpu / dbscan.cpu);
        if (part('e'))
            std::printf("Euclidean vs Open3D: %.1fx wall, %.1fx cpu\n", o3d.wall / euclid.wall, o3d.cpu / euclid.cpu);
    }
    std::printf("load at the end %s\n", qPrintable(BenchTiming::loadAverage()));
    return 0;
}
