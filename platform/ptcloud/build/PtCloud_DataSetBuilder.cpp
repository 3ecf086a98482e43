#include "PtCloud_DataSetBuilder.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <algorithm>
#include <cmath>
#include <cstring>

#include "ILongLiveActionProgress.h"
#include "PtCloud_BlockFileFormat.h"
#include "PtCloud_BlockFileWriter.h"

namespace ptCloud {

namespace {

using Format = PtCloud_BlockFileFormat;

// A bucket should hold a handful of blocks: large enough that its k-d split
// makes well-shaped blocks, small enough to load at once.
constexpr quint64 kBlocksPerBucket = 6;
constexpr qint64 kMinBudget = 1ll << 20;
constexpr qint64 kMinBucketBuffer = 16 << 10;
constexpr qint64 kMaxBucketBuffer = 1 << 20;
constexpr int kMaxGridCells = 1 << 20;

quint64 splitMix(quint64& state)
{
    quint64 z = (state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

float axisOf(const pcVec3f& p, int axis)
{
    return axis == 0 ? p.x : (axis == 1 ? p.y : p.z);
}

}  // namespace

struct PtCloud_DataSetBuilder::Impl {
    // Where one column sits in a spilled point record.
    struct Slot {
        EDataSetColumn column;
        int offset;
        int width;
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

        int cellOf(const pcVec3f& p) const
        {
            auto index = [this](float v, float lo, int a) {
                const float t = (v - lo) * inv[a];
                return t > 0.f ? (t < float(dims[a]) ? int(t) : dims[a] - 1) : 0;
            };
            return (index(p.z, min.z, 2) * dims[1] + index(p.y, min.y, 1)) * dims[0] +
                   index(p.x, min.x, 0);
        }
    };

    struct Chunk {
        quint64 offset;
        quint32 points;
    };

    struct Bucket {
        std::vector<char> buffer;  // records not yet spilled
        std::vector<Chunk> chunks;
        quint64 points = 0;
        pcBoundingBoxf box;
        bool inseparable = false;  // space does not split it: split by arrival order
    };

    struct Item {
        pcVec3f p;
        quint32 record;
    };

    QString outPath;
    stPtCloud_DataSetHeader header;
    pcBoundingBoxf bounds;
    Options opt;
    std::vector<Slot> recordLayout;
    int recordBytes = 0;
    quint64 count = 0;
    bool finished = false;
    QString failure;  // sticky: after a failed addPoints nothing more is accepted

    std::vector<char> staging;  // records before the grid is chosen
    bool gridReady = false;
    Grid grid;
    std::vector<Bucket> buckets;
    qint64 bucketBufferBytes = 0;

    std::unique_ptr<QTemporaryDir> tempDir;
    std::unique_ptr<QFile> spill;
    quint64 spillSize = 0;

    std::vector<quint16> colorScratch;

    ILongLiveActionProgress* progress = nullptr;
    quint64 pointsDone = 0;
    int lastPercent = -1;
    int nextBlockId = 0;
    std::unique_ptr<PtCloud_BlockFileWriter> writer;
    stPtCloud_PointArray block;
    std::vector<Item> items;

    Impl(const QString& path, const stPtCloud_DataSetHeader& h, const pcBoundingBoxf& b,
         const Options& o)
        : outPath(path), header(h), bounds(b), opt(o)
    {
        opt.targetBlockPoints = std::max(opt.targetBlockPoints, 1);
        opt.memoryBudgetBytes = std::max(opt.memoryBudgetBytes, kMinBudget);
        header.sort = opt.shuffle ? DSS_Shuffled : DSS_None;
        header.columns.clear();
        recordBytes = columnValueBytes(DSC_Location);
        for (int c = 0; c < DSC_Count; ++c) {
            const EDataSetColumn col = EDataSetColumn(c);
            if (c != DSC_Location && !h.columns.contains(col)) continue;
            header.columns << col;
            if (c == DSC_Location) continue;
            recordLayout.push_back({col, recordBytes, columnValueBytes(col)});
            recordBytes += columnValueBytes(col);
        }
    }

    // Points a bucket may hold to be split in memory: its records, the items
    // sorted by the k-d split, and one block on its way out.
    quint64 maxPointsInMemory() const
    {
        const qint64 blockBytes = qint64(opt.targetBlockPoints) * (recordBytes + 32) * 2;
        const qint64 avail = std::max<qint64>(opt.memoryBudgetBytes * 3 / 4 - blockBytes,
                                              opt.memoryBudgetBytes / 4);
        return std::max<quint64>(quint64(avail / (recordBytes + qint64(sizeof(Item)))), 2);
    }

    // Points stay in memory while they could still be split there, so a
    // dataset that fits the budget is never spilled.
    qint64 stagingLimit() const { return qint64(maxPointsInMemory()) * recordBytes; }

    bool fail(const QString& why, QString* error)
    {
        if (error) *error = why;
        return false;
    }

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
    }

    bool flush(Bucket& b, QString* error)
    {
        if (b.buffer.empty()) return true;
        if (!ensureSpill(error)) return false;
        const qint64 n = qint64(b.buffer.size());
        if (!spill->seek(qint64(spillSize)) || spill->write(b.buffer.data(), n) != n)
            return fail(QStringLiteral("cannot write the spill file: %1").arg(spill->errorString()),
                        error);
        b.chunks.push_back({spillSize, quint32(quint64(n) / quint64(recordBytes))});
        spillSize += quint64(n);
        b.buffer.clear();
        return true;
    }

    bool appendTo(Bucket& b, const char* record, QString* error)
    {
        if (b.buffer.capacity() == 0) b.buffer.reserve(size_t(bucketBufferBytes));
        if (b.buffer.size() + size_t(recordBytes) > b.buffer.capacity() && !flush(b, error))
            return false;
        b.buffer.insert(b.buffer.end(), record, record + recordBytes);
        pcVec3f p;
        std::memcpy(&p, record, sizeof p);
        b.box.expandBy(p);
        ++b.points;
        return true;
    }

    void setBucketBuffers(size_t bucketCount)
    {
        const qint64 share = opt.memoryBudgetBytes / 4 / qint64(std::max<size_t>(bucketCount, 1));
        bucketBufferBytes = std::max<qint64>(std::min(share, kMaxBucketBuffer), recordBytes);
        bucketBufferBytes -= bucketBufferBytes % recordBytes;
    }

    // Chooses the grid from the points staged so far and moves them into it.
    bool startGrid(QString* error)
    {
        const quint64 staged = staging.size() / size_t(recordBytes);
        pcBoundingBoxf box = bounds;
        if (!box.valid()) {
            for (quint64 i = 0; i < staged; ++i) {
                pcVec3f p;
                std::memcpy(&p, staging.data() + i * quint64(recordBytes), sizeof p);
                box.expandBy(p);
            }
        }
        // Without an announced count, assume the stream goes on a while; a
        // bucket that grows too large is split again on disk.
        const quint64 expected = std::max<quint64>(header.pointCount, staged * 4);
        const quint64 perBucket = kBlocksPerBucket * quint64(opt.targetBlockPoints);
        quint64 cells = (expected + perBucket - 1) / perBucket;
        cells = std::min<quint64>(cells, quint64(opt.memoryBudgetBytes / 4 / kMinBucketBuffer));
        grid = Grid::over(box, cells);
        buckets.assign(size_t(grid.cells()), Bucket());
        setBucketBuffers(buckets.size());
        gridReady = true;
        for (quint64 i = 0; i < staged; ++i) {
            const char* rec = staging.data() + i * quint64(recordBytes);
            pcVec3f p;
            std::memcpy(&p, rec, sizeof p);
            if (!appendTo(buckets[size_t(grid.cellOf(p))], rec, error)) return false;
        }
        staging.clear();
        staging.shrink_to_fit();
        return true;
    }

    bool addPoints(const stPtCloud_PointArray& chunk, QString* error)
    {
        if (finished) return fail(QStringLiteral("the dataset was already finished"), error);
        if (!failure.isEmpty()) return fail(failure, error);
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
                colorScratch.resize(n * 3);
                Format::encodeColors(chunk.colors.data(), n, colorScratch.data());
                sources[s] = reinterpret_cast<const uint8_t*>(colorScratch.data());
            } else if (c == DSC_Normal && chunk.normals.size() == n) {
                sources[s] = reinterpret_cast<const uint8_t*>(chunk.normals.data());
            } else {
                const auto it = chunk.columns.find(c);
                if (it != chunk.columns.end() && it->second.size() == n * size_t(recordLayout[s].width))
                    sources[s] = it->second.data();
            }
        }
        const double dx = chunk.origin.x - header.origin.x;
        const double dy = chunk.origin.y - header.origin.y;
        const double dz = chunk.origin.z - header.origin.z;
        const bool rebase = chunk.origin != header.origin;

        std::vector<char> record(static_cast<size_t>(recordBytes));
        for (size_t i = 0; i < n; ++i) {
            pcVec3f p = chunk.positions[i];
            if (rebase) p = pcVec3f(float(dx + p.x), float(dy + p.y), float(dz + p.z));
            char* rec = record.data();
            std::memcpy(rec, &p, sizeof p);
            for (size_t s = 0; s < recordLayout.size(); ++s) {
                const Slot& slot = recordLayout[s];
                if (sources[s])
                    std::memcpy(rec + slot.offset, sources[s] + i * size_t(slot.width), size_t(slot.width));
                else
                    std::memset(rec + slot.offset, 0, size_t(slot.width));
            }
            if (!place(rec, p, error)) {
                failure = error ? *error : QStringLiteral("cannot spill points");
                return false;
            }
        }
        count += n;
        return true;
    }

    bool place(const char* rec, const pcVec3f& p, QString* error)
    {
        if (!gridReady) {
            if (qint64(staging.size() + size_t(recordBytes)) <= stagingLimit()) {
                staging.insert(staging.end(), rec, rec + recordBytes);
                return true;
            }
            if (!startGrid(error)) return false;
        }
        return appendTo(buckets[size_t(grid.cellOf(p))], rec, error);
    }

    // --- finish -----------------------------------------------------------

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

    bool readChunk(const Chunk& c, char* into, QString* error)
    {
        const qint64 n = qint64(c.points) * recordBytes;
        if (!spill->seek(qint64(c.offset)) || spill->read(into, n) != n)
            return fail(QStringLiteral("cannot read the spill file: %1").arg(spill->errorString()),
                        error);
        return true;
    }

    bool loadBucket(const Bucket& b, std::vector<char>& records, QString* error)
    {
        records.resize(size_t(b.points) * size_t(recordBytes));
        size_t at = 0;
        for (const Chunk& c : b.chunks) {
            if (!readChunk(c, records.data() + at, error)) return false;
            at += size_t(c.points) * size_t(recordBytes);
        }
        return true;
    }

    // Re-buckets an over-large bucket on disk, by space or, when space does
    // not separate its points, by arrival order.
    bool rebucket(size_t index, QString* error)
    {
        const quint64 n = buckets[index].points;
        const quint64 limit = maxPointsInMemory() / 2;
        const quint64 parts = std::max<quint64>(2, (n + limit - 1) / limit);
        const bool byOrder = buckets[index].inseparable;
        const Grid sub = Grid::over(buckets[index].box, parts);
        const size_t cells = byOrder ? size_t(parts) : size_t(sub.cells());
        const std::vector<Chunk> chunks = std::move(buckets[index].chunks);
        buckets[index] = Bucket();
        const size_t first = buckets.size();
        buckets.resize(first + cells);
        setBucketBuffers(cells);
        const quint64 perPart = (n + parts - 1) / parts;

        std::vector<char> buffer;
        quint64 ordinal = 0;
        for (const Chunk& c : chunks) {
            buffer.resize(size_t(c.points) * size_t(recordBytes));
            if (!readChunk(c, buffer.data(), error)) return false;
            for (quint32 i = 0; i < c.points; ++i, ++ordinal) {
                const char* rec = buffer.data() + size_t(i) * size_t(recordBytes);
                pcVec3f p;
                std::memcpy(&p, rec, sizeof p);
                const size_t cell = byOrder ? size_t(ordinal / perPart) : size_t(sub.cellOf(p));
                if (!appendTo(buckets[first + cell], rec, error)) return false;
            }
        }
        for (size_t i = first; i < buckets.size(); ++i) {
            if (!flush(buckets[i], error)) return false;
            buckets[i].buffer.shrink_to_fit();
            if (buckets[i].points == n) buckets[i].inseparable = true;
        }
        return true;
    }

    bool writeLeaf(const char* records, Item* begin, Item* end, QString* error)
    {
        const size_t n = size_t(end - begin);
        const int id = nextBlockId++;
        if (opt.shuffle) {
            // Fisher-Yates with a seed of the block's own: same input, same file.
            quint64 state = opt.seed ^ (quint64(id) * 0xD1B54A32D192ED03ull);
            for (size_t i = n; i > 1; --i) {
                const size_t j = size_t((unsigned __int128)splitMix(state) * i >> 64);
                std::swap(begin[i - 1], begin[j]);
            }
        }
        block.resize(int(n));
        for (size_t i = 0; i < n; ++i) block.positions[i] = begin[i].p;
        for (const Slot& slot : recordLayout) {
            const size_t w = size_t(slot.width);
            const char* from = records + slot.offset;
            if (slot.column == DSC_Color) {
                colorScratch.resize(n * 3);
                for (size_t i = 0; i < n; ++i)
                    std::memcpy(&colorScratch[3 * i], from + size_t(begin[i].record) * size_t(recordBytes), w);
                Format::decodeColors(colorScratch.data(), n, block.colors.data());
                continue;
            }
            uint8_t* to = slot.column == DSC_Normal ? reinterpret_cast<uint8_t*>(block.normals.data())
                                                    : block.columnData<uint8_t>(slot.column);
            for (size_t i = 0; i < n; ++i)
                std::memcpy(to + i * w, from + size_t(begin[i].record) * size_t(recordBytes), w);
        }
        if (!writer->writeBlock(id, block, error)) return false;
        pointsDone += n;
        report();
        return true;
    }

    // k-d split along the longest axis of each part; the cut falls where
    // both sides get whole multiples of the target, so blocks come out full.
    bool split(const char* records, Item* begin, Item* end, QString* error)
    {
        const size_t n = size_t(end - begin);
        const size_t target = size_t(opt.targetBlockPoints);
        if (n <= target) return writeLeaf(records, begin, end, error);
        if (stopRequested()) return fail(QStringLiteral("cancelled"), error);
        pcBoundingBoxf box;
        for (Item* it = begin; it != end; ++it) box.expandBy(it->p);
        const pcVec3f e = box.max - box.min;
        const int axis = (e.x >= e.y && e.x >= e.z) ? 0 : (e.y >= e.z ? 1 : 2);
        const size_t parts = (n + target - 1) / target;
        Item* mid = begin + n * (parts / 2) / parts;
        std::nth_element(begin, mid, end, [axis](const Item& a, const Item& b) {
            return axisOf(a.p, axis) < axisOf(b.p, axis);
        });
        return split(records, begin, mid, error) && split(records, mid, end, error);
    }

    bool splitRecords(const char* records, quint64 n, QString* error)
    {
        items.resize(size_t(n));
        for (quint64 i = 0; i < n; ++i) {
            std::memcpy(&items[size_t(i)].p, records + i * quint64(recordBytes), sizeof(pcVec3f));
            items[size_t(i)].record = quint32(i);
        }
        return split(records, items.data(), items.data() + n, error);
    }

    bool finishBuckets(QString* error)
    {
        for (Bucket& b : buckets)
            if (!flush(b, error)) return false;
        for (Bucket& b : buckets) std::vector<char>().swap(b.buffer);
        std::vector<char> records;
        for (size_t i = 0; i < buckets.size(); ++i) {
            if (buckets[i].points == 0) continue;
            if (stopRequested()) return fail(QStringLiteral("cancelled"), error);
            if (buckets[i].points > maxPointsInMemory()) {
                if (!rebucket(i, error)) return false;
                continue;
            }
            if (!loadBucket(buckets[i], records, error) ||
                !splitRecords(records.data(), buckets[i].points, error))
                return false;
            buckets[i].chunks = std::vector<Chunk>();
        }
        return true;
    }

    bool finish(ILongLiveActionProgress* sink, QString* error)
    {
        if (finished) return fail(QStringLiteral("the dataset was already finished"), error);
        if (!failure.isEmpty()) return fail(failure, error);
        finished = true;
        progress = sink;
        if (progress) {
            progress->setProgressText(QStringLiteral("Writing blocks"));
            progress->setProgress(0);
        }
        writer.reset(new PtCloud_BlockFileWriter(outPath));
        block = stPtCloud_PointArray();
        block.origin = header.origin;
        block.coloringMode = header.coloringMode;
        for (EDataSetColumn c : header.columns) block.addColumn(c);

        bool ok = writer->begin(header, error);
        if (ok && !gridReady)
            ok = splitRecords(staging.data(), staging.size() / size_t(recordBytes), error);
        else if (ok)
            ok = finishBuckets(error);
        if (ok && stopRequested()) ok = fail(QStringLiteral("cancelled"), error);
        ok = ok && writer->commit(error);
        writer.reset();
        removeSpill();
        std::vector<char>().swap(staging);
        std::vector<Item>().swap(items);
        block = stPtCloud_PointArray();
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

bool PtCloud_DataSetBuilder::finish(ILongLiveActionProgress* progress, QString* error)
{
    return d->finish(progress, error);
}

quint64 PtCloud_DataSetBuilder::pointCount() const
{
    return d->count;
}

}  // namespace ptCloud
