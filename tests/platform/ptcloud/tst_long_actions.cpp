// The long actions end to end through the controller: a generated scene of
// known make-up goes in, contents come out, stops and bad codes change nothing.

#include <QDirIterator>
#include <QTemporaryDir>
#include <QtTest>
#include <cmath>

#include "LasWriter.h"
#include "PtCloudDataSet.h"
#include "PtCloud_ContourFile.h"
#include "PtCloud_Controller.h"
#include "PtCloud_DataSetFile.h"
#include "PtCloud_Project.h"
#include "PtCloud_SimpleProgress.h"

using namespace ptCloud;

namespace {
constexpr double kX0 = 500000.0, kY0 = 4000000.0, kZ0 = 100.0;
constexpr float kExtent = 60.f, kStep = 0.5f;
constexpr float kBox = 10.f, kBoxHeight = 6.f;  // a building in the middle

bool inBox(float x, float y) { return std::fabs(x) <= kBox / 2 && std::fabs(y) <= kBox / 2; }

// Flat ground with a gentle slope, and the roof of a box building: the
// building's points are exactly the non-ground ones.
bool writeScene(const QString& path, int* groundCount, int* buildingCount)
{
    stPtCloud_PointArray a;
    a.origin = pcVec3d(kX0, kY0, kZ0);
    *groundCount = *buildingCount = 0;
    for (float x = -kExtent / 2; x <= kExtent / 2; x += kStep)
        for (float y = -kExtent / 2; y <= kExtent / 2; y += kStep) {
            const float ground = 0.02f * x;
            if (inBox(x, y)) {
                a.positions.emplace_back(x, y, ground + kBoxHeight);
                ++*buildingCount;
            } else {
                a.positions.emplace_back(x, y, ground);
                ++*groundCount;
            }
        }
    a.count = int(a.positions.size());
    LasWriter w;
    const double scale[3] = {0.001, 0.001, 0.001}, offset[3] = {kX0, kY0, kZ0};
    QString err;
    return w.open(path, false, scale, offset, QString(), &err) && w.write(a, &err) && w.close(&err);
}

quint64 pointCount(const QString& path)
{
    PtCloud_DataSetFile f(path);
    return f.openFile() ? f.getHeader().pointCount : 0;
}
}  // namespace

class TestLongActions : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void clothSplitFindsTheBuilding_data();
    void clothSplitFindsTheBuilding();
    void splitMethodsSeparateRoofFromGround_data();
    void splitMethodsSeparateRoofFromGround();
    void meshMethodsMakeTriangles_data();
    void meshMethodsMakeTriangles();
    void demMakesFourProducts();
    void sampleThinsByShare();
    void badCodesAndDataSets_data();
    void badCodesAndDataSets();
    void stopLeavesNoTarget();

private:
    QTemporaryDir m_dir;
    PtCloud_Project m_project;
    PtCloud_Controller* m_c = nullptr;
    int m_ground = 0, m_building = 0;
};

void TestLongActions::initTestCase()
{
    QString err, key;
    QVERIFY(writeScene(m_dir.filePath("scene.las"), &m_ground, &m_building));
    QVERIFY(m_project.open(m_dir.filePath("p"), &err));
    m_c = m_project.getController();
    QCOMPARE(m_c->doCmd_LasFile_Import({m_dir.filePath("scene.las")}, &key), PCAR_Success);
    QCOMPARE(m_c->doCmd_DataSet_Make({{key}, {DSC_Location, DSC_Classification}, "scene"}), PCAR_Success);
}

void TestLongActions::clothSplitFindsTheBuilding_data()
{
    QTest::addColumn<bool>("removeGround");
    QTest::newRow("keep ground") << false;
    QTest::newRow("remove ground") << true;
}

void TestLongActions::clothSplitFindsTheBuilding()
{
    QFETCH(bool, removeGround);
    PtCloudDataSet* ds = m_c->getDataSet("scene");
    PtCloud_DataSetFile* target = ds->createEmptyLocatedContent_Split(removeGround ? "objects" : "classes");
    stControlParam_DataSet_Do_Split p;
    p.dataSetName = "scene";
    p.targetName = target->getFilepath();
    p.func = 107;
    p.params = QVariantList{true, 0.5, 1.0, 500, 3, 0.65, removeGround};
    PtCloud_SimpleProgress progress;
    QCOMPARE(m_c->doCmd_DataSet_Do_Split(p, &progress), PCAR_Success);
    QCOMPARE(progress.progress(), 100);
    QVERIFY(target->openFile());
    QMap<int, std::tuple<unsigned int, pcBoundingBoxf>> blocks;
    target->getBlocks(blocks);
    int ground = 0, object = 0, wrong = 0;
    for (int id : blocks.keys()) {
        const stPtCloud_PointArray* b = target->readBlock(id);
        const quint8* cls = b->columnData<quint8>(DSC_Classification);
        QVERIFY(cls && b->columnData<qint32>(DSC_Label));
        for (int i = 0; i < b->count; ++i) {
            const pcVec3f& q = b->positions[size_t(i)];
            const pcVec3f abs(float(b->origin.x - kX0 + q.x), float(b->origin.y - kY0 + q.y), 0);
            (cls[i] == 2 ? ground : object)++;
            if ((cls[i] == 2) == inBox(abs.x, abs.y)) ++wrong;
        }
    }
    QVERIFY2(wrong <= (m_ground + m_building) / 100, qPrintable(QString::number(wrong)));
    if (removeGround) QCOMPARE(ground, 0);
    else QCOMPARE(ground + object, m_ground + m_building);
    QVERIFY(ds->addContent_Split(removeGround ? "objects" : "classes", target));
}

// The roof floats 6 m above the ground: every clustering method with a
// tolerance under that finds exactly two groups, and the ground methods
// put the roof alone on the non-ground side.
void TestLongActions::splitMethodsSeparateRoofFromGround_data()
{
    QTest::addColumn<int>("func");
    QTest::addColumn<QVariantList>("params");
    QTest::newRow("dbscan") << 100 << QVariantList{0.75, 5, true};
    QTest::newRow("kmeans") << 101 << QVariantList{10, 2};
    QTest::newRow("kmeans extra") << 102 << QVariantList{10, 2};
    QTest::newRow("euclidean") << 103 << QVariantList{0.75, 1, 1000000};
    QTest::newRow("euclidean fast") << 104 << QVariantList{0.75, 50};
    // Roof and ground are parallel planes: only the gap between them parts
    // the regions, so growing must not jump it (8 neighbours on a 0.5 m grid).
    QTest::newRow("region growing") << 105 << QVariantList{8, 10.0, 1.0, 5, 1000000};
    QTest::newRow("patchwork") << 106 << QVariantList{};
}

void TestLongActions::splitMethodsSeparateRoofFromGround()
{
    QFETCH(int, func);
    QFETCH(QVariantList, params);
    PtCloudDataSet* ds = m_c->getDataSet("scene");
    PtCloud_DataSetFile* target = ds->createEmptyLocatedContent_Split(QStringLiteral("split %1").arg(func));
    stControlParam_DataSet_Do_Split p;
    p.dataSetName = "scene";
    p.targetName = target->getFilepath();
    p.func = func;
    p.params = params;
    QCOMPARE(m_c->doCmd_DataSet_Do_Split(p, nullptr), PCAR_Success);
    QVERIFY(target->openFile());
    QMap<int, std::tuple<unsigned int, pcBoundingBoxf>> blocks;
    target->getBlocks(blocks);
    // label -> (roof points, ground points)
    QMap<int, QPair<int, int>> byLabel;
    for (int id : blocks.keys()) {
        const stPtCloud_PointArray* b = target->readBlock(id);
        const qint32* label = b->columnData<qint32>(DSC_Label);
        QVERIFY(label);
        for (int i = 0; i < b->count; ++i) {
            const pcVec3f& q = b->positions[size_t(i)];
            const bool roof = inBox(float(b->origin.x - kX0 + q.x), float(b->origin.y - kY0 + q.y));
            auto& counts = byLabel[label[i]];
            (roof ? counts.first : counts.second)++;
        }
    }
    if (func == 101 || func == 102) {
        // k-means splits by place, not by gap: two clusters, each one side's points.
        QCOMPARE(byLabel.size(), 2);
    } else {
        QCOMPARE(byLabel.size(), 2);
        int misplaced = 0;
        for (const auto& c : byLabel) misplaced += std::min(c.first, c.second);
        QVERIFY2(misplaced <= (m_ground + m_building) / 100, qPrintable(QString::number(misplaced)));
    }
    delete target;
}

void TestLongActions::meshMethodsMakeTriangles_data()
{
    QTest::addColumn<int>("func");
    QTest::addColumn<QVariantList>("params");
    QTest::newRow("alpha") << 0 << QVariantList{true, 1.0};
    QTest::newRow("ball pivoting") << 1 << QVariantList{true, 0.6};
    QTest::newRow("poisson") << 2 << QVariantList{true, 7u, 0.12, 1.0};
}

void TestLongActions::meshMethodsMakeTriangles()
{
    QFETCH(int, func);
    QFETCH(QVariantList, params);
    PtCloudDataSet* ds = m_c->getDataSet("scene");
    PtCloud_DataSetFile* target = ds->createEmptyLocatedContent_Mesh(QStringLiteral("mesh %1").arg(func));
    stControlParam_DataSet_Do_Mesh p;
    p.dataSetName = "scene";
    p.targetName = target->getFilepath();
    p.func = func;
    p.params = params;
    PtCloud_SimpleProgress progress;
    QCOMPARE(m_c->doCmd_DataSet_Do_Mesh(p, &progress), PCAR_Success);
    QVERIFY(target->openFile());
    QCOMPARE(target->getDataSetType(), DST_Mesh);
    const stPtCloud_PointArray* b = target->readBlock(0);
    QVERIFY(b && b->triangles.size() >= 3 && b->triangles.size() % 3 == 0);
    // Vertices stay within the scene's plan extent (Poisson may overshoot a little).
    const pcBoundingBoxf box = b->computeBounds();
    QVERIFY(box.max.x - box.min.x < kExtent * 1.3f);
    QVERIFY(ds->addContent_Mesh(QStringLiteral("mesh %1").arg(func), target));
}

void TestLongActions::demMakesFourProducts()
{
    PtCloudDataSet* ds = m_c->getDataSet("scene");
    stControlParam_DataSet_Do_Mesh p;
    p.dataSetName = "scene";
    p.func = 3;
    p.params = QVariantList{ds->getFilePath_Dem_Mesh(), ds->getFilePath_Dem_HeightMap(), 1920,
                            ds->getFilePath_Dem_Contour(), 50, ds->getFilePath_Dem_Classify()};
    QCOMPARE(m_c->doCmd_DataSet_Do_Mesh(p, nullptr), PCAR_Success);
    QVERIFY(ds->setContent_Dem_Mesh());
    QVERIFY(ds->setContent_Dem_HeightMap());
    QVERIFY(ds->setContent_Dem_Contour());
    QVERIFY(ds->setContent_Dem_Classify());
    QCOMPARE(std::max(ds->getContent_Dem_HeightMap()->width(), ds->getContent_Dem_HeightMap()->height()), 1920);
    QVERIFY(QFileInfo::exists(ds->getFilePath_Dem_HeightMap().replace(".png", ".pgw")));
    // The ground is a plane rising 2 cm a metre along x: contours run along y
    // at heights between the lowest and highest ground.
    PtCloud_ContourFile* contour = ds->getContent_Dem_Contour();
    QVERIFY(contour->openFile());
    QVERIFY(!contour->lines().empty());
    for (const auto& line : contour->lines()) {
        QVERIFY(line.level > kZ0 - 0.61 && line.level < kZ0 + 0.61);
        for (const pcVec3f& q : line.points) {
            const double x = contour->origin().x - kX0 + q.x;
            const double y = contour->origin().y - kY0 + q.y;
            // Under the building the surface is filled in, not measured.
            if (std::fabs(x) < kBox / 2 + 2 && std::fabs(y) < kBox / 2 + 2) continue;
            QVERIFY2(std::fabs(kZ0 + 0.02 * x - line.level) < 0.05, qPrintable(QString::number(x)));
        }
    }
    QCOMPARE(pointCount(ds->getFilePath_Dem_Classify()), quint64(m_ground + m_building));
}

void TestLongActions::sampleThinsByShare()
{
    PtCloudDataSet* ds = m_c->getDataSet("scene");
    stControlParam_DataSet_Do_Sample p;
    p.dataSetName = "scene";
    p.targetName = ds->createEmptyLocatedContent_Points();
    p.func = 200;
    p.params = QVariantList{0.25, 5.0, 1.0};
    QCOMPARE(m_c->doCmd_DataSet_Do_Sample(p, nullptr), PCAR_Success);
    const double kept = double(pointCount(p.targetName)) / (m_ground + m_building);
    QVERIFY2(std::fabs(kept - 0.25) < 0.02, qPrintable(QString::number(kept)));
    // Not adopted: the dataset keeps its points until the caller says so.
    QCOMPARE(pointCount(ds->getFilePath_Points()), quint64(m_ground + m_building));
    m_c->reset();
    QVERIFY(!QFileInfo::exists(p.targetName));
}

void TestLongActions::badCodesAndDataSets_data()
{
    QTest::addColumn<int>("kind");  // 0 mesh, 1 split, 2 sample
    QTest::addColumn<int>("func");
    QTest::addColumn<QString>("dataSet");
    QTest::addColumn<int>("expected");
    QTest::newRow("split 99") << 1 << 99 << "scene" << int(PCAR_CannotExecute);
    QTest::newRow("split 108") << 1 << 108 << "scene" << int(PCAR_CannotExecute);
    QTest::newRow("sample 201") << 2 << 201 << "scene" << int(PCAR_CannotExecute);
    QTest::newRow("mesh 4") << 0 << 4 << "scene" << int(PCAR_CannotExecute);
    QTest::newRow("split missing dataset") << 1 << 107 << "none" << int(PCAR_InvalidDataSet);
    QTest::newRow("sample missing dataset") << 2 << 200 << "none" << int(PCAR_InvalidDataSet);
}

void TestLongActions::badCodesAndDataSets()
{
    QFETCH(int, kind);
    QFETCH(int, func);
    QFETCH(QString, dataSet);
    QFETCH(int, expected);
    stControlParam_DataSet_Do_Split p;
    p.dataSetName = dataSet;
    p.targetName = m_dir.filePath("never.pcb");
    p.func = func;
    p.params = func == 107 ? QVariant(QVariantList{true, 0.5, 1.0, 500, 3, 0.65, false})
                           : QVariant(QVariantList{0.5, 5.0, 1.0});
    EEPtCloudActResult r;
    if (kind == 0) r = m_c->doCmd_DataSet_Do_Mesh(static_cast<const stControlParam_DataSet_Do_Mesh&>(
                           static_cast<const stControlParam_DataSet_Do&>(p)), nullptr);
    else if (kind == 1) r = m_c->doCmd_DataSet_Do_Split(p, nullptr);
    else r = m_c->doCmd_DataSet_Do_Sample(static_cast<const stControlParam_DataSet_Do_Sample&>(
                 static_cast<const stControlParam_DataSet_Do&>(p)), nullptr);
    QCOMPARE(int(r), expected);
    QVERIFY(!QFileInfo::exists(p.targetName));
}

void TestLongActions::stopLeavesNoTarget()
{
    PtCloudDataSet* ds = m_c->getDataSet("scene");
    const QStringList before = QDir(ds->getFolder()).entryList(QDir::Files);
    stControlParam_DataSet_Do_Split p;
    p.dataSetName = "scene";
    p.targetName = QDir(ds->getFolder()).filePath("stopped.pcb");
    p.func = 107;
    p.params = QVariantList{true, 0.5, 1.0, 500, 3, 0.65, false};
    for (int polls : {0, 3, 30}) {
        PtCloud_SimpleProgress progress;
        progress.stopAfterPolls(polls);
        QVERIFY(m_c->doCmd_DataSet_Do_Split(p, &progress) != PCAR_Success);
        QVERIFY(!QFileInfo::exists(p.targetName));
        QCOMPARE(QDir(ds->getFolder()).entryList(QDir::Files), before);
    }
}

QTEST_GUILESS_MAIN(TestLongActions)
#include "tst_long_actions.moc"
