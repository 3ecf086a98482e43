// What the property pages say about contents whose numbers are known by
// construction: block files written here with chosen points, triangles,
// cluster labels and classes; a DEM grid of known spacing; contour lines at
// known levels; a height map of known size; and a missing file.

#include <QImage>
#include <QTemporaryDir>
#include <QtTest>

#include "ContentProperties.h"
#include "PtCloud_BlockFileWriter.h"
#include "PtCloud_ContourFile.h"
#include "VolumeCalcAreaList.h"

using namespace ptCloud;

namespace {

const pcVec3d kOrigin(500000.0, 4000000.0, 100.0);

// One block: positions relative to kOrigin, with the columns the file has.
struct BlockSpec {
    std::vector<pcVec3f> positions;
    std::vector<qint32> labels;
    std::vector<quint8> classes;
    std::vector<unsigned int> triangles;
};

bool writeBlocks(const QString& path, EDataSetType type, const QList<EDataSetColumn>& columns,
                 const std::vector<BlockSpec>& blocks)
{
    stPtCloud_DataSetHeader header;
    header.type = type;
    header.origin = kOrigin;
    header.columns = columns;
    PtCloud_BlockFileWriter writer(path);
    QString error;
    if (!writer.begin(header, &error)) return false;
    for (size_t b = 0; b < blocks.size(); ++b) {
        const BlockSpec& wanted = blocks[b];
        stPtCloud_PointArray block;
        block.origin = kOrigin;
        for (EDataSetColumn c : columns)
            if (c != DSC_Location) block.addColumn(c);
        block.resize(int(wanted.positions.size()));
        block.positions = wanted.positions;
        block.triangles = wanted.triangles;
        if (!wanted.labels.empty()) std::copy(wanted.labels.begin(), wanted.labels.end(), block.columnData<qint32>(DSC_Label));
        if (!wanted.classes.empty())
            std::copy(wanted.classes.begin(), wanted.classes.end(), block.columnData<quint8>(DSC_Classification));
        if (!writer.writeBlock(int(b), block, &error)) return false;
    }
    return writer.commit(&error);
}

QString value(const ContentProperties::Rows& rows, const QString& label)
{
    for (const auto& row : rows)
        if (row.first == label) return row.second;
    return QStringLiteral("<no %1>").arg(label);
}

}  // namespace

class TestContentProperties : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void pointsFile();
    void kindSpecificCounts_data();
    void kindSpecificCounts();
    void gridSpacing_data();
    void gridSpacing();
    void demMeshSpacing();
    void contourLevels();
    void heightMapSize();
    void earthVolumeAreas();
    void missingFile();

private:
    QTemporaryDir m_dir;
};

void TestContentProperties::initTestCase() { QVERIFY(m_dir.isValid()); }

void TestContentProperties::pointsFile()
{
    const QString path = m_dir.filePath("points.pcb");
    QVERIFY(writeBlocks(path, DST_Points, {DSC_Location, DSC_Intensity},
                        {{{pcVec3f(1.f, 2.f, 3.f), pcVec3f(-4.5f, 0.f, 1.f), pcVec3f(2.f, 8.25f, -2.f)}, {}, {}, {}},
                         {{pcVec3f(10.f, 1.f, 0.f), pcVec3f(3.f, 3.f, 7.5f)}, {}, {}, {}}}));
    const ContentProperties::Rows rows = ContentProperties::ofPointFile(PtCloudScene::Content_Points, "ds", path);
    QCOMPARE(value(rows, "name"), QString("ds"));
    QCOMPARE(value(rows, "points"), QString("5"));
    QCOMPARE(value(rows, "blocks"), QString("2"));
    QCOMPARE(value(rows, "min"), QString("499995.500, 4000000.000, 98.000"));
    QCOMPARE(value(rows, "max"), QString("500010.000, 4000008.250, 107.500"));
    QCOMPARE(value(rows, "columns"), QString("Location, Intensity"));
    QVERIFY(!value(rows, "file size").startsWith("<no"));
    // Plain points have none of the counts that need every block.
    QVERIFY(value(rows, "triangles").startsWith("<no"));
    QVERIFY(value(rows, "clusters").startsWith("<no"));
}

void TestContentProperties::kindSpecificCounts_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("label");
    QTest::addColumn<QString>("expected");
    QTest::newRow("mesh triangles") << int(PtCloudScene::Content_Mesh) << "triangles" << "3";
    QTest::newRow("split clusters") << int(PtCloudScene::Content_Split) << "clusters" << "4";
    QTest::newRow("classify ground") << int(PtCloudScene::Content_DemClassify) << "ground points" << "3";
    QTest::newRow("classify others") << int(PtCloudScene::Content_DemClassify) << "other points" << "4";
}

void TestContentProperties::kindSpecificCounts()
{
    QFETCH(int, kind);
    QFETCH(QString, label);
    QFETCH(QString, expected);
    // Seven points in two blocks: two and one triangles, labels {0, 1, 2, 5},
    // classes with three ground (2) points.
    const QString path = m_dir.filePath(QStringLiteral("counts_%1.pcb").arg(kind));
    const EDataSetType type = kind == PtCloudScene::Content_Mesh    ? DST_Mesh
                              : kind == PtCloudScene::Content_Split ? DST_Split
                                                                    : DST_Classify;
    QVERIFY(writeBlocks(path, type, {DSC_Location, DSC_Label, DSC_Classification},
                        {{{pcVec3f(0, 0, 0), pcVec3f(1, 0, 0), pcVec3f(1, 1, 0), pcVec3f(0, 1, 0)},
                          {0, 0, 1, 1},
                          {2, 2, 1, 6},
                          {0, 1, 2, 0, 2, 3}},
                         {{pcVec3f(5, 5, 1), pcVec3f(6, 5, 1), pcVec3f(5, 6, 1)}, {2, 5, 5}, {2, 7, 1}, {0, 1, 2}}}));
    const auto rows = ContentProperties::ofPointFile(PtCloudScene::EContentKind(kind), "c", path);
    QCOMPARE(value(rows, label), expected);
    QCOMPARE(value(rows, "points"), QString("7"));
}

void TestContentProperties::gridSpacing_data()
{
    QTest::addColumn<double>("width");
    QTest::addColumn<double>("height");
    QTest::addColumn<int>("nodes");
    QTest::addColumn<double>("spacing");
    QTest::newRow("21 x 11 over 10 x 5 m") << 10.0 << 5.0 << 231 << 0.5;
    QTest::newRow("3 x 2 over 2 x 1 m") << 2.0 << 1.0 << 6 << 1.0;
    QTest::newRow("a line of 5 over 8 m") << 8.0 << 0.0 << 5 << 2.0;
    QTest::newRow("one node") << 0.0 << 0.0 << 1 << 0.0;
}

void TestContentProperties::gridSpacing()
{
    QFETCH(double, width);
    QFETCH(double, height);
    QFETCH(int, nodes);
    QFETCH(double, spacing);
    QVERIFY(qAbs(ContentProperties::gridSpacing(width, height, quint64(nodes)) - spacing) < 1e-12);
}

void TestContentProperties::demMeshSpacing()
{
    // An 11 x 11 DEM grid 0.5 m apart: 121 nodes, 200 triangles.
    BlockSpec grid;
    for (int r = 0; r < 11; ++r)
        for (int c = 0; c < 11; ++c) grid.positions.emplace_back(0.5f * c, 0.5f * r, 0.1f * c);
    for (unsigned r = 0; r < 10; ++r)
        for (unsigned c = 0; c < 10; ++c) {
            const unsigned i = r * 11 + c;
            grid.triangles.insert(grid.triangles.end(), {i, i + 1, i + 12, i, i + 12, i + 11});
        }
    const QString path = m_dir.filePath("dem_mesh.pcb");
    QVERIFY(writeBlocks(path, DST_Mesh, {DSC_Location}, {grid}));
    const auto rows = ContentProperties::ofPointFile(PtCloudScene::Content_DemMesh, QString(), path);
    QCOMPARE(value(rows, "grid nodes"), QString("121"));
    QCOMPARE(value(rows, "triangles"), QString("200"));
    QCOMPARE(value(rows, "grid spacing"), QString("about 0.500 m"));
}

void TestContentProperties::contourLevels()
{
    std::vector<PtCloud_ContourFile::Polyline> lines(3);
    const double levels[] = {104.0, 100.0, 102.0};
    for (int i = 0; i < 3; ++i) {
        lines[size_t(i)].level = levels[i];
        lines[size_t(i)].points.assign(size_t(i + 2), pcVec3f(float(i), 0.f, float(levels[i] - kOrigin.z)));
    }
    lines[1].closed = true;
    const QString path = m_dir.filePath("contour.pcc");
    QString error;
    QVERIFY(PtCloud_ContourFile::write(path, kOrigin, lines, &error));
    const auto rows = ContentProperties::ofContour(path);
    QCOMPARE(value(rows, "lines"), QString("3"));
    QCOMPARE(value(rows, "closed lines"), QString("1"));
    QCOMPARE(value(rows, "vertices"), QString("9"));
    QCOMPARE(value(rows, "levels"), QString("3"));
    QCOMPARE(value(rows, "lowest level"), QString("100.000"));
    QCOMPARE(value(rows, "highest level"), QString("104.000"));
    QCOMPARE(value(rows, "interval"), QString("2.000"));
}

void TestContentProperties::heightMapSize()
{
    const QImage image(64, 32, QImage::Format_RGB32);
    const auto rows = ContentProperties::ofHeightMap(&image, m_dir.filePath("hm.png"));
    QCOMPARE(value(rows, "size"), QString("64 x 32 pixels"));
    QCOMPARE(value(rows, "file"), QString("hm.png"));
    QVERIFY(ContentProperties::ofHeightMap(nullptr, QString()).isEmpty());
}

void TestContentProperties::earthVolumeAreas()
{
    VolumeCalcAreaList areas(m_dir.filePath("volumes.json"));
    QVERIFY(areas.addArea("pile"));
    QVERIFY(areas.addArea("pit"));
    const auto rows = ContentProperties::ofEarthVolume(&areas);
    QCOMPARE(value(rows, "areas"), QString("2"));
    // Before any calculation the volumes are nought, with two decimals.
    QCOMPARE(value(rows, "pile"), QString("grid: dig 0.00, fill 0.00 m³; dtm: dig 0.00, fill 0.00 m³"));
    QVERIFY(!value(rows, "pit").startsWith("<no"));
}

void TestContentProperties::missingFile()
{
    const auto rows = ContentProperties::ofPointFile(PtCloudScene::Content_Split, "s", m_dir.filePath("none.pcb"));
    QVERIFY(!value(rows, "error").startsWith("<no"));
    QVERIFY(value(rows, "points").startsWith("<no"));
    QVERIFY(!value(ContentProperties::ofContour(m_dir.filePath("none.pcc")), "error").startsWith("<no"));
    // The page renders labels and values escaped.
    QCOMPARE(ContentProperties::toHtml({{"a<b", "c&d"}}),
             QString("<table cellspacing=\"2\"><tr><td style=\"padding-right:8px\">a&lt;b</td><td>c&amp;d</td></tr>"
                     "</table>"));
}

QTEST_MAIN(TestContentProperties)
#include "tst_ContentProperties.moc"
