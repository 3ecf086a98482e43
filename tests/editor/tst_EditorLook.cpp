// The editor as a user first sees it, under Xvfb: a real dataset opened in
// the view loads its blocks without any input, the points are drawn in
// colour around the middle of the view, and the dataset viewer floats at the
// top left over them with its tree and the points' page. The pictures are
// saved to the temporary folder for a look by eye.

#include <QDir>
#include <QFile>
#include <QTreeWidget>
#include <QtTest>

#include "AppConfig.h"
#include "DataSetViewer.h"
#include "OsgGraphItem_PcDataSet.h"
#include "PtCloudScene.h"
#include "PointColors.h"
#include "PtCloudDataSet.h"
#include "PtCloudWidget.h"
#include "PtCloud_Controller.h"
#include "PtCloud_DataSetFile.h"
#include "ShownView.h"
#include "TestProject.h"

using namespace ptCloud;

class TestEditorLook : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void datasetAndViewer_data();
    void datasetAndViewer();
    void productDrawnOverThePoints();

private:
    QTemporaryDir m_settings;
};

void TestEditorLook::initTestCase()
{
    QVERIFY(m_settings.isValid());
    TestProject::isolateSettings(m_settings.path());
}

void TestEditorLook::datasetAndViewer_data()
{
    QTest::addColumn<int>("skin");
    QTest::addColumn<QString>("picture");
    QTest::newRow("dark skin") << 1 << "ptcloud_editor_dark.png";
    QTest::newRow("light skin") << 0 << "ptcloud_editor_light.png";
}

void TestEditorLook::datasetAndViewer()
{
    QFETCH(int, skin);
    QFETCH(QString, picture);
    AppConfig::getInstance().module_userSettings().setSelectedSkin(skin);
    // A coloured survey of the shared data when it is there, else a
    // coloured grid written here.
    ShownProject shown;
    QVERIFY(shown.project.open());
    const QString shared = QDir(PTCLOUD_SHARED_DATA_DIR).filePath("las/autzen_trim.las");
    if (QFile::exists(shared)) {
        QString key;
        QCOMPARE(shown.project.controller()->doCmd_LasFile_Import({shared}, &key), PCAR_Success);
        QCOMPARE(shown.project.controller()->doCmd_DataSet_Make({{key}, {DSC_Location, DSC_Color}, "autzen"}),
                 PCAR_Success);
    } else {
        QVERIFY(shown.project.addGridDataSet("grid", 300, pcVec3d(500000, 4000000, 100), true));
    }
    QVERIFY(shown.show(QSize(1200, 800)));
    OsgGraphItem_PcDataSet* points = shown.scene->pointsItem();
    QVERIFY(points);
    // No input from here on: the frames the loader needs ask for themselves.
    QTRY_VERIFY_WITH_TIMEOUT(points->isReady() && !points->hasPendingWork(), 30000);
    QVERIFY(points->drawnPointCount() > 0);

    DataSetViewer* viewer = shown.scene->dataSetViewer();
    auto* tree = viewer->findChild<QTreeWidget*>("treeWidget_dataset");
    viewer->onTreeWidgetItemClicked(tree->topLevelItem(0), DataSetViewer::Column_Name);
    QTest::qWait(200);
    const QImage image = shown.view->grab().toImage();
    const QString path = QDir::temp().filePath(picture);
    QVERIFY(image.save(path));
    qInfo("saved %s (%d of %u points drawn)", qPrintable(path), int(points->drawnPointCount()), points->pointCount());

    // The points are drawn in colour in the middle of the view.
    const QColor clear(41, 43, 51);
    int coloured = 0;
    for (int y = 300; y < 500; y += 4)
        for (int x = 500; x < 900; x += 4) {
            const QColor c = image.pixelColor(x, y);
            coloured += (qAbs(c.red() - clear.red()) + qAbs(c.green() - clear.green()) + qAbs(c.blue() - clear.blue()) > 30);
        }
    QVERIFY2(coloured > 200, qPrintable(QString::number(coloured)));
    // The viewer lies at (20, 20) over the view, painted with the skin's background.
    const QRect panel = viewer->geometry();
    QCOMPARE(panel.topLeft(), QPoint(20, 20));
    const QColor inside = image.pixelColor(panel.left() + 2, panel.bottom() - 2);
    QVERIFY(skin == 0 ? inside.lightness() > 180 : inside.lightness() < 90);
}

namespace {

// Pixels of the middle of the view within a few steps of the colour.
int pixelsOf(const QImage& image, const osg::Vec4ub& colour)
{
    int n = 0;
    for (int y = 100; y < 380; y += 2)
        for (int x = 160; x < 480; x += 2) {
            const QColor c = image.pixelColor(x, y);
            n += qAbs(c.red() - colour.r()) + qAbs(c.green() - colour.g()) + qAbs(c.blue() - colour.b()) < 12;
        }
    return n;
}

}  // namespace

void TestEditorLook::productDrawnOverThePoints()
{
    // A split of the coloured grid lies exactly on its points: shown, its
    // cluster colour is what the user sees; hidden, the points come back.
    ShownProject shown;
    QVERIFY(shown.project.open());
    QVERIFY(shown.project.addGridDataSet("grid", 120, pcVec3d(500000, 4000000, 100), true));
    PtCloudDataSet* ds = shown.project.dataSet("grid");
    PtCloud_DataSetFile* target = ds->createEmptyLocatedContent_Split("one");
    stControlParam_DataSet_Do_Split p;
    p.dataSetName = "grid";
    p.targetName = target->getFilepath();
    p.func = 100;  // DBSCAN: the 1 m grid is one cluster at 1.5 m
    p.params = QVariantList{1.5, 3, false};
    QCOMPARE(shown.project.controller()->doCmd_DataSet_Do_Split(p, nullptr), PCAR_Success);
    QVERIFY(ds->addContent_Split("one", target));
    QVERIFY(shown.show());
    OsgGraphItem_PcDataSet* split = shown.scene->pointItem(PtCloudScene::Content_Split, "one");
    QVERIFY(split);
    // No input: the split, added before any camera change reached it, draws itself.
    for (OsgGraphItem_PcDataSet* item : {shown.scene->pointsItem(), split})
        QTRY_VERIFY_WITH_TIMEOUT(item->isReady() && !item->hasPendingWork(), 30000);
    // The dataset viewer floats over the top left: keep it out of the picture.
    shown.scene->dataSetViewer()->hide();
    // Framed again, now in the whole view.
    shown.scene->viewHome();
    const osg::Vec4ub cluster = PointColors::cluster(0);
    QTest::qWait(200);
    const int over = pixelsOf(shown.view->grabFramebuffer(), cluster);
    QVERIFY(shown.scene->setContentVisible(PtCloudScene::Content_Split, "one", false));
    QTest::qWait(200);
    const int under = pixelsOf(shown.view->grabFramebuffer(), cluster);
    QVERIFY2(over > 2000 && under * 20 < over, qPrintable(QStringLiteral("%1 / %2").arg(over).arg(under)));
}

QTEST_MAIN(TestEditorLook)
#include "tst_EditorLook.moc"
