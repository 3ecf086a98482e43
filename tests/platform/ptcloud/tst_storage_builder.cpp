// The out-of-core dataset builder on generated terrain whose every point can
// be recomputed from its id (kept in GpsTime): nothing lost or duplicated,
// positions kept, blocks within the target and their boxes, stride thinning
// spread over each block at least as evenly as a random subset, the same
// result under a tiny memory budget, buckets partly spilled or too large to
// split at once, and a stop request or an unusable temporary folder that
// leaves nothing behind.

#include <QtTest>
#include <cmath>
#include <cstring>

#include "PtCloud_BlockFileFormat.h"
#include "PtCloud_DataSetBuilder.h"
#include "PtCloud_DataSetFile.h"
#include "PtCloud_GridMap.h"
#include "PtCloud_SimpleProgress.h"

using namespace ptCloud;

namespace {

const pcVec3d kOrigin(700000.0, 5300000.0, 200.0);

quint64 mix(quint64 z)
{
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

double unit(quint64 id, quint64 salt)
{
    return double(mix(id * 4 + salt) >> 11) / double(1ull << 53);
}

enum class Layout {
    Terrain,    // rolling terrain, 1000 m x 600 m, relative to kOrigin
    Identical,  // every point at one place
    Clustered,  // three points in four in a 4 m cube on the terrain, the rest on it
};

pcVec3d pointAt(quint64 id, Layout layout)
{
    if (layout == Layout::Identical) return pcVec3d(12.5, 40.25, 3.0);
    if (layout == Layout::Clustered && id % 4 != 0)
        return pcVec3d(610.0 + 4.0 * unit(id, 1), 220.0 + 4.0 * unit(id, 2), 4.0 * unit(id, 3));
    const double x = 1000.0 * unit(id, 1), y = 600.0 * unit(id, 2);
    return pcVec3d(x, y, 10.0 * std::sin(x / 50.0) + 5.0 * std::cos(y / 30.0) + unit(id, 3));
}

struct Scene {
    quint64 points = 0;
    Layout layout = Layout::Terrain;
};

// The chunk as records of the builder's layout, positions moved to the
// dataset's origin and grid.
std::vector<char> recordsOf(const stPtCloud_PointArray& chunk, const stPtCloud_RecordLayout& layout,
                            const pcVec3d& quantum)
{
    std::vector<char> records(size_t(chunk.count) * layout.bytes, 0);
    for (int i = 0; i < chunk.count; ++i) {
        char* rec = records.data() + size_t(i) * layout.bytes;
        const pcVec3q q = PtCloud_GridMap::quantize(chunk.positions[size_t(i)], chunk.origin, kOrigin, quantum);
        std::memcpy(rec, &q, sizeof q);
        for (const stPtCloud_RecordLayout::Field& f : layout.fields) {
            if (f.column == DSC_Color) {
                quint16 rgb[3];
                PtCloud_BlockFileFormat::encodeColors(&chunk.colors[size_t(i)], 1, rgb);
                std::memcpy(rec + f.offset, rgb, sizeof rgb);
            } else {
                std::memcpy(rec + f.offset, chunk.columns.at(f.column).data() + size_t(i) * f.width, f.width);
            }
        }
    }
    return records;
}

// Feeds the points in chunks whose own origin differs from the dataset's, as
// points or as records.
bool feed(PtCloud_DataSetBuilder& builder, const Scene& scene, QString* error, bool asRecords = false)
{
    const pcVec3d chunkOrigin(kOrigin.x + 100.0, kOrigin.y - 50.0, kOrigin.z);
    const quint64 chunkSize = 7919;
    for (quint64 first = 0; first < scene.points; first += chunkSize) {
        stPtCloud_PointArray chunk;
        chunk.origin = chunkOrigin;
        for (EDataSetColumn c : {DSC_Color, DSC_Intensity, DSC_GpsTime, DSC_UserData}) chunk.addColumn(c);
        const int n = int(std::min(chunkSize, scene.points - first));
        chunk.resize(n);
        for (int i = 0; i < n; ++i) {
            const quint64 id = first + quint64(i);
            const pcVec3d p = pointAt(id, scene.layout);
            chunk.positions[i] = pcVec3f(float(p.x - 100.0), float(p.y + 50.0), float(p.z));
            chunk.colors[i] = pcVec4f(float(id % 65536) / 65535.f, 0.f, 1.f, 1.f);
            chunk.columnData<quint16>(DSC_Intensity)[i] = quint16(id % 65521);
            chunk.columnData<double>(DSC_GpsTime)[i] = double(id);
        }
        if (asRecords) {
            const std::vector<char> records = recordsOf(chunk, builder.recordLayout(), builder.header().quantum);
            if (!builder.addRecords(records.data(), size_t(n), error)) return false;
        } else if (!builder.addPoints(chunk, error)) {
            return false;
        }
    }
    return true;
}

stPtCloud_DataSetHeader builderHeader(quint64 announced)
{
    stPtCloud_DataSetHeader h;
    h.type = DST_Points;
    h.coloringMode = CM_RGB;
    h.origin = kOrigin;
    // UserData is offered by the chunks but not asked for.
    h.columns = {DSC_Location, DSC_Color, DSC_Intensity, DSC_GpsTime};
    h.pointCount = announced;
    return h;
}

struct PointRecord {
    quint64 id;
    float x, y, z;
    bool operator<(const PointRecord& o) const { return id < o.id; }
    bool operator==(const PointRecord& o) const { return id == o.id && x == o.x && y == o.y && z == o.z; }
};

// How evenly keeping every k-th point thins a block, on a grid of 2^level
// cells an axis over the block's box.
struct Coverage {
    int kept = 0;            // occupied cells that keep a point
    double randomMean = 0;   // occupied cells a random subset of as many points keeps, on average
    double randomVar = 0;    // and an upper bound of its variance
    int denseMissed = 0;     // cells of at least 2k points that keep none
};

// A random subset of m of the n points (without replacement) misses a cell of
// c points with probability C(n - c, m) / C(n, m). The misses of different
// cells are negatively correlated (one cell missed leaves more of the subset
// for the others), so the variance of the kept count is at most the sum of
// the cells' own variances.
Coverage coverage(const stPtCloud_PointArray& a, const pcBoundingBoxf& box, int stride, int level)
{
    const int side = 1 << level;
    const pcVec3f e = box.max - box.min;
    auto index = [side](float v, float lo, float extent) {
        return extent > 0.f ? std::min(side - 1, int((v - lo) / extent * float(side))) : 0;
    };
    std::vector<int> all(size_t(side * side * side), 0), kept(all.size(), 0);
    for (int i = 0; i < a.count; ++i) {
        const pcVec3f& p = a.positions[i];
        const size_t c = size_t((index(p.z, box.min.z, e.z) * side + index(p.y, box.min.y, e.y)) * side +
                                index(p.x, box.min.x, e.x));
        ++all[c];
        if (i % stride == 0) ++kept[c];
    }
    const double n = a.count, m = (a.count + stride - 1) / stride;
    Coverage r;
    for (size_t c = 0; c < all.size(); ++c) {
        if (all[c] == 0) continue;
        r.kept += kept[c] > 0;
        if (all[c] >= 2 * stride && kept[c] == 0) ++r.denseMissed;
        const double rest = n - all[c];
        const double miss = rest < m ? 0.0
                                     : std::exp(std::lgamma(rest + 1) - std::lgamma(rest - m + 1) -
                                                std::lgamma(n + 1) + std::lgamma(n - m + 1));
        r.randomMean += 1.0 - miss;
        r.randomVar += miss * (1.0 - miss);
    }
    return r;
}

// Checks every invariant of a built file and returns its points by id.
bool verifyFile(const QString& path, const Scene& scene, int target, std::vector<PointRecord>* out,
                QString* why)
{
    auto fail = [why](const QString& s) {
        *why = s;
        return false;
    };
    PtCloud_DataSetFile file(path);
    if (!file.openFile()) return fail(file.lastError());
    const stPtCloud_DataSetHeader& h = file.getHeader();
    if (h.pointCount != scene.points) return fail(QStringLiteral("header count %1").arg(h.pointCount));
    if (h.sort != DSS_Morton || h.origin != kOrigin) return fail(QStringLiteral("sort or origin"));
    if (h.columns != QList<EDataSetColumn>({DSC_Location, DSC_Color, DSC_Intensity, DSC_GpsTime}))
        return fail(QStringLiteral("columns"));
    QMap<int, std::tuple<unsigned int, pcBoundingBoxf>> blocks;
    file.getBlocks(blocks);
    std::vector<char> seen(size_t(scene.points), 0);
    out->clear();
    double blockAreas = 0;
    for (auto it = blocks.cbegin(); it != blocks.cend(); ++it) {
        const pcBoundingBoxf box = std::get<1>(it.value());
        const stPtCloud_PointArray* a = file.readBlock(it.key());
        if (!a) return fail(file.lastError());
        if (a->count > target || a->count != int(std::get<0>(it.value())))
            return fail(QStringLiteral("block %1 has %2 points").arg(it.key()).arg(a->count));
        for (int i = 0; i < a->count; ++i) {
            const pcVec3f& p = a->positions[i];
            if (!box.contains(p)) return fail(QStringLiteral("point outside block %1").arg(it.key()));
            const double gps = a->columnData<double>(DSC_GpsTime)[i];
            const quint64 id = quint64(gps);
            if (gps < 0 || id >= scene.points || seen[id]++) return fail(QStringLiteral("id %1 twice or unknown").arg(gps));
            const pcVec3d want = pointAt(id, scene.layout);
            // Float precision relative to the origin: about 1e-4 m at 1 km.
            if (std::fabs(double(p.x) - want.x) > 1e-3 || std::fabs(double(p.y) - want.y) > 1e-3 ||
                std::fabs(double(p.z) - want.z) > 1e-3)
                return fail(QStringLiteral("point %1 moved").arg(id));
            if (a->columnData<quint16>(DSC_Intensity)[i] != quint16(id % 65521) ||
                std::lround(a->colors[i].x * 65535.f) != long(id % 65536))
                return fail(QStringLiteral("columns of point %1 do not follow it").arg(id));
            out->push_back({id, p.x, p.y, p.z});
        }
        blockAreas += double(box.max.x - box.min.x) * double(box.max.y - box.min.y);
        if (scene.layout == Layout::Identical || a->count <= 1000) continue;
        // Thinning by 3 and 10 as the loader does keeps the extent of a block
        // of evenly spread points and, at every scale, at least as many of
        // its occupied cells as a random subset would (three standard
        // deviations of slack). Along the curve each cell is one run of
        // consecutive points, so none of 2k points or more is left empty (k
        // would do; 2k leaves room for points a rounding puts on the other
        // side of a cell's border).
        for (int stride : {3, 10}) {
            pcBoundingBoxf thin;
            for (int i = 0; i < a->count; i += stride) thin.expandBy(a->positions[i]);
            const pcVec3f full = box.max - box.min, kept = thin.max - thin.min;
            if (scene.layout == Layout::Terrain &&
                (kept.x < 0.8f * full.x || kept.y < 0.8f * full.y || kept.z < 0.7f * full.z))
                return fail(QStringLiteral("stride %1 shrinks block %2").arg(stride).arg(it.key()));
            for (int level = 1; level <= 4; ++level) {
                const Coverage c = coverage(*a, box, stride, level);
                if (c.kept < c.randomMean - 3.0 * std::sqrt(c.randomVar) || c.denseMissed > 0)
                    return fail(QStringLiteral("stride %1 leaves holes in block %2 at level %3: %4 cells kept, "
                                               "%5 by a random subset, %6 dense cells missed")
                                    .arg(stride)
                                    .arg(it.key())
                                    .arg(level)
                                    .arg(c.kept)
                                    .arg(c.randomMean)
                                    .arg(c.denseMissed));
            }
        }
    }
    // Blocks are cells of a spatial partition: their boxes do not overlap, so
    // their areas add up to no more than the whole box's.
    const pcVec3f extent = h.bounds.max - h.bounds.min;
    if (scene.layout != Layout::Identical && blockAreas > 1.001 * double(extent.x) * double(extent.y))
        return fail(QStringLiteral("block boxes overlap"));
    std::sort(out->begin(), out->end());
    return true;
}

struct Run {
    qint64 budget;
    bool announce;
    int bounds;  // 0 given, 1 a quarter of the data, 2 none
};

bool build(const QString& path, const Scene& scene, int target, const Run& run,
           ILongLiveActionProgress* progress, QString* error, const QString& tempDir = QString(),
           bool asRecords = false)
{
    pcBoundingBoxf bounds;
    if (run.bounds == 0) bounds = pcBoundingBoxf(0.f, 0.f, -20.f, 1000.f, 600.f, 20.f);
    if (run.bounds == 1) bounds = pcBoundingBoxf(0.f, 0.f, -20.f, 500.f, 300.f, 20.f);
    PtCloud_DataSetBuilder::Options options;
    options.targetBlockPoints = target;
    options.memoryBudgetBytes = run.budget;
    options.tempDir = tempDir;
    PtCloud_DataSetBuilder builder(path, builderHeader(run.announce ? scene.points : 0), bounds, options);
    return feed(builder, scene, error, asRecords) && builder.finish(progress, error);
}

QStringList entriesOf(const QString& dir)
{
    return QDir(dir).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
}

qint64 bytesUnder(const QString& dir)
{
    qint64 total = 0;
    QDirIterator it(dir, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        total += it.fileInfo().size();
    }
    return total;
}

}  // namespace

Q_DECLARE_METATYPE(Run)
Q_DECLARE_METATYPE(Layout)

class TestStorageBuilder : public QObject {
    Q_OBJECT
private slots:
    void init();
    void invariants_data();
    void invariants();
    void spillingAndSplitting_data();
    void spillingAndSplitting();
    void sameResultWhateverTheBudget();
    void sameInputSameFile();
    void stopLeavesNothing_data();
    void stopLeavesNothing();
    void unusableTempFolder_data();
    void unusableTempFolder();
    void refusals();

private:
    std::unique_ptr<QTemporaryDir> m_dir;
};

void TestStorageBuilder::init()
{
    m_dir.reset(new QTemporaryDir);
    QVERIFY(m_dir->isValid());
}

void TestStorageBuilder::invariants_data()
{
    QTest::addColumn<quint64>("points");
    QTest::addColumn<Layout>("layout");
    QTest::addColumn<int>("target");
    QTest::addColumn<Run>("run");

    const qint64 large = 256ll << 20, tiny = 1ll << 20;
    QTest::newRow("in memory") << quint64(60000) << Layout::Terrain << 5000 << Run{large, true, 0};
    QTest::newRow("spilled, count announced") << quint64(200000) << Layout::Terrain << 5000 << Run{tiny, true, 0};
    QTest::newRow("spilled, count unknown") << quint64(200000) << Layout::Terrain << 5000 << Run{tiny, false, 0};
    QTest::newRow("spilled, bounds too small") << quint64(200000) << Layout::Terrain << 5000 << Run{tiny, true, 1};
    QTest::newRow("spilled, no bounds") << quint64(200000) << Layout::Terrain << 5000 << Run{tiny, false, 2};
    QTest::newRow("one block") << quint64(999) << Layout::Terrain << 5000 << Run{large, true, 0};
    QTest::newRow("no points") << quint64(0) << Layout::Terrain << 5000 << Run{large, true, 0};
    QTest::newRow("all at one place, spilled") << quint64(100000) << Layout::Identical << 3000 << Run{tiny, true, 0};
}

void TestStorageBuilder::invariants()
{
    QFETCH(quint64, points);
    QFETCH(Layout, layout);
    QFETCH(int, target);
    QFETCH(Run, run);
    const QString path = m_dir->filePath(QStringLiteral("out.blk"));
    QList<int> reported;
    PtCloud_SimpleProgress progress([&reported](int value, const QString&) { reported << value; });
    QString error;
    QVERIFY2(build(path, Scene{points, layout}, target, run, &progress, &error), qPrintable(error));

    std::vector<PointRecord> got;
    QString why;
    QVERIFY2(verifyFile(path, Scene{points, layout}, target, &got, &why), qPrintable(why));
    QCOMPARE(quint64(got.size()), points);
    QVERIFY(!reported.isEmpty());
    QVERIFY(std::is_sorted(reported.begin(), reported.end()));
    QCOMPARE(reported.last(), 100);
    // The spill folder is gone once the file is written.
    QCOMPARE(entriesOf(m_dir->path()), QStringList{QStringLiteral("out.blk")});
}

void TestStorageBuilder::spillingAndSplitting_data()
{
    QTest::addColumn<Layout>("layout");
    QTest::addColumn<qint64>("budget");
    QTest::addColumn<bool>("spills");
    // 200 000 points of 40 bytes: 8 MB of records, in buckets of about
    // 30 000 points. With 6 MiB some buckets must go to disk while the
    // others stay; with 14 MiB every record fits, but the cluster's bucket
    // (150 000 points and more) cannot be split beside them at once.
    QTest::newRow("some buckets spilled, others in memory") << Layout::Terrain << (6ll << 20) << true;
    QTest::newRow("one bucket in memory too large to split") << Layout::Clustered << (14ll << 20) << false;
}

void TestStorageBuilder::spillingAndSplitting()
{
    QFETCH(Layout, layout);
    QFETCH(qint64, budget);
    QFETCH(bool, spills);
    const Scene scene{200000, layout};
    const QString path = m_dir->filePath(QStringLiteral("out.blk"));
    const QString spillDir = m_dir->filePath(QStringLiteral("spill"));
    QVERIFY(QDir().mkpath(spillDir));
    // Spilled buckets are read back last, so the spill is whole while blocks are written.
    qint64 spilled = 0;
    PtCloud_SimpleProgress progress(
        [&spilled, &spillDir](int, const QString&) { spilled = std::max(spilled, bytesUnder(spillDir)); });
    QString error, why;
    QVERIFY2(build(path, scene, 5000, Run{budget, true, 0}, &progress, &error, spillDir), qPrintable(error));
    std::vector<PointRecord> got;
    QVERIFY2(verifyFile(path, scene, 5000, &got, &why), qPrintable(why));
    QCOMPARE(quint64(got.size()), scene.points);
    if (spills) {
        QVERIFY(spilled > 0);
        QVERIFY2(spilled < QFileInfo(path).size() * 9 / 10,
                 qPrintable(QStringLiteral("%1 bytes spilled: all of it").arg(spilled)));
    } else {
        QCOMPARE(spilled, qint64(0));
    }
    QVERIFY(entriesOf(spillDir).isEmpty());
}

void TestStorageBuilder::sameResultWhateverTheBudget()
{
    const Scene scene{150000, Layout::Terrain};
    std::vector<PointRecord> results[2];
    const qint64 budgets[2] = {1ll << 20, 512ll << 20};
    for (int i = 0; i < 2; ++i) {
        const QString path = m_dir->filePath(QStringLiteral("out%1.blk").arg(i));
        QString error, why;
        QVERIFY2(build(path, scene, 4000, Run{budgets[i], false, 1}, nullptr, &error), qPrintable(error));
        QVERIFY2(verifyFile(path, scene, 4000, &results[i], &why), qPrintable(why));
    }
    QVERIFY(results[0] == results[1]);
}

// The same points give the same file, whether given as points or as records.
void TestStorageBuilder::sameInputSameFile()
{
    const Scene scene{50000, Layout::Terrain};
    QByteArray bytes[3];
    for (int i = 0; i < 3; ++i) {
        const QString path = m_dir->filePath(QStringLiteral("same%1.blk").arg(i));
        QString error;
        QVERIFY2(build(path, scene, 2000, Run{1ll << 20, true, 0}, nullptr, &error, QString(), i == 2),
                 qPrintable(error));
        QFile f(path);
        QVERIFY(f.open(QIODevice::ReadOnly));
        bytes[i] = f.readAll();
    }
    QVERIFY(!bytes[0].isEmpty());
    QVERIFY(bytes[0] == bytes[1]);
    QVERIFY(bytes[0] == bytes[2]);
}

void TestStorageBuilder::stopLeavesNothing_data()
{
    QTest::addColumn<qint64>("budget");
    QTest::addColumn<int>("polls");
    QTest::newRow("in memory, at once") << (256ll << 20) << 0;
    QTest::newRow("in memory, part-way") << (256ll << 20) << 5;
    QTest::newRow("spilled, part-way") << (1ll << 20) << 5;
}

void TestStorageBuilder::stopLeavesNothing()
{
    QFETCH(qint64, budget);
    QFETCH(int, polls);
    const QString path = m_dir->filePath(QStringLiteral("out.blk"));
    PtCloud_SimpleProgress progress;
    progress.stopAfterPolls(polls);
    QString error;
    QVERIFY(!build(path, Scene{100000, Layout::Terrain}, 2000, Run{budget, true, 0}, &progress, &error));
    QCOMPARE(error, QStringLiteral("cancelled"));
    QVERIFY(progress.progress() < 100);
    QVERIFY(entriesOf(m_dir->path()).isEmpty());
}

void TestStorageBuilder::unusableTempFolder_data()
{
    QTest::addColumn<QString>("tempDir");
    QTest::newRow("missing") << QStringLiteral("missing/deeper");
    QTest::newRow("a file in its place") << QStringLiteral("file");
}

// Points that must spill find no temporary folder: a one-line failure, the
// previous file as it was, and nothing else left behind.
void TestStorageBuilder::unusableTempFolder()
{
    QFETCH(QString, tempDir);
    const QString path = m_dir->filePath(QStringLiteral("out.blk"));
    const QByteArray before("a dataset written earlier");
    for (const QString& name : {QStringLiteral("out.blk"), QStringLiteral("file")}) {
        QFile f(m_dir->filePath(name));
        QVERIFY(f.open(QIODevice::WriteOnly));
        QCOMPARE(f.write(before), qint64(before.size()));
    }
    QString error;
    QVERIFY(!build(path, Scene{200000, Layout::Terrain}, 5000, Run{1ll << 20, true, 0}, nullptr, &error,
                   m_dir->filePath(tempDir)));
    QVERIFY2(error.contains(QLatin1String("temporary folder")) && !error.contains(QLatin1Char('\n')),
             qPrintable(error));
    QFile f(path);
    QVERIFY(f.open(QIODevice::ReadOnly));
    QCOMPARE(f.readAll(), before);
    QCOMPARE(entriesOf(m_dir->path()), QStringList({QStringLiteral("file"), QStringLiteral("out.blk")}));
}

void TestStorageBuilder::refusals()
{
    const QString path = m_dir->filePath(QStringLiteral("out.blk"));
    PtCloud_DataSetBuilder builder(path, builderHeader(0), pcBoundingBoxf());
    stPtCloud_PointArray mesh;
    mesh.resize(3);
    mesh.triangles = {0, 1, 2};
    QString error;
    QVERIFY(!builder.addPoints(mesh, &error));
    QVERIFY2(error.contains(QLatin1String("triangles")), qPrintable(error));
    mesh.triangles.clear();
    mesh.positions.pop_back();
    QVERIFY(!builder.addPoints(mesh, &error));
    QVERIFY2(error.contains(QLatin1String("inconsistent")), qPrintable(error));
    mesh.resize(3);
    QVERIFY(builder.addPoints(mesh, &error));
    QCOMPARE(builder.pointCount(), quint64(3));
    QVERIFY(builder.finish(nullptr, &error));
    QVERIFY(!builder.addPoints(mesh, &error));
    QVERIFY(!builder.finish(nullptr, &error));
    PtCloud_DataSetFile file(path);
    QVERIFY(file.openFile());
    QCOMPARE(file.getHeader().pointCount, quint64(3));
}

QTEST_APPLESS_MAIN(TestStorageBuilder)
#include "tst_storage_builder.moc"
