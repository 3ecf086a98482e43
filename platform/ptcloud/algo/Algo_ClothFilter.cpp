#include "Algo_ClothFilter.h"

#include <QObject>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <deque>
#include <limits>
#include <thread>
#include <utility>

#include "Algo_KdTree.h"

namespace ptCloud {

namespace {

// Acceleration of the falling cloth in the simulation's own units. Left
// alone the cloth settles into the shape where each free particle's fall
// balances its springs, so the sag over a pit grows with gravity and the
// square of the pit's width; this value lets a stiff cloth (rigidness 3,
// time step 0.65, 0.5 m particles) span a 40 m wide building without
// touching its roof, while a soft one still drapes over hills.
constexpr float kGravity = 0.02f;
// Share of a particle's velocity lost each step, so held particles settle.
constexpr float kDamping = 0.01f;
// The cloth has found its shape when for this many steps no particle has
// landed and none moves by more than kSwayShare of the class threshold:
// what still sways then hangs over an object, far above its points, and the
// rest of the iterations would not change a label.
constexpr int kCalmSteps = 50;
constexpr double kSwayShare = 0.2;
// Slope post-processing leaves alone a particle hanging more than a storey
// above its surface: the cloth there spans an object, not a slope.
constexpr float kSlopeMaxGap = 3.f;
// Blank rows and columns of particles around the cloud so that its border
// points lie inside the cloth.
constexpr int kMargin = 1;
constexpr int kGroundLabel = 2;
constexpr int kObjectLabel = 1;
constexpr float kNoSurface = -std::numeric_limits<float>::infinity();

size_t threadCount() { return std::max(1u, std::thread::hardware_concurrency()); }

// Runs fn(begin, end, part) over [0, n) in threadCount() parts, one a core.
// Small jobs (n items of itemCost elementary steps each) stay on the calling
// thread, where starting a thread would cost more than the work.
template <typename Fn>
void parallelFor(size_t n, size_t itemCost, const Fn& fn)
{
    const size_t parts = threadCount();
    if (parts == 1 || n < 2 || n * itemCost < 16384) {
        fn(size_t(0), n, size_t(0));
        return;
    }
    std::vector<std::thread> pool;
    const size_t chunk = (n + parts - 1) / parts;
    for (size_t t = 1; t < parts; ++t) {
        const size_t b = std::min(n, t * chunk), e = std::min(n, b + chunk);
        if (b < e) pool.emplace_back([&fn, b, e, t] { fn(b, e, t); });
    }
    fn(size_t(0), std::min(n, chunk), size_t(0));
    for (auto& th : pool) th.join();
}

// The cloth in the inverted frame (heights are -z): particle (c, r) sits
// over plan position (x0 + c * res, y0 + r * res).
struct Cloth {
    int cols = 0, rows = 0;
    double x0 = 0.0, y0 = 0.0, res = 1.0;
    std::vector<float> height, previous, surface;
    std::vector<uint8_t> fixed;
    std::vector<int> lo, hi;  // per row, the columns that may still move

    size_t index(int c, int r) const { return size_t(r) * size_t(cols) + size_t(c); }
    size_t count() const { return size_t(cols) * size_t(rows); }
    int nearestColumn(float x) const { return std::clamp(int(std::lround((x - x0) / res)), 0, cols - 1); }
    int nearestRow(float y) const { return std::clamp(int(std::lround((y - y0) / res)), 0, rows - 1); }

    // Calls fn(j) for each of the (up to) four particles next to particle i.
    template <typename Fn>
    void forEachNeighbour(size_t i, const Fn& fn) const
    {
        const size_t c = i % size_t(cols), r = i / size_t(cols);
        if (c > 0) fn(i - 1);
        if (c + 1 < size_t(cols)) fn(i + 1);
        if (r > 0) fn(i - size_t(cols));
        if (r + 1 < size_t(rows)) fn(i + size_t(cols));
    }

    // Cloth height under a plan position, bilinear between the four
    // particles around it.
    float heightAt(float x, float y) const
    {
        const double fx = std::clamp((x - x0) / res, 0.0, double(cols - 1));
        const double fy = std::clamp((y - y0) / res, 0.0, double(rows - 1));
        const int c = std::min(int(fx), cols - 2 < 0 ? 0 : cols - 2);
        const int r = std::min(int(fy), rows - 2 < 0 ? 0 : rows - 2);
        const int c1 = std::min(c + 1, cols - 1), r1 = std::min(r + 1, rows - 1);
        const float tx = float(fx - c), ty = float(fy - r);
        const float bottom = height[index(c, r)] * (1.f - tx) + height[index(c1, r)] * tx;
        const float top = height[index(c, r1)] * (1.f - tx) + height[index(c1, r1)] * tx;
        return bottom * (1.f - ty) + top * ty;
    }
};

QString checkParams(const Algo_ClothFilter::Params& p)
{
    if (!(p.classThreshold > 0.0)) return QObject::tr("class threshold must be positive");
    if (!(p.clothResolution > 0.0)) return QObject::tr("cloth resolution must be positive");
    if (p.iterations < 1) return QObject::tr("iterations must be at least 1");
    if (p.rigidness < 1) return QObject::tr("rigidness must be at least 1");
    if (!(p.timeStep > 0.0)) return QObject::tr("time step must be positive");
    if (!(p.slopeHeightDifference > 0.0)) return QObject::tr("slope height difference must be positive");
    return QString();
}

// A lone point far below everything around it (a multipath echo seen
// through a window or off water) would stand in the inverted cloud as a pole that
// holds the whole cloth up like a tent. Such cells lose their height: a
// cell is a spike when it rises above every other measured cell within a
// few point spacings by more than that distance (steeper than 45 degrees)
// plus a metre.
bool dropSpikes(Cloth& cloth, Algo_KdTree::Job& job)
{
    size_t measured = 0;
    for (float s : cloth.surface) measured += s != kNoSurface;
    if (measured < 2) return true;
    const double share = double(measured) / double(cloth.count());
    const int reach = std::clamp(int(std::ceil(2.0 / std::sqrt(share))), 2, 8);
    std::vector<uint8_t> spike(cloth.count(), 0);
    // Chunks of rows small enough for a stop to be seen within milliseconds.
    const size_t grain = std::max<size_t>(1, 1000000 / (size_t(cloth.cols) * size_t((2 * reach + 1) * (2 * reach + 1))));
    const bool ok = job.parallelFor(size_t(cloth.rows), grain, [&](size_t b, size_t e) {
        for (int r = int(b); r < int(e); ++r)
            for (int c = 0; c < cloth.cols; ++c) {
                const float s = cloth.surface[cloth.index(c, r)];
                if (s == kNoSurface) continue;
                float around = kNoSurface;
                for (int rr = std::max(0, r - reach); rr <= std::min(cloth.rows - 1, r + reach); ++rr)
                    for (int cc = std::max(0, c - reach); cc <= std::min(cloth.cols - 1, c + reach); ++cc)
                        if (rr != r || cc != c) around = std::max(around, cloth.surface[cloth.index(cc, rr)]);
                spike[cloth.index(c, r)] = around != kNoSurface && s - around > float(reach * cloth.res) + 1.f;
            }
    });
    for (size_t i = 0; i < cloth.count(); ++i)
        if (spike[i]) cloth.surface[i] = kNoSurface;
    return ok;
}

// Every particle gets the inverted height of the lowest point nearest to it;
// false on stop.
// particles without a point take the value of the nearest particle that has
// one (breadth-first, so nearest in steps), which keeps holes in the data
// from letting the cloth fall through.
bool buildSurface(const std::vector<pcVec3f>& points, Cloth& cloth, Algo_KdTree::Job& job)
{
    cloth.surface.assign(cloth.count(), kNoSurface);
    for (const pcVec3f& p : points) {
        float& s = cloth.surface[cloth.index(cloth.nearestColumn(p.x), cloth.nearestRow(p.y))];
        s = std::max(s, -p.z);
    }
    if (!dropSpikes(cloth, job)) return false;
    std::deque<size_t> queue;
    for (size_t i = 0; i < cloth.count(); ++i)
        if (cloth.surface[i] != kNoSurface) queue.push_back(i);
    while (!queue.empty()) {
        const size_t i = queue.front();
        queue.pop_front();
        cloth.forEachNeighbour(i, [&](size_t j) {
            if (cloth.surface[j] != kNoSurface) return;
            cloth.surface[j] = cloth.surface[i];
            queue.push_back(j);
        });
    }
    return true;
}

// Moves the two ends of a spring towards each other, closing `share` of the
// gap; a stuck end stays and the free one closes it alone. Without branches
// (a stuck end moves by exactly 0), so a row of springs runs in vector lanes.
inline void pull(float* __restrict height, const uint8_t* __restrict fixed, size_t a, size_t b, float share)
{
    const float fa = float(fixed[a]), fb = float(fixed[b]);
    const float gap = (height[b] - height[a]) * share;
    height[a] += gap * ((1.f - fa) * (1.f - 0.5f * (1.f - fb)));
    height[b] -= gap * ((1.f - fb) * (1.f - 0.5f * (1.f - fa)));
}

// One step: gravity on the free particles (Verlet with damping), then the
// springs in four passes (even and odd horizontal pairs, even and odd
// vertical pairs) so that no particle is written by two threads at once,
// then collision with the surface. Each row only visits the span of columns
// that still holds free particles, which shrinks as the cloth settles.
// The work is streamed in three sweeps over the cloth: gravity and the
// horizontal springs stay within a row; a row is final, and collides, once
// the odd vertical pair holding it is done. Returns the largest movement and
// the number of particles that came to rest on the surface.
struct StepResult {
    float moved = 0.f;
    size_t landed = 0;
};

void fallAndPullAlongRow(Cloth& cloth, size_t r, float fallPerStep, float share)
{
    float* __restrict height = cloth.height.data() + cloth.index(0, int(r));
    float* __restrict previous = cloth.previous.data() + cloth.index(0, int(r));
    const uint8_t* __restrict fixed = cloth.fixed.data() + cloth.index(0, int(r));
    // A stuck particle moves by exactly 0; its previous height is not read again.
    for (int c = cloth.lo[r]; c <= cloth.hi[r]; ++c) {
        const float h = height[c], free = 1.f - float(fixed[c]);
        height[c] = h + (h - previous[c]) * (1.f - kDamping) * free - fallPerStep * free;
        previous[c] = h;
    }
    for (int parity = 0; parity < 2; ++parity) {
        int c = std::max(0, cloth.lo[r] - 1);
        if (c % 2 != parity) ++c;
        for (const int last = std::min(cloth.hi[r], cloth.cols - 2); c <= last; c += 2)
            pull(height, fixed, size_t(c), size_t(c) + 1, share);
    }
}

void pullDown(Cloth& cloth, size_t r, float share)
{
    float* __restrict height = cloth.height.data() + cloth.index(0, int(r));
    const uint8_t* __restrict fixed = cloth.fixed.data() + cloth.index(0, int(r));
    const size_t down = size_t(cloth.cols);
    const int last = std::max(cloth.hi[r], cloth.hi[r + 1]);
    for (int c = std::min(cloth.lo[r], cloth.lo[r + 1]); c <= last; ++c)
        pull(height, fixed, size_t(c), size_t(c) + down, share);
}

void collideRow(Cloth& cloth, size_t r, float& moved, size_t& landed)
{
    const size_t row = cloth.index(0, int(r));
    float* __restrict height = cloth.height.data() + row;
    const float* __restrict previous = cloth.previous.data() + row;
    const float* __restrict surface = cloth.surface.data() + row;
    uint8_t* __restrict fixed = cloth.fixed.data() + row;
    int lo = cloth.cols, hi = -1;
    for (int c = cloth.lo[r]; c <= cloth.hi[r]; ++c) {
        if (fixed[c]) continue;
        if (height[c] <= surface[c]) {
            height[c] = surface[c];
            fixed[c] = 1;
            ++landed;
        } else {
            lo = std::min(lo, c);
            hi = c;
        }
        moved = std::max(moved, std::fabs(height[c] - previous[c]));
    }
    cloth.lo[r] = lo;
    cloth.hi[r] = hi;
}

StepResult step(Cloth& cloth, float fallPerStep, float share)
{
    const size_t rows = size_t(cloth.rows), cols = size_t(cloth.cols);
    parallelFor(rows, cols, [&](size_t b, size_t e, size_t) {
        for (size_t r = b; r < e; ++r) fallAndPullAlongRow(cloth, r, fallPerStep, share);
    });
    parallelFor(rows / 2, cols, [&](size_t b, size_t e, size_t) {
        for (size_t k = b; k < e; ++k) pullDown(cloth, 2 * k, share);
    });
    std::vector<float> largest(threadCount(), 0.f);
    std::vector<size_t> landed(threadCount(), 0);
    const size_t oddPairs = rows > 1 ? (rows - 1) / 2 : 0;
    parallelFor(oddPairs, cols, [&](size_t b, size_t e, size_t part) {
        for (size_t k = b; k < e; ++k) {
            const size_t r = 1 + 2 * k;
            pullDown(cloth, r, share);
            collideRow(cloth, r, largest[part], landed[part]);
            collideRow(cloth, r + 1, largest[part], landed[part]);
        }
    });
    // The rows no odd pair holds: the first, and the last of an even count.
    collideRow(cloth, 0, largest[0], landed[0]);
    if (rows > 1 && rows - 1 > 2 * oddPairs) collideRow(cloth, rows - 1, largest[0], landed[0]);
    StepResult result;
    result.moved = *std::max_element(largest.begin(), largest.end());
    for (size_t n : landed) result.landed += n;
    return result;
}

}  // namespace

Algo_ClothFilter::Params Algo_ClothFilter::Params::forSpacing(double meanSpacing)
{
    Params p;
    p.rigidness = 2;
    p.clothResolution = std::clamp(meanSpacing / 2, 0.5, 5.0);
    // The sag between particles grows with gravity times the time step
    // squared; scaling the step with the resolution keeps the cloth's bend
    // per metre that of the usual 0.5 m cloth.
    p.timeStep = 0.65 * p.clothResolution / 0.5;
    return p;
}

size_t Algo_ClothFilter::maxParticles(size_t pointCount)
{
    return std::max(kMinParticleBudget, 16 * pointCount);
}

bool Algo_ClothFilter::run(const std::vector<pcVec3f>& points, const Params& params, std::vector<int>* labels,
                           ILongLiveActionProgress* progress, QString* error)
{
    const QString bad = checkParams(params);
    if (!bad.isEmpty()) return Algo_KdTree::Job::fail(error, bad);
    if (!labels) return Algo_KdTree::Job::fail(error, QObject::tr("no output for the labels"));
    if (points.empty()) {
        labels->clear();
        return true;
    }
    Algo_KdTree::Job job(progress);
    if (!job.phase(QObject::tr("Cloth filter: laying the cloth"), 0, 5)) return Algo_KdTree::Job::cancelled(error);

    pcBoundingBoxf box;
    for (const pcVec3f& p : points) box.expandBy(p);
    Cloth cloth;
    cloth.res = params.clothResolution;
    cloth.x0 = box.min.x - kMargin * cloth.res;
    cloth.y0 = box.min.y - kMargin * cloth.res;
    const double cols = std::ceil((box.max.x - cloth.x0) / cloth.res) + 1 + kMargin;
    const double rows = std::ceil((box.max.y - cloth.y0) / cloth.res) + 1 + kMargin;
    const size_t budget = maxParticles(points.size());
    if (cols * rows > double(budget))
        return Algo_KdTree::Job::fail(error, QObject::tr("cloth resolution %1 m is too fine for a %2 x %3 m cloud (%4 particles, at most %5)")
                               .arg(params.clothResolution)
                               .arg(double(box.max.x - box.min.x), 0, 'f', 1)
                               .arg(double(box.max.y - box.min.y), 0, 'f', 1)
                               .arg(cols * rows, 0, 'f', 0)
                               .arg(budget));
    cloth.cols = int(cols);
    cloth.rows = int(rows);

    if (!buildSurface(points, cloth, job) || !job.step(1.0)) return Algo_KdTree::Job::cancelled(error);

    const float top = *std::max_element(cloth.surface.begin(), cloth.surface.end());
    cloth.height.assign(cloth.count(), top);
    cloth.previous = cloth.height;
    cloth.fixed.assign(cloth.count(), 0);
    cloth.lo.assign(size_t(cloth.rows), 0);
    cloth.hi.assign(size_t(cloth.rows), cloth.cols - 1);

    const float dt = float(params.timeStep);
    const float fallPerStep = kGravity * dt * dt;
    const float share = float(1.0 - std::pow(0.5, params.rigidness));
    // Settled: nothing moves by a hundredth of a first free-fall step.
    const float settled = 0.01f * fallPerStep;
    if (!job.phase(QObject::tr("Cloth filter: simulating the cloth"), 5, 85)) return Algo_KdTree::Job::cancelled(error);
    const float swaying = float(kSwayShare * params.classThreshold);
    for (int it = 0, calm = 0; it < params.iterations; ++it) {
        const StepResult r = step(cloth, fallPerStep, share);
        if (!job.step(double(it + 1) / params.iterations)) return Algo_KdTree::Job::cancelled(error);
        calm = r.landed == 0 && r.moved < swaying ? calm + 1 : 0;
        if (r.moved < settled || calm >= kCalmSteps) break;
    }

    if (params.slopeSmooth) {
        if (!job.phase(QObject::tr("Cloth filter: smoothing slopes"), 85, 90)) return Algo_KdTree::Job::cancelled(error);
        const float limit = float(params.slopeHeightDifference);
        std::deque<size_t> queue;
        for (size_t i = 0; i < cloth.count(); ++i)
            if (cloth.fixed[i]) queue.push_back(i);
        while (!queue.empty()) {
            const size_t i = queue.front();
            queue.pop_front();
            cloth.forEachNeighbour(i, [&](size_t j) {
                if (cloth.fixed[j] || std::fabs(cloth.surface[j] - cloth.surface[i]) >= limit) return;
                if (cloth.height[j] - cloth.surface[j] > kSlopeMaxGap) return;
                cloth.height[j] = cloth.surface[j];
                cloth.fixed[j] = 1;
                queue.push_back(j);
            });
        }
    }
    if (!job.phase(QObject::tr("Cloth filter: classifying points"), 90, 100)) return Algo_KdTree::Job::cancelled(error);
    std::vector<int> out(points.size());
    const float threshold = float(params.classThreshold);
    parallelFor(points.size(), 1, [&](size_t b, size_t e, size_t) {
        for (size_t i = b; i < e; ++i) {
            const pcVec3f& p = points[i];
            out[i] = std::fabs(cloth.heightAt(p.x, p.y) + p.z) < threshold ? kGroundLabel : kObjectLabel;
        }
    });
    if (!job.step(1.0)) return Algo_KdTree::Job::cancelled(error);
    labels->swap(out);
    return true;
}

}  // namespace ptCloud
