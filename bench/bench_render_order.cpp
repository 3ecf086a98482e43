// Does the order of the points inside a block change how fast a frame draws?
// The data model shuffles each block so that taking every k-th point thins it
// evenly; a Morton (Z-order) sort keeps neighbours together in memory, which
// a software rasteriser may prefer, and every k-th point along the curve is
// an even thinning too. Measured in one run, on the same points:
//
// - shuffled: random order inside each block (what the data model writes);
// - morton:   sorted along a Morton curve of the block;
// - runs:     Morton-sorted runs of 64 points, the runs in random order.
//
// For each order it draws the whole scene at every point and at every 10th
// point (level 3), orbiting the camera a few degrees a frame. Rounds
// interleave the orders so that load from elsewhere on the machine spreads
// over all of them; the table gives, per order and stride, the best and the
// median round's wall ms per frame, million points per second for the best
// round after an empty scene's frame time is taken off, and the median CPU
// ms per frame of this process (the renderer's threads included), which
// other programs on the machine disturb much less than the wall time. It also gives how
// evenly every 10th point covers the ground: the spread (coefficient of
// variation) of the kept share over cells holding about 200 points each.
//
//   xvfb-run -a -s "-screen 0 1600x1000x24" bench_render_order [points = 3000000] [frames = 10] [rounds = 5]

#include "BlockGeometry.h"
#include "OsgQWidget.h"
#include "OsgTackballManipulate.h"
#include "PointShader.h"
#include "stPtCloud_PointArray.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>

#include <osg/Geode>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <numeric>
#include <random>
#include <sys/resource.h>
#include <vector>

using namespace ptCloud;

namespace {

constexpr float kSide = 1000.f;       // metres
constexpr int kBlocksPerSide = 8;     // spatial blocks, as the builder cuts them
constexpr int kRun = 64;
constexpr int kViewWidth = 1280;
constexpr int kViewHeight = 800;

enum class Order { Shuffled, Morton, Runs };
const char* name(Order o) { return o == Order::Shuffled ? "shuffled" : (o == Order::Morton ? "morton" : "runs"); }

quint64 spread3(quint64 v)
{
    v &= 0x1fffff;
    v = (v | v << 32) & 0x1f00000000ffffull;
    v = (v | v << 16) & 0x1f0000ff0000ffull;
    v = (v | v << 8) & 0x100f00f00f00f00full;
    v = (v | v << 4) & 0x10c30c30c30c30c3ull;
    v = (v | v << 2) & 0x1249249249249249ull;
    return v;
}

quint64 mortonOf(const pcVec3f& p, const pcBoundingBoxf& box)
{
    auto cell = [](float v, float lo, float hi) {
        const float t = hi > lo ? (v - lo) / (hi - lo) : 0.f;
        return quint64(std::clamp(t, 0.f, 1.f) * 2097151.f);
    };
    return spread3(cell(p.x, box.min.x, box.max.x)) | spread3(cell(p.y, box.min.y, box.max.y)) << 1 |
           spread3(cell(p.z, box.min.z, box.max.z)) << 2;
}

float ground(float x, float y) { return 8.f * std::sin(x / 170.f) + 5.f * std::cos(y / 90.f); }

// Survey-like blocks: rolling ground with trees, cut on a square grid.
std::vector<stPtCloud_PointArray> makeBlocks(int points, pcBoundingBoxf* bounds)
{
    std::mt19937_64 random(42);
    std::uniform_real_distribution<float> unit(0.f, 1.f);
    std::vector<stPtCloud_PointArray> blocks(kBlocksPerSide * kBlocksPerSide);
    for (auto& b : blocks) b.coloringMode = CM_Height;
    const float cell = kSide / kBlocksPerSide;
    for (int i = 0; i < points; ++i) {
        const float x = kSide * unit(random), y = kSide * unit(random);
        const float z = ground(x, y) + (unit(random) < 0.2f ? 15.f * unit(random) : 0.f);
        const int bx = std::min(int(x / cell), kBlocksPerSide - 1), by = std::min(int(y / cell), kBlocksPerSide - 1);
        blocks[size_t(by * kBlocksPerSide + bx)].positions.push_back(pcVec3f(x, y, z));
        bounds->expandBy(pcVec3f(x, y, z));
    }
    for (auto& b : blocks) b.count = int(b.positions.size());
    return blocks;
}

void reorder(stPtCloud_PointArray& block, Order order, quint64 seed)
{
    std::mt19937_64 random(seed);
    std::vector<pcVec3f>& p = block.positions;
    if (order == Order::Shuffled) {
        std::shuffle(p.begin(), p.end(), random);
        return;
    }
    const pcBoundingBoxf box = block.computeBounds();
    std::vector<std::pair<quint64, pcVec3f>> keyed;
    keyed.reserve(p.size());
    for (const pcVec3f& v : p) keyed.emplace_back(mortonOf(v, box), v);
    std::sort(keyed.begin(), keyed.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    for (size_t i = 0; i < p.size(); ++i) p[i] = keyed[i].second;
    if (order == Order::Runs) {
        std::vector<size_t> runs((p.size() + kRun - 1) / kRun);
        std::iota(runs.begin(), runs.end(), size_t(0));
        std::shuffle(runs.begin(), runs.end(), random);
        std::vector<pcVec3f> out;
        out.reserve(p.size());
        for (size_t r : runs)
            for (size_t i = r * kRun; i < std::min(p.size(), (r + 1) * kRun); ++i) out.push_back(p[i]);
        p.swap(out);
    }
}

// Spread of the share of points kept by a stride, over cells of ~200 points.
double thinningSpread(const std::vector<stPtCloud_PointArray>& blocks, int stride, int points)
{
    const int cellsPerSide = std::max(1, int(std::sqrt(double(points) / 200.0)));
    std::vector<int> all(size_t(cellsPerSide * cellsPerSide)), kept(all.size());
    for (const auto& b : blocks) {
        for (size_t i = 0; i < b.positions.size(); ++i) {
            const pcVec3f& p = b.positions[i];
            const int cx = std::min(int(p.x / kSide * cellsPerSide), cellsPerSide - 1);
            const int cy = std::min(int(p.y / kSide * cellsPerSide), cellsPerSide - 1);
            const size_t c = size_t(cy * cellsPerSide + cx);
            ++all[c];
            if (i % size_t(stride) == 0) ++kept[c];
        }
    }
    double sum = 0, sum2 = 0;
    int n = 0;
    for (size_t c = 0; c < all.size(); ++c) {
        if (all[c] == 0) continue;
        const double share = double(kept[c]) / all[c] * stride;
        sum += share;
        sum2 += share * share;
        ++n;
    }
    const double mean = sum / n;
    return std::sqrt(std::max(0.0, sum2 / n - mean * mean)) / mean;
}

bool drawFrame(osgHelper::OsgQWidget* view)
{
    QSignalSpy swapped(view, &QOpenGLWidget::frameSwapped);
    view->requestRedraw();
    return swapped.wait(60000);
}

double cpuMs()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1e3 +
           (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e3;
}

struct FrameTime {
    double wallMs;
    double cpuMs;  // of this process, the renderer's threads included
};

// Mean time per frame over `frames` frames, orbiting the scene.
FrameTime timeFrames(osgHelper::OsgQWidget* view, int frames, const osg::Vec3d& centre)
{
    // Two frames first: the arrays go to the renderer on their first draw.
    for (int i = 0; i < 2; ++i) drawFrame(view);
    const double cpuStart = cpuMs();
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < frames; ++i) {
        const double angle = osg::DegreesToRadians(3.0 * i);
        const osg::Vec3d eye = centre + osg::Vec3d(std::cos(angle), std::sin(angle), 0.9) * double(kSide) * 0.9;
        view->getManipulate()->setTransformation(eye, centre, osg::Vec3d(0, 0, 1));
        if (!drawFrame(view)) return FrameTime{-1, -1};
    }
    return FrameTime{double(timer.nsecsElapsed()) / 1e6 / frames, (cpuMs() - cpuStart) / frames};
}

}  // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    const int points = argc > 1 ? std::atoi(argv[1]) : 3000000;
    const int frames = argc > 2 ? std::atoi(argv[2]) : 10;
    const int rounds = argc > 3 ? std::atoi(argv[3]) : 5;

    pcBoundingBoxf bounds;
    std::vector<stPtCloud_PointArray> blocks = makeBlocks(points, &bounds);
    const osg::Vec3d centre(kSide / 2, kSide / 2, 0);

    osgHelper::OsgQWidget view(nullptr, false);
    view.resize(kViewWidth, kViewHeight);
    applyPointShader(view.getRoot());
    view.show();
    if (!QTest::qWaitForWindowExposed(&view)) {
        std::fprintf(stderr, "no display: run under xvfb-run\n");
        return 1;
    }
    std::vector<double> empties, emptyCpu;
    const Order orders[] = {Order::Shuffled, Order::Morton, Order::Runs};
    const int strides[] = {1, 10};
    std::vector<double> times[3][2], cpu[3][2];
    double spread[3] = {0, 0, 0};
    quint64 drawn[2] = {0, 0};
    for (int round = 0; round < rounds; ++round) {
        const FrameTime none = timeFrames(&view, frames, centre);
        empties.push_back(none.wallMs);
        emptyCpu.push_back(none.cpuMs);
        for (int o = 0; o < 3; ++o) {
            quint64 seed = 1;
            for (auto& b : blocks) reorder(b, orders[o], seed++);
            spread[o] = thinningSpread(blocks, 10, points);
            for (int s = 0; s < 2; ++s) {
                osg::ref_ptr<osg::Geode> geode = new osg::Geode;
                drawn[s] = 0;
                for (const auto& b : blocks) {
                    osg::ref_ptr<osg::Geometry> g = BlockGeometry::make(b, PointColoring(), strides[s], bounds);
                    drawn[s] += g->getVertexArray()->getNumElements();
                    geode->addDrawable(g.get());
                }
                view.getRoot()->addChild(geode.get());
                const FrameTime t = timeFrames(&view, frames, centre);
                times[o][s].push_back(t.wallMs);
                cpu[o][s].push_back(t.cpuMs);
                view.getRoot()->removeChild(geode.get());
                drawFrame(&view);
            }
        }
        std::fprintf(stderr, "round %d of %d done\n", round + 1, rounds);
    }

    auto best = [](std::vector<double> v) { return *std::min_element(v.begin(), v.end()); };
    auto median = [](std::vector<double> v) {
        std::sort(v.begin(), v.end());
        return v[v.size() / 2];
    };
    const double empty = best(empties);
    std::printf("%d points in %zu blocks, view %dx%d, %d frames a round, %d rounds; empty scene %.1f ms/frame "
                "(CPU %.1f ms)\n",
                points, blocks.size(), kViewWidth, kViewHeight, frames, rounds, empty, median(emptyCpu));
    std::printf("%-9s %7s %10s %9s %9s %9s %9s %12s\n", "order", "stride", "points", "best ms", "median ms", "Mpts/s",
                "CPU ms", "10th spread");
    for (int o = 0; o < 3; ++o) {
        for (int s = 0; s < 2; ++s) {
            const double ms = best(times[o][s]);
            std::printf("%-9s %7d %10llu %9.1f %9.1f %9.2f %9.1f %11.1f%%\n", name(orders[o]), strides[s],
                        static_cast<unsigned long long>(drawn[s]), ms, median(times[o][s]),
                        double(drawn[s]) / std::max(ms - empty, 1e-3) / 1e3, median(cpu[o][s]), 100.0 * spread[o]);
        }
    }
    return 0;
}
