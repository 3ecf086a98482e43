// Every real LAS file of the shared data through the command line: one-step
// import, then dataset info against the independently computed manifest;
// export, and merge with a copy 250 km away, must keep every source position.

#include <QJsonArray>
#include <QTemporaryDir>
#include <QtTest>
#include <algorithm>
#include <cmath>
#include <cstring>

#include "LasWriter.h"
#include "PtCloud_DataSetFile.h"
#include "PtCloud_GridMap.h"
#include "tst_cli_runner.h"
#include "tst_las_data.h"

using namespace ptCloud;

class TstCliManifest : public QObject {
    Q_OBJECT
private slots:
    void importMatchesManifest_data();
    void importMatchesManifest();
    void positionsSurviveExportAndMerge_data();
    void positionsSurviveExportAndMerge();
};

namespace {

double at(const QJsonValue& array, int i) { return array.toArray().at(i).toDouble(); }

// A LAS file's grid: its offset and scale.
struct Grid {
    pcVec3d origin, step;
};

Grid gridOf(const QString& las)
{
    LasReader reader;
    QString error;
    if (!reader.open(las, &error)) return {};
    const LasHeader& h = reader.header();
    return {pcVec3d(h.offset[0], h.offset[1], h.offset[2]), pcVec3d(h.scale[0], h.scale[1], h.scale[2])};
}

bool lessQ(const pcVec3q& a, const pcVec3q& b)
{
    return std::tie(a.x, a.y, a.z) < std::tie(b.x, b.y, b.z);
}

// Every position of a LAS file in whole steps of grid, sorted.
std::vector<pcVec3q> positionsOf(const QString& las, const Grid& grid)
{
    LasReader reader;
    QString error;
    std::vector<pcVec3q> out;
    if (!reader.open(las, &error)) return out;
    const stPtCloud_RecordLayout layout = stPtCloud_RecordLayout::forColumns({DSC_Location});
    std::vector<char> records;
    while (reader.readRecords(records, 65536, layout, grid.origin, grid.step, &error) > 0)
        for (size_t i = 0; i < records.size(); i += layout.bytes)
            out.push_back(*reinterpret_cast<const pcVec3q*>(records.data() + i));
    std::sort(out.begin(), out.end(), lessQ);
    return out;
}

// The exact positions a dataset's points file keeps, in whole steps of grid, sorted.
std::vector<pcVec3q> positionsOfDataSet(const QString& points, const Grid& grid)
{
    PtCloud_DataSetFile file(points);
    std::vector<pcVec3q> out;
    QMap<int, std::tuple<unsigned int, pcBoundingBoxf>> blocks;
    if (!file.openFile() || !file.getBlocks(blocks)) return out;
    file.setExactPositions(true);
    for (int id : blocks.keys()) {
        const stPtCloud_PointArray* block = file.readBlock(id);
        if (!block) return {};
        const PtCloud_GridMap map(block->origin, block->quantum, grid.origin, grid.step);
        for (const pcVec3q& q : block->quanta) out.push_back(map.map(q));
    }
    std::sort(out.begin(), out.end(), lessQ);
    return out;
}

// A copy of a LAS file moved east by whole steps: its offset and bounds change, not its records.
void writeMovedCopy(const QString& from, const QString& to, double east)
{
    QFile in(from);
    QVERIFY(in.open(QIODevice::ReadOnly));
    QByteArray bytes = in.readAll();
    for (int at : {155, 179, 187}) {  // X offset, maximum, minimum
        double v;
        std::memcpy(&v, bytes.constData() + at, sizeof v);
        v += east;
        std::memcpy(bytes.data() + at, &v, sizeof v);
    }
    QFile out(to);
    QVERIFY(out.open(QIODevice::WriteOnly) && out.write(bytes) == bytes.size());
}

// 20 000 points along a 1000 km corridor on a 1 mm grid, with a LAS file's range of values.
void writeCorridor(const QString& path)
{
    stPtCloud_PointArray points;
    points.origin = pcVec3d(500000.0, 4000000.0, 0.0);
    points.quantum = pcVec3d(0.001, 0.001, 0.001);
    points.resize(20000);
    points.quanta.resize(20000);
    quint64 state = 1;
    auto next = [&state](qint64 range) {
        state = state * 6364136223846793005ull + 1442695040888963407ull;
        return qint64((state >> 20) % quint64(range));
    };
    for (pcVec3q& q : points.quanta) q = pcVec3q(next(1000000000), next(2000000), next(100000));
    LasWriter writer;
    QString error;
    const double scale[3] = {0.001, 0.001, 0.001}, offset[3] = {1000000.0, 4000000.0, 0.0};
    QVERIFY2(writer.open(path, false, scale, offset, QString(), &error) && writer.write(points, &error) &&
                 writer.close(&error),
             qPrintable(error));
}

void compareClasses(const QJsonObject& got, const QJsonObject& expected)
{
    QCOMPARE(got.keys(), expected.keys());
    for (const QString& c : expected.keys())
        QCOMPARE(qint64(got.value(c).toDouble()), qint64(expected.value(c).toDouble()));
}

}  // namespace

void TstCliManifest::importMatchesManifest_data()
{
    LAS_REQUIRE_SHARED_DATA();
    lasTestData::addRows(QStringLiteral("las/"));
}

void TstCliManifest::importMatchesManifest()
{
    QFETCH(QString, key);
    const QJsonObject entry = lasTestData::manifest().value(key).toObject();
    const QString name = QFileInfo(key).completeBaseName();
    QTemporaryDir tmp;
    QVERIFY(tmp.isValid());
    const QString project = tmp.filePath("project");

    const TstCliRunner::Result imported = TstCliRunner::run({"import", lasTestData::path(key), "--project", project});
    QVERIFY2(imported.ok(), imported.describe());
    QString error;
    const QJsonObject info = TstCliRunner::info(project, name, &error);
    QVERIFY2(!info.isEmpty(), qPrintable(error));

    const qint64 count = qint64(entry.value("point_count").toDouble());
    QCOMPARE(qint64(info.value("points").toDouble()), count);
    compareClasses(info.value("classification").toObject(), entry.value("classification").toObject());
    if (count == 0) {
        QVERIFY(info.value("bounds").isNull());
        return;
    }
    // From the exact positions: as the manifest has them, to a small part of the file's step.
    for (int a = 0; a < 3; ++a) {
        const double step = at(entry.value("scale"), a);
        for (int side = 0; side < 6; side += 3)
            QVERIFY2(std::fabs(at(info.value("bounds"), a + side) - at(entry.value("bounds_records"), a + side)) <=
                         step * 1e-3,
                     qPrintable(QStringLiteral("bound %1: %2 vs %3").arg(a + side)
                                    .arg(at(info.value("bounds"), a + side), 0, 'f', 9)
                                    .arg(at(entry.value("bounds_records"), a + side), 0, 'f', 9)));
        const double mean = at(entry.value("xyz_sum"), a) / double(count);
        QVERIFY2(std::fabs(at(info.value("mean"), a) - mean) <= step * 1e-2,
                 qPrintable(QStringLiteral("mean %1: %2 vs %3").arg(a).arg(at(info.value("mean"), a), 0, 'f', 9)
                                .arg(mean, 0, 'f', 9)));
    }
}

void TstCliManifest::positionsSurviveExportAndMerge_data()
{
    LAS_REQUIRE_SHARED_DATA();
    QTest::addColumn<QString>("path");
    for (const QString& key : lasTestData::entries(QStringLiteral("las/")))
        QTest::newRow(qPrintable(key)) << lasTestData::path(key);
    QTest::newRow("generated, 1000 km at 1 mm") << QString();
}

void TstCliManifest::positionsSurviveExportAndMerge()
{
    QFETCH(QString, path);
    QTemporaryDir tmp;
    QVERIFY(tmp.isValid());
    if (path.isEmpty()) {
        path = tmp.filePath("corridor.las");
        writeCorridor(path);
    }
    const QString project = tmp.filePath("project"), name = QFileInfo(path).completeBaseName();
    const Grid grid = gridOf(path);
    // 250 km in whole steps of the file, so that both lie on one grid.
    const qint64 steps = std::llround(250000.0 / grid.step.x);
    writeMovedCopy(path, tmp.filePath("far.las"), double(steps) * grid.step.x);
    for (const QString& las : {path, tmp.filePath("far.las")}) {
        const TstCliRunner::Result imported = TstCliRunner::run({"import", las, "--project", project});
        QVERIFY2(imported.ok(), imported.describe());
    }
    const std::vector<pcVec3q> source = positionsOf(path, grid);

    const QString exported = tmp.filePath("export.las");
    const TstCliRunner::Result written = TstCliRunner::run({"dataset", "export", project, name, exported});
    QVERIFY2(written.ok(), written.describe());
    QVERIFY(positionsOf(exported, grid) == source);

    const TstCliRunner::Result merged = TstCliRunner::run({"dataset", "merge", project, "merged", name, "far"});
    QVERIFY2(merged.ok(), merged.describe());
    std::vector<pcVec3q> both = source;
    for (const pcVec3q& q : source) both.push_back(pcVec3q(q.x + steps, q.y, q.z));
    std::sort(both.begin(), both.end(), lessQ);
    QVERIFY(positionsOfDataSet(project + "/datasets/merged/points.pcb", grid) == both);
    // Floats cannot draw a millimetre or a centimetre 250 km out, and info says so.
    QString error;
    const QJsonObject info = TstCliRunner::info(project, "merged", &error);
    QCOMPARE(info.contains("drawn"), !source.empty());
}

QTEST_GUILESS_MAIN(TstCliManifest)
#include "tst_cli_manifest.moc"
