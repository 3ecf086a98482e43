// Block files: every column through the writer and back, refusal of damaged
// files on open, atomic saves that a full disk or a cancel cannot half-do,
// and in-place edits through the in-memory dataset.

#include <QtTest>
#include <cstring>
#include <random>

#include "PtCloud_BlockFileWriter.h"
#include "PtCloud_DataSetFile.h"
#include "PtCloud_DataSetMemory.h"

Q_DECLARE_METATYPE(ptCloud::EDataSetColumn)

using namespace ptCloud;

namespace {

stPtCloud_DataSetHeader makeHeader(EDataSetType type, const QList<EDataSetColumn>& columns)
{
    stPtCloud_DataSetHeader h;
    h.type = type;
    h.sort = DSS_Shuffled;
    h.coloringMode = CM_Classification;
    h.origin = pcVec3d(612345.125, 4123456.75, 87.5);
    h.columns = columns;
    return h;
}

// n points in the cube [at, at + 10)^3 with random values in every column;
// meshes get a fan of triangles over the points.
stPtCloud_PointArray makeBlock(const stPtCloud_DataSetHeader& h, int n, float at, quint32 seed)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> u(0.f, 10.f);
    stPtCloud_PointArray a;
    a.origin = h.origin;
    for (EDataSetColumn c : h.columns) a.addColumn(c);
    a.resize(n);
    // Positions on a grid of 2^-10 m, which files storing quanta keep exactly.
    auto coordinate = [&] { return h.storesQuanta() ? std::round((at + u(rng)) * 1024.f) / 1024.f : at + u(rng); };
    for (int i = 0; i < n; ++i) a.positions[i] = pcVec3f(coordinate(), coordinate(), coordinate());
    // Colours on the 16-bit grid the file keeps; alpha is not stored.
    for (pcVec4f& c : a.colors)
        c = pcVec4f(float(rng() % 65536) / 65535.f, float(rng() % 65536) / 65535.f,
                    float(rng() % 65536) / 65535.f, 1.f);
    for (pcVec3f& v : a.normals) v = pcVec3f(u(rng), u(rng), u(rng));
    for (auto& col : a.columns)
        for (uint8_t& b : col.second) b = uint8_t(rng());
    if (h.type == DST_Mesh)
        for (int i = 1; i + 1 < n; ++i) a.triangles.insert(a.triangles.end(), {0u, unsigned(i), unsigned(i + 1)});
    return a;
}

bool sameBlock(const stPtCloud_PointArray& a, const stPtCloud_PointArray& b, QString* why)
{
    auto differ = [why](const QString& what) {
        *why = what;
        return false;
    };
    if (a.count != b.count) return differ(QStringLiteral("count %1 vs %2").arg(a.count).arg(b.count));
    if (a.origin != b.origin) return differ(QStringLiteral("origin"));
    if (a.positions.size() != b.positions.size() ||
        std::memcmp(a.positions.data(), b.positions.data(), a.positions.size() * sizeof(pcVec3f)))
        return differ(QStringLiteral("positions"));
    if (a.colors.size() != b.colors.size()) return differ(QStringLiteral("colour count"));
    for (size_t i = 0; i < a.colors.size(); ++i)
        if (std::fabs(a.colors[i].x - b.colors[i].x) > 1e-6f || std::fabs(a.colors[i].y - b.colors[i].y) > 1e-6f ||
            std::fabs(a.colors[i].z - b.colors[i].z) > 1e-6f || a.colors[i].w != b.colors[i].w)
            return differ(QStringLiteral("colour %1").arg(i));
    if (a.normals.size() != b.normals.size() ||
        std::memcmp(a.normals.data(), b.normals.data(), a.normals.size() * sizeof(pcVec3f)))
        return differ(QStringLiteral("normals"));
    if (a.triangles != b.triangles) return differ(QStringLiteral("triangles"));
    if (a.columns != b.columns) return differ(QStringLiteral("raw columns"));
    return true;
}

QByteArray readAll(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

bool writeAll(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

// Writes blocks with the given ids, one cube of 10 m each, 500 points apart.
bool writeFile(const QString& path, const stPtCloud_DataSetHeader& h, const QList<int>& ids,
               int points, QString* error)
{
    PtCloud_BlockFileWriter w(path);
    if (!w.begin(h, error)) return false;
    for (int i = 0; i < ids.size(); ++i)
        if (!w.writeBlock(ids[i], makeBlock(h, points, 20.f * i, quint32(ids[i] + 7)), error))
            return false;
    return w.commit(error);
}

QStringList entriesOf(const QString& dir)
{
    return QDir(dir).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
}

enum Damage { Truncate, FlipByte, SetVersion, Append };
enum Abandon { DuplicateId, TrianglePastPoints, ShortPositions, Cancelled, NeverCommitted };

}  // namespace

class TestStorageFile : public QObject {
    Q_OBJECT
private slots:
    void init();
    void roundTrip_data();
    void roundTrip();
    void blockOriginIsRebased();
    void emptyDataset();
    void writerRefuses_data();
    void writerRefuses();
    void damagedFileRefused_data();
    void damagedFileRefused();
    void interruptedSaveKeepsOldFile();
    void cutThroughMemory();
    void cutEverythingLeavesEmptyDataset();

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_path;
};

void TestStorageFile::init()
{
    m_dir.reset(new QTemporaryDir);
    QVERIFY(m_dir->isValid());
    m_path = m_dir->filePath(QStringLiteral("points.blk"));
    PtCloud_BlockFileWriter::setFailAfterBytesForTesting(-1);
}

void TestStorageFile::roundTrip_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QList<EDataSetColumn>>("columns");
    QTest::addColumn<QList<int>>("ids");
    QTest::addColumn<double>("quantum");  // 0: floats

    const QList<int> ids{-3, 0, 7, 1000};
    QTest::newRow("Location only") << int(DST_Points) << QList<EDataSetColumn>{DSC_Location} << ids << 0.0;
    for (int c = 1; c < DSC_Count; ++c) {
        const EDataSetColumn col = EDataSetColumn(c);
        const QString name = c == DSC_Normal ? QStringLiteral("Normal")
                                             : (c == DSC_Label ? QStringLiteral("Label") : columnName(col));
        QTest::newRow(qPrintable(name)) << int(DST_Points) << QList<EDataSetColumn>{DSC_Location, col} << ids << 0.0;
    }
    QList<EDataSetColumn> all;
    for (int c = 0; c < DSC_Count; ++c) all << EDataSetColumn(c);
    QTest::newRow("all, points") << int(DST_Points) << all << ids << 0.0;
    QTest::newRow("all, mesh") << int(DST_Mesh) << all << ids << 0.0;
    // Blocks span 2^14 quanta of 2^-10 m, and 2^34 of 2^-30 m: 64-bit positions.
    QTest::newRow("all, points, in quanta") << int(DST_Points) << all << ids << std::ldexp(1.0, -10);
    QTest::newRow("all, mesh, in quanta") << int(DST_Mesh) << all << ids << std::ldexp(1.0, -10);
    QTest::newRow("Location, wide quanta") << int(DST_Points) << QList<EDataSetColumn>{DSC_Location} << ids
                                           << std::ldexp(1.0, -30);
    QTest::newRow("split, one block") << int(DST_Split) << QList<EDataSetColumn>{DSC_Location, DSC_Label}
                                      << QList<int>{42} << 0.0;
    // Listed out of order: the file keeps value order.
    QTest::newRow("columns unordered") << int(DST_Classify)
                                       << QList<EDataSetColumn>{DSC_GpsTime, DSC_Color, DSC_Location}
                                       << ids << 0.0;
}

void TestStorageFile::roundTrip()
{
    QFETCH(int, type);
    QFETCH(QList<EDataSetColumn>, columns);
    QFETCH(QList<int>, ids);
    QFETCH(double, quantum);

    stPtCloud_DataSetHeader h = makeHeader(EDataSetType(type), columns);
    h.quantum = pcVec3d(quantum, quantum, quantum);
    QString error;
    QVERIFY2(writeFile(m_path, h, ids, 300, &error), qPrintable(error));

    PtCloud_DataSetFile file(m_path);
    QVERIFY(file.isValid());
    QVERIFY(!file.isOpened());
    QVERIFY2(file.openFile(), qPrintable(file.lastError()));
    const stPtCloud_DataSetHeader& got = file.getHeader();
    QCOMPARE(file.getDataSetType(), h.type);
    QCOMPARE(file.getSortType(), h.sort);
    QCOMPARE(got.coloringMode, h.coloringMode);
    QCOMPARE(got.origin, h.origin);
    QCOMPARE(got.quantum, h.quantum);
    QList<EDataSetColumn> sorted = columns;
    std::sort(sorted.begin(), sorted.end());
    QCOMPARE(got.columns, sorted);
    QCOMPARE(got.pointCount, quint64(300 * ids.size()));
    QCOMPARE(got.blockCount, quint32(ids.size()));

    QMap<int, std::tuple<unsigned int, pcBoundingBoxf>> blocks;
    QVERIFY(file.getBlocks(blocks));
    QCOMPARE(blocks.keys(), ids);
    pcBoundingBoxf all;
    for (int i = 0; i < ids.size(); ++i) {
        const stPtCloud_PointArray expected = makeBlock(h, 300, 20.f * i, quint32(ids[i] + 7));
        const stPtCloud_PointArray* read = file.readBlock(ids[i]);
        QVERIFY2(read, qPrintable(file.lastError()));
        QString why;
        QVERIFY2(sameBlock(*read, expected, &why), qPrintable(why));
        QCOMPARE(read->coloringMode, h.coloringMode);
        QCOMPARE(read->columnList(), sorted);
        const pcBoundingBoxf box = expected.computeBounds();
        QCOMPARE(std::get<0>(blocks[ids[i]]), 300u);
        QCOMPARE(std::get<1>(blocks[ids[i]]).min, box.min);
        QCOMPARE(std::get<1>(blocks[ids[i]]).max, box.max);
        all.expandBy(box);
    }
    QCOMPARE(got.bounds.min, all.min);
    QCOMPARE(got.bounds.max, all.max);
    QVERIFY(!file.readBlock(5));
    QVERIFY(file.lastError().contains(QLatin1String("no block 5")));

    file.closeFile();
    QVERIFY(!file.isOpened());
    QVERIFY(!file.getBlocks(blocks));
    QVERIFY(!file.readBlock(ids[0]));
    QVERIFY(file.openFile());
    QVERIFY(file.readBlock(ids.last()));
}

void TestStorageFile::blockOriginIsRebased()
{
    const stPtCloud_DataSetHeader h = makeHeader(DST_Points, {DSC_Location});
    stPtCloud_PointArray block = makeBlock(h, 10, 0.f, 1);
    block.origin = pcVec3d(h.origin.x + 1000.0, h.origin.y - 250.0, h.origin.z);
    QString error;
    PtCloud_BlockFileWriter w(m_path);
    QVERIFY(w.begin(h, &error));
    QVERIFY(w.writeBlock(1, block, &error));
    QVERIFY(w.commit(&error));
    PtCloud_DataSetFile file(m_path);
    QVERIFY(file.openFile());
    const stPtCloud_PointArray* read = file.readBlock(1);
    QVERIFY(read);
    QCOMPARE(read->origin, h.origin);
    for (int i = 0; i < 10; ++i) {
        QCOMPARE(read->positions[i].x, block.positions[i].x + 1000.f);
        QCOMPARE(read->positions[i].y, block.positions[i].y - 250.f);
    }
}

void TestStorageFile::emptyDataset()
{
    const stPtCloud_DataSetHeader h = makeHeader(DST_Points, {DSC_Location, DSC_Intensity});
    QString error;
    PtCloud_BlockFileWriter w(m_path);
    QVERIFY(w.begin(h, &error));
    stPtCloud_PointArray none;
    none.origin = h.origin;
    QVERIFY(w.writeBlock(3, none, &error));  // empty blocks are not stored
    QVERIFY2(w.commit(&error), qPrintable(error));

    PtCloud_DataSetFile file(m_path);
    QVERIFY(file.isValid());
    QVERIFY2(file.openFile(), qPrintable(file.lastError()));
    QCOMPARE(file.getHeader().pointCount, quint64(0));
    QMap<int, std::tuple<unsigned int, pcBoundingBoxf>> blocks;
    QVERIFY(file.getBlocks(blocks));
    QVERIFY(blocks.isEmpty());
    QVERIFY(!file.readBlock(3));
}

void TestStorageFile::writerRefuses_data()
{
    QTest::addColumn<int>("problem");
    QTest::addColumn<QString>("reason");
    QTest::newRow("duplicate id") << int(DuplicateId) << "written twice";
    QTest::newRow("triangle past the points") << int(TrianglePastPoints) << "past its points";
    QTest::newRow("positions short of the count") << int(ShortPositions) << "inconsistent";
    QTest::newRow("cancelled") << int(Cancelled) << QString();
    QTest::newRow("never committed") << int(NeverCommitted) << QString();
}

void TestStorageFile::writerRefuses()
{
    QFETCH(int, problem);
    QFETCH(QString, reason);
    const stPtCloud_DataSetHeader h = makeHeader(DST_Mesh, {DSC_Location});
    QString error;
    QVERIFY(writeFile(m_path, h, {1}, 10, &error));
    const QByteArray before = readAll(m_path);

    {
        PtCloud_BlockFileWriter w(m_path);
        QVERIFY(w.begin(h, &error));
        stPtCloud_PointArray block = makeBlock(h, 10, 0.f, 2);
        QVERIFY(w.writeBlock(1, block, &error));
        if (problem == Cancelled) w.cancel();
        if (problem == TrianglePastPoints) block.triangles.back() = 10;
        if (problem == ShortPositions) block.positions.pop_back();
        if (!reason.isEmpty()) {
            QVERIFY(!w.writeBlock(problem == DuplicateId ? 1 : 2, block, &error));
            QVERIFY2(error.contains(reason), qPrintable(error));
        }
        if (problem != NeverCommitted) QVERIFY(!w.commit(&error));
    }
    QCOMPARE(readAll(m_path), before);
    QCOMPARE(entriesOf(m_dir->path()), QStringList{QStringLiteral("points.blk")});
}

void TestStorageFile::damagedFileRefused_data()
{
    QTest::addColumn<int>("damage");
    QTest::addColumn<int>("at");  // offset, or size for Truncate, bytes for Append
    QTest::addColumn<bool>("headerReadable");
    QTest::addColumn<QString>("reason");

    QTest::newRow("empty file") << int(Truncate) << 0 << false << "bad signature";
    QTest::newRow("half a header") << int(Truncate) << 60 << false << "truncated";
    QTest::newRow("signature") << int(FlipByte) << 0 << false << "bad signature";
    QTest::newRow("future version") << int(SetVersion) << 3 << false << "version 3 is not supported";
    QTest::newRow("origin bit flip") << int(FlipByte) << 40 << false << "checksum";
    QTest::newRow("index cut short") << int(Truncate) << -1 << false << "truncated";
    QTest::newRow("trailing bytes") << int(Append) << 16 << false << "index is misplaced";
    QTest::newRow("index bit flip") << int(FlipByte) << -20 << true << "index is corrupt";
}

void TestStorageFile::damagedFileRefused()
{
    QFETCH(int, damage);
    QFETCH(int, at);
    QFETCH(bool, headerReadable);
    QFETCH(QString, reason);

    const stPtCloud_DataSetHeader h = makeHeader(DST_Points, {DSC_Location, DSC_Color});
    QString error;
    QVERIFY(writeFile(m_path, h, {1, 2, 3}, 50, &error));
    QByteArray bytes = readAll(m_path);
    if (at < 0 && damage != SetVersion) at += bytes.size();
    switch (damage) {
    case Truncate: bytes.truncate(at); break;
    case FlipByte: bytes[at] = char(bytes[at] ^ 0x10); break;
    case SetVersion: {
        const quint32 version = quint32(at);
        std::memcpy(bytes.data() + 8, &version, sizeof version);
        break;
    }
    default: bytes.append(QByteArray(at, '\0')); break;
    }
    QVERIFY(writeAll(m_path, bytes));

    PtCloud_DataSetFile file(m_path);
    QCOMPARE(file.isValid(), headerReadable);
    QVERIFY(!file.openFile());
    QVERIFY(!file.isOpened());
    QVERIFY2(file.lastError().contains(reason), qPrintable(file.lastError()));
    QVERIFY(!file.readBlock(1));
    PtCloud_DataSetMemory memory;
    QVERIFY(!memory.makeFromFile(&file));
    QVERIFY(memory.getAllBlocksPtr()->isEmpty());
}

void TestStorageFile::interruptedSaveKeepsOldFile()
{
    const stPtCloud_DataSetHeader h = makeHeader(DST_Points, {DSC_Location, DSC_Color, DSC_GpsTime});
    QString error;
    QVERIFY(writeFile(m_path, h, {1, 2, 3, 4}, 2000, &error));
    const QByteArray before = readAll(m_path);

    PtCloud_DataSetFile file(m_path);
    QVERIFY(file.openFile());
    PtCloud_DataSetMemory memory;
    QVERIFY(memory.makeFromFile(&file));
    auto* blocks = memory.getAllBlocksPtr();
    std::get<1>((*blocks)[2])->removeInnerByBox(pcBoundingBoxf(20.f, 20.f, 20.f, 25.f, 30.f, 30.f));
    const quint64 remaining = 8000 - 2000 + quint64(std::get<1>((*blocks)[2])->count);
    QVERIFY(remaining < 8000 && remaining > 6000);

    // The disk fills up half-way through the payloads.
    PtCloud_BlockFileWriter::setFailAfterBytesForTesting(qint64(before.size()) / 2);
    QVERIFY(!memory.saveToFile(&file));
    QVERIFY2(memory.lastError().contains(QLatin1String("no space"), Qt::CaseInsensitive), qPrintable(memory.lastError()));
    QCOMPARE(readAll(m_path), before);
    QCOMPARE(entriesOf(m_dir->path()), QStringList{QStringLiteral("points.blk")});
    QVERIFY(file.isOpened());  // reopened on the old file
    QCOMPARE(file.getHeader().pointCount, quint64(8000));

    // Space again: the same edit saves.
    PtCloud_BlockFileWriter::setFailAfterBytesForTesting(-1);
    QVERIFY2(memory.saveToFile(&file), qPrintable(memory.lastError()));
    QVERIFY(file.isOpened());
    QCOMPARE(file.getHeader().pointCount, remaining);
    QCOMPARE(entriesOf(m_dir->path()), QStringList{QStringLiteral("points.blk")});
}

void TestStorageFile::cutThroughMemory()
{
    // Blocks 10, 20, 30 fill the cubes [0,10), [20,30), [40,50) on every axis.
    const stPtCloud_DataSetHeader h = makeHeader(DST_Points, {DSC_Location, DSC_Intensity});
    QString error;
    QVERIFY(writeFile(m_path, h, {10, 20, 30}, 1000, &error));
    PtCloud_DataSetFile file(m_path);
    QVERIFY(file.openFile());

    // Covers block 10 whole and the lower half (x < 25) of block 20.
    const pcBoundingBoxf box(-1.f, -1.f, -1.f, 25.f, 60.f, 60.f);
    PtCloud_DataSetMemory memory;
    QVERIFY(memory.makeFromFile(&file));
    auto* blocks = memory.getAllBlocksPtr();
    int expectedIn20 = 0;
    for (const pcVec3f& p : std::get<1>((*blocks)[20])->positions) expectedIn20 += p.x > 25.f;
    for (auto it = blocks->begin(); it != blocks->end();) {
        stPtCloud_PointArray* points = std::get<1>(it.value());
        if (box.intersects(std::get<0>(it.value()))) points->removeInnerByBox(box);
        if (points->count == 0) {
            delete points;
            it = blocks->erase(it);
        } else {
            ++it;
        }
    }
    // An emptied block left in the map is not written either.
    std::get<1>((*blocks)[30])->resize(0);
    QVERIFY2(memory.saveToFile(&file), qPrintable(memory.lastError()));

    QVERIFY(file.isOpened());
    QMap<int, std::tuple<unsigned int, pcBoundingBoxf>> onDisk;
    QVERIFY(file.getBlocks(onDisk));
    QCOMPARE(onDisk.keys(), QList<int>{20});
    QCOMPARE(int(std::get<0>(onDisk[20])), expectedIn20);
    QVERIFY(std::get<1>(onDisk[20]).min.x > 25.f);
    QCOMPARE(file.getHeader().pointCount, quint64(expectedIn20));
    const stPtCloud_PointArray* read = file.readBlock(20);
    QVERIFY(read);
    for (const pcVec3f& p : read->positions) QVERIFY(!box.contains(p));

    // The memory copy mirrors the file it wrote.
    QMap<int, std::tuple<unsigned int, pcBoundingBoxf>> inMemory;
    QVERIFY(memory.getBlocks(inMemory));
    QCOMPARE(inMemory.keys(), QList<int>{20});
    QCOMPARE(std::get<1>(inMemory[20]).min, std::get<1>(onDisk[20]).min);
    QCOMPARE(memory.readBlock(20)->count, expectedIn20);
}

void TestStorageFile::cutEverythingLeavesEmptyDataset()
{
    const stPtCloud_DataSetHeader h = makeHeader(DST_Points, {DSC_Location});
    QString error;
    QVERIFY(writeFile(m_path, h, {1, 2}, 100, &error));
    PtCloud_DataSetFile file(m_path);
    PtCloud_DataSetMemory memory;
    QVERIFY(memory.makeFromFile(&file));  // the handle itself may stay closed
    auto* blocks = memory.getAllBlocksPtr();
    for (auto& entry : *blocks) std::get<1>(entry)->removeOutterBySphere(pcBoundingSpheref(-100.f, 0.f, 0.f, 1.f));
    QVERIFY(memory.saveToFile(&file));
    QVERIFY(!file.isOpened());
    QVERIFY(file.isValid());
    QVERIFY(file.openFile());
    QCOMPARE(file.getHeader().blockCount, quint32(0));
    QCOMPARE(file.getHeader().pointCount, quint64(0));
}

QTEST_APPLESS_MAIN(TestStorageFile)
#include "tst_storage_file.moc"
