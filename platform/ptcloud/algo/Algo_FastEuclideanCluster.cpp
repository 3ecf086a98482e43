#include "Algo_FastEuclideanCluster.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>

#include "Algo_KdTree.h"

namespace ptCloud {

namespace {

// A neighbour is at most this many cells away on each axis: the threshold
// is just over sqrt(3) cell sides.
constexpr int kReach = 2;
// Cells after a cell in key order that can hold its neighbours: of the
// 5 x 5 x 5 block around it, the half after it.
constexpr int kForward = 62;
// Columns (dx, dy) after a cell's own that those cells lie in.
constexpr int kColumns = 12;
// Cell side = threshold / sqrt(3), shrunk by this share so that every two
// points of one cell pass the threshold test in float arithmetic too (its
// rounding is below 1e-6 of a squared distance).
constexpr double kSideMargin = 1e-5;
constexpr int kDigitBits = 11;  // radix sort: 2048 buckets a pass
// Records per block of a parallel radix pass, and points between two polls
// of the stop while finding the cells.
constexpr size_t kSortBlock = 32768;
constexpr size_t kSortPoll = 65536;

struct Offset {
    int dx, dy, dz;
};

// The kForward cells after a cell, nearest first (by the least distance
// between the two cells, then by the distance of their centres), so the
// neighbour cap spends a point's looks on its nearest cells.
const std::array<Offset, kForward>& forwardCells() {
    static const std::array<Offset, kForward> cells = [] {
        std::array<Offset, kForward> out{};
        int count = 0;
        for (int dx = 0; dx <= kReach; ++dx)
            for (int dy = -kReach; dy <= kReach; ++dy)
                for (int dz = -kReach; dz <= kReach; ++dz)
                    if (dx > 0 || dy > 0 || (dy == 0 && dz > 0)) out[size_t(count++)] = {dx, dy, dz};
        auto gap = [](const Offset& o) {
            auto g = [](int d) { return std::max(std::abs(d) - 1, 0); };
            return g(o.dx) + g(o.dy) + g(o.dz);
        };
        std::stable_sort(out.begin(), out.end(), [&](const Offset& a, const Offset& b) {
            const int ga = gap(a), gb = gap(b);
            if (ga != gb) return ga < gb;
            return a.dx * a.dx + a.dy * a.dy + a.dz * a.dz < b.dx * b.dx + b.dy * b.dy + b.dz * b.dz;
        });
        return out;
    }();
    return cells;
}

struct Box {
    float lo[3], hi[3];
};

// Squared gap between two boxes. Rounding is monotonic, so it is never
// above the squared distance dist2() gives for any pair of points the boxes
// hold: a gap beyond the threshold rules every pair out exactly.
inline float gap2(const Box& u, const Box& v) {
    const float ex = std::max(std::max(v.lo[0] - u.hi[0], u.lo[0] - v.hi[0]), 0.f);
    const float ey = std::max(std::max(v.lo[1] - u.hi[1], u.lo[1] - v.hi[1]), 0.f);
    const float ez = std::max(std::max(v.lo[2] - u.hi[2], u.lo[2] - v.hi[2]), 0.f);
    return ex * ex + ey * ey + ez * ez;
}

// The points sorted into cells of a uniform grid. A cell's key packs its
// integer coordinates (x major, then y, then z, each kept kReach clear of
// 0 and of the field's top), so key order is x, y, z order and adding a
// packed offset moves by whole cells.
template <class Key>
struct CellGrid {
    int shiftX = 0, shiftY = 0;
    std::vector<Key> keys;              // cells, ascending
    std::vector<uint32_t> start;        // cell c holds positions [start[c], start[c + 1])
    std::vector<pcVec3f> points;        // sorted by cell, in input order within a cell
    std::vector<int32_t> ids;           // input index of points[j]
    std::vector<Box> boxes;             // bounding box of each cell's points
    std::vector<Key> columnKeys;        // keys without z of the cells' columns, ascending
    std::vector<uint32_t> columnStart;  // column i holds cells [columnStart[i], columnStart[i + 1])

    Key offset(int dx, int dy, int dz) const {
        return (Key(int64_t(dx)) << shiftX) + (Key(int64_t(dy)) << shiftY) + Key(int64_t(dz));
    }
    size_t cellCount() const { return keys.size(); }
};

struct Extent {
    double lo[3];
    int bits[3];     // field width of each axis in the key
    double perCell;  // 1 / cell side
};

// Sorts the points into cells, reporting on the bar from `from` to `to`.
template <class Key>
bool sortIntoCells(const std::vector<pcVec3f>& points, const Extent& e, CellGrid<Key>& grid,
                   Algo_KdTree::Job& job, int from, int to) {
    struct Record {
        Key key;
        int32_t id;
    };
    const QString text = QStringLiteral("Fast Euclidean: sorting points into cells");
    const size_t n = points.size();
    grid.shiftY = e.bits[2];
    grid.shiftX = e.bits[2] + e.bits[1];
    // left uninitialised: every record is written before it is read
    std::unique_ptr<Record[]> a(new Record[n]), b(new Record[n]);
    // the bar's share of each step: keys, sorting, cells, gathering
    const int mark[5] = {from, from + (to - from) / 5, to - (to - from) / 5, to - (to - from) / 10, to};
    if (!job.phase(text, mark[0], mark[1]) || !job.parallelFor(n, 4096, [&](size_t begin, size_t end) {
            for (size_t i = begin; i < end; ++i) {
                const float c[3] = {points[i].x, points[i].y, points[i].z};
                Key key = 0;
                for (int axis = 0; axis < 3; ++axis) {
                    // never below 0: truncation is the floor
                    const auto cell = static_cast<int64_t>((double(c[axis]) - e.lo[axis]) * e.perCell);
                    key = (key << e.bits[axis]) | Key(cell + kReach);
                }
                a[i] = {key, static_cast<int32_t>(i)};
            }
        }))
        return false;

    // Least significant digit first, each pass on every core over blocks of
    // records (every block counts its digits, then deals its records out
    // from its own offsets): stable, so each cell keeps input order.
    const int totalBits = e.bits[0] + e.bits[1] + e.bits[2];
    const int passes = (totalBits + kDigitBits - 1) / kDigitBits;
    constexpr size_t kBuckets = size_t(1) << kDigitBits;
    const size_t blocks = std::clamp<size_t>(n / kSortBlock, 1, 64);
    const size_t perBlock = (n + blocks - 1) / blocks;
    std::vector<size_t> offsets(blocks * kBuckets);
    for (int pass = 0; pass < passes; ++pass) {
        const int shift = pass * kDigitBits;
        auto digit = [shift](const Key& k) { return static_cast<size_t>(k >> shift) & (kBuckets - 1); };
        auto forBlocks = [&](int half, const std::function<void(size_t, size_t, size_t*)>& fn) {
            const int span = mark[2] - mark[1];
            return job.phase(text, mark[1] + span * (2 * pass + half) / (2 * passes),
                             mark[1] + span * (2 * pass + half + 1) / (2 * passes)) &&
                   job.parallelFor(blocks, 1, [&](size_t first, size_t last) {
                       for (size_t block = first; block < last; ++block)
                           fn(block * perBlock, std::min(n, (block + 1) * perBlock), &offsets[block * kBuckets]);
                   });
        };
        if (!forBlocks(0, [&](size_t begin, size_t end, size_t* count) {
                std::fill(count, count + kBuckets, size_t(0));
                for (size_t i = begin; i < end; ++i) ++count[digit(a[i].key)];
            }))
            return false;
        size_t sum = 0;
        for (size_t d = 0; d < kBuckets; ++d)
            for (size_t block = 0; block < blocks; ++block) {
                size_t& offset = offsets[block * kBuckets + d];
                const size_t count = offset;
                offset = sum;
                sum += count;
            }
        if (!forBlocks(1, [&](size_t begin, size_t end, size_t* offset) {
                for (size_t i = begin; i < end; ++i) b[offset[digit(a[i].key)]++] = a[i];
            }))
            return false;
        a.swap(b);
    }
    b.reset();

    if (!job.phase(text, mark[2], mark[3])) return false;
    grid.keys.clear();
    grid.start.clear();
    for (size_t i = 0; i < n; ++i) {
        if (i % kSortPoll == 0 && !job.step(double(i) / double(n))) return false;
        if (i == 0 || a[i].key != a[i - 1].key) {
            grid.keys.push_back(a[i].key);
            grid.start.push_back(static_cast<uint32_t>(i));
        }
    }
    grid.start.push_back(static_cast<uint32_t>(n));
    grid.columnKeys.clear();
    grid.columnStart.clear();
    for (size_t c = 0; c < grid.keys.size(); ++c) {
        const Key column = grid.keys[c] >> grid.shiftY;
        if (c == 0 || column != grid.columnKeys.back()) {
            grid.columnKeys.push_back(column);
            grid.columnStart.push_back(static_cast<uint32_t>(c));
        }
    }
    grid.columnStart.push_back(static_cast<uint32_t>(grid.keys.size()));
    grid.points.resize(n);
    grid.ids.resize(n);
    grid.boxes.resize(grid.keys.size());
    if (!job.phase(text, mark[3], mark[4])) return false;
    return job.parallelFor(grid.keys.size(), 1024, [&](size_t begin, size_t end) {
        for (size_t c = begin; c < end; ++c) {
            float lo[3], hi[3];
            for (uint32_t j = grid.start[c]; j < grid.start[c + 1]; ++j) {
                const int32_t id = a[j].id;
                const pcVec3f& p = points[size_t(id)];
                grid.points[j] = p;
                grid.ids[j] = id;
                const float xyz[3] = {p.x, p.y, p.z};
                for (int axis = 0; axis < 3; ++axis) {
                    lo[axis] = j == grid.start[c] ? xyz[axis] : std::min(lo[axis], xyz[axis]);
                    hi[axis] = j == grid.start[c] ? xyz[axis] : std::max(hi[axis], xyz[axis]);
                }
            }
            grid.boxes[c] = {{lo[0], lo[1], lo[2]}, {hi[0], hi[1], hi[2]}};
        }
    });
}

// Joins each cell with the cells after it that hold a pair of points within
// the threshold (and a look left for it), in chunks of columns on every
// core. The union-find decides only which pairs are still worth testing,
// never which links exist, so the sets come out the same whatever the
// threads' timing.
template <class Key>
class CellLinker {
public:
    CellLinker(const CellGrid<Key>& grid, float r2, size_t maxSize, Algo_KdTree::Components& sets)
        : m_grid(grid), m_r2(r2), m_maxSize(maxSize), m_sets(sets) {
        const std::array<Offset, kForward>& cells = forwardCells();
        for (int t = 0; t < kForward; ++t) {
            const Offset& o = cells[size_t(t)];
            m_slotOf[o.dx][o.dy + kReach][o.dz + kReach] = t;
        }
        int column = 0;
        for (int dx = 0; dx <= kReach; ++dx)
            for (int dy = -kReach; dy <= kReach; ++dy)
                if (dx > 0 || dy > 0) m_columns[size_t(column++)] = {dx, dy};
    }

    // Links the cells of columns [begin, end).
    void linkColumns(size_t begin, size_t end) {
        const std::vector<Key>& columns = m_grid.columnKeys;
        const std::vector<Key>& keys = m_grid.keys;
        const int zBits = m_grid.shiftY;
        auto columnOffset = [&](const Column& col) { return m_grid.offset(col.dx, col.dy, 0) >> zBits; };
        std::array<size_t, kColumns> cursor;
        for (int j = 0; j < kColumns; ++j)
            cursor[size_t(j)] = size_t(std::lower_bound(columns.begin(), columns.end(),
                                                        columns[begin] + columnOffset(m_columns[size_t(j)])) -
                                       columns.begin());
        Looks looks;
        std::array<Near, kForward> near;
        struct Present {
            int dx, dy;
            Key delta;         // from a cell's key to the same height there
            uint32_t at, end;  // cells of that column not yet left behind
        };
        std::array<Present, kColumns> present;
        for (size_t column = begin; column < end; ++column) {
            int count = 0;
            for (int j = 0; j < kColumns; ++j) {
                const Column& col = m_columns[size_t(j)];
                const Key wanted = columns[column] + columnOffset(col);
                size_t& k = cursor[size_t(j)];
                while (k < columns.size() && columns[k] < wanted) ++k;
                if (k < columns.size() && columns[k] == wanted)
                    present[size_t(count++)] = {col.dx, col.dy, m_grid.offset(col.dx, col.dy, 0),
                                                m_grid.columnStart[k], m_grid.columnStart[k + 1]};
            }
            const uint32_t last = m_grid.columnStart[column + 1];
            for (uint32_t c = m_grid.columnStart[column]; c < last; ++c) {
                size_t found = 0;
                for (uint32_t d = c + 1; d < last && keys[d] - keys[c] <= Key(kReach); ++d)
                    near[found++] = {m_slotOf[0][kReach][int(keys[d] - keys[c]) + kReach], int32_t(d)};
                for (int j = 0; j < count; ++j) {
                    Present& col = present[size_t(j)];
                    const Key base = keys[c] + col.delta;
                    const Key lo = base - Key(kReach), hi = base + Key(kReach);
                    while (col.at < col.end && keys[col.at] < lo) ++col.at;
                    for (uint32_t d = col.at; d < col.end && keys[d] <= hi; ++d)
                        near[found++] = {m_slotOf[col.dx][col.dy + kReach][int(int64_t(keys[d] - base)) + kReach],
                                         int32_t(d)};
                }
                linkCell(c, near.data(), found, looks);
            }
        }
    }

private:
    // A cell after the one being linked: its place in forwardCells() and
    // its index.
    struct Near {
        int32_t slot, cell;
    };
    // Per point of the cell being linked, how many looks the cells before
    // near[upTo] have taken; filled only where the cap may bind.
    struct Looks {
        std::vector<uint32_t> upTo, taken;
    };

    bool anyWithin(const pcVec3f& p, size_t d) const {
        for (uint32_t q = m_grid.start[d]; q < m_grid.start[d + 1]; ++q)
            if (Algo_KdTree::dist2(p, m_grid.points[q]) <= m_r2) return true;
        return false;
    }

    // Whether point j of the cell c still has a look left for near[at].
    bool mayLook(size_t c, uint32_t j, size_t at, const Near* near, Looks& looks) const {
        const uint32_t local = j - m_grid.start[c];
        uint32_t& upTo = looks.upTo[local];
        uint32_t& taken = looks.taken[local];
        for (; upTo < at; ++upTo)
            if (anyWithin(m_grid.points[j], size_t(near[upTo].cell))) ++taken;
        return taken < m_maxSize;
    }

    void linkCell(size_t c, Near* near, size_t count, Looks& looks) {
        const uint32_t first = m_grid.start[c], last = m_grid.start[c + 1];
        // A point looks at the next point of its cell and at most one point
        // in each cell of near[0, at): only from at = maxSize - 1 on can its
        // looks run out, and then the order of the cells matters.
        const bool capMayBind = count + 1 > m_maxSize;
        if (capMayBind) {
            std::sort(near, near + count, [](const Near& a, const Near& b) { return a.slot < b.slot; });
            looks.upTo.assign(last - first, 0);
            looks.taken.resize(last - first);
            for (uint32_t j = first; j < last; ++j) looks.taken[j - first] = j + 1 < last ? 1 : 0;
        }
        int root = m_sets.find(int(c));
        for (size_t at = 0; at < count; ++at) {
            const int d = near[at].cell;
            if (m_sets.find(d) == root || gap2(m_grid.boxes[c], m_grid.boxes[size_t(d)]) > m_r2) continue;
            for (uint32_t j = first; j < last; ++j) {
                if (!anyWithin(m_grid.points[j], size_t(d))) continue;
                if (capMayBind && at + 1 >= m_maxSize && !mayLook(c, j, at, near, looks)) continue;
                m_sets.join(int(c), d);
                root = m_sets.find(int(c));
                break;
            }
        }
    }

    const CellGrid<Key>& m_grid;
    const float m_r2;
    const size_t m_maxSize;
    Algo_KdTree::Components& m_sets;
    struct Column {
        int dx, dy;
    };
    std::array<Column, kColumns> m_columns{};  // besides the cell's own
    int m_slotOf[kReach + 1][2 * kReach + 1][2 * kReach + 1] = {};
};

template <class Key>
bool cluster(const std::vector<pcVec3f>& points, const Extent& extent, float r2, size_t maxSize,
             std::vector<int>& result, Algo_KdTree::Job& job) {
    CellGrid<Key> grid;
    if (!sortIntoCells(points, extent, grid, job, 0, 25)) return false;
    const size_t cells = grid.cellCount();
    Algo_KdTree::Components sets(cells);
    CellLinker<Key> linker(grid, r2, maxSize, sets);
    if (!job.phase(QStringLiteral("Fast Euclidean: propagating labels between cells"), 25, 95) ||
        !job.parallelFor(grid.columnKeys.size(), 64,
                         [&](size_t begin, size_t end) { linker.linkColumns(begin, end); }))
        return false;
    result.resize(points.size());
    return job.phase(QStringLiteral("Fast Euclidean: numbering clusters"), 95, 100) &&
           job.parallelFor(cells, 1024, [&](size_t begin, size_t end) {
               for (size_t c = begin; c < end; ++c) {
                   const int root = sets.find(int(c));
                   for (uint32_t j = grid.start[c]; j < grid.start[c + 1]; ++j) result[size_t(grid.ids[j])] = root;
               }
           });
}

}  // namespace

bool Algo_FastEuclideanCluster::run(const std::vector<pcVec3f>& points, const Params& params,
                                    std::vector<int>& labels, ILongLiveActionProgress* progress,
                                    QString* error) {
    labels.clear();
    if (!(params.distanceThreshold > 0.0) || !std::isfinite(params.distanceThreshold))
        return Algo_KdTree::Job::fail(
            error, QStringLiteral("Fast Euclidean: distance threshold must be a positive distance"));
    if (params.maxSize < 1)
        return Algo_KdTree::Job::fail(error, QStringLiteral("Fast Euclidean: max size must be at least 1"));
    Extent extent{};
    double hi[3];
    for (int axis = 0; axis < 3; ++axis) {
        extent.lo[axis] = std::numeric_limits<double>::max();
        hi[axis] = -std::numeric_limits<double>::max();
    }
    bool finite = true;
    for (const pcVec3f& p : points) {
        const double c[3] = {p.x, p.y, p.z};
        for (int axis = 0; axis < 3; ++axis) {
            finite = finite && std::isfinite(c[axis]);
            extent.lo[axis] = std::min(extent.lo[axis], c[axis]);
            hi[axis] = std::max(hi[axis], c[axis]);
        }
    }
    if (!finite)
        return Algo_KdTree::Job::fail(error, QStringLiteral("Fast Euclidean: point coordinates must be finite"));
    extent.perCell = std::sqrt(3.0) / (params.distanceThreshold * (1.0 - kSideMargin));
    int totalBits = 0;
    for (int axis = 0; axis < 3 && !points.empty(); ++axis) {
        const double span = (hi[axis] - extent.lo[axis]) * extent.perCell;
        if (span > 0x1p60)
            return Algo_KdTree::Job::fail(
                error, QStringLiteral("Fast Euclidean: the cloud spans too many cells of this distance threshold"));
        const auto top = static_cast<uint64_t>(span) + 2 * kReach + 1;
        int bits = 1;
        while (bits < 64 && (top >> bits) != 0) ++bits;
        extent.bits[axis] = bits;
        totalBits += bits;
    }
    if (totalBits > 128)
        return Algo_KdTree::Job::fail(
            error, QStringLiteral("Fast Euclidean: the cloud spans too many cells of this distance threshold"));

    Algo_KdTree::Job job(progress);
    const float r2 = static_cast<float>(params.distanceThreshold * params.distanceThreshold);
    const size_t cap = static_cast<size_t>(params.maxSize);
    std::vector<int> result;
    const bool done = totalBits <= 64 ? cluster<uint64_t>(points, extent, r2, cap, result, job)
                                      : cluster<unsigned __int128>(points, extent, r2, cap, result, job);
    if (!done) return Algo_KdTree::Job::cancelled(error);
    Algo_KdTree::Job::compactLabels(result, 1, points.size());
    labels.swap(result);
    job.step(1.0);
    return true;
}

}  // namespace ptCloud
