// Times the meshing, Poisson-disk thinning and earth-volume stages on a real
// airborne scene: ISPRS sample 11 (urban, 38 010 points) laid out tile by
// tile until the wanted count. Baseline in the same run: Open3D's Poisson-disk
// sample elimination (Yuksel) over the same points. For every stage it prints
// wall and process CPU seconds and the longest gap between two stop polls;
// for the meshing stages also how long a stop takes to return.
//
//   bench_algo_mesh [points = 1000000] [mesh points = 200000] [parts = tovm]
//
// parts picks what runs: t thinning, o Open3D's elimination (minutes),
// v volumes, m meshing.

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QStringList>
#include <QTextStream>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <functional>
#include <random>
#include <vector>

#include <open3d/geometry/PointCloud.h>
#include <open3d/geometry/TriangleMesh.h>

#include "Algo_EarthVolume.h"
#include "Algo_KdTree.h"
#include "Algo_Mesh.h"
#include "Algo_PoissonDiskSample.h"
#include "ILongLiveActionProgress.h"

using namespace ptCloud;

namespace {

// Records the longest time between two stop polls, and asks for a stop once
// stopAfterMs have passed (never when negative).
class PollWatch : public ILongLiveActionProgress {
public:
    explicit PollWatch(qint64 stopAfterMs = -1) : m_stopAfter(stopAfterMs) { m_clock.start(); }
    bool isStopRequested() override {
        const qint64 now = m_clock.nsecsElapsed();
        m_longestGap = std::max(m_longestGap, now - m_lastPoll);
        m_lastPoll = now;
        if (m_stopAfter >= 0 && now >= m_stopAfter * 1000000 && m_stopAt < 0) m_stopAt = now;
        return m_stopAt >= 0;
    }
    void setProgress(int value) override { m_value = value; }
    void setProgressText(const QString&) override {}
    void requestStop() override {}
    int progress() override { return m_value; }
    QString progressText() override { return QString(); }

    double longestGapMs() const { return double(m_longestGap) / 1e6; }
    // Milliseconds from the moment the stop was due to now.
    double sinceStopMs() const {
        return m_stopAt < 0 ? -1.0 : double(m_clock.nsecsElapsed() - m_stopAfter * 1000000) / 1e6;
    }

private:
    QElapsedTimer m_clock;
    qint64 m_stopAfter;
    qint64 m_lastPoll = 0;
    qint64 m_longestGap = 0;
    qint64 m_stopAt = -1;
    int m_value = 0;
};

class Stopwatch {
public:
    Stopwatch() : m_cpu(std::clock()) { m_wall.start(); }
    void print(const char* what, const QString& note, const PollWatch* watch = nullptr) const {
        const double cpu = double(std::clock() - m_cpu) / CLOCKS_PER_SEC;
        std::printf("%-44s wall %7.2f s  cpu %7.2f s", what, m_wall.elapsed() / 1000.0, cpu);
        if (watch) std::printf("  poll gap %6.1f ms", watch->longestGapMs());
        std::printf("  %s\n", qPrintable(note));
        std::fflush(stdout);
    }

private:
    QElapsedTimer m_wall;
    std::clock_t m_cpu;
};

// ISPRS sample 11 repeated on a grid of tiles 140 m x 310 m (the sample's
// extent rounded up), relative to its south-west corner.
bool readScene(size_t wanted, std::vector<pcVec3f>& points) {
    QFile file(QStringLiteral(PTCLOUD_SHARED_DATA_DIR "/isprs/samp11.txt"));
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        std::fprintf(stderr, "cannot read %s\n", qPrintable(file.fileName()));
        return false;
    }
    std::vector<pcVec3f> tile;
    QTextStream in(&file);
    double x = 0, y = 0, z = 0;
    int label = 0;
    while (!in.atEnd()) {
        in >> x >> y >> z >> label;
        if (in.status() != QTextStream::Ok) break;
        tile.emplace_back(float(x - 512700.0), float(y - 5403547.0), float(z - 295.0));
    }
    for (size_t t = 0; points.size() < wanted && !tile.empty(); ++t)
        for (const pcVec3f& p : tile) {
            if (points.size() == wanted) break;
            points.push_back(p + pcVec3f(140.f * float(t % 6), 310.f * float(t / 6), 0.f));
        }
    return !points.empty();
}

// Coefficient of variation of the nearest-neighbour distance: lower is evener.
double unevenness(const std::vector<pcVec3f>& points, const std::vector<unsigned int>& subset) {
    std::vector<pcVec3f> kept;
    for (unsigned int i : subset) kept.push_back(points[i]);
    Algo_KdTree tree;
    tree.build(kept);
    std::vector<Algo_KdTree::Neighbour> found;
    double sum = 0, sum2 = 0;
    for (const pcVec3f& p : kept) {
        tree.knn(p, 2, std::numeric_limits<float>::max(), found);
        const double d = found.size() > 1 ? std::sqrt(double(found[1].dist2)) : 0.0;
        sum += d;
        sum2 += d * d;
    }
    const double mean = sum / double(kept.size());
    return std::sqrt(std::max(0.0, sum2 / double(kept.size()) - mean * mean)) / mean;
}

void benchThinning(const std::vector<pcVec3f>& points) {
    for (const auto& [share, alpha] : std::vector<std::pair<double, double>>{{0.25, 1.0}, {0.25, 0.1}, {0.05, 1.0}}) {
        Algo_PoissonDiskSample::Params p;
        p.targetShare = share;
        p.meshAlpha = alpha;
        std::vector<unsigned int> kept;
        QString error;
        PollWatch watch;
        const Stopwatch clock;
        const bool ok = Algo_PoissonDiskSample::run(points, p, kept, &watch, &error);
        const QString what = QStringLiteral("thinning to %1, alpha %2 m").arg(share).arg(alpha);
        clock.print(qPrintable(what),
                    ok ? QStringLiteral("%1 kept, NN unevenness %2").arg(kept.size()).arg(unevenness(points, kept), 0, 'f', 3)
                       : error,
                    &watch);
        if (share != 0.25 || alpha != 1.0) continue;
        std::vector<unsigned int> random(points.size());
        for (size_t i = 0; i < random.size(); ++i) random[i] = unsigned(i);
        std::shuffle(random.begin(), random.end(), std::mt19937(1));
        random.resize(kept.size());
        std::printf("%-44s NN unevenness %.3f\n", "  a random subset of the same size", unevenness(points, random));
    }
}

// Open3D samples a mesh; its plan box as two triangles gives the elimination
// the scene's area, and the points themselves are the initial samples.
void benchOpen3dThinning(const std::vector<pcVec3f>& points) {
    pcBoundingBoxf box;
    for (const pcVec3f& p : points) box.expandBy(p);
    open3d::geometry::TriangleMesh area;
    area.vertices_ = {{box.min.x, box.min.y, 0.0}, {box.max.x, box.min.y, 0.0}, {box.max.x, box.max.y, 0.0},
                      {box.min.x, box.max.y, 0.0}};
    area.triangles_ = {{0, 1, 2}, {0, 2, 3}};
    auto cloud = std::make_shared<open3d::geometry::PointCloud>();
    for (const pcVec3f& p : points) cloud->points_.emplace_back(p.x, p.y, p.z);
    const Stopwatch clock;
    const auto sampled = area.SamplePointsPoissonDisk(points.size() / 4, 5.0, cloud);
    clock.print("Open3D Poisson-disk elimination to 0.25", QStringLiteral("%1 kept").arg(sampled->points_.size()));
}

// A DEM of the scene: mean height on a 1 m grid, two triangles per square.
void makeDem(const std::vector<pcVec3f>& points, const pcBoundingBoxf& box, std::vector<pcVec3f>& vertices,
             std::vector<unsigned int>& triangles) {
    const int nx = int(box.max.x - box.min.x) + 1, ny = int(box.max.y - box.min.y) + 1;
    std::vector<double> sum(size_t(nx) * size_t(ny), 0.0);
    std::vector<int> count(sum.size(), 0);
    for (const pcVec3f& p : points) {
        const size_t c = size_t(int(p.y - box.min.y)) * size_t(nx) + size_t(int(p.x - box.min.x));
        sum[c] += p.z;
        ++count[c];
    }
    for (int j = 0; j < ny; ++j)
        for (int i = 0; i < nx; ++i) {
            const size_t c = size_t(j) * size_t(nx) + size_t(i);
            vertices.emplace_back(box.min.x + float(i) + 0.5f, box.min.y + float(j) + 0.5f,
                                  count[c] ? float(sum[c] / count[c]) : 0.f);
        }
    for (int j = 0; j + 1 < ny; ++j)
        for (int i = 0; i + 1 < nx; ++i) {
            const unsigned int a = unsigned(j * nx + i), b = a + 1, c = a + unsigned(nx), d = c + 1;
            triangles.insert(triangles.end(), {a, b, d, a, d, c});
        }
}

void benchVolumes(const std::vector<pcVec3f>& points) {
    pcBoundingBoxf box;
    for (const pcVec3f& p : points) box.expandBy(p);
    // A non-convex outline over most of the scene.
    const float w = box.max.x - box.min.x, h = box.max.y - box.min.y;
    auto at = [&](float fx, float fy) { return pcVec3f(box.min.x + fx * w, box.min.y + fy * h, 0.f); };
    const std::vector<pcVec3f> outline{at(0.1f, 0.1f), at(0.9f, 0.1f), at(0.9f, 0.9f), at(0.5f, 0.5f), at(0.1f, 0.9f)};
    for (double grid : {1.0, 0.25}) {
        Algo_EarthVolume::Params p;
        p.gridSize = grid;
        Algo_EarthVolume::Result result;
        QString error;
        PollWatch watch;
        const Stopwatch clock;
        const bool ok = Algo_EarthVolume::computeGrid(points, outline, p, result, &watch, &error);
        clock.print(qPrintable(QStringLiteral("volume, grid method, %1 m cells").arg(grid)),
                    ok ? QStringLiteral("dig %1 m3, fill %2 m3, %3 cells").arg(result.digVolume, 0, 'f', 0)
                             .arg(result.fillVolume, 0, 'f', 0).arg(result.insideCells)
                       : error,
                    &watch);
    }
    std::vector<pcVec3f> vertices;
    std::vector<unsigned int> triangles;
    makeDem(points, box, vertices, triangles);
    Algo_EarthVolume::Params p;
    p.gridSize = 0.25;
    Algo_EarthVolume::Result result;
    QString error;
    PollWatch watch;
    const Stopwatch clock;
    const bool ok = Algo_EarthVolume::computeDtm(vertices, triangles, outline, p, result, &watch, &error);
    clock.print("volume, DTM method, 0.25 m cells",
                ok ? QStringLiteral("dig %1 m3, fill %2 m3, %3 triangles").arg(result.digVolume, 0, 'f', 0)
                         .arg(result.fillVolume, 0, 'f', 0).arg(triangles.size() / 3)
                   : error,
                &watch);
}

void benchMeshing(const std::vector<pcVec3f>& points) {
    struct Case {
        const char* name;
        Algo_Mesh::Method method;
        bool fastNormal;
        double size;
    };
    const Case cases[] = {{"alpha shape, alpha 2 m", Algo_Mesh::Method::AlphaShape, true, 2.0},
                          {"ball pivoting, radius 1 m", Algo_Mesh::Method::BallPivoting, true, 1.0},
                          {"Poisson, depth 8", Algo_Mesh::Method::Poisson, true, 8.0},
                          {"Poisson, depth 8, consistent normals", Algo_Mesh::Method::Poisson, false, 8.0}};
    auto paramsOf = [](const Case& c) {
        Algo_Mesh::Params p;
        p.method = c.method;
        p.fastNormal = c.fastNormal;
        p.alpha = c.size;
        p.ballRadius = c.size;
        p.depth = unsigned(c.size);
        p.width = 0.0;
        return p;
    };
    std::vector<pcVec3f> vertices, normals;
    std::vector<unsigned int> triangles;
    QString error;
    for (const Case& c : cases) {
        PollWatch watch;
        const Stopwatch clock;
        const bool ok = Algo_Mesh::run(points, paramsOf(c), vertices, triangles, &normals, &watch, &error);
        clock.print(c.name, ok ? QStringLiteral("%1 vertices, %2 triangles").arg(vertices.size()).arg(triangles.size() / 3)
                               : error,
                    &watch);
    }
    // Stopped a second in: how long until the call returns (the next poll and the way out). Last, because the
    // abandoned library calls finish in the background and would slow the timings.
    for (const Case& c : cases) {
        PollWatch stopper(1000);
        Algo_Mesh::run(points, paramsOf(c), vertices, triangles, &normals, &stopper, &error);
        std::printf("%-44s stopped after 1 s, returned %.1f ms later (%s)\n", c.name, stopper.sinceStopMs(),
                    qPrintable(error));
    }
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    const size_t wanted = args.size() > 1 ? args[1].toULong() : 1000000;
    const size_t meshWanted = args.size() > 2 ? args[2].toULong() : 200000;
    const QString parts = args.size() > 3 ? args[3] : QStringLiteral("tovm");
    std::vector<pcVec3f> points;
    if (!readScene(wanted, points)) return 1;
    std::printf("scene: %zu points (ISPRS sample 11 tiled), %d threads\n", points.size(),
                Algo_KdTree::Job::threadCount());
    if (parts.contains('t')) benchThinning(points);
    if (parts.contains('o')) benchOpen3dThinning(points);
    if (parts.contains('v')) benchVolumes(points);
    if (parts.contains('m')) {
        points.resize(std::min(points.size(), meshWanted));
        std::printf("meshing: the first %zu points\n", points.size());
        benchMeshing(points);
    }
    return 0;
}
