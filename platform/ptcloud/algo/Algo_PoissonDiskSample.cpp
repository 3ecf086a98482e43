#include "Algo_PoissonDiskSample.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <random>

#include "Algo_KdTree.h"
#include "PtCloud_KeySort.h"

namespace ptCloud {

namespace {

constexpr int kMaxRounds = 16;
constexpr int kDigitBits = 11;         // radix digits of the cell sort
constexpr size_t kCellGrain = 256;     // cells per chunk of a phase
constexpr size_t kKeyGrain = 1 << 14;  // points per chunk of the key pass
constexpr int kSearchEnd = 95;         // progress at the end of the radius search

// One maximal Poisson-disk sample for a given radius over a grid of cells
// of side radius / sqrt(3). Points enter the grid in rank order (the rank is
// the low bits of each sort key), so a cell tries its points in that order.
class CellGrid {
public:
    CellGrid(const std::vector<pcVec3f>& points, const std::vector<unsigned int>& byRank, const pcBoundingBoxf& box)
        : m_points(points), m_byRank(byRank), m_box(box), m_shuffled(points.size()) {
        while ((size_t(1) << m_indexBits) < points.size()) ++m_indexBits;
        for (size_t rank = 0; rank < byRank.size(); ++rank) m_shuffled[rank] = points[byRank[rank]];
    }

    // The smallest radius whose cells still number few enough to be keyed
    // next to a point's rank.
    double smallestRadius() const {
        double cell = std::max<double>(maxExtent(), 1e-30) * std::ldexp(1.0, -(64 - m_indexBits) / 3);
        while (cell > 1e-30 && bitsFor(cell * 0.5) <= 64 - m_indexBits) cell *= 0.5;
        return cell * std::sqrt(3.0);
    }

    // Keeps a sample for `radius` in cellKept() and returns its size, or
    // SIZE_MAX when stopped; reports over [from, to] of the bar. The sample
    // holds the seeds (no two closer than the radius) and is maximal, unless
    // it reached `limit` points: it then holds exactly that many.
    size_t sample(double radius, Algo_KdTree::Job& job, int from, int to, const std::vector<int>& seeds = {},
                  size_t limit = std::numeric_limits<size_t>::max());
    double radius() const { return m_cell * std::sqrt(3.0); }
    // The kept point's index per cell, -1 for a cell without one.
    const std::vector<int>& cellKept() const { return m_kept; }

private:
    float maxExtent() const {
        const pcVec3f e = m_box.max - m_box.min;
        return std::max({e.x, e.y, e.z});
    }
    int axisBits(double extent, double cell) const {
        const double cells = std::floor(extent / cell) + 1.0;
        int bits = 0;
        while (bits < 64 && std::ldexp(1.0, bits) < cells) ++bits;
        return bits;
    }
    int bitsFor(double cell) const {
        const pcVec3f e = m_box.max - m_box.min;
        return axisBits(e.x, cell) + axisBits(e.y, cell) + axisBits(e.z, cell);
    }
    // Sorts the points by cell (then rank); then lists the cells and their
    // phases. False when stopped.
    bool sortByCell(double cell, Algo_KdTree::Job& job);
    bool listCells(Algo_KdTree::Job& job);
    // Calls visit(cell) for the other cells that may hold a point closer
    // than the radius to one of this cell's. hints: five positions in the
    // cells, 0 at first, from which the searches start; they only move
    // forward, so cells visited in increasing order find their
    // neighbours close by.
    template <class Visit>
    void forEachNearCell(unsigned int cellIndex, size_t* hints, Visit&& visit) const;
    void decide(unsigned int cellIndex, float r2, std::vector<pcVec3f>& near, size_t* hints);

    const std::vector<pcVec3f>& m_points;
    const std::vector<unsigned int>& m_byRank;
    const pcBoundingBoxf m_box;
    int m_indexBits = 0;
    int m_bits[3] = {0, 0, 0};   // bits of the cell's x, y and z in a key
    double m_cell = 1.0;
    std::vector<quint64> m_keys, m_scratch;
    std::vector<quint32> m_counts;
    std::vector<quint64> m_cellKeys;       // cell key of each cell, sorted
    std::vector<unsigned int> m_cellStart;  // its first position in m_keys
    std::vector<unsigned int> m_byColour;   // cells by phase
    std::array<unsigned int, 28> m_colourStart{};
    std::vector<pcVec3f> m_shuffled;  // the points in rank order, read in sequence by the key pass
    std::vector<pcVec3f> m_sorted;    // the points in key order: neighbours close in memory
    std::vector<int> m_kept;
    std::vector<unsigned int> m_keptRank;
    std::vector<pcVec3f> m_keptAt;
};

bool CellGrid::sortByCell(double cell, Algo_KdTree::Job& job) {
    m_cell = cell;
    const pcVec3f e = m_box.max - m_box.min;
    m_bits[0] = axisBits(e.x, cell);
    m_bits[1] = axisBits(e.y, cell);
    m_bits[2] = axisBits(e.z, cell);
    const size_t n = m_points.size();
    m_keys.resize(n);
    m_scratch.resize(n);
    const int zShift = m_indexBits, yShift = zShift + m_bits[2], xShift = yShift + m_bits[1];
    const bool going = job.parallelFor(n, kKeyGrain, [&](size_t begin, size_t end) {
        for (size_t rank = begin; rank < end; ++rank) {
            const pcVec3f& p = m_shuffled[rank];
            const quint64 x = quint64((double(p.x) - m_box.min.x) / cell);
            const quint64 y = quint64((double(p.y) - m_box.min.y) / cell);
            const quint64 z = quint64((double(p.z) - m_box.min.z) / cell);
            m_keys[rank] = (x << xShift) | (y << yShift) | (z << zShift) | rank;
        }
    });
    if (!going) return false;
    sortKeysByBits(m_keys.data(), m_scratch.data(), n, m_indexBits, m_bits[0] + m_bits[1] + m_bits[2], kDigitBits,
                   m_counts);
    return true;
}

bool CellGrid::listCells(Algo_KdTree::Job& job) {
    const size_t n = m_points.size();
    m_sorted.resize(n);
    const quint64 rankMask = (quint64(1) << m_indexBits) - 1;
    if (!job.parallelFor(n, kKeyGrain, [&](size_t begin, size_t end) {
            for (size_t k = begin; k < end; ++k) m_sorted[k] = m_shuffled[size_t(m_keys[k] & rankMask)];
        }))
        return false;
    m_cellKeys.clear();
    m_cellStart.clear();
    for (size_t k = 0; k < n; ++k) {
        const quint64 c = m_keys[k] >> m_indexBits;
        if (m_cellKeys.empty() || m_cellKeys.back() != c) {
            m_cellKeys.push_back(c);
            m_cellStart.push_back(unsigned(k));
        }
    }
    m_cellStart.push_back(unsigned(n));
    const size_t cells = m_cellKeys.size();
    std::fill(m_colourStart.begin(), m_colourStart.end(), 0u);
    const quint64 zMask = (quint64(1) << m_bits[2]) - 1, yMask = (quint64(1) << m_bits[1]) - 1;
    auto colourOf = [&](quint64 c) {
        return unsigned((c >> (m_bits[1] + m_bits[2])) % 3 * 9 + ((c >> m_bits[2]) & yMask) % 3 * 3 + (c & zMask) % 3);
    };
    for (size_t i = 0; i < cells; ++i) ++m_colourStart[colourOf(m_cellKeys[i]) + 1];
    for (size_t c = 1; c < m_colourStart.size(); ++c) m_colourStart[c] += m_colourStart[c - 1];
    m_byColour.resize(cells);
    std::array<unsigned int, 28> at = m_colourStart;
    for (size_t i = 0; i < cells; ++i) m_byColour[at[colourOf(m_cellKeys[i])]++] = unsigned(i);
    return true;
}

// The first of the sorted cell keys from `at` on that is >= key: a galloping
// search, cheap when the answer is near.
size_t gallop(const std::vector<quint64>& keys, size_t at, quint64 key) {
    if (at >= keys.size() || keys[at] >= key) return at;
    size_t step = 1, end = at;
    while (end < keys.size() && keys[end] < key) {
        at = end + 1;
        end += step;
        step *= 2;
    }
    return size_t(std::lower_bound(keys.begin() + std::ptrdiff_t(at),
                                   keys.begin() + std::ptrdiff_t(std::min(end, keys.size())), key) -
                  keys.begin());
}

template <class Visit>
void CellGrid::forEachNearCell(unsigned int cellIndex, size_t* hints, Visit&& visit) const {
    const quint64 zMask = (quint64(1) << m_bits[2]) - 1;
    const quint64 c = m_cellKeys[cellIndex];
    const qint64 z = qint64(c & zMask);
    const qint64 y = qint64((c >> m_bits[2]) & ((quint64(1) << m_bits[1]) - 1));
    const qint64 x = qint64(c >> (m_bits[1] + m_bits[2]));
    const qint64 ends[3] = {qint64(1) << m_bits[0], qint64(1) << m_bits[1], qint64(1) << m_bits[2]};
    auto keyOf = [&](qint64 cx, qint64 cy, qint64 cz) {
        return (quint64(cx) << (m_bits[1] + m_bits[2])) | (quint64(cy) << m_bits[2]) | quint64(cz);
    };
    // Cells are sorted by x, y, z: each (x, y) column is a run, and the
    // columns of one x follow each other.
    for (qint64 cx = std::max<qint64>(x - 2, 0); cx <= std::min(x + 2, ends[0] - 1); ++cx) {
        const qint64 yFrom = std::max<qint64>(y - 2, 0);
        size_t& hint = hints[cx - x + 2];
        hint = gallop(m_cellKeys, hint, keyOf(cx, yFrom, 0));
        size_t at = hint;
        for (qint64 cy = yFrom; cy <= std::min(y + 2, ends[1] - 1); ++cy) {
            // Cells two steps away on all three axes are farther than the radius.
            const qint64 reach = std::abs(cx - x) == 2 && std::abs(cy - y) == 2 ? 1 : 2;
            at = gallop(m_cellKeys, at, keyOf(cx, cy, std::max<qint64>(z - reach, 0)));
            const quint64 last = keyOf(cx, cy, std::min(z + reach, ends[2] - 1));
            for (; at < m_cellKeys.size() && m_cellKeys[at] <= last; ++at)
                if (at != cellIndex) visit(unsigned(at));
        }
    }
}

// Keeps the first of the cell's points, in rank order, with no kept point
// closer than the radius. Only cells of other phases hold kept points yet, so
// cells of one phase may be decided at once.
void CellGrid::decide(unsigned int cellIndex, float r2, std::vector<pcVec3f>& near, size_t* hints) {
    near.clear();
    forEachNearCell(cellIndex, hints, [&](unsigned int other) {
        if (m_kept[other] >= 0) near.push_back(m_keptAt[other]);
    });
    const quint64 rankMask = (quint64(1) << m_indexBits) - 1;
    for (unsigned int k = m_cellStart[cellIndex]; k < m_cellStart[cellIndex + 1]; ++k) {
        const pcVec3f& p = m_sorted[k];
        bool free = true;
        for (const pcVec3f& q : near)
            if (Algo_KdTree::dist2(p, q) < r2) {
                free = false;
                break;
            }
        if (free) {
            m_keptRank[cellIndex] = unsigned(m_keys[k] & rankMask);
            m_kept[cellIndex] = int(m_byRank[m_keptRank[cellIndex]]);
            m_keptAt[cellIndex] = p;
            return;
        }
    }
}

size_t CellGrid::sample(double radius, Algo_KdTree::Job& job, int from, int to, const std::vector<int>& seeds,
                        size_t limit) {
    const QString text = QStringLiteral("spacing points apart");
    const int sorted = from + (to - from) / 8;
    if (!job.phase(text, from, (from + sorted) / 2) || !sortByCell(radius / std::sqrt(3.0), job) ||
        !job.phase(text, (from + sorted) / 2, sorted) || !listCells(job))
        return std::numeric_limits<size_t>::max();
    m_kept.assign(m_cellKeys.size(), -1);
    m_keptRank.assign(m_cellKeys.size(), 0);
    m_keptAt.resize(m_cellKeys.size());
    // Seeds farther apart than the radius: each has a cell of its own.
    for (int i : seeds) {
        const pcVec3f& p = m_points[size_t(i)];
        const quint64 key = (quint64((double(p.x) - m_box.min.x) / m_cell) << (m_bits[1] + m_bits[2])) |
                            (quint64((double(p.y) - m_box.min.y) / m_cell) << m_bits[2]) |
                            quint64((double(p.z) - m_box.min.z) / m_cell);
        const size_t cell = size_t(std::lower_bound(m_cellKeys.begin(), m_cellKeys.end(), key) - m_cellKeys.begin());
        m_kept[cell] = i;
        m_keptAt[cell] = p;
    }
    size_t count = seeds.size();
    const float r = float(radius);
    const float r2 = r * r;
    for (unsigned int colour = 0; colour < 27 && count < limit; ++colour) {
        const unsigned int first = m_colourStart[colour], end = m_colourStart[colour + 1];
        std::vector<char> before(end - first);
        for (unsigned int k = first; k < end; ++k) before[k - first] = m_kept[m_byColour[k]] >= 0;
        const bool going = job.phase(text, sorted + (to - sorted) * int(colour) / 27,
                                     sorted + (to - sorted) * int(colour + 1) / 27) &&
                           job.parallelFor(end - first, kCellGrain, [&](size_t begin, size_t stop) {
            std::vector<pcVec3f> near;
            near.reserve(128);
            size_t hints[5] = {0, 0, 0, 0, 0};
            for (size_t k = begin; k < stop; ++k)
                if (!before[k]) decide(m_byColour[first + k], r2, near, hints);
        });
        if (!going) return std::numeric_limits<size_t>::max();
        std::vector<unsigned int> added;
        for (unsigned int k = first; k < end; ++k)
            if (!before[k - first] && m_kept[m_byColour[k]] >= 0) added.push_back(m_byColour[k]);
        if (count + added.size() > limit) {
            // This phase's points are independent of each other: the ones
            // over the limit go, the latest in rank first, so the cut is
            // spread evenly.
            std::sort(added.begin(), added.end(),
                      [&](unsigned int a, unsigned int b) { return m_keptRank[a] < m_keptRank[b]; });
            for (size_t k = limit - count; k < added.size(); ++k) m_kept[added[k]] = -1;
            return limit;
        }
        count += added.size();
    }
    return count;
}

class DiskSampler {
public:
    DiskSampler(const std::vector<pcVec3f>& points, const Algo_PoissonDiskSample::Params& params,
                ILongLiveActionProgress* progress)
        : m_points(points), m_params(params), m_job(progress) {}

    // False when stopped.
    bool run(std::vector<unsigned int>& kept, double& radius);

private:
    const std::vector<pcVec3f>& m_points;
    const Algo_PoissonDiskSample::Params& m_params;
    Algo_KdTree::Job m_job;
};

bool DiskSampler::run(std::vector<unsigned int>& keptIndices, double& radius) {
    const size_t n = m_points.size();
    const size_t target = std::clamp<size_t>(size_t(std::llround(m_params.targetShare * double(n))), 1, n);
    // Ranks: a Fisher-Yates shuffle written out, so the order is the same on every platform.
    std::vector<unsigned int> byRank(n);
    for (size_t i = 0; i < n; ++i) byRank[i] = unsigned(i);
    std::mt19937 rng(m_params.seed);
    for (size_t i = n; i > 1; --i) std::swap(byRank[i - 1], byRank[rng() % i]);
    // lo: the largest radius tried that keeps at least the target (0 keeps all).
    double lo = 0.0, hi = std::numeric_limits<double>::infinity();
    size_t loCount = n;
    pcBoundingBoxf box;
    for (const pcVec3f& p : m_points) box.expandBy(p);
    CellGrid grid(m_points, byRank, box);
    if (target < n) {
        // The mean spacing on the plane of the box's two longest sides.
        const pcVec3f e = box.max - box.min;
        float sides[3] = {e.x, e.y, e.z};
        std::sort(sides, sides + 3);
        const double area = double(sides[2]) * double(sides[1]);
        const double spacing = area > 0.0 ? std::sqrt(area / double(n)) : double(sides[2]) / double(n);
        const double smallest = grid.smallestRadius();
        // Counts at one radius vary by a few square roots of the count with
        // the order of the points; closer than that the search cannot aim.
        const size_t tolerance = std::max(target / 200, size_t(4.0 * std::sqrt(double(target))));
        double r = std::max(m_params.initFactor * spacing, smallest), lastR = 0.0;
        size_t lastCount = 0;
        for (int round = 0; round < kMaxRounds && spacing > 0.0 && loCount - target > tolerance; ++round) {
            // Each round takes a quarter of the bar left, however many rounds it takes.
            const double from = kSearchEnd * (1.0 - std::pow(0.75, round));
            const size_t count = grid.sample(r, m_job, int(from), int(from + (kSearchEnd - from) / 4));
            if (count == std::numeric_limits<size_t>::max()) return false;
            if (count >= target) {
                lo = r;
                loCount = count;
            } else {
                hi = r;
            }
            // Counts go about as a power of the radius (the square on a
            // surface, less where the cloud has gaps): aim a little above
            // the target along the power measured by the last two rounds.
            const double aim = double(target) + 0.5 * double(tolerance);
            double exponent = 2.0;
            if (lastCount > 0 && count > 0 && lastR != r && lastCount != count)
                exponent = std::clamp(std::log(double(lastCount) / double(count)) / std::log(r / lastR), 0.5, 6.0);
            const double step = std::pow(double(std::max<size_t>(count, 1)) / aim, 1.0 / exponent);
            // Near a full share the missing points go as r^2 instead.
            const double missing = lo > 0.0 || lastCount > 0 ? step : std::sqrt((double(n) - aim) / double(n - count));
            lastR = r;
            lastCount = count;
            r *= std::min(step, missing);
            if (lo > 0.0 && std::isfinite(hi)) {
                if (hi - lo <= 1e-6 * hi) break;
                r = std::clamp(r, lo + 0.05 * (hi - lo), hi - 0.05 * (hi - lo));
            } else if (r <= smallest) {
                if (lo > 0.0 || hi <= smallest) break;  // no radius the grid can hold keeps enough
                r = smallest;
            }
        }
    }
    std::vector<unsigned int> out;
    out.reserve(loCount);
    if (lo > 0.0) {
        // The sample at hi, too small but the most even, completed to the
        // target by points at least lo apart.
        std::vector<int> seeds;
        if (std::isfinite(hi)) {
            if (grid.radius() != hi && grid.sample(hi, m_job, kSearchEnd, 97) == std::numeric_limits<size_t>::max())
                return false;
            for (int i : grid.cellKept())
                if (i >= 0) seeds.push_back(i);
        }
        // Seeds can crowd out more than they keep; the plain sample at lo cannot fall short.
        size_t count = grid.sample(lo, m_job, 97, 99, seeds, target);
        if (count < target) count = grid.sample(lo, m_job, 99, 100, {}, target);
        if (count == std::numeric_limits<size_t>::max()) return false;
        for (int i : grid.cellKept())
            if (i >= 0) out.push_back(unsigned(i));
    } else {
        // No radius keeps enough: all points stand in, the surplus spread evenly over the ranks.
        const size_t surplus = n - target;
        for (size_t k = 0; k < n; ++k)
            if ((k * surplus) / n == ((k + 1) * surplus) / n) out.push_back(byRank[k]);
    }
    std::sort(out.begin(), out.end());
    if (!m_job.phase(QStringLiteral("spacing points apart"), 100, 100)) return false;
    keptIndices.swap(out);
    radius = lo;
    return true;
}

}  // namespace

bool Algo_PoissonDiskSample::run(const std::vector<pcVec3f>& points, const Params& params,
                                 std::vector<unsigned int>& keptIndices, ILongLiveActionProgress* progress,
                                 QString* error, double* radius) {
    auto fail = [error](const QString& why) { return Algo_KdTree::Job::fail(error, why); };
    if (points.empty()) return fail(QStringLiteral("no points to thin"));
    if (!(params.targetShare > 0.0 && params.targetShare <= 1.0))
        return fail(QStringLiteral("the target share must be above 0 and at most 1"));
    if (!(params.initFactor > 0.0) || !(params.meshAlpha > 0.0))
        return fail(QStringLiteral("the init factor and the mesh alpha must be positive"));
    if (points.size() > size_t(std::numeric_limits<int>::max()))
        return fail(QStringLiteral("too many points to thin at once"));
    DiskSampler sampler(points, params, progress);
    double used = 0.0;
    if (!sampler.run(keptIndices, used)) return Algo_KdTree::Job::cancelled(error);
    if (radius) *radius = used;
    return true;
}

}  // namespace ptCloud
