#include "PtCloud_DataSetBuilder.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstddef>
#include <cstring>
#include <deque>
#include <mutex>
#include <sys/mman.h>
#include <thread>

#include "ILongLiveActionProgress.h"
#include "PtCloud_BlockFileFormat.h"
#include "PtCloud_BlockFileWriter.h"
#include "PtCloud_CurveOrder.h"
#include "PtCloud_GridMap.h"
#include "PtCloud_KeySort.h"

namespace ptCloud {

namespace {

using Format = PtCloud_BlockFileFormat;

// A bucket should hold a handful of blocks: large enough that its k-d split
// makes well-shaped blocks, small enough to split at once.
constexpr quint64 kBlocksPerBucket = 6;
constexpr qint64 kMinBudget = 1ll << 20;
constexpr qint64 kMinSpillBuffer = 16 << 10;
constexpr qint64 kMaxSpillBuffer = 1 << 20;
constexpr int kMaxGridCells = 1 << 20;
// Records are assembled this many at a time, so the batch stays in the cache
// while its columns are interleaved and its records dealt out.
constexpr size_t kBatchPoints = 16384;
// Batches between the thread that assembles them and the one that deals them
// into the buckets.
constexpr int kBatchesInFlight = 3;
// Buckets' blocks between the thread that partitions and the one that writes:
// one being written while the next is filled.
constexpr int kOutputsInFlight = 2;
// How often the writing thread looks at the stop request while it waits.
constexpr std::chrono::milliseconds kStopPoll(50);

// Morton keys: this many bits an axis, sorted this many bits a pass. A block
// of 50 000 points has 256^3 cells, a few points in the fullest ones: finer
// than any run that thinning or drawing cares about, and two passes sort it.
constexpr int kCurveAxisBits = 8;
constexpr int kCurveBits = 3 * kCurveAxisBits;
constexpr int kDigitBits = 12;
// A key is the curve position above the point's index in its block.
constexpr int kIndexBits = 64 - kCurveBits;
constexpr quint64 kIndexMask = (quint64(1) << kIndexBits) - 1;

// Spreads the low 11 bits of v two bits apart, so that three of them
// interleave into a Morton key.
constexpr quint64 spreadBits(quint32 v)
{
    quint64 x = v & 0x7ffu;
    x = (x | x << 16) & 0x00ff0000ffull;
    x = (x | x << 8) & 0x00f00f00full;
    x = (x | x << 4) & 0x0c30c30c3ull;
    x = (x | x << 2) & 0x249249249ull;
    return x;
}

// The spread bits of every cell number along an axis: looking them up costs
// less than the shifts.
struct SpreadTable {
    quint64 bits[1 << kCurveAxisBits];
    constexpr SpreadTable() : bits()
    {
        for (quint32 v = 0; v < (1u << kCurveAxisBits); ++v) bits[v] = spreadBits(v);
    }
};
constexpr SpreadTable kSpread;

// A grid finer than single precision over the box (relative to the origin)
// for points that come without one.
pcVec3d quantumOver(const pcBoundingBoxf& box)
{
    auto step = [](float lo, float hi) {
        const double reach = std::max({std::fabs(double(lo)), std::fabs(double(hi)), 1e-3});
        return std::ldexp(1.0, std::ilogb(reach) - 24);
    };
    if (!box.valid()) return pcVec3d(std::ldexp(1.0, -24), std::ldexp(1.0, -24), std::ldexp(1.0, -24));
    return pcVec3d(step(box.min.x, box.max.x), step(box.min.y, box.max.y), step(box.min.z, box.max.z));
}

int floorLog2(quint64 v)
{
    int n = 0;
    while (v > 1) {
        v >>= 1;
        ++n;
    }
    return n;
}

// Copies one record. Records hold at least a position (12 bytes), so whole
// 8-byte words and one overlapping last word cover any length without a call.
inline void copyRecord(char* to, const char* from, size_t bytes)
{
    size_t i = 0;
    for (; i + 8 <= bytes; i += 8) std::memcpy(to + i, from + i, 8);
    if (i < bytes) std::memcpy(to + bytes - 8, from + bytes - 8, 8);
}

// Moves one column between packed values and records; the width is a
// constant of each instance, so every value is a single move.
template <size_t W> void packColumn(const uint8_t* values, size_t n, char* records, size_t stride)
{
    for (size_t i = 0; i < n; ++i) std::memcpy(records + i * stride, values + i * W, W);
}

// Takes the records in the given order: the low bits of each key index one.
template <size_t W>
void gatherColumn(const char* records, size_t stride, const quint64* order, size_t n, uint8_t* values)
{
    for (size_t i = 0; i < n; ++i) std::memcpy(values + i * W, records + size_t(order[i] & kIndexMask) * stride, W);
}

// Point records live in memory mapped from the system for them alone: freed,
// it goes back at once, whichever thread frees it, so the process shrinks as
// buckets are written instead of keeping their room in the allocator's heap.
// It is filled at once when mapped (it is written whole anyway), which costs
// less than a fault on every page.
struct Unmap {
    size_t bytes = 0;
    void operator()(char* p) const { munmap(p, bytes); }
};
using Memory = std::unique_ptr<char, Unmap>;

Memory mapMemory(size_t bytes)
{
    void* p = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
    return p == MAP_FAILED ? Memory(nullptr, Unmap{0}) : Memory(static_cast<char*>(p), Unmap{bytes});
}

using PackFn = void (*)(const uint8_t*, size_t, char*, size_t);
using GatherFn = void (*)(const char*, size_t, const quint64*, size_t, uint8_t*);

template <size_t W> std::pair<PackFn, GatherFn> columnMovers()
{
    return {&packColumn<W>, &gatherColumn<W>};
}

std::pair<PackFn, GatherFn> columnMoversFor(int width)
{
    switch (width) {
    case 1: return columnMovers<1>();
    case 2: return columnMovers<2>();
    case 4: return columnMovers<4>();
    case 6: return columnMovers<6>();
    case 8: return columnMovers<8>();
    case 12: return columnMovers<12>();
    default: return columnMovers<24>();
    }
}

}  // namespace

struct PtCloud_DataSetBuilder::Impl {
    // Where one column sits in a point record, and how it gets there and back.
    struct Slot {
        EDataSetColumn column;
        size_t offset;
        size_t width;
        PackFn pack;
        GatherFn gather;
    };

    // A regular grid over a box; points outside fall into the edge cells.
    struct Grid {
        pcVec3f min;
        float inv[3] = {0.f, 0.f, 0.f};
        int dims[3] = {1, 1, 1};

        // At least `cells` cells (up to a few times more) of near-cubic shape
        // over the box's non-flat axes; rounding up guarantees that a box
        // asked for two cells is cut.
        static Grid over(const pcBoundingBoxf& box, quint64 cells)
        {
            Grid g;
            g.min = box.min;
            const double extent[3] = {double(box.max.x) - box.min.x, double(box.max.y) - box.min.y,
                                      double(box.max.z) - box.min.z};
            bool active[3] = {extent[0] > 0, extent[1] > 0, extent[2] > 0};
            cells = std::max<quint64>(1, std::min<quint64>(cells, kMaxGridCells));
            double side = 0;
            for (bool changed = true; changed;) {
                changed = false;
                double volume = 1;
                int n = 0;
                for (int a = 0; a < 3; ++a)
                    if (active[a]) {
                        volume *= extent[a];
                        ++n;
                    }
                if (n == 0) return g;
                side = std::pow(volume / double(cells), 1.0 / n);
                for (int a = 0; a < 3; ++a)
                    if (active[a] && extent[a] < side) {
                        active[a] = false;
                        changed = true;
                    }
            }
            for (int a = 0; a < 3; ++a) {
                if (!active[a]) continue;
                g.dims[a] = int(std::max(1.0, std::min(1024.0, std::ceil(extent[a] / side))));
                g.inv[a] = float(g.dims[a] / extent[a]);
            }
            return g;
        }

        int cells() const { return dims[0] * dims[1] * dims[2]; }

        quint32 cellOf(const pcVec3f& p) const
        {
            auto index = [this](float v, float lo, int a) {
                const float t = (v - lo) * inv[a];
                return t > 0.f ? (t < float(dims[a]) ? int(t) : dims[a] - 1) : 0;
            };
            return quint32((index(p.z, min.z, 2) * dims[1] + index(p.y, min.y, 1)) * dims[0] +
                           index(p.x, min.x, 0));
        }
    };

    struct Chunk {
        quint64 offset;
        quint32 points;
    };

    // The points of one grid cell. They stay in memory in slabs of
    // 1 << shift records while the budget allows; a spilled bucket keeps one
    // slab as the buffer of its chunks in the spill file.
    struct Bucket {
        std::vector<Memory> slabs;
        int shift = 0;
        quint32 fill = 0;  // records in the last slab
        char* cursor = nullptr;  // where the next record goes in it; limit when full
        char* limit = nullptr;
        std::vector<Chunk> chunks;
        quint64 points = 0;
        pcBoundingBoxf box;
        bool spilled = false;
        bool inseparable = false;  // space does not split it: split by arrival order
    };

    struct Block {
        int id;
        size_t first;
        size_t points;
    };

    // One bucket's blocks on their way from the partitioning thread to the
    // writing one: their records one block after the other, each block's in
    // the order they are stored. The memory serves bucket after bucket,
    // grown when one needs more: mapping it afresh for each costs a fault a
    // page.
    struct Output {
        Memory records;
        qint64 capacity = 0;  // bytes
        std::vector<Block> blocks;
    };

    QString outPath;
    stPtCloud_DataSetHeader header;
    pcBoundingBoxf bounds;
    Options opt;
    stPtCloud_RecordLayout layout;
    std::vector<Slot> recordLayout;  // its slots, with their movers
    size_t recordBytes = 0;
    quint64 count = 0;
    bool finished = false;
    QString failure;  // sticky: after a failed addPoints nothing more is accepted

    // Records before the grid is chosen (when neither the count nor the box
    // was known at the start).
    std::vector<char> staging;
    bool gridReady = false;
    Grid grid;
    std::vector<Bucket> buckets;
    int memoryShift = 0;  // slab size of buckets in memory
    int spillShift = 0;   // slab size of spilled buckets' buffers
    qint64 resident = 0;  // bytes of every slab allocated
    qint64 recordsLimit = 0;
    qint64 inFlightBytes = 0;

    std::unique_ptr<QTemporaryDir> tempDir;
    std::unique_ptr<QFile> spill;
    quint64 spillSize = 0;

    // addPoints assembles batches of records and finds their cells; another
    // thread deals them into the buckets (and spills) meanwhile.
    struct Batch {
        std::vector<char> records;
        std::vector<quint32> cells;
        size_t points = 0;
    };
    std::vector<Batch> batches;
    std::deque<int> fullBatches, freeBatches;
    std::mutex dealMutex;
    std::condition_variable batchFreed, batchFilled;
    std::thread dealer;
    bool dealingDone = false;  // no more batches will come
    QString dealFailure;
    std::vector<pcVec3q> rebased;
    std::vector<quint16> colorScratch;
    std::vector<uint8_t> zeros;
    std::vector<quint32> cells;  // of records dealt by the other threads (staged, split again)

    // finish: the partitioning thread hands finished blocks to the writing one
    ILongLiveActionProgress* progress = nullptr;
    quint64 pointsDone = 0;
    int lastPercent = -1;
    int nextBlockId = 0;
    std::unique_ptr<PtCloud_BlockFileWriter> writer;
    std::vector<Output> outputs;
    std::deque<int> readyOutputs, spareOutputs;
    std::mutex mutex;
    std::condition_variable outputFreed, outputFilled;
    bool partitioned = false;  // the partitioning thread has no more blocks
    bool abort = false;        // the writing thread gave up: stop partitioning
    PtCloud_CurveOrder blockCut;  // of the bucket being split
    // The block being written, column by column as the file stores them.
    std::vector<pcVec3q> blockPositions;
    std::vector<std::vector<uint8_t>> blockColumns;
    std::vector<const void*> blockColumnData;
    std::vector<quint64> keys, keyScratch;  // its points in the order they are stored
    std::vector<quint32> digitCounts;

    Impl(const QString& path, const stPtCloud_DataSetHeader& h, const pcBoundingBoxf& b,
         const Options& o)
        : outPath(path), header(h), bounds(b), opt(o)
    {
        opt.targetBlockPoints = std::max(opt.targetBlockPoints, 1);
        opt.memoryBudgetBytes = std::max(opt.memoryBudgetBytes, kMinBudget);
        header.sort = DSS_Morton;
        if (!header.storesQuanta()) header.quantum = quantumOver(bounds);
        layout = stPtCloud_RecordLayout::forColumns(h.columns);
        header.columns = layout.columns();
        recordBytes = layout.bytes;
        for (const stPtCloud_RecordLayout::Field& s : layout.fields) {
            const auto movers = columnMoversFor(int(s.width));
            recordLayout.push_back({s.column, s.offset, s.width, movers.first, movers.second});
        }
        // The block being written, in columns, and its two arrays of sort
        // keys. The buckets in flight are counted as they come.
        inFlightBytes = qint64(recordBytes + 2 * sizeof(quint64)) * opt.targetBlockPoints;
        batches.resize(kBatchesInFlight);
        for (int i = 0; i < kBatchesInFlight; ++i) freeBatches.push_back(i);
        // Announced count and box: the buckets are known from the start and
        // nothing needs staging.
        if (header.pointCount > 0 && bounds.valid()) startGrid(header.pointCount, nullptr);
    }

    ~Impl() { stopDealing(); }

    bool fail(const QString& why, QString* error)
    {
        if (error) *error = why;
        return false;
    }

    qint64 budget() const { return opt.memoryBudgetBytes; }
    qint64 slabBytes(int shift) const { return qint64(recordBytes) << shift; }
    quint32 slabPoints(const Bucket& b) const { return quint32(1) << b.shift; }

    char* recordAt(const Bucket& b, quint32 r) const
    {
        return b.slabs[r >> b.shift].get() + size_t(r & (slabPoints(b) - 1)) * recordBytes;
    }

    // The float position readers will hand out.
    pcVec3f positionOf(const char* record) const
    {
        pcVec3q q;
        std::memcpy(&q, record, sizeof q);
        return Format::floatOf(q, header.quantum);
    }

    // A bucket being split holds its cut and an output record a point.
    qint64 splitBytesPerPoint() const { return PtCloud_CurveOrder::bytesPerPoint() + qint64(recordBytes); }

    // Points a bucket may hold to be split now: its cut, its output and
    // its records when they must be read back, beside every record held and
    // the memory the outputs keep. It does not depend on how far the writing
    // got: same input, same file.
    quint64 splittablePoints(bool load) const
    {
        const qint64 perPoint = splitBytesPerPoint() + (load ? qint64(recordBytes) : 0);
        qint64 held = 0;
        for (const Output& out : outputs) held += out.capacity;
        const qint64 avail = budget() - resident - held - inFlightBytes;
        return std::max<quint64>(quint64(std::max<qint64>(avail, 0) / perPoint),
                                 4 * quint64(opt.targetBlockPoints));
    }

    // Staging never takes more than a small share of the budget: its points
    // are copied once more when the grid is chosen.
    size_t stagingLimit() const { return size_t(budget() / 8); }

    // --- spill file -------------------------------------------------------

    bool ensureSpill(QString* error)
    {
        if (spill) return true;
        const QString base = opt.tempDir.isEmpty() ? QFileInfo(outPath).absolutePath() : opt.tempDir;
        tempDir.reset(new QTemporaryDir(base + QStringLiteral("/.ptcloud-build-XXXXXX")));
        if (!tempDir->isValid())
            return fail(QStringLiteral("cannot make a temporary folder in %1: %2")
                            .arg(base, tempDir->errorString()),
                        error);
        spill.reset(new QFile(tempDir->filePath(QStringLiteral("spill.bin"))));
        if (!spill->open(QIODevice::ReadWrite | QIODevice::Unbuffered))
            return fail(QStringLiteral("cannot write the spill file %1: %2")
                            .arg(spill->fileName(), spill->errorString()),
                        error);
        spillSize = 0;
        return true;
    }

    void removeSpill()
    {
        spill.reset();
        tempDir.reset();
        buckets.clear();
        buckets.shrink_to_fit();
        resident = 0;
    }

    bool writeChunk(Bucket& b, const char* records, quint32 n, QString* error)
    {
        if (n == 0) return true;
        if (!ensureSpill(error)) return false;
        const qint64 bytes = qint64(n) * qint64(recordBytes);
        if (!spill->seek(qint64(spillSize)) || spill->write(records, bytes) != bytes)
            return fail(QStringLiteral("cannot write the spill file: %1").arg(spill->errorString()),
                        error);
        b.chunks.push_back({spillSize, n});
        spillSize += quint64(bytes);
        return true;
    }

    bool readChunk(const Chunk& c, quint32 first, quint32 n, char* into, QString* error)
    {
        const qint64 bytes = qint64(n) * qint64(recordBytes);
        if (!spill->seek(qint64(c.offset + quint64(first) * recordBytes)) || spill->read(into, bytes) != bytes)
            return fail(QStringLiteral("cannot read the spill file: %1").arg(spill->errorString()),
                        error);
        return true;
    }

    void freeSlabs(Bucket& b)
    {
        resident -= qint64(b.slabs.size()) * slabBytes(b.shift);
        b.slabs.clear();
        b.slabs.shrink_to_fit();
        b.fill = 0;
        b.cursor = b.limit = nullptr;
    }

    // Moves a bucket's records to the spill file; from now on it only keeps
    // a small buffer.
    bool spillBucket(Bucket& b, QString* error)
    {
        for (size_t s = 0; s < b.slabs.size(); ++s) {
            const quint32 n = s + 1 == b.slabs.size() ? b.fill : slabPoints(b);
            if (!writeChunk(b, b.slabs[s].get(), n, error)) return false;
        }
        freeSlabs(b);
        b.spilled = true;
        b.shift = spillShift;
        return true;
    }

    // Writes out and frees a spilled bucket's buffer.
    bool flushBuffer(Bucket& b, QString* error)
    {
        if (!b.spilled || b.slabs.empty()) return true;
        if (!writeChunk(b, b.slabs.front().get(), b.fill, error)) return false;
        freeSlabs(b);
        return true;
    }

    // The in-memory bucket holding the most slabs, or null.
    Bucket* largestInMemory()
    {
        Bucket* best = nullptr;
        for (Bucket& b : buckets)
            if (!b.spilled && !b.slabs.empty() && (!best || b.slabs.size() > best->slabs.size())) best = &b;
        return best;
    }

    // Room for more records of b once its last slab is full: a new slab
    // (spilling the largest bucket first when the budget is spent) or, for a
    // spilled bucket, its emptied buffer.
    char* nextSlot(Bucket& b, QString* error)
    {
        if (!b.spilled) {
            while (resident + slabBytes(b.shift) > recordsLimit) {
                Bucket* victim = largestInMemory();
                if (!victim) break;
                if (!spillBucket(*victim, error)) return nullptr;
                if (victim == &b) break;
            }
        }
        if (b.spilled && !b.slabs.empty()) {
            if (!writeChunk(b, b.slabs.front().get(), b.fill, error)) return nullptr;
            b.fill = 0;
            b.cursor = b.slabs.front().get();
            return b.cursor;
        }
        char* slab = addSlab(b);
        if (!slab) fail(QStringLiteral("out of memory with %1 MiB of points held").arg(resident >> 20), error);
        return slab;
    }

    char* addSlab(Bucket& b)
    {
        Memory slab = mapMemory(size_t(slabBytes(b.shift)));
        if (!slab) return nullptr;
        b.slabs.push_back(std::move(slab));
        resident += slabBytes(b.shift);
        b.fill = 0;
        b.cursor = b.slabs.back().get();
        b.limit = b.cursor + slabBytes(b.shift);
        return b.cursor;
    }

    // Deals out n records to the buckets of the given indices.
    bool distribute(const char* records, const quint32* to, size_t n, QString* error)
    {
        for (size_t i = 0; i < n; ++i) {
            const char* rec = records + i * recordBytes;
            Bucket& b = buckets[to[i]];
            char* slot = b.cursor != b.limit ? b.cursor : nextSlot(b, error);
            if (!slot) return false;
            copyRecord(slot, rec, recordBytes);
            b.cursor = slot + recordBytes;
            ++b.fill;
            ++b.points;
            b.box.expandBy(positionOf(rec));
        }
        return true;
    }

    bool distributeByGrid(const char* records, size_t n, QString* error)
    {
        for (size_t first = 0; first < n; first += kBatchPoints) {
            const size_t m = std::min(kBatchPoints, n - first);
            const char* part = records + first * recordBytes;
            cells.resize(m);
            for (size_t i = 0; i < m; ++i) cells[i] = grid.cellOf(positionOf(part + i * recordBytes));
            if (!distribute(part, cells.data(), m, error)) return false;
        }
        return true;
    }

    // Chooses the grid for `expected` points (over the bounds, or over the
    // staged points without them) and deals the staged points into it.
    bool startGrid(quint64 expected, QString* error)
    {
        const size_t staged = staging.size() / recordBytes;
        pcBoundingBoxf box = bounds;
        if (!box.valid())
            for (size_t i = 0; i < staged; ++i) box.expandBy(positionOf(staging.data() + i * recordBytes));
        const quint64 perBucket = kBlocksPerBucket * quint64(opt.targetBlockPoints);
        quint64 wanted = std::max<quint64>(1, (expected + perBucket - 1) / perBucket);
        wanted = std::min<quint64>(wanted, quint64(budget() / 8 / kMinSpillBuffer));
        grid = Grid::over(box, wanted);
        buckets.clear();
        buckets.resize(size_t(grid.cells()));
        // Slabs of a sixteenth of the expected bucket waste little memory in
        // the last, partly filled one.
        const quint64 expectedPerBucket = std::max<quint64>(expected / quint64(grid.cells()), 1);
        memoryShift = std::min(16, std::max(10, floorLog2(expectedPerBucket / 16)));
        const qint64 spillBuffer = std::min(kMaxSpillBuffer, std::max(kMinSpillBuffer, budget() / 8 / grid.cells()));
        spillShift = floorLog2(quint64(std::max<qint64>(spillBuffer / qint64(recordBytes), 1)));
        for (Bucket& b : buckets) b.shift = memoryShift;
        // Records may take the budget less what splitting a bucket of the
        // expected size needs (see splittablePoints): the first buckets are
        // then split at once, not dealt again into smaller ones.
        const qint64 splitReserve = qint64(std::min<quint64>(expectedPerBucket, quint64(1) << 31)) *
                                    splitBytesPerPoint();
        recordsLimit = std::max(budget() - inFlightBytes - splitReserve, budget() / 2);
        gridReady = true;
        if (!distributeByGrid(staging.data(), staged, error)) return false;
        std::vector<char>().swap(staging);
        return true;
    }

    // Interleaves points [first, first + n) of chunk into records.
    void assemble(const stPtCloud_PointArray& chunk, const std::vector<const uint8_t*>& sources,
                  size_t first, size_t n, std::vector<char>& batch)
    {
        batch.resize(n * recordBytes);
        rebased.resize(n);
        if (chunk.quanta.size() == size_t(chunk.count)) {
            const PtCloud_GridMap map(chunk.origin, chunk.quantum, header.origin, header.quantum);
            for (size_t i = 0; i < n; ++i) rebased[i] = map.map(chunk.quanta[first + i]);
        } else {
            const pcVec3f* positions = chunk.positions.data() + first;
            for (size_t i = 0; i < n; ++i)
                rebased[i] = PtCloud_GridMap::quantize(positions[i], chunk.origin, header.origin, header.quantum);
        }
        packColumn<sizeof(pcVec3q)>(reinterpret_cast<const uint8_t*>(rebased.data()), n, batch.data(), recordBytes);
        for (size_t s = 0; s < recordLayout.size(); ++s) {
            const Slot& slot = recordLayout[s];
            const uint8_t* values = zeros.data();
            if (slot.column == DSC_Color && sources[s]) {
                colorScratch.resize(n * 3);
                Format::encodeColors(chunk.colors.data() + first, n, colorScratch.data());
                values = reinterpret_cast<const uint8_t*>(colorScratch.data());
            } else if (sources[s]) {
                values = sources[s] + first * slot.width;
            }
            slot.pack(values, n, batch.data() + slot.offset, recordBytes);
        }
    }

    // A free batch, or -1 when the dealing thread failed.
    int takeBatch()
    {
        std::unique_lock<std::mutex> lock(dealMutex);
        batchFreed.wait(lock, [this] { return !freeBatches.empty() || !dealFailure.isEmpty(); });
        if (!dealFailure.isEmpty()) return -1;
        const int k = freeBatches.front();
        freeBatches.pop_front();
        return k;
    }

    void giveBatch(int k, bool deal)
    {
        {
            std::lock_guard<std::mutex> lock(dealMutex);
            (deal ? fullBatches : freeBatches).push_back(k);
        }
        if (deal) batchFilled.notify_one();
        if (deal && !dealer.joinable()) dealer = std::thread(&Impl::dealBatches, this);
    }

    void dealBatches()
    {
        bool ok = true;
        for (;;) {
            int k = -1;
            {
                std::unique_lock<std::mutex> lock(dealMutex);
                batchFilled.wait(lock, [this] { return !fullBatches.empty() || dealingDone; });
                if (fullBatches.empty()) return;
                k = fullBatches.front();
                fullBatches.pop_front();
            }
            // After a failure the batches are only given back.
            QString why;
            const Batch& b = batches[size_t(k)];
            if (ok) ok = distribute(b.records.data(), b.cells.data(), b.points, &why);
            {
                std::lock_guard<std::mutex> lock(dealMutex);
                if (!ok && dealFailure.isEmpty()) dealFailure = why.isEmpty() ? QStringLiteral("cannot spill points") : why;
                freeBatches.push_back(k);
            }
            batchFreed.notify_one();
        }
    }

    // Waits until every batch is dealt; false with the dealing thread's error.
    bool stopDealing(QString* error = nullptr)
    {
        {
            std::lock_guard<std::mutex> lock(dealMutex);
            dealingDone = true;
        }
        batchFilled.notify_one();
        if (dealer.joinable()) dealer.join();
        return dealFailure.isEmpty() || fail(dealFailure, error);
    }

    // Stages a batch while the grid is not chosen; otherwise finds the cells
    // of its records and hands it to the dealing thread.
    bool place(int k, QString* error)
    {
        Batch& b = batches[size_t(k)];
        if (!gridReady) {
            const size_t bytes = b.points * recordBytes;
            if (staging.size() + bytes <= stagingLimit()) {
                if (staging.empty()) staging.reserve(stagingLimit());
                staging.insert(staging.end(), b.records.begin(), b.records.begin() + std::ptrdiff_t(bytes));
                giveBatch(k, false);
                return true;
            }
            // Without an announced count, assume the stream goes on a while;
            // a bucket that grows too large is split again later.
            const quint64 known = staging.size() / recordBytes + b.points;
            if (!startGrid(std::max<quint64>(header.pointCount, known * 4), error)) {
                giveBatch(k, false);
                return false;
            }
        }
        b.cells.resize(b.points);
        for (size_t i = 0; i < b.points; ++i) b.cells[i] = grid.cellOf(positionOf(b.records.data() + i * recordBytes));
        giveBatch(k, true);
        return true;
    }

    // False once finished or after a failure (which sticks).
    bool accepting(QString* error)
    {
        if (finished) return fail(QStringLiteral("the dataset was already finished"), error);
        {
            std::lock_guard<std::mutex> lock(dealMutex);
            if (failure.isEmpty()) failure = dealFailure;
        }
        return failure.isEmpty() || fail(failure, error);
    }

    // Hands n points to the dealing thread a batch at a time; fill(first, m,
    // records) puts points [first, first + m) into a batch's records.
    template <class Fill> bool feed(size_t n, Fill fill, QString* error)
    {
        for (size_t first = 0; first < n; first += kBatchPoints) {
            const int k = takeBatch();
            if (k < 0) {
                failure = dealFailure;
                return fail(failure, error);
            }
            Batch& b = batches[size_t(k)];
            b.points = std::min(kBatchPoints, n - first);
            fill(first, b.points, b.records);
            if (!place(k, error)) {
                failure = error ? *error : QStringLiteral("cannot spill points");
                return false;
            }
        }
        count += n;
        return true;
    }

    bool addRecords(const char* records, size_t n, QString* error)
    {
        if (!accepting(error)) return false;
        return feed(n, [&](size_t first, size_t m, std::vector<char>& batch) {
            batch.assign(records + first * recordBytes, records + (first + m) * recordBytes);
        }, error);
    }

    bool addPoints(const stPtCloud_PointArray& chunk, QString* error)
    {
        if (!accepting(error)) return false;
        const size_t n = size_t(std::max(chunk.count, 0));
        if (chunk.positions.size() != n)
            return fail(QStringLiteral("points chunk is inconsistent: %1 points, %2 positions")
                            .arg(n)
                            .arg(chunk.positions.size()),
                        error);
        if (!chunk.triangles.empty())
            return fail(QStringLiteral("triangles cannot be partitioned into blocks"), error);

        std::vector<const uint8_t*> sources(recordLayout.size(), nullptr);
        for (size_t s = 0; s < recordLayout.size(); ++s) {
            const EDataSetColumn c = recordLayout[s].column;
            if (c == DSC_Color && chunk.colors.size() == n) {
                sources[s] = reinterpret_cast<const uint8_t*>(chunk.colors.data());
            } else if (c == DSC_Normal && chunk.normals.size() == n) {
                sources[s] = reinterpret_cast<const uint8_t*>(chunk.normals.data());
            } else {
                const auto it = chunk.columns.find(c);
                if (it != chunk.columns.end() && it->second.size() == n * recordLayout[s].width)
                    sources[s] = it->second.data();
            }
        }
        zeros.resize(kBatchPoints * sizeof(pcVec3f), 0);
        return feed(n, [&](size_t first, size_t m, std::vector<char>& batch) {
            assemble(chunk, sources, first, m, batch);
        }, error);
    }

    // --- finish: partitioning thread --------------------------------------

    bool aborted()
    {
        std::lock_guard<std::mutex> lock(mutex);
        return abort;
    }

    // Reads a spilled bucket back into slabs; the caller made sure it fits.
    bool loadBucket(Bucket& b, QString* error)
    {
        if (!flushBuffer(b, error)) return false;
        std::vector<Chunk> chunks;
        chunks.swap(b.chunks);
        b.spilled = false;
        b.shift = memoryShift;
        for (const Chunk& c : chunks) {
            for (quint32 done = 0; done < c.points;) {
                if ((b.slabs.empty() || b.fill == slabPoints(b)) && !addSlab(b))
                    return fail(QStringLiteral("out of memory for %1 points").arg(b.points), error);
                const quint32 n = std::min(c.points - done, slabPoints(b) - b.fill);
                char* slot = b.slabs.back().get() + size_t(b.fill) * recordBytes;
                if (!readChunk(c, done, n, slot, error)) return false;
                b.fill += n;
                b.cursor = slot + size_t(n) * recordBytes;
                done += n;
            }
        }
        return true;
    }

    // Splits an over-large bucket into new ones, by space or, when space does
    // not separate its points, by arrival order. Its slabs are freed as they
    // are dealt out, so memory does not grow.
    bool rebucket(size_t index, quint64 limit, std::deque<size_t>& todo, QString* error)
    {
        Bucket source = std::move(buckets[index]);
        buckets[index] = Bucket();
        const quint64 n = source.points;
        const quint64 parts = std::max<quint64>(2, (n + limit - 1) / limit);
        const bool byOrder = source.inseparable;
        const Grid sub = Grid::over(source.box, parts);
        const size_t first = buckets.size();
        buckets.resize(first + (byOrder ? size_t(parts) : size_t(sub.cells())));
        for (size_t i = first; i < buckets.size(); ++i) buckets[i].shift = memoryShift;
        const quint64 perPart = (n + parts - 1) / parts;
        quint64 ordinal = 0;
        auto deal = [&](const char* records, size_t m) {
            cells.resize(m);
            for (size_t i = 0; i < m; ++i, ++ordinal)
                cells[i] = quint32(first) + (byOrder ? quint32(ordinal / perPart)
                                                     : sub.cellOf(positionOf(records + i * recordBytes)));
            return distribute(records, cells.data(), m, error);
        };
        for (size_t s = 0; s < source.slabs.size(); ++s) {
            const quint32 m = s + 1 == source.slabs.size() ? source.fill : slabPoints(source);
            for (quint32 done = 0; done < m; done += quint32(kBatchPoints))
                if (!deal(source.slabs[s].get() + size_t(done) * recordBytes,
                          std::min<size_t>(kBatchPoints, m - done)))
                    return false;
            source.slabs[s].reset();
            resident -= slabBytes(source.shift);
        }
        std::vector<char> buffer(kBatchPoints * recordBytes);
        for (const Chunk& c : source.chunks)
            for (quint32 done = 0; done < c.points; done += quint32(kBatchPoints)) {
                const quint32 m = std::min(c.points - done, quint32(kBatchPoints));
                if (!readChunk(c, done, m, buffer.data(), error) || !deal(buffer.data(), m)) return false;
            }
        for (size_t i = buckets.size(); i-- > first;) {
            if (buckets[i].points == n) buckets[i].inseparable = true;
            todo.push_front(i);
        }
        return true;
    }

    // Cuts a bucket into blocks and hands them to the writing thread, each
    // block's records one after the other.
    bool splitBucket(const Bucket& b, QString* error)
    {
        const quint32 n = quint32(b.points);
        blockCut.reset(b.box, n, size_t(opt.targetBlockPoints));
        for (quint32 r = 0; r < n; ++r) blockCut.setPoint(r, positionOf(recordAt(b, r)));
        if (aborted()) return fail(QStringLiteral("cancelled"), error);
        blockCut.sort();

        int slot = -1;
        {
            std::unique_lock<std::mutex> lock(mutex);
            outputFreed.wait(lock, [this] { return !spareOutputs.empty() || abort; });
            if (abort) return fail(QStringLiteral("cancelled"), error);
            slot = spareOutputs.front();
            spareOutputs.pop_front();
        }
        Output& out = outputs[size_t(slot)];
        const qint64 bytes = qint64(n) * qint64(recordBytes);
        if (out.capacity < bytes) {
            out.records.reset();
            out.capacity = 0;
            out.records = mapMemory(size_t(bytes));
            if (!out.records) return fail(QStringLiteral("out of memory for %1 points").arg(n), error);
            out.capacity = bytes;
        }
        out.blocks.clear();
        for (const PtCloud_CurveOrder::Range& k : blockCut.blocks())
            out.blocks.push_back({nextBlockId++, k.first, k.count});
        // The records go out in the cut's order, which the writing thread's
        // finer order mostly keeps: its sort then moves them little. They are
        // fetched at random from the whole bucket; asking for them a few
        // ahead keeps several misses under way at once.
        constexpr quint32 kAhead = 16;
        char* to = out.records.get();
        for (quint32 k = 0; k < n; ++k, to += recordBytes) {
            if (k + kAhead < n) {
                const char* later = recordAt(b, quint32(blockCut.pointAt(k + kAhead)));
                __builtin_prefetch(later);
                __builtin_prefetch(later + recordBytes - 1);
            }
            copyRecord(to, recordAt(b, quint32(blockCut.pointAt(k))), recordBytes);
        }
        {
            std::lock_guard<std::mutex> lock(mutex);
            readyOutputs.push_back(slot);
        }
        outputFilled.notify_one();
        return true;
    }

    // Every bucket, each split in memory or, when too large, split again.
    // Those in memory go first, smallest first, so that the largest are
    // split when the others have made room; the spilled ones follow.
    bool partition(QString* error)
    {
        std::vector<size_t> order(buckets.size());
        for (size_t i = 0; i < order.size(); ++i) order[i] = i;
        std::stable_sort(order.begin(), order.end(), [this](size_t u, size_t v) {
            const Bucket& a = buckets[u];
            const Bucket& c = buckets[v];
            return a.spilled != c.spilled ? c.spilled : a.points < c.points;
        });
        std::deque<size_t> todo(order.begin(), order.end());
        while (!todo.empty()) {
            const size_t i = todo.front();
            todo.pop_front();
            if (buckets[i].points == 0) continue;
            if (aborted()) return fail(QStringLiteral("cancelled"), error);
            const bool load = buckets[i].spilled;
            const quint64 limit = splittablePoints(load);
            if (buckets[i].points > limit) {
                if (!rebucket(i, limit, todo, error)) return false;
                continue;
            }
            if ((load && !loadBucket(buckets[i], error)) || !splitBucket(buckets[i], error)) return false;
            freeSlabs(buckets[i]);
            buckets[i].chunks = std::vector<Chunk>();
        }
        return true;
    }

    void partitionThread(QString* error)
    {
        const bool ok = partition(error);
        {
            std::lock_guard<std::mutex> lock(mutex);
            partitioned = true;
            if (ok) error->clear();
        }
        outputFilled.notify_one();
    }

    void stopPartitioning()
    {
        {
            std::lock_guard<std::mutex> lock(mutex);
            abort = true;
        }
        outputFreed.notify_one();
    }

    // --- finish: writing thread -------------------------------------------

    bool stopRequested() { return progress && progress->isStopRequested(); }

    void report()
    {
        if (!progress || count == 0) return;
        const int percent = int(std::min<quint64>(99, pointsDone * 100 / count));
        if (percent != lastPercent) {
            lastPercent = percent;
            progress->setProgress(percent);
        }
    }

    // Writes the blocks as they come, until the partitioning is done or this
    // side fails or is stopped.
    bool writeBlocks(QString* error)
    {
        for (;;) {
            int slot = -1;
            bool done = false;
            {
                std::unique_lock<std::mutex> lock(mutex);
                outputFilled.wait_for(lock, kStopPoll, [this] { return !readyOutputs.empty() || partitioned; });
                if (!readyOutputs.empty()) {
                    slot = readyOutputs.front();
                    readyOutputs.pop_front();
                } else {
                    done = partitioned;
                }
            }
            if (done) return true;
            if (stopRequested()) return fail(QStringLiteral("cancelled"), error);
            if (slot < 0) continue;
            Output& out = outputs[size_t(slot)];
            for (const Block& k : out.blocks) {
                if (stopRequested()) return fail(QStringLiteral("cancelled"), error);
                unpack(out.records.get() + k.first * recordBytes, k.points);
                if (!writer->writeEncodedBlock(k.id, k.points, blockPositions.data(), blockColumnData, error))
                    return false;
                pointsDone += quint64(k.points);
                report();
            }
            {
                std::lock_guard<std::mutex> lock(mutex);
                spareOutputs.push_back(slot);
            }
            outputFreed.notify_one();
        }
    }

    // Puts into keys, low kIndexBits bits, the indices of a block's records
    // in the order they are stored: along a Morton curve through the box
    // they span, so that each run of consecutive points fills a compact cell
    // of the block (every k-th point is an even thinning, and points drawn
    // one after the other are near). Each key holds the curve position above
    // the index, and a radix sort of the position's digits, least significant
    // first, orders them: it is stable, so points in the same cell keep their
    // order (same input, same file).
    void orderBlock(const char* records, size_t n)
    {
        keys.resize(n);
        pcBoundingBoxf box;
        for (size_t i = 0; i < n; ++i) box.expandBy(positionOf(records + i * recordBytes));
        const float cells = float(1 << kCurveAxisBits);
        const pcVec3f e = box.max - box.min;
        auto scale = [cells](float extent) { return extent > 0.f ? cells / extent : 0.f; };
        const float sx = scale(e.x), sy = scale(e.y), sz = scale(e.z);
        auto cell = [cells](float t) { return quint32(std::min(t, cells - 1.f)); };
        for (size_t i = 0; i < n; ++i) {
            const pcVec3f p = positionOf(records + i * recordBytes) - box.min;
            const quint64 curve = kSpread.bits[cell(p.x * sx)] | kSpread.bits[cell(p.y * sy)] << 1 |
                                  kSpread.bits[cell(p.z * sz)] << 2;
            keys[i] = curve << kIndexBits | quint64(i);
        }
        keyScratch.resize(n);
        sortKeysByBits(keys.data(), keyScratch.data(), n, kIndexBits, kCurveBits, kDigitBits, digitCounts);
    }

    // Spreads a block's records, in the order they are stored, into the
    // columns of the block to write.
    void unpack(const char* records, size_t n)
    {
        orderBlock(records, n);
        blockPositions.resize(n);
        gatherColumn<sizeof(pcVec3q)>(records, recordBytes, keys.data(), n,
                                      reinterpret_cast<uint8_t*>(blockPositions.data()));
        for (size_t c = 0; c < recordLayout.size(); ++c) {
            const Slot& s = recordLayout[c];
            blockColumns[c].resize(n * s.width);
            s.gather(records + s.offset, recordBytes, keys.data(), n, blockColumns[c].data());
            blockColumnData[c] = blockColumns[c].data();
        }
    }

    void setUpOutputs()
    {
        blockColumns.resize(recordLayout.size());
        blockColumnData.resize(recordLayout.size());
        outputs.clear();
        outputs.resize(kOutputsInFlight);
        readyOutputs.clear();
        spareOutputs.clear();
        for (int i = 0; i < kOutputsInFlight; ++i) spareOutputs.push_back(i);
        partitioned = false;
        abort = false;
    }

    bool finishBuckets(QString* error)
    {
        // Spill buffers are given back before any bucket is read.
        for (Bucket& b : buckets)
            if (!flushBuffer(b, error)) return false;
        setUpOutputs();
        QString partitionError;
        std::thread partitioner(&Impl::partitionThread, this, &partitionError);
        const bool written = writeBlocks(error);
        if (!written) stopPartitioning();
        partitioner.join();
        if (written && !partitionError.isEmpty()) return fail(partitionError, error);
        return written;
    }

    bool finish(ILongLiveActionProgress* sink, QString* error)
    {
        if (finished) return fail(QStringLiteral("the dataset was already finished"), error);
        if (!stopDealing(error)) return false;
        if (!failure.isEmpty()) return fail(failure, error);
        finished = true;
        progress = sink;
        if (progress) {
            progress->setProgressText(QStringLiteral("Writing blocks"));
            progress->setProgress(0);
        }
        writer.reset(new PtCloud_BlockFileWriter(outPath));
        bool ok = writer->begin(header, error);
        if (ok && !gridReady && count > 0) ok = startGrid(count, error);
        if (ok && count > 0) ok = finishBuckets(error);
        if (ok && stopRequested()) ok = fail(QStringLiteral("cancelled"), error);
        ok = ok && writer->commit(error);
        writer.reset();
        removeSpill();
        std::vector<char>().swap(staging);
        blockCut.release();
        outputs.clear();
        std::vector<quint64>().swap(keys);
        std::vector<quint64>().swap(keyScratch);
        std::vector<quint32>().swap(digitCounts);
        std::vector<pcVec3q>().swap(blockPositions);
        blockColumns.clear();
        if (ok && progress) progress->setProgress(100);
        return ok;
    }
};

PtCloud_DataSetBuilder::PtCloud_DataSetBuilder(const QString& outPath,
                                               const stPtCloud_DataSetHeader& header,
                                               const pcBoundingBoxf& bounds, const Options& options)
    : d(new Impl(outPath, header, bounds, options))
{
}

PtCloud_DataSetBuilder::PtCloud_DataSetBuilder(const QString& outPath,
                                               const stPtCloud_DataSetHeader& header,
                                               const pcBoundingBoxf& bounds)
    : PtCloud_DataSetBuilder(outPath, header, bounds, Options())
{
}

PtCloud_DataSetBuilder::~PtCloud_DataSetBuilder() = default;

bool PtCloud_DataSetBuilder::addPoints(const stPtCloud_PointArray& chunk, QString* error)
{
    return d->addPoints(chunk, error);
}

const stPtCloud_RecordLayout& PtCloud_DataSetBuilder::recordLayout() const
{
    return d->layout;
}

const stPtCloud_DataSetHeader& PtCloud_DataSetBuilder::header() const
{
    return d->header;
}

bool PtCloud_DataSetBuilder::addRecords(const char* records, size_t n, QString* error)
{
    return d->addRecords(records, n, error);
}

bool PtCloud_DataSetBuilder::finish(ILongLiveActionProgress* progress, QString* error)
{
    return d->finish(progress, error);
}

quint64 PtCloud_DataSetBuilder::pointCount() const
{
    return d->count;
}

}  // namespace ptCloud
