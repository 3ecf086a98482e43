// The scene controller on a real project, through the widget the host
// embeds: which dataset is shown, which content signals it follows and which
// it ignores (including the DEM removals that look at the DEM mesh item),
// what a rename or a removal of the shown dataset does, the window commands
// with and without a scene, and input offered to the open tool first.

#include <QApplication>
#include <QDialog>
#include <QListWidget>
#include <QMouseEvent>
#include <QSignalSpy>
#include <QtTest>

#include "DataSetViewer.h"
#include "ModalAnswerer.h"
#include "ShownView.h"
#include "OsgGraphItem_PcDataSet.h"
#include "OsgTackballManipulate.h"
#include "PtCloudDataSet.h"
#include "PtCloudScene.h"
#include "PtCloudWidget.h"
#include "PtCloud_Controller.h"
#include "TestProject.h"

using namespace ptCloud;

namespace {

// Items the scene added: the root's first two children are the view's own.
unsigned int sceneItems(PtCloudWidget& view) { return view.getRoot()->getNumChildren() - 2; }

// A tool panel that records the presses offered to it and may use them.
class FakeTool : public MovableSubWidget {
public:
    FakeTool(QWidget* parent, bool consume) : MovableSubWidget(parent), m_consume(consume)
    {
        setAttribute(Qt::WA_DeleteOnClose);
        resize(120, 100);
    }
    bool viewMousePressEvent(QMouseEvent*) override
    {
        ++presses;
        return m_consume;
    }
    int presses = 0;

private:
    bool m_consume;
};

// One 10 x 10 dataset "a" with a mesh "m", shown.
bool showWithMesh(ShownProject& shown)
{
    return shown.make({{"a", 10}}) && shown.project.addPointCopy("a", "mesh", "m") && shown.show();
}

void sendMouse(QWidget* w, QEvent::Type type, const QPoint& at, Qt::MouseButton button, Qt::MouseButtons buttons)
{
    QMouseEvent event(type, QPointF(at), QPointF(w->mapToGlobal(at)), button, buttons, Qt::NoModifier);
    QApplication::sendEvent(w, &event);
}

}  // namespace

class TestPtCloudScene : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void projectWithoutDataSetsShowsNothing();
    void firstDataSetInNameOrder();
    void contentOfAnotherDataSetChangesNothing();
    void addTwiceAndRemoveAbsentAreIgnored_data();
    void addTwiceAndRemoveAbsentAreIgnored();
    void showingTheShownDataSetDoesNothing();
    void demRemovalsLookAtTheDemMesh_data();
    void demRemovalsLookAtTheDemMesh();
    void renamedShownDataSetKeepsItsItems();
    void removedShownDataSetIsTakenDown();
    void sceneOpenedTwiceReplacesTheController();
    void windowCommandsNeedAScene();
    void focuseShowsTheChosenDataSet();
    void unsupportedCommandsSaySo_data();
    void unsupportedCommandsSaySo();
    void pressGoesToTheOpenToolFirst_data();
    void pressGoesToTheOpenToolFirst();
    void closeTakesEverythingDown();

private:
    QTemporaryDir m_settings;
};

void TestPtCloudScene::initTestCase()
{
    QVERIFY(m_settings.isValid());
    TestProject::isolateSettings(m_settings.path());
}

void TestPtCloudScene::projectWithoutDataSetsShowsNothing()
{
    TestProject project;
    QVERIFY(project.open());
    const auto shown = ShownView::create();
    QVERIFY(shown);
    PtCloudWidget& view = *shown;
    ModalAnswerer answerer;
    view.onSceneOpened(project.scene());
    PtCloudScene* scene = view.ptCloudScene();
    QCOMPARE(scene->controller(), project.controller());
    QVERIFY(scene->currentDataSetName().isEmpty());
    QVERIFY(!scene->pointsItem());
    QCOMPARE(sceneItems(view), 0u);
    QVERIFY(answerer.boxes.isEmpty());
    // The first dataset made afterwards comes into view.
    QSignalSpy save(&view, SIGNAL(sgNeedSaveProject()));
    QVERIFY(project.addGridDataSet("first", 10, pcVec3d(1000, 2000, 30)));
    QCOMPARE(scene->currentDataSetName(), QString("first"));
    QVERIFY(scene->pointsItem());
    QVERIFY(save.count() >= 1);
}

void TestPtCloudScene::firstDataSetInNameOrder()
{
    ShownProject shown;
    QVERIFY(shown.make({{"mid", 10}, {"Zeta", 10}, {"alpha", 10}}));
    QVERIFY(shown.show());
    PtCloudWidget& view = *shown.view;
    PtCloudScene* scene = view.ptCloudScene();
    // Map order is by code point: capitals first.
    QCOMPARE(scene->currentDataSetName(), QString("Zeta"));
    QCOMPARE(scene->dataSetViewer()->dataSetName(), QString("Zeta"));
    QCOMPARE(sceneItems(view), 1u);
    QCOMPARE(scene->pointsItem()->dataSetName(), QString("Zeta"));
    QCOMPARE(scene->pointsItem()->pointCount(), 100u);
    // The home view frames the points.
    const osg::BoundingSphere home = view.getManipulate()->getHomeBound();
    const osg::BoundingBox bounds = scene->pointsItem()->dataBounds();
    QVERIFY(home.valid());
    QVERIFY(bounds.valid());
    QCOMPARE(home.center(), bounds.center());
}

void TestPtCloudScene::contentOfAnotherDataSetChangesNothing()
{
    ShownProject shown;
    QVERIFY(shown.make({{"a", 10}, {"b", 10}}));
    TestProject& project = shown.project;
    QVERIFY(shown.show());
    PtCloudWidget& view = *shown.view;
    PtCloudScene* scene = view.ptCloudScene();
    QCOMPARE(scene->currentDataSetName(), QString("a"));
    for (const char* kind : {"mesh", "split", "cut"}) QVERIFY(project.addPointCopy("b", kind, kind));
    QVERIFY(project.dataSet("b")->addContent_EarthVolume());
    QCOMPARE(sceneItems(view), 1u);
    // The same contents on the shown dataset do appear.
    const std::pair<const char*, PtCloudScene::EContentKind> kinds[] = {
        {"mesh", PtCloudScene::Content_Mesh}, {"split", PtCloudScene::Content_Split}, {"cut", PtCloudScene::Content_Cut}};
    for (const auto& kind : kinds) {
        QVERIFY(!scene->hasContentItem(kind.second, kind.first));
        QVERIFY(project.addPointCopy("a", kind.first, kind.first));
        QVERIFY(scene->hasContentItem(kind.second, kind.first));
    }
    QCOMPARE(sceneItems(view), 4u);
}

void TestPtCloudScene::addTwiceAndRemoveAbsentAreIgnored_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("contentKind");
    QTest::newRow("mesh") << "mesh" << int(PtCloudScene::Content_Mesh);
    QTest::newRow("split") << "split" << int(PtCloudScene::Content_Split);
    QTest::newRow("cut") << "cut" << int(PtCloudScene::Content_Cut);
}

void TestPtCloudScene::addTwiceAndRemoveAbsentAreIgnored()
{
    QFETCH(QString, kind);
    QFETCH(int, contentKind);
    ShownProject shown;
    QVERIFY(shown.make({{"a", 10}}));
    TestProject& project = shown.project;
    QVERIFY(project.addPointCopy("a", kind, "x"));
    QVERIFY(shown.show());
    PtCloudWidget& view = *shown.view;
    PtCloudScene* scene = view.ptCloudScene();
    QCOMPARE(sceneItems(view), 2u);
    const osg::Node* before = view.getRoot()->getChild(3);
    const auto added = kind == "mesh"    ? &PtCloudScene::onDataSetContentAdded_Mesh
                       : kind == "split" ? &PtCloudScene::onDataSetContentAdded_Split
                                         : &PtCloudScene::onDataSetContentAdded_Cut;
    const auto removed = kind == "mesh"    ? &PtCloudScene::onDataSetContentRemoved_Mesh
                         : kind == "split" ? &PtCloudScene::onDataSetContentRemoved_Split
                                           : &PtCloudScene::onDataSetContentRemoved_Cut;
    (scene->*added)("a", "x");
    QCOMPARE(sceneItems(view), 2u);
    QCOMPARE(view.getRoot()->getChild(3), before);
    (scene->*removed)("a", "absent");
    (scene->*removed)("b", "x");
    QCOMPARE(sceneItems(view), 2u);
    QVERIFY(scene->hasContentItem(PtCloudScene::EContentKind(contentKind), "x"));
    // A content the dataset does not have gets no item.
    (scene->*added)("a", "absent");
    QCOMPARE(sceneItems(view), 2u);
    (scene->*removed)("a", "x");
    QCOMPARE(sceneItems(view), 1u);
    QVERIFY(!scene->hasContentItem(PtCloudScene::EContentKind(contentKind), "x"));
}

void TestPtCloudScene::showingTheShownDataSetDoesNothing()
{
    ShownProject shown;
    QVERIFY(shown.make({{"a", 10}, {"b", 12}}));
    QVERIFY(shown.show());
    PtCloudWidget& view = *shown.view;
    PtCloudScene* scene = view.ptCloudScene();
    const OsgGraphItem_PcDataSet* item = scene->pointsItem();
    scene->showDataSet("a");
    QCOMPARE(scene->pointsItem(), item);
    scene->showDataSet("b");
    QCOMPARE(scene->currentDataSetName(), QString("b"));
    QCOMPARE(scene->pointsItem()->pointCount(), 144u);
    QCOMPARE(sceneItems(view), 1u);
    scene->showDataSet(QString());
    QVERIFY(!scene->pointsItem());
    QCOMPARE(sceneItems(view), 0u);
}

void TestPtCloudScene::demRemovalsLookAtTheDemMesh_data()
{
    QTest::addColumn<QString>("removal");
    QTest::newRow("contour and classify while the DEM mesh is shown") << "parts";
    QTest::newRow("contour and classify after the DEM mesh went") << "mesh first";
    QTest::newRow("the whole DEM at once") << "all";
}

void TestPtCloudScene::demRemovalsLookAtTheDemMesh()
{
    QFETCH(QString, removal);
    ShownProject shown;
    QVERIFY(shown.make({{"a", 10}}));
    TestProject& project = shown.project;
    QVERIFY(project.writeDemFiles("a"));
    PtCloudDataSet* ds = project.dataSet("a");
    QVERIFY(ds->setContent_Dem_Mesh() && ds->setContent_Dem_Contour() && ds->setContent_Dem_Classify());
    QVERIFY(shown.show());
    PtCloudWidget& view = *shown.view;
    PtCloudScene* scene = view.ptCloudScene();
    QVERIFY(scene->hasContentItem(PtCloudScene::Content_DemMesh));
    QVERIFY(scene->hasContentItem(PtCloudScene::Content_DemContour));
    QVERIFY(scene->hasContentItem(PtCloudScene::Content_DemClassify));
    QCOMPARE(sceneItems(view), 4u);
    if (removal == "all") {
        // In the order that takes every item down.
        ds->removeContent_AllDem();
        QCOMPARE(sceneItems(view), 1u);
        return;
    }
    const bool meshFirst = removal == "mesh first";
    if (meshFirst) QVERIFY(ds->removeContent_Dem_Mesh());
    QVERIFY(ds->removeContent_Dem_Contour());
    QVERIFY(ds->removeContent_Dem_Classify());
    // Without the DEM mesh item the removals are not followed.
    QCOMPARE(scene->hasContentItem(PtCloudScene::Content_DemContour), meshFirst);
    QCOMPARE(scene->hasContentItem(PtCloudScene::Content_DemClassify), meshFirst);
    QCOMPARE(scene->hasContentItem(PtCloudScene::Content_DemMesh), !meshFirst);
}

void TestPtCloudScene::renamedShownDataSetKeepsItsItems()
{
    ShownProject shown;
    QVERIFY(showWithMesh(shown));
    TestProject& project = shown.project;
    PtCloudWidget& view = *shown.view;
    PtCloudScene* scene = view.ptCloudScene();
    const OsgGraphItem_PcDataSet* points = scene->pointsItem();
    QCOMPARE(project.controller()->doCmd_DataSet_Rename({"a", "renamed"}), PCAR_Success);
    QCOMPARE(scene->currentDataSetName(), QString("renamed"));
    QCOMPARE(scene->dataSetViewer()->dataSetName(), QString("renamed"));
    QCOMPARE(scene->pointsItem(), points);
    QCOMPARE(sceneItems(view), 2u);
    // Its content signals, now under the new name, still reach the scene.
    QVERIFY(project.addPointCopy("renamed", "split", "s"));
    QVERIFY(scene->hasContentItem(PtCloudScene::Content_Split, "s"));
}

void TestPtCloudScene::removedShownDataSetIsTakenDown()
{
    ShownProject shown;
    QVERIFY(shown.make({{"a", 10}, {"b", 12}}));
    TestProject& project = shown.project;
    QVERIFY(project.addPointCopy("a", "cut", "c"));
    QVERIFY(shown.show());
    PtCloudWidget& view = *shown.view;
    PtCloudScene* scene = view.ptCloudScene();
    QCOMPARE(sceneItems(view), 2u);
    QCOMPARE(project.controller()->doCmd_DataSet_Remove({"a"}), PCAR_Success);
    // The next dataset by name takes its place.
    QCOMPARE(scene->currentDataSetName(), QString("b"));
    QCOMPARE(sceneItems(view), 1u);
    QCOMPARE(scene->pointsItem()->pointCount(), 144u);
    // Removing a dataset that is not shown changes nothing.
    QVERIFY(project.addGridDataSet("c", 5, pcVec3d(0, 0, 0)));
    QCOMPARE(project.controller()->doCmd_DataSet_Remove({"c"}), PCAR_Success);
    QCOMPARE(scene->currentDataSetName(), QString("b"));
    QCOMPARE(project.controller()->doCmd_DataSet_Remove({"b"}), PCAR_Success);
    QVERIFY(scene->currentDataSetName().isEmpty());
    QCOMPARE(sceneItems(view), 0u);
}

void TestPtCloudScene::sceneOpenedTwiceReplacesTheController()
{
    TestProject first, second;
    QVERIFY(first.open() && second.open());
    QVERIFY(first.addGridDataSet("one", 10, pcVec3d(0, 0, 0)));
    QVERIFY(second.addGridDataSet("two", 11, pcVec3d(0, 0, 0)));
    const auto shown = ShownView::create();
    QVERIFY(shown);
    PtCloudWidget& view = *shown;
    view.onSceneOpened(first.scene());
    view.onSceneOpened(second.scene());
    PtCloudScene* scene = view.ptCloudScene();
    QCOMPARE(scene->controller(), second.controller());
    QCOMPARE(scene->currentDataSetName(), QString("two"));
    QCOMPARE(sceneItems(view), 1u);
    // The first project's controller is no longer listened to.
    QVERIFY(first.addGridDataSet("late", 5, pcVec3d(0, 0, 0)));
    QCOMPARE(scene->currentDataSetName(), QString("two"));
    view.onSceneClosed();
    QVERIFY(!scene->controller());
    QVERIFY(scene->currentDataSetName().isEmpty());
    QVERIFY(scene->dataSetViewer()->dataSetName().isEmpty());
    QCOMPARE(sceneItems(view), 0u);
}

void TestPtCloudScene::windowCommandsNeedAScene()
{
    const auto shown = ShownView::create();
    QVERIFY(shown);
    PtCloudWidget& view = *shown;
    const auto runAll = [&view] {
        for (auto command : {&PtCloudWidget::doCmd_ShowWindow_DataSet_Create, &PtCloudWidget::doCmd_ShowWindow_DataSet_Copy,
                             &PtCloudWidget::doCmd_ShowWindow_DataSet_Merge, &PtCloudWidget::doCmd_ShowWindow_FileManage,
                             &PtCloudWidget::doCmd_ShowWindow_DataSet_Focuse})
            (view.*command)();
    };
    ModalAnswerer answerer;
    answerer.setDialogHandler([](QDialog* d) { d->reject(); });
    runAll();
    QCOMPARE(answerer.otherDialogs, 0);
    QVERIFY(answerer.boxes.isEmpty());

    TestProject project;
    QVERIFY(project.open());
    view.onSceneOpened(project.scene());
    QStringList opened;
    answerer.setDialogHandler([&opened](QDialog* d) {
        opened << d->objectName() + "|" + d->windowTitle();
        d->reject();
    });
    runAll();
    QCOMPARE(opened, QStringList({"create_dataset_dlg|Create New DataSet", "|Copy DataSet", "|Merge DataSets",
                                  "las_files_dialog|Las Files", "|Select DataSet"}));
}

void TestPtCloudScene::focuseShowsTheChosenDataSet()
{
    ShownProject shown;
    QVERIFY(shown.make({{"a", 10}, {"b", 12}}));
    QVERIFY(shown.show());
    PtCloudWidget& view = *shown.view;
    ModalAnswerer answerer;
    QString preselected;
    answerer.setDialogHandler([&preselected](QDialog* d) {
        auto* list = d->findChild<QListWidget*>("listWidget_datasets");
        preselected = list->currentItem()->text();
        list->setCurrentRow(1);
        d->accept();
    });
    view.doCmd_ShowWindow_DataSet_Focuse();
    QCOMPARE(preselected, QString("a"));
    QCOMPARE(view.ptCloudScene()->currentDataSetName(), QString("b"));
}

void TestPtCloudScene::unsupportedCommandsSaySo_data()
{
    QTest::addColumn<QString>("command");
    for (const char* c : {"doCmd_View_Perspective", "doCmd_View_Ortho", "doCmd_View_From_Top",
                          "doCmd_View_From_Bottom", "doCmd_View_From_Front", "doCmd_View_From_Back",
                          "doCmd_View_From_Left", "doCmd_View_From_Right", "doCmd_Shade_Normal", "doCmd_Shade_EDL"})
        QTest::newRow(c) << QString::fromLatin1(c);
}

void TestPtCloudScene::unsupportedCommandsSaySo()
{
    QFETCH(QString, command);
    const auto shown = ShownView::create();
    QVERIFY(shown);
    PtCloudWidget& view = *shown;
    ModalAnswerer answerer(QMessageBox::Ok);
    QVERIFY(QMetaObject::invokeMethod(&view, command.toLatin1().constData()));
    QCOMPARE(answerer.boxes.size(), 1);
    QCOMPARE(answerer.boxes[0].title, QString("error"));
    QCOMPARE(answerer.boxes[0].text, QString("sorry, the function has not supported"));
}

void TestPtCloudScene::pressGoesToTheOpenToolFirst_data()
{
    QTest::addColumn<bool>("consume");
    QTest::newRow("the tool uses the press") << true;
    QTest::newRow("the tool lets it through") << false;
}

void TestPtCloudScene::pressGoesToTheOpenToolFirst()
{
    QFETCH(bool, consume);
    const auto shown = ShownView::create(QSize(400, 300));
    QVERIFY(shown);
    PtCloudWidget& view = *shown;
    auto* tool = new FakeTool(&view, consume);
    view.ptCloudScene()->dataSetViewer()->openToolPanel(DataSetViewer::Tool_Cut, tool);
    QVERIFY(!view.ptCloudScene()->dataSetViewer()->isVisible());
    const osg::Matrixd before = view.getManipulate()->getMatrix();
    // A left drag across the view: the trackball turns only if it saw the press.
    sendMouse(&view, QEvent::MouseButtonPress, QPoint(200, 150), Qt::LeftButton, Qt::LeftButton);
    QTest::qWait(50);
    for (int x = 210; x <= 300; x += 10) {
        sendMouse(&view, QEvent::MouseMove, QPoint(x, 150), Qt::NoButton, Qt::LeftButton);
        QTest::qWait(20);
    }
    sendMouse(&view, QEvent::MouseButtonRelease, QPoint(300, 150), Qt::LeftButton, Qt::NoButton);
    QTest::qWait(100);
    QCOMPARE(tool->presses, 1);
    QCOMPARE(view.getManipulate()->getMatrix() == before, consume);
    // Closing the tool brings the viewer back.
    tool->close();
    QTRY_VERIFY(!view.ptCloudScene()->dataSetViewer()->toolPanel(DataSetViewer::Tool_Cut));
    QVERIFY(view.ptCloudScene()->dataSetViewer()->isVisible());
}

void TestPtCloudScene::closeTakesEverythingDown()
{
    ShownProject shown;
    QVERIFY(showWithMesh(shown));
    PtCloudWidget& view = *shown.view;
    QPointer<DataSetViewer> viewer = view.ptCloudScene()->dataSetViewer();
    QCOMPARE(sceneItems(view), 2u);
    view.close();
    QVERIFY(!view.ptCloudScene());
    QVERIFY(viewer.isNull());
    QCOMPARE(sceneItems(view), 0u);
    // Commands after the close do nothing.
    view.doCmd_ShowWindow_FileManage();
    view.onSceneClosed();
}

QTEST_MAIN(TestPtCloudScene)
#include "tst_PtCloudScene.moc"
