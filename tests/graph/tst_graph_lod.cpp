// The level-of-detail loader: levels from the camera, thinning, the loader
// thread's request protocol, and the dataset item's load, harvest, hide and
// teardown, without a display (the viewer is never realised; frames are
// counted with Viewer::advance).
#include "GraphTestData.h"
#include "MipMapThread.h"
#include "OsgGraphItem_PcDataSet.h"
#include "OsgTackballManipulate.h"
#include "PcBlockTile.h"
#include "PtCloud_DataSetFile.h"

#include <QtTest>

#include <osgViewer/Viewer>

#include <cmath>
#include <memory>

using namespace ptCloud;

Q_DECLARE_METATYPE(osg::Vec3d)

namespace {

constexpr int kSettleMs = 20000;

// A reader that reports each block read and, while gated, holds it until
// the test lets it pass.
class GatedReader : public IDataSetReader {
public:
    explicit GatedReader(const QString& path) : m_file(path) {}

    bool getBlocks(QMap<int, std::tuple<unsigned int, pcBoundingBoxf>>& out) const override
    {
        return m_file.getBlocks(out);
    }
    const stPtCloud_PointArray* readBlock(int index) override
    {
        entered.release();
        passes.acquire();
        return m_file.readBlock(index);
    }
    bool openFile() override { return m_file.openFile(); }
    void closeFile() override { m_file.closeFile(); }
    EDataSetSort getSortType() const override { return m_file.getSortType(); }
    EDataSetType getDataSetType() const override { return m_file.getDataSetType(); }
    const stPtCloud_DataSetHeader& getHeader() const override { return m_file.getHeader(); }

    QSemaphore entered;
    QSemaphore passes;

private:
    PtCloud_DataSetFile m_file;
};

QStringList g_messages;

void recordMessage(QtMsgType, const QMessageLogContext&, const QString& message) { g_messages << message; }

// A box of radius 5 (6 by 8, flat) centred on centre.
pcBoundingBoxf boxOfRadius5(const pcVec3f& centre)
{
    return pcBoundingBoxf(centre.x - 3, centre.y - 4, centre.z, centre.x + 3, centre.y + 4, centre.z);
}

// n points spread over a 10 x 10 square at `corner`, each at its own place.
stPtCloud_PointArray spread(const stPtCloud_DataSetHeader& h, int n, const pcVec3f& corner)
{
    stPtCloud_PointArray a = GraphTestData::block(h, n);
    for (int i = 0; i < n; ++i)
        a.positions[size_t(i)] = pcVec3f(corner.x + float(i % 100) * 0.1f, corner.y + float(i / 100) * 0.1f, corner.z);
    return a;
}

int vertexCount(const osg::Geometry* geometry)
{
    return geometry ? int(geometry->getVertexArray()->getNumElements()) : -1;
}

}  // namespace

class TestGraphLod : public QObject {
    Q_OBJECT

private slots:
    void init();
    void computeLevelThresholds_data();
    void computeLevelThresholds();
    void thinning_data();
    void thinning();
    void staleResultDiscarded();
    void stopJoinsLoader();
    void eyePosition_data();
    void eyePosition();
    void hiddenItemNeitherHarvestsNorRequests();
    void loadRecord_data();
    void loadRecord();
    void itemWithoutData_data();
    void itemWithoutData();
    void reloadAfterRewrite();
    void teardownWhileLoading();

private:
    // Writes blocks 1, 2, 3 (2000 points each) near the origin, 200 away and
    // 1000 away along x: levels 1, 2 and 3 seen from the origin.
    QString writeThreeBlocks();
    // Harvests frame after frame until the item has nothing pending.
    bool settle(OsgGraphItem_PcDataSet* item, osgViewer::Viewer* viewer);

    std::unique_ptr<QTemporaryDir> m_dir;
};

void TestGraphLod::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
}

QString TestGraphLod::writeThreeBlocks()
{
    const stPtCloud_DataSetHeader h = GraphTestData::header(CM_Height, {DSC_Location});
    const QString path = m_dir->filePath("three.pcd");
    QString error;
    const bool ok = GraphTestData::write(path, h,
                                         {{1, spread(h, 2000, pcVec3f(-5, -5, 0))},
                                          {2, spread(h, 2000, pcVec3f(195, -5, 0))},
                                          {3, spread(h, 2000, pcVec3f(995, -5, 0))}},
                                         &error);
    return ok ? path : QString();
}

bool TestGraphLod::settle(OsgGraphItem_PcDataSet* item, osgViewer::Viewer* viewer)
{
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < kSettleMs) {
        item->updateFrame();
        if (!item->hasPendingWork()) return true;
        viewer->advance();
        QThread::msleep(2);
    }
    return false;
}

void TestGraphLod::computeLevelThresholds_data()
{
    QTest::addColumn<osg::Vec3d>("eye");
    QTest::addColumn<int>("level");
    // The box's radius is 5 and its centre (1000, 2000, 30).
    QTest::newRow("at the centre") << osg::Vec3d(1000, 2000, 30) << 1;
    QTest::newRow("just inside 20 r") << osg::Vec3d(1099.99, 2000, 30) << 1;
    QTest::newRow("exactly 20 r") << osg::Vec3d(1100, 2000, 30) << 2;
    QTest::newRow("just inside 50 r") << osg::Vec3d(1000, 2249.98, 30) << 2;
    QTest::newRow("exactly 50 r") << osg::Vec3d(1000, 2250, 30) << 3;
    QTest::newRow("far") << osg::Vec3d(-50000, 2000, 30) << 3;
}

void TestGraphLod::computeLevelThresholds()
{
    QFETCH(osg::Vec3d, eye);
    QFETCH(int, level);
    PcBlockTile tile(7, boxOfRadius5(pcVec3f(1000, 2000, 30)), 5000);
    QCOMPARE(tile.box().radius(), 5.0f);
    QCOMPARE(tile.wantedLevel(), 0);
    QCOMPARE(tile.computeLevel(eye), level);
    QCOMPARE(tile.wantedLevel(), level);
    QCOMPARE(tile.loadedLevel(), 0);
}

void TestGraphLod::thinning_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("level");
    QTest::addColumn<int>("stride");  // every stride-th point drawn
    QTest::newRow("1001, level 1") << 1001 << 1 << 1;
    QTest::newRow("1001, level 2") << 1001 << 2 << 3;
    QTest::newRow("1001, level 3") << 1001 << 3 << 10;
    QTest::newRow("2995, level 3") << 2995 << 3 << 10;
    QTest::newRow("1000, level 3: never thinned") << 1000 << 3 << 1;
    QTest::newRow("1, level 3: never thinned") << 1 << 3 << 1;
}

void TestGraphLod::thinning()
{
    QFETCH(int, count);
    QFETCH(int, level);
    QFETCH(int, stride);
    const stPtCloud_DataSetHeader h = GraphTestData::header(CM_RGB, {DSC_Location, DSC_Color});
    stPtCloud_PointArray points = GraphTestData::block(h, count);
    for (int i = 0; i < count; ++i) {
        points.positions[size_t(i)] = pcVec3f(float(i % 50), float(i / 50), float(i % 7));
        points.colors[size_t(i)] = pcVec4f(float(i % 256) / 255.f, 0.f, 1.f, 1.f);
    }
    const QString path = m_dir->filePath("block.pcd");
    QString error;
    QVERIFY2(GraphTestData::write(path, h, {{4, points}}, &error), qPrintable(error));
    PtCloud_DataSetFile reader(path);
    QVERIFY(reader.openFile());
    QMap<int, std::tuple<unsigned int, pcBoundingBoxf>> blocks;
    reader.getBlocks(blocks);

    PcBlockTile tile(4, std::get<1>(blocks[4]), std::get<0>(blocks[4]));
    // From the box centre out to 30 and 100 radii: levels 1, 2 and 3.
    const pcVec3f centre = tile.box().center();
    const double distance = level == 1 ? 0.0 : (level == 2 ? 30.0 : 100.0) * double(tile.box().radius());
    QCOMPARE(tile.computeLevel(osg::Vec3d(centre.x + distance, centre.y, centre.z)), level);

    int built = 0;
    osg::ref_ptr<osg::Geometry> geometry = tile.build(&reader, &built);
    QVERIFY(geometry);
    QCOMPARE(built, level);
    const auto* vertices = dynamic_cast<const osg::Vec3Array*>(geometry->getVertexArray());
    const int expected = (count + stride - 1) / stride;
    QCOMPARE(int(vertices->size()), expected);
    QCOMPARE(PcBlockTile::pointStride(level, unsigned(count)), stride);
    const auto* colours = dynamic_cast<const osg::Vec4ubArray*>(geometry->getColorArray());
    QVERIFY(colours && colours->getNormalize());
    QCOMPARE(int(colours->size()), expected);
    for (int k = 0; k < expected; ++k) {
        const pcVec3f& p = points.positions[size_t(k * stride)];
        QCOMPARE((*vertices)[size_t(k)], osg::Vec3(p.x, p.y, p.z));
        QCOMPARE(int((*colours)[size_t(k)].r()), (k * stride) % 256);
    }
    const auto* drawn = dynamic_cast<const osg::DrawArrays*>(geometry->getPrimitiveSet(0));
    QVERIFY(drawn && drawn->getMode() == GL_POINTS && drawn->getCount() == expected);
    QCOMPARE(geometry->getVertexArray()->getBufferObject()->getUsage(), GLenum(GL_STATIC_DRAW));

    // Loaded at this level, the tile has nothing more to build.
    tile.setLoadedLevel(level);
    QVERIFY(!tile.build(&reader, &built));
}

void TestGraphLod::staleResultDiscarded()
{
    const stPtCloud_DataSetHeader h = GraphTestData::header(CM_Height, {DSC_Location});
    const QString path = m_dir->filePath("stale.pcd");
    QString error;
    QVERIFY2(GraphTestData::write(path, h, {{1, spread(h, 3000, pcVec3f(0, 0, 0))}}, &error), qPrintable(error));
    GatedReader reader(path);
    QVERIFY(reader.openFile());
    QMap<int, std::tuple<unsigned int, pcBoundingBoxf>> blocks;
    reader.getBlocks(blocks);
    PcBlockTile tile(1, std::get<1>(blocks[1]), 3000);
    const pcVec3f c = tile.box().center();
    const double r = double(tile.box().radius());

    MipMapThread loader(&reader);
    // Opens the gate before the loader is stopped, also when a check fails.
    const std::unique_ptr<QSemaphore, void (*)(QSemaphore*)> openGate(&reader.passes,
                                                                      [](QSemaphore* s) { s->release(1 << 20); });
    loader.start();
    loader.lock();
    const int first = tile.computeLevel(osg::Vec3d(c.x + 30 * r, c.y, c.z));
    loader.replaceRequestsLocked({&tile});
    loader.unlock();
    QCOMPARE(first, 2);
    QVERIFY(loader.hasRequests());
    // The loader is reading the block for level 2 when the camera moves away.
    QVERIFY(reader.entered.tryAcquire(1, 5000));
    loader.lock();
    const bool nothingYet = loader.takeResultsLocked().isEmpty();
    const int second = tile.computeLevel(osg::Vec3d(c.x + 100 * r, c.y, c.z));
    loader.replaceRequestsLocked({&tile});
    loader.unlock();
    QVERIFY(nothingYet);
    QCOMPARE(second, 3);
    // Once the level-2 read is through, the loader starts reading for level
    // 3; by then the level-2 geometry was dropped, not stored.
    reader.passes.release(1);
    QVERIFY(reader.entered.tryAcquire(1, 5000));
    loader.lock();
    const bool staleDropped = loader.takeResultsLocked().isEmpty();
    loader.unlock();
    QVERIFY(staleDropped);
    reader.passes.release(1000);

    QList<MipMapThread::Result> results;
    QElapsedTimer timer;
    timer.start();
    while (results.isEmpty() && timer.elapsed() < kSettleMs) {
        QThread::msleep(1);
        loader.lock();
        results = loader.takeResultsLocked();
        loader.unlock();
    }
    QCOMPARE(results.size(), 1);
    QCOMPARE(results.first().first, &tile);
    QCOMPARE(vertexCount(results.first().second.get()), 300);
    tile.setLoadedLevel(tile.wantedLevel());
    QTRY_VERIFY(!loader.hasRequests());
    loader.stop();
}

void TestGraphLod::stopJoinsLoader()
{
    const QString path = writeThreeBlocks();
    QVERIFY(!path.isEmpty());
    PtCloud_DataSetFile reader(path);
    QVERIFY(reader.openFile());
    QMap<int, std::tuple<unsigned int, pcBoundingBoxf>> blocks;
    reader.getBlocks(blocks);
    std::vector<std::unique_ptr<PcBlockTile>> tiles;
    QList<PcBlockTile*> requests;
    for (auto it = blocks.cbegin(); it != blocks.cend(); ++it) {
        tiles.push_back(std::make_unique<PcBlockTile>(it.key(), std::get<1>(it.value()), std::get<0>(it.value())));
        tiles.back()->computeLevel(osg::Vec3d());
        requests << tiles.back().get();
    }
    MipMapThread loader(&reader);
    loader.start();
    loader.lock();
    loader.replaceRequestsLocked(requests);
    loader.unlock();
    loader.stop();
    QVERIFY(loader.isFinished());
    // Whatever was built before the stop was dropped.
    loader.lock();
    const bool dropped = loader.takeResultsLocked().isEmpty();
    loader.unlock();
    QVERIFY(dropped);
}

void TestGraphLod::eyePosition_data()
{
    QTest::addColumn<bool>("manipulator");
    QTest::addColumn<QList<int>>("counts");  // of blocks 1, 2, 3
    // No camera manipulator: distances from the origin.
    QTest::newRow("no manipulator") << false << QList<int>{2000, 667, 200};
    // The manipulator's eye at block 3 (1000 along x).
    QTest::newRow("eye at block 3") << true << QList<int>{200, 200, 2000};
}

void TestGraphLod::eyePosition()
{
    QFETCH(bool, manipulator);
    QFETCH(QList<int>, counts);
    const QString path = writeThreeBlocks();
    QVERIFY(!path.isEmpty());
    PtCloud_DataSetFile file(path);

    osg::ref_ptr<osgViewer::Viewer> viewer = new osgViewer::Viewer;
    osg::ref_ptr<osgHelper::OsgTackballManipulate> trackball = new osgHelper::OsgTackballManipulate;
    if (manipulator) {
        viewer->setCameraManipulator(trackball, false);
        trackball->setTransformation(osg::Vec3d(1000, 0, 0), osg::Vec3d(1000, 10, 0), osg::Vec3d(0, 0, 1));
    }
    osg::ref_ptr<OsgGraphItem_PcDataSet> item = new OsgGraphItem_PcDataSet(viewer.get(), trackball.get());
    QVERIFY(item->load(&file, "three"));
    QCOMPARE(item->getNumDrawables(), 0u);
    QVERIFY(!item->hasPendingWork());
    item->onCameraChanged();
    QVERIFY(settle(item.get(), viewer.get()));
    QVERIFY(item->isReady());
    QCOMPARE(item->getNumDrawables(), 3u);
    for (int id = 1; id <= 3; ++id)
        QVERIFY2(vertexCount(item->blockGeometry(id)) == counts[id - 1],
                 qPrintable(QStringLiteral("block %1: %2").arg(id).arg(vertexCount(item->blockGeometry(id)))));
    QCOMPARE(item->drawnPointCount(), quint64(counts[0] + counts[1] + counts[2]));
    QCOMPARE(item->dataBounds().xMin(), -5.f);
    QCOMPARE(item->dataBounds().xMax(), 1004.9f);
    trackball->removeMonitor(item.get());
}

void TestGraphLod::hiddenItemNeitherHarvestsNorRequests()
{
    const QString path = writeThreeBlocks();
    QVERIFY(!path.isEmpty());
    PtCloud_DataSetFile file(path);
    osg::ref_ptr<osgViewer::Viewer> viewer = new osgViewer::Viewer;
    osg::ref_ptr<osgHelper::OsgTackballManipulate> trackball = new osgHelper::OsgTackballManipulate;
    osg::ref_ptr<OsgGraphItem_PcDataSet> item = new OsgGraphItem_PcDataSet(viewer.get(), trackball.get());
    QVERIFY(item->isVisible());
    QVERIFY(item->load(&file, "three"));

    item->setVisible(false);
    QCOMPARE(item->getNodeMask(), 0u);
    item->onCameraChanged();
    QVERIFY(!item->hasPendingWork());
    QThread::msleep(50);
    item->updateFrame();
    QCOMPARE(item->getNumDrawables(), 0u);
    QVERIFY(!item->isReady());

    // Shown, it catches up with the camera.
    item->setVisible(true);
    QCOMPARE(item->getNodeMask(), ~0u);
    QVERIFY(settle(item.get(), viewer.get()));
    const osg::Geometry* far = item->blockGeometry(3);
    QCOMPARE(vertexCount(far), 200);

    // Hidden again, a camera move near block 3 changes nothing: what was
    // loaded stays.
    item->setVisible(false);
    viewer->setCameraManipulator(trackball, false);
    trackball->setTransformation(osg::Vec3d(1000, 0, 0), osg::Vec3d(1000, 10, 0), osg::Vec3d(0, 0, 1));
    item->onCameraChanged();
    QThread::msleep(50);
    item->updateFrame();
    QVERIFY(!item->hasPendingWork());
    QCOMPARE(item->blockGeometry(3), far);
    QCOMPARE(item->getNumDrawables(), 3u);
    trackball->removeMonitor(item.get());
}

void TestGraphLod::loadRecord_data()
{
    QTest::addColumn<int>("blocks");
    QTest::newRow("no blocks") << 0;
    QTest::newRow("three blocks") << 3;
}

void TestGraphLod::loadRecord()
{
    QFETCH(int, blocks);
    const stPtCloud_DataSetHeader h = GraphTestData::header(CM_Height, {DSC_Location});
    QMap<int, stPtCloud_PointArray> content;
    for (int i = 0; i < blocks; ++i) content.insert(i * 5, spread(h, 100 + i, pcVec3f(float(i) * 20.f, 0, 0)));
    const QString path = m_dir->filePath("record.pcd");
    QString error;
    QVERIFY2(GraphTestData::write(path, h, content, &error), qPrintable(error));
    const int points = blocks == 0 ? 0 : 100 + 101 + 102;

    PtCloud_DataSetFile file(path);
    osg::ref_ptr<osgViewer::Viewer> viewer = new osgViewer::Viewer;
    osg::ref_ptr<OsgGraphItem_PcDataSet> item = new OsgGraphItem_PcDataSet(viewer.get(), nullptr);
    g_messages.clear();
    const QtMessageHandler previous = qInstallMessageHandler(recordMessage);
    const bool loaded = item->load(&file, "record");
    qInstallMessageHandler(previous);
    QVERIFY(loaded);
    QCOMPARE(item->blockCount(), blocks);
    QCOMPARE(item->pointCount(), quint32(points));
    QCOMPARE(g_messages.size(), 1);
    const QString record = g_messages.first();
    QVERIFY2(record.startsWith("\n**************\n") && record.endsWith("\n**************\n"), qPrintable(record));
    QVERIFY2(record.contains(QStringLiteral("Loaded dataset, mmBox number : %1 points number : %2")
                                 .arg(blocks)
                                 .arg(points)),
             qPrintable(record));

    item->onCameraChanged();
    if (blocks == 0) {
        // Nothing to draw: no loader, nothing pending, never ready.
        QVERIFY(!item->hasPendingWork());
        QVERIFY(!item->isReady());
        QVERIFY(!item->dataBounds().valid());
    } else {
        QVERIFY(settle(item.get(), viewer.get()));
        QVERIFY(item->isReady());
    }
}

void TestGraphLod::itemWithoutData_data()
{
    QTest::addColumn<bool>("unreadable");
    QTest::newRow("never loaded") << false;
    QTest::newRow("unreadable file") << true;
}

// A reload or a camera move then only tears down, and a pick finds nothing.
void TestGraphLod::itemWithoutData()
{
    QFETCH(bool, unreadable);
    const QString path = m_dir->filePath("broken.pcd");
    QFile broken(path);
    QVERIFY(broken.open(QIODevice::WriteOnly));
    broken.write("not a block file");
    broken.close();
    PtCloud_DataSetFile file(path);
    osg::ref_ptr<osgViewer::Viewer> viewer = new osgViewer::Viewer;
    osg::ref_ptr<OsgGraphItem_PcDataSet> item = new OsgGraphItem_PcDataSet(viewer.get(), nullptr);
    if (unreadable) QVERIFY(!item->load(&file, "broken"));
    item->onCameraChanged();
    item->reload();
    if (!unreadable) QVERIFY(!item->file());
    QCOMPARE(item->blockCount(), 0);
    QCOMPARE(item->getNumDrawables(), 0u);
    QVERIFY(!item->isReady());
    QVERIFY(!item->hasPendingWork());
    int block = 0, index = 0;
    osg::Vec3f at;
    QVERIFY(!item->pickNearest(10, 10, &block, &index, &at, nullptr));
    QCOMPARE(block, -1);
    QCOMPARE(index, -1);
}

void TestGraphLod::reloadAfterRewrite()
{
    const QString path = writeThreeBlocks();
    QVERIFY(!path.isEmpty());
    PtCloud_DataSetFile file(path);
    osg::ref_ptr<osgViewer::Viewer> viewer = new osgViewer::Viewer;
    osg::ref_ptr<OsgGraphItem_PcDataSet> item = new OsgGraphItem_PcDataSet(viewer.get(), nullptr);
    QVERIFY(item->load(&file, "three"));
    item->onCameraChanged();
    QVERIFY(settle(item.get(), viewer.get()));
    QCOMPARE(item->getNumDrawables(), 3u);

    // The cut tool rewrites the file and reloads: the new blocks are drawn
    // at once, without waiting for the camera.
    const stPtCloud_DataSetHeader h = GraphTestData::header(CM_Height, {DSC_Location});
    QString error;
    QVERIFY2(GraphTestData::write(path, h, {{9, spread(h, 1500, pcVec3f(-5, -5, 0))}}, &error), qPrintable(error));
    item->reload();
    QCOMPARE(item->blockCount(), 1);
    QCOMPARE(item->pointCount(), 1500u);
    QCOMPARE(item->getNumDrawables(), 0u);
    QVERIFY(settle(item.get(), viewer.get()));
    QCOMPARE(item->getNumDrawables(), 1u);
    QCOMPARE(vertexCount(item->blockGeometry(9)), 1500);
    QVERIFY(!item->blockGeometry(1));
}

void TestGraphLod::teardownWhileLoading()
{
    const QString path = writeThreeBlocks();
    QVERIFY(!path.isEmpty());
    PtCloud_DataSetFile file(path);
    osg::ref_ptr<osgViewer::Viewer> viewer = new osgViewer::Viewer;
    osg::ref_ptr<OsgGraphItem_PcDataSet> item = new OsgGraphItem_PcDataSet(viewer.get(), nullptr);
    for (int round = 0; round < 20; ++round) {
        QVERIFY(item->load(&file, "three"));
        item->onCameraChanged();
        if (round % 2) QThread::msleep(round);
        item->updateFrame();
        item->teardown();
        QCOMPARE(item->getNumDrawables(), 0u);
        QCOMPARE(item->drawnPointCount(), quint64(0));
        QVERIFY(!item->hasPendingWork());
        QVERIFY(!item->isReady());
    }
    // Loaded again after all that, it draws as ever.
    QVERIFY(item->load(&file, "three"));
    item->onCameraChanged();
    QVERIFY(settle(item.get(), viewer.get()));
    QCOMPARE(item->getNumDrawables(), 3u);
}

QTEST_MAIN(TestGraphLod)
#include "tst_graph_lod.moc"
