// The dataset item in a real view under Xvfb: colours at the pixels where
// the blocks' points project, and picking.
#include "GraphTestData.h"
#include "OsgGraphItem_PcDataSet.h"
#include "OsgQWidget.h"
#include "OsgTackballManipulate.h"
#include "PointColors.h"
#include "PtCloud_DataSetFile.h"

#include <QtTest>

#include <osg/Camera>

#include <cmath>
#include <cstring>
#include <memory>
#include <random>

using namespace ptCloud;
using osgHelper::OsgQWidget;

Q_DECLARE_METATYPE(osg::Vec3d)
Q_DECLARE_METATYPE(osg::Vec3f)

namespace {

constexpr int kWidth = 320;
constexpr int kHeight = 240;
constexpr int kFrameTimeoutMs = 5000;
constexpr int kSettleMs = 30000;
// Unlike every palette's colours, black (the low end of intensities) included.
const QColor kBackground(40, 0, 60);

// A view showing one dataset item from the top, framed on the data.
struct Scene {
    std::unique_ptr<OsgQWidget> view;
    osg::ref_ptr<OsgGraphItem_PcDataSet> item;
    std::unique_ptr<PtCloud_DataSetFile> file;

    ~Scene()
    {
        if (item && view) {
            view->getManipulate()->removeMonitor(item.get());
            view->getRoot()->removeChild(item.get());
        }
    }
};

bool drawFrame(OsgQWidget* view)
{
    QSignalSpy swapped(view, &QOpenGLWidget::frameSwapped);
    view->requestRedraw();
    return swapped.wait(kFrameTimeoutMs);
}

// Frames, each followed by the per-frame harvest, until the item has
// nothing pending.
bool settle(Scene& scene)
{
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < kSettleMs) {
        if (!drawFrame(scene.view.get())) return false;
        scene.item->updateFrame();
        if (!scene.item->hasPendingWork()) return drawFrame(scene.view.get());
    }
    return false;
}

bool openScene(Scene& scene, const QString& path)
{
    scene.view = std::make_unique<OsgQWidget>(nullptr, false);
    scene.view->getViewer()->getCamera()->setClearColor(
        osg::Vec4(kBackground.redF(), kBackground.greenF(), kBackground.blueF(), 1));
    scene.view->resize(kWidth, kHeight);
    scene.file = std::make_unique<PtCloud_DataSetFile>(path);
    scene.item = new OsgGraphItem_PcDataSet(scene.view->getViewer(), scene.view->getManipulate());
    if (!scene.item->load(scene.file.get(), "scene")) return false;
    scene.view->getRoot()->addChild(scene.item.get());
    const osg::BoundingBox bounds = scene.item->dataBounds();
    scene.view->setHomeBound(osg::BoundingSphere(bounds.center(), bounds.radius()));
    scene.view->show();
    if (!QTest::qWaitForWindowExposed(scene.view.get())) return false;
    scene.view->EnterTopViewManipulate();
    return settle(scene);
}

// Window coordinates of a point, in device pixels, y from the bottom.
osg::Vec3d windowOf(const OsgQWidget* view, const osg::Vec3d& position)
{
    const osg::Camera* camera = view->getViewer()->getCamera();
    return position *
           (camera->getViewMatrix() * camera->getProjectionMatrix() * camera->getViewport()->computeWindowMatrix());
}

bool similar(const QColor& a, const osg::Vec4ub& b)
{
    return std::abs(a.red() - b.r()) <= 3 && std::abs(a.green() - b.g()) <= 3 && std::abs(a.blue() - b.b()) <= 3;
}

}  // namespace

class TestGraphRender : public QObject {
    Q_OBJECT

private slots:
    void init();
    void coloursAtTheirPixels_data();
    void coloursAtTheirPixels();
    void pickDrawnPoint_data();
    void pickDrawnPoint();
    void pickOnEmptySky();
    void pickOnMeshGivesNearestCorner();

private:
    // Line of ten points (block 5, intensities 100..109), two points one above
    // the other (block 7), a dense 1 m cube of 3000 random points (block 8), a
    // tall column (block 11) and one point over the column's foot (block 12).
    bool openPickScene(Scene& scene);

    std::unique_ptr<QTemporaryDir> m_dir;
    stPtCloud_PointArray m_cube;
};

void TestGraphRender::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
}

void TestGraphRender::coloursAtTheirPixels_data()
{
    QTest::addColumn<int>("mode");
    // Chosen on the item over a file that says height, rather than the
    // file's own mode.
    QTest::addColumn<bool>("chosen");
    // The mode's column is left out of the file: the choice is refused and
    // the height ramp stays.
    QTest::addColumn<bool>("withColumn");
    QTest::newRow("rgb") << int(CM_RGB) << false << true;
    QTest::newRow("classification") << int(CM_Classification) << false << true;
    QTest::newRow("clusters") << int(CM_Cluster) << false << true;
    QTest::newRow("height") << int(CM_Height) << false << true;
    QTest::newRow("intensity") << int(CM_Intensity) << false << true;
    QTest::newRow("chosen rgb") << int(CM_RGB) << true << true;
    QTest::newRow("chosen intensity") << int(CM_Intensity) << true << true;
    QTest::newRow("chosen return number") << int(CM_ReturnNumber) << true << true;
    QTest::newRow("chosen point source") << int(CM_PointSource) << true << true;
    QTest::newRow("rgb without colours") << int(CM_RGB) << true << false;
    QTest::newRow("classification without classes") << int(CM_Classification) << true << false;
    QTest::newRow("intensity without intensities") << int(CM_Intensity) << true << false;
    QTest::newRow("return number without returns") << int(CM_ReturnNumber) << true << false;
    QTest::newRow("point source without sources") << int(CM_PointSource) << true << false;
}

void TestGraphRender::coloursAtTheirPixels()
{
    QFETCH(int, mode);
    QFETCH(bool, chosen);
    QFETCH(bool, withColumn);
    const QMap<int, EDataSetColumn> columnOfMode = {
        {CM_RGB, DSC_Color},           {CM_Classification, DSC_Classification},
        {CM_Intensity, DSC_Intensity}, {CM_ReturnNumber, DSC_ReturnNumber},
        {CM_PointSource, DSC_PointSourceId}, {CM_Cluster, DSC_Label}};
    QList<EDataSetColumn> columns = {DSC_Location,   DSC_Color,        DSC_Intensity,    DSC_ReturnNumber,
                                     DSC_Classification, DSC_PointSourceId, DSC_Label};
    if (!withColumn) columns.removeAll(columnOfMode.value(mode));
    const stPtCloud_DataSetHeader h = GraphTestData::header(chosen ? CM_Height : EColoringMode(mode), columns);
    // Four 10 m patches of 30 x 30 points (never thinned), at heights 0 to 30.
    const pcVec3f corners[] = {pcVec3f(-20, -20, 0), pcVec3f(10, -20, 10), pcVec3f(-20, 10, 20),
                               pcVec3f(10, 10, 30)};
    const pcVec4f rgb[] = {pcVec4f(1, 0, 0, 1), pcVec4f(0, 1, 0, 1), pcVec4f(0, 0, 1, 1), pcVec4f(1, 1, 1, 1)};
    const quint8 classes[] = {2, 6, 9, 5};
    // The 2 % and 98 % values are the lowest and the highest: the ramp runs
    // from 64 to 255.
    const quint16 intensities[] = {64, 128, 192, 255};
    const quint16 sources[] = {101, 102, 103, 104};
    QMap<int, stPtCloud_PointArray> blocks;
    osg::Vec4ub expected[4];
    for (int p = 0; p < 4; ++p) {
        stPtCloud_PointArray patch = GraphTestData::grid(h, 30, corners[p], 10.f);
        for (int i = 0; i < patch.count; ++i) {
            if (patch.hasColumn(DSC_Color)) patch.colors[size_t(i)] = rgb[p];
            if (patch.hasColumn(DSC_Classification))
                GraphTestData::setByte(patch, DSC_Classification, i, classes[p]);
            if (patch.hasColumn(DSC_ReturnNumber)) GraphTestData::setByte(patch, DSC_ReturnNumber, i, quint8(p + 1));
            if (patch.hasColumn(DSC_PointSourceId))
                std::memcpy(patch.columns[DSC_PointSourceId].data() + size_t(i) * 2, &sources[p], 2);
            GraphTestData::setLabel(patch, i, p);
            if (patch.hasColumn(DSC_Intensity)) GraphTestData::setIntensity(patch, i, intensities[p]);
        }
        blocks.insert(p + 1, patch);
        switch (withColumn ? mode : int(CM_Height)) {
        case CM_RGB:
            expected[p] = osg::Vec4ub(quint8(rgb[p].x * 255), quint8(rgb[p].y * 255), quint8(rgb[p].z * 255), 255);
            break;
        case CM_Classification: expected[p] = PointColors::classification(classes[p]); break;
        case CM_Cluster: expected[p] = PointColors::cluster(p); break;
        case CM_Height: expected[p] = PointColors::heightRamp(float(p) / 3.f); break;
        case CM_ReturnNumber: expected[p] = PointColors::returnNumber(unsigned(p + 1)); break;
        case CM_PointSource: expected[p] = PointColors::cluster(sources[p]); break;
        default: expected[p] = PointColors::intensityRamp(float(intensities[p] - 64) / 191.f); break;
        }
    }
    const QString path = m_dir->filePath("patches.pcd");
    QString error;
    QVERIFY2(GraphTestData::write(path, h, blocks, &error), qPrintable(error));

    Scene scene;
    QVERIFY(openScene(scene, path));
    QCOMPARE(scene.item->coloringModes().contains(EColoringMode(mode)), withColumn);
    if (chosen) {
        scene.item->setColoringMode(EColoringMode(mode));
        QVERIFY(settle(scene));
    }
    QCOMPARE(scene.item->drawnPointCount(), quint64(4 * 900));
    const QImage image = scene.view->grabFramebuffer();
    QVERIFY(!image.isNull());
    for (int p = 0; p < 4; ++p) {
        const pcVec3f& c = corners[p];
        const osg::Vec3d at = windowOf(scene.view.get(), osg::Vec3d(c.x + 5, c.y + 5, c.z));
        const int px = int(std::floor(at.x())), py = image.height() - 1 - int(std::floor(at.y()));
        // Points lie a pixel or two apart: most lit pixels around the patch
        // centre carry its colour, none another's.
        int lit = 0, matching = 0;
        for (int dy = -4; dy <= 4; ++dy) {
            for (int dx = -4; dx <= 4; ++dx) {
                const QColor pixel = image.pixelColor(px + dx, py + dy);
                if (pixel == kBackground) continue;
                ++lit;
                if (similar(pixel, expected[p])) ++matching;
            }
        }
        QVERIFY2(lit >= 20 && matching == lit,
                 qPrintable(QStringLiteral("patch %1 at (%2, %3): %4 of %5 lit pixels match %6")
                                .arg(p)
                                .arg(px)
                                .arg(py)
                                .arg(matching)
                                .arg(lit)
                                .arg(image.pixelColor(px, py).name())));
    }
    // Between the patches only the background shows.
    const osg::Vec3d gap = windowOf(scene.view.get(), osg::Vec3d(-5, -5, 0));
    QCOMPARE(image.pixelColor(int(gap.x()), image.height() - 1 - int(gap.y())), kBackground);
}

bool TestGraphRender::openPickScene(Scene& scene)
{
    const stPtCloud_DataSetHeader h = GraphTestData::header(CM_Height, {DSC_Location, DSC_Intensity});
    stPtCloud_PointArray line = GraphTestData::block(h, 10);
    for (int i = 0; i < 10; ++i) {
        line.positions[size_t(i)] = pcVec3f(-20.f + 5.f * float(i), -20.25f, 0.5f);
        GraphTestData::setIntensity(line, i, quint16(100 + i));
    }
    stPtCloud_PointArray stacked = GraphTestData::block(h, 2);
    stacked.positions = {pcVec3f(0.25f, 0.25f, 0.f), pcVec3f(0.25f, 0.25f, 8.f)};
    m_cube = GraphTestData::block(h, 3000);
    std::mt19937 random(7);
    std::uniform_real_distribution<float> unit(0.f, 1.f);
    for (pcVec3f& p : m_cube.positions) p = pcVec3f(10.f + unit(random), -10.f + unit(random), unit(random));
    // A column whose box reaches higher than a lone point over its foot: the
    // column is searched first but the lone point is nearer the eye.
    stPtCloud_PointArray column = GraphTestData::block(h, 2);
    column.positions = {pcVec3f(-10.f, -5.f, 0.f), pcVec3f(-12.f, -5.f, 20.f)};
    stPtCloud_PointArray lone = GraphTestData::block(h, 1);
    lone.positions = {pcVec3f(-10.f, -5.f, 10.f)};
    const QString path = m_dir->filePath("pick.pcd");
    QString error;
    if (!GraphTestData::write(path, h, {{5, line}, {7, stacked}, {8, m_cube}, {11, column}, {12, lone}}, &error))
        return false;
    return openScene(scene, path);
}

void TestGraphRender::pickDrawnPoint_data()
{
    QTest::addColumn<osg::Vec3d>("target");  // where to click, before the pixel offset
    QTest::addColumn<osg::Vec3d>("offset");
    QTest::addColumn<int>("block");
    QTest::addColumn<int>("point");  // -1: whichever drawn point of the thinned cube
    QTest::addColumn<osg::Vec3f>("position");
    // A pixel or two off a point of the line still finds it.
    for (int i : {0, 7, 9}) {
        const osg::Vec3f p(-20.f + 5.f * float(i), -20.25f, 0.5f);
        QTest::addRow("line point %d", i) << osg::Vec3d(p) << osg::Vec3d(1.5, -1.0, 0) << 5 << i << p;
    }
    // Seen from the top, the upper of the two stacked points hides the other.
    QTest::newRow("nearest to the eye") << osg::Vec3d(0.25, 0.25, 4.0) << osg::Vec3d() << 7 << 1
                                        << osg::Vec3f(0.25f, 0.25f, 8.f);
    QTest::newRow("nearest across blocks") << osg::Vec3d(-10, -5, 5) << osg::Vec3d() << 12 << 0
                                           << osg::Vec3f(-10.f, -5.f, 10.f);
    QTest::newRow("thinned block") << osg::Vec3d(10.5, -9.5, 0.5) << osg::Vec3d() << 8 << -1 << osg::Vec3f();
}

void TestGraphRender::pickDrawnPoint()
{
    QFETCH(osg::Vec3d, target);
    QFETCH(osg::Vec3d, offset);
    QFETCH(int, block);
    QFETCH(int, point);
    QFETCH(osg::Vec3f, position);
    Scene scene;
    QVERIFY(openPickScene(scene));
    QVERIFY(scene.item->isReady());
    const osg::Vec3d at = windowOf(scene.view.get(), target) + offset;
    int pickedBlock = -1, picked = -1;
    osg::Vec3f pickedPosition;
    QMap<EDataSetColumn, QVariant> attributes;
    QVERIFY(scene.item->pickNearest(at.x(), at.y(), &pickedBlock, &picked, &pickedPosition, &attributes));
    QCOMPARE(pickedBlock, block);
    if (point < 0) {
        // Far from the camera, the cube is drawn every 10th point; the index
        // is still the one in the full block.
        QCOMPARE(int(scene.item->blockGeometry(8)->getVertexArray()->getNumElements()), 300);
        QVERIFY(picked >= 0 && picked < m_cube.count && picked % 10 == 0);
        const pcVec3f& p = m_cube.positions[size_t(picked)];
        position = osg::Vec3f(p.x, p.y, p.z);
    } else {
        QCOMPARE(picked, point);
    }
    QCOMPARE(pickedPosition, position);
    const QVariantList location = attributes.value(DSC_Location).toList();
    QCOMPARE(location.size(), 3);
    const pcVec3d origin = GraphTestData::origin();
    QCOMPARE(location[0].toDouble(), origin.x + double(position.x()));
    QCOMPARE(location[1].toDouble(), origin.y + double(position.y()));
    QCOMPARE(location[2].toDouble(), origin.z + double(position.z()));
    if (block == 5) QCOMPARE(attributes.value(DSC_Intensity).toInt(), 100 + point);
}

void TestGraphRender::pickOnEmptySky()
{
    Scene scene;
    QVERIFY(openPickScene(scene));
    int block = 3, point = 3;
    osg::Vec3f position;
    QMap<EDataSetColumn, QVariant> attributes;
    attributes.insert(DSC_Intensity, 1);
    QVERIFY(!scene.item->pickNearest(2, 2, &block, &point, &position, &attributes));
    QCOMPARE(block, -1);
    QCOMPARE(point, -1);
    QVERIFY(attributes.isEmpty());
    // Between the points of the line, too.
    const osg::Vec3d gap = windowOf(scene.view.get(), osg::Vec3d(-17.5, -20.25, 0.5));
    QVERIFY(!scene.item->pickNearest(gap.x(), gap.y(), &block, &point, &position, &attributes));
    QCOMPARE(block, -1);
}

void TestGraphRender::pickOnMeshGivesNearestCorner()
{
    stPtCloud_DataSetHeader h = GraphTestData::header(CM_Height, {DSC_Location});
    h.type = DST_Mesh;
    stPtCloud_PointArray mesh = GraphTestData::block(h, 4);
    mesh.positions = {pcVec3f(0, 0, 0), pcVec3f(20, 0, 1), pcVec3f(20, 20, 2), pcVec3f(0, 20, 1)};
    mesh.triangles = {0, 1, 2, 0, 2, 3};
    const QString path = m_dir->filePath("mesh.pcd");
    QString error;
    QVERIFY2(GraphTestData::write(path, h, {{3, mesh}}, &error), qPrintable(error));
    Scene scene;
    QVERIFY(openScene(scene, path));

    // Inside the second triangle, nearest its corner 3.
    const osg::Vec3d at = windowOf(scene.view.get(), osg::Vec3d(2, 17, 1));
    int block = -1, point = -1;
    osg::Vec3f position;
    QMap<EDataSetColumn, QVariant> attributes;
    QVERIFY(scene.item->pickNearest(at.x(), at.y(), &block, &point, &position, &attributes));
    QCOMPARE(block, 3);
    QCOMPARE(point, 3);
    QCOMPARE(position, osg::Vec3f(0, 20, 1));
    QCOMPARE(attributes.value(DSC_Location).toList().value(1).toDouble(), GraphTestData::origin().y + 20.0);
}

QTEST_MAIN(TestGraphRender)
#include "tst_graph_render.moc"
