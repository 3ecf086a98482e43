#include "Algo_PoissonDiskSample.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <queue>
#include <random>

#include "Algo_KdTree.h"

namespace ptCloud {

namespace {

constexpr int kNeighbours = 6;   // neighbours whose distances give a point's spacing
constexpr int kSmoothing = 16;   // neighbours (the point included) over which spacings are averaged
constexpr size_t kSpacingChunk = 4096;    // spacing queries between stop polls
constexpr size_t kCandidatePoll = 8192;  // dart-throwing candidates between stop polls
constexpr int kMaxPasses = 30;
constexpr int kSpacingEnd = 35;  // progress at the end of the spacing stage
constexpr int kSearchEnd = 95;   // progress at the end of the scale search

// Kept points hashed by grid cell; each cell holds a list threaded through next.
class KeptGrid {
public:
    KeptGrid(const std::vector<pcVec3f>& points, const pcVec3f& origin)
        : m_points(points), m_origin(origin), m_next(points.size(), -1) {
        size_t capacity = 16;
        while (capacity < 2 * points.size()) capacity *= 2;
        m_slots.resize(capacity);
    }

    // Cells never finer than a 2^-30 share of the extent, so cell numbers fit an int.
    void reset(float cell, float extent) {
        m_cell = std::max(cell, extent * std::ldexp(1.f, -30));
        std::fill(m_slots.begin(), m_slots.end(), Slot());
    }

    void insert(unsigned int index) {
        int c[3];
        cellOf(m_points[index], 0.f, c);
        Slot& slot = find(c[0], c[1], c[2], true);
        m_next[index] = slot.head;
        slot.head = int(index);
    }

    // Calls visit(j, squared distance) for kept points j in the cells that the
    // ball of the given radius around p touches, until visit returns false.
    template <class Visit>
    void forEachNear(const pcVec3f& p, float radius, Visit&& visit) {
        int lo[3], hi[3];
        cellOf(p, -radius, lo);
        cellOf(p, radius, hi);
        for (int z = lo[2]; z <= hi[2]; ++z)
            for (int y = lo[1]; y <= hi[1]; ++y)
                for (int x = lo[0]; x <= hi[0]; ++x) {
                    for (int j = find(x, y, z, false).head; j >= 0; j = m_next[size_t(j)]) {
                        const pcVec3f d = m_points[size_t(j)] - p;
                        if (!visit(unsigned(j), d.x * d.x + d.y * d.y + d.z * d.z)) return;
                    }
                }
    }

private:
    struct Slot {
        int x = std::numeric_limits<int>::min(), y = 0, z = 0;
        int head = -1;
    };

    void cellOf(const pcVec3f& p, float shift, int* c) const {
        c[0] = int(std::floor((p.x - m_origin.x + shift) / m_cell));
        c[1] = int(std::floor((p.y - m_origin.y + shift) / m_cell));
        c[2] = int(std::floor((p.z - m_origin.z + shift) / m_cell));
    }

    Slot& find(int x, int y, int z, bool create) {
        const size_t mask = m_slots.size() - 1;
        size_t h = (size_t(unsigned(x)) * 73856093u ^ size_t(unsigned(y)) * 19349663u ^
                    size_t(unsigned(z)) * 83492791u) & mask;
        for (;; h = (h + 1) & mask) {
            Slot& s = m_slots[h];
            if (s.x == x && s.y == y && s.z == z) return s;
            if (s.x == std::numeric_limits<int>::min()) {
                if (!create) return s;  // an empty slot: head -1
                s.x = x;
                s.y = y;
                s.z = z;
                return s;
            }
        }
    }

    const std::vector<pcVec3f>& m_points;
    pcVec3f m_origin;
    float m_cell = 1.f;
    std::vector<int> m_next;
    std::vector<Slot> m_slots;
};

class DiskSampler {
public:
    DiskSampler(const std::vector<pcVec3f>& points, const Algo_PoissonDiskSample::Params& params,
                ILongLiveActionProgress* progress, QString* error)
        : m_points(points), m_params(params), m_job(progress), m_error(error) {}

    bool run(std::vector<unsigned int>& kept);

private:
    bool measureSpacing();
    void shuffleOrder();
    bool throwDarts(KeptGrid& grid, double scale, std::vector<char>& keep, size_t& count);
    bool dropSurplus(KeptGrid& grid, double reach, size_t surplus, std::vector<char>& keep);

    const std::vector<pcVec3f>& m_points;
    const Algo_PoissonDiskSample::Params& m_params;
    Algo_KdTree::Job m_job;
    QString* m_error;
    pcBoundingBoxf m_box;
    std::vector<float> m_spacing;
    float m_medianSpacing = 0.f;
    std::vector<unsigned int> m_order;
};

// Mean distance to the nearest neighbours within alpha, a missing neighbour
// counting as alpha, floored so that stacked duplicates still get a disk;
// then averaged over the wider neighbourhood, so that the disks follow the
// density of the scan and not the chance gaps and clumps of single points.
bool DiskSampler::measureSpacing() {
    const size_t n = m_points.size();
    for (const pcVec3f& p : m_points) m_box.expandBy(p);
    Algo_KdTree tree;
    if (!m_job.phase(QStringLiteral("indexing points"), 0, 10) || !tree.build(m_points, &m_job)) return false;
    const float alpha = float(m_params.meshAlpha);
    const float floorSpacing = std::max(1e-6f * 2.f * m_box.radius(), 1e-6f);
    const std::vector<int32_t>& order = tree.order();
    std::vector<float> raw(n, alpha);
    auto measure = [&](size_t begin, size_t end) {
        std::vector<Algo_KdTree::Neighbour> found;
        for (size_t k = begin; k < end; ++k) {
            const size_t i = size_t(order[k]);
            tree.knn(m_points[i], kNeighbours + 1, alpha * alpha, found);
            // The nearest hit is the point itself (or a duplicate of it, which reads the same).
            float sum = float(kNeighbours + 1 - std::max<size_t>(found.size(), 1)) * alpha;
            for (size_t t = 1; t < found.size(); ++t) sum += std::sqrt(found[t].dist2);
            raw[i] = std::max(sum / float(kNeighbours), floorSpacing);
        }
    };
    m_spacing.assign(n, alpha);
    auto smooth = [&](size_t begin, size_t end) {
        std::vector<Algo_KdTree::Neighbour> found;
        for (size_t k = begin; k < end; ++k) {
            const size_t i = size_t(order[k]);
            tree.knn(m_points[i], kSmoothing, alpha * alpha, found);
            float sum = 0.f;
            for (const Algo_KdTree::Neighbour& nb : found) sum += raw[size_t(nb.index)];
            m_spacing[i] = sum / float(found.size());
        }
    };
    if (!m_job.phase(QStringLiteral("measuring point spacing"), 10, 20) ||
        !m_job.parallelFor(n, kSpacingChunk, measure) ||
        !m_job.phase(QStringLiteral("measuring point spacing"), 20, kSpacingEnd) ||
        !m_job.parallelFor(n, kSpacingChunk, smooth))
        return false;
    std::vector<float> sorted = m_spacing;
    std::nth_element(sorted.begin(), sorted.begin() + std::ptrdiff_t(n / 2), sorted.end());
    m_medianSpacing = sorted[n / 2];
    return true;
}

// Fisher-Yates with a fixed seed, written out so the order is the same on every platform.
void DiskSampler::shuffleOrder() {
    m_order.resize(m_points.size());
    for (size_t i = 0; i < m_order.size(); ++i) m_order[i] = unsigned(i);
    std::mt19937 rng(20240607u);
    for (size_t i = m_order.size(); i > 1; --i) std::swap(m_order[i - 1], m_order[rng() % i]);
}

// One dart-throwing pass at the given scale; false when stopped.
bool DiskSampler::throwDarts(KeptGrid& grid, double scale, std::vector<char>& keep, size_t& count) {
    const size_t n = m_points.size();
    grid.reset(float(scale) * m_medianSpacing, 2.f * m_box.radius());
    keep.assign(n, 0);
    count = 0;
    for (size_t k = 0; k < n; ++k) {
        if (k % kCandidatePoll == 0 && !m_job.step(double(k) / double(n))) return false;
        const unsigned int i = m_order[k];
        const float radius = float(scale) * m_spacing[i];
        const float r2 = radius * radius;
        bool free = true;
        grid.forEachNear(m_points[i], radius, [&](unsigned int, float d2) {
            free = d2 >= r2;
            return free;
        });
        if (free) {
            keep[i] = 1;
            grid.insert(i);
            ++count;
        }
    }
    return true;
}

// Weighted sample elimination of the surplus: each kept point weighs
// sum (1 - d / (2 R))^8 over the kept points within 2 R, R = reach * the
// smaller spacing of the pair (symmetric, and never beyond the point's own
// 2 * reach * spacing, which bounds the search); the heaviest point goes
// first and its neighbours get lighter. Ties fall on the later dart.
bool DiskSampler::dropSurplus(KeptGrid& grid, double reach, size_t surplus, std::vector<char>& keep) {
    if (surplus == 0) return true;
    const size_t n = m_points.size();
    const float twoReach = 2.f * float(reach);
    grid.reset(twoReach * m_medianSpacing, 2.f * m_box.radius());
    std::vector<unsigned int> rank(n, 0);
    for (size_t k = 0; k < n; ++k) {
        rank[m_order[k]] = unsigned(k);
        if (keep[m_order[k]]) grid.insert(m_order[k]);
    }
    auto forEachPartner = [&](unsigned int i, auto&& visit) {
        grid.forEachNear(m_points[i], twoReach * m_spacing[i], [&](unsigned int j, float d2) {
            if (j == i || !keep[j]) return true;
            const float limit = twoReach * std::min(m_spacing[i], m_spacing[j]);
            const float d = std::sqrt(d2);
            if (d < limit) visit(j, std::pow(1.f - d / limit, 8.f));
            return true;
        });
    };
    struct Entry {
        float weight;
        unsigned int rank;
        unsigned int index;
        bool operator<(const Entry& o) const { return weight != o.weight ? weight < o.weight : rank < o.rank; }
    };
    std::vector<float> weight(n, 0.f);
    std::priority_queue<Entry> heap;
    for (unsigned int i = 0; i < n; ++i) {
        if (i % kCandidatePoll == 0 && !m_job.step(0.5 * double(i) / double(n))) return false;
        if (!keep[i]) continue;
        forEachPartner(i, [&](unsigned int, float w) { weight[i] += w; });
        heap.push({weight[i], rank[i], i});
    }
    for (size_t dropped = 0; dropped < surplus;) {
        const Entry top = heap.top();
        heap.pop();
        if (!keep[top.index] || top.weight != weight[top.index]) continue;  // stale
        keep[top.index] = 0;
        if (++dropped % kCandidatePoll == 0 && !m_job.step(0.5 + 0.5 * double(dropped) / double(surplus)))
            return false;
        forEachPartner(top.index, [&](unsigned int j, float w) {
            weight[j] -= w;
            heap.push({weight[j], rank[j], j});
        });
    }
    return true;
}

bool DiskSampler::run(std::vector<unsigned int>& keptIndices) {
    const size_t n = m_points.size();
    const size_t target = std::clamp<size_t>(size_t(std::llround(m_params.targetShare * double(n))), 1, n);
    std::vector<char> best(n, 1);
    if (target < n) {
        if (!measureSpacing()) return Algo_KdTree::Job::cancelled(m_error);
        shuffleOrder();
        KeptGrid grid(m_points, m_box.min);
        // Bracket [lo, hi] of the scale: lo keeps at least the target, hi fewer.
        double lo = 0.0, hi = std::numeric_limits<double>::infinity();
        size_t loCount = n, hiCount = 0;
        const size_t tolerance = target / 500;
        double scale = std::max(m_params.initFactor, 1e-3);
        std::vector<char> keep;
        for (int pass = 0; pass < kMaxPasses && loCount - target > tolerance; ++pass) {
            // Each pass takes a quarter of the bar left, so it moves on however many passes it takes.
            const double from = kSearchEnd - (kSearchEnd - kSpacingEnd) * std::pow(0.75, pass);
            size_t count = 0;
            if (!m_job.phase(QStringLiteral("spacing points apart"), int(from), int(from + (kSearchEnd - from) / 4)) ||
                !throwDarts(grid, scale, keep, count))
                return Algo_KdTree::Job::cancelled(m_error);
            if (count >= target) {
                lo = scale;
                loCount = count;
                best.swap(keep);
            } else {
                hi = scale;
                hiCount = count;
            }
            // Kept counts go roughly as a power of the scale (the square on a
            // surface): step along that power, measured once both ends are known.
            double exponent = 2.0;
            if (lo > 0.0 && std::isfinite(hi) && hiCount > 0)
                exponent = std::log(double(loCount) / double(hiCount)) / std::log(hi / lo);
            const double base = count >= target ? lo : hi;
            const double baseCount = double(count >= target ? loCount : std::max<size_t>(hiCount, 1));
            scale = base * std::pow(baseCount / double(target), 1.0 / std::max(exponent, 0.5));
            if (lo > 0.0 && std::isfinite(hi)) {
                if (hi - lo <= 1e-6 * hi) break;
                scale = std::clamp(scale, lo + 0.1 * (hi - lo), hi - 0.1 * (hi - lo));
            }
        }
        // Weights reach as far as the disks that kept too few, or a step beyond lo.
        const double reach = std::isfinite(hi) ? hi : lo * std::sqrt(double(loCount) / double(target));
        if (!m_job.phase(QStringLiteral("dropping the surplus"), kSearchEnd, 100) ||
            !dropSurplus(grid, std::max(reach, 1e-3), loCount - target, best))
            return Algo_KdTree::Job::cancelled(m_error);
    }
    std::vector<unsigned int> out;
    out.reserve(target);
    for (size_t i = 0; i < n; ++i)
        if (best[i]) out.push_back(unsigned(i));
    if (!m_job.step(1.0)) return Algo_KdTree::Job::cancelled(m_error);
    keptIndices.swap(out);
    return true;
}

}  // namespace

bool Algo_PoissonDiskSample::run(const std::vector<pcVec3f>& points, const Params& params,
                                 std::vector<unsigned int>& keptIndices, ILongLiveActionProgress* progress,
                                 QString* error) {
    auto fail = [error](const QString& why) { return Algo_KdTree::Job::fail(error, why); };
    if (points.empty()) return fail(QStringLiteral("no points to thin"));
    if (!(params.targetShare > 0.0 && params.targetShare <= 1.0))
        return fail(QStringLiteral("the target share must be above 0 and at most 1"));
    if (!(params.initFactor > 0.0) || !(params.meshAlpha > 0.0))
        return fail(QStringLiteral("the init factor and the mesh alpha must be positive"));
    if (points.size() > size_t(std::numeric_limits<int>::max()))
        return fail(QStringLiteral("too many points to thin at once"));
    DiskSampler sampler(points, params, progress, error);
    return sampler.run(keptIndices);
}

}  // namespace ptCloud
