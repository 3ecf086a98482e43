// The cut and measure panels in a shown view under Xvfb, on a dataset at a
// survey-sized origin whose points are known: measures through the panel's
// picks, a cut typed in absolute coordinates, and panels that never touch
// what is gone when the project closes, the dataset changes or the window
// closes while they are open.

#include <QDoubleSpinBox>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPointer>
#include <QRadioButton>
#include <QTableWidget>
#include <QToolButton>
#include <QtTest>

#include <osg/Viewport>
#include <osgViewer/Viewer>

#include "DataSetViewer.h"
#include "Func_Cut_Widget.h"
#include "Func_Measure_Widget.h"
#include "OsgGraphItem_PcDataSet.h"
#include "OsgTackballManipulate.h"
#include "PtCloudDataSet.h"
#include "PtCloudScene.h"
#include "PtCloudWidget.h"
#include "PtCloud_DataSetFile.h"
#include "ShownView.h"
#include "stPtCloud_PointArray.h"

using namespace ptCloud;

namespace {

const pcVec3d kOrigin(500000, 5000000, 100);
// Relative to kOrigin: 1 straight above 0; 0, 2, 3 in the vertical plane
// y = 0; 0, 2, 4 on one line; 0, 2, 5 a level triangle.
const std::vector<pcVec3f> kPoints{{0, 0, 0}, {0, 0, 5}, {4, 0, 0}, {2, 0, 4}, {8, 0, 0}, {3, 4, 0}, {1, 1, 1}};

struct Fixture : ShownProject {
    DataSetViewer* viewer = nullptr;
    bool make()
    {
        stPtCloud_PointArray points;
        points.origin = kOrigin;
        points.positions = kPoints;
        points.count = int(kPoints.size());
        if (!project.open() || !project.addDataSet("known", points) || !project.addGridDataSet("grid", 4, kOrigin) ||
            !show(QSize(800, 600)))
            return false;
        viewer = scene->dataSetViewer();
        scene->showDataSet("known");
        return QTest::qWaitFor([this] { return scene->pointsItem() && scene->pointsItem()->isReady(); }, 20000);
    }
    // A left press on the known point, as the view sees it now.
    bool pressOn(int point)
    {
        osg::Camera* camera = view->getViewer()->getCamera();
        const osg::Vec3f p(kPoints[size_t(point)].x, kPoints[size_t(point)].y, kPoints[size_t(point)].z);
        const osg::Vec3d w = osg::Vec3d(p) * (camera->getViewMatrix() * camera->getProjectionMatrix() *
                                              camera->getViewport()->computeWindowMatrix());
        const double scale = view->getPixelScale();
        const QPointF at(w.x() / scale, view->height() - w.y() / scale);
        QMouseEvent press(QEvent::MouseButtonPress, at, Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
        return scene->mousePressEvent(&press);
    }
};

}  // namespace

class TestToolPanels : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() { TestProject::isolateSettings(m_settings.path()); }
    void measuresPicks_data();
    void measuresPicks();
    void cutTypedInSurveyCoordinates();
    void panelsOutliveNothing_data();
    void panelsOutliveNothing();

private:
    QTemporaryDir m_settings;
};

void TestToolPanels::measuresPicks_data()
{
    QTest::addColumn<QString>("mode");
    QTest::addColumn<QList<int>>("picks");
    QTest::addColumn<QStringList>("results");  // length, plane length, area, plane area
    QTest::newRow("three decimals") << "distance" << QList<int>{0, 6} << QStringList{"1.732", "1.414", "", ""};
    QTest::newRow("vertical pair") << "distance" << QList<int>{0, 1} << QStringList{"5.000", "0.000", "", ""};
    QTest::newRow("collinear") << "area" << QList<int>{0, 2, 4} << QStringList{"", "", "0.000", "0.000"};
    QTest::newRow("vertical triangle") << "area" << QList<int>{0, 2, 3} << QStringList{"", "", "8.000", "0.000"};
    QTest::newRow("level triangle") << "area" << QList<int>{0, 2, 5} << QStringList{"", "", "8.000", "8.000"};
    // The third pick of a distance starts again at A.
    QTest::newRow("distance again") << "distance" << QList<int>{2, 4, 0, 5} << QStringList{"5.000", "5.000", "", ""};
}

void TestToolPanels::measuresPicks()
{
    QFETCH(QString, mode);
    QFETCH(QList<int>, picks);
    QFETCH(QStringList, results);
    Fixture f;
    QVERIFY(f.make());
    f.viewer->onClickedTool_Measure();
    auto* panel = qobject_cast<Func_Measure_Widget*>(f.viewer->toolPanel(DataSetViewer::Tool_Measure));
    QVERIFY(panel);
    panel->findChild<QToolButton*>(mode == "area" ? "toolButton_measure_area" : "toolButton_measure_distance")->click();
    for (int point : picks) QVERIFY(f.pressOn(point));
    QStringList shown;
    for (const char* field : {"lineEdit_length", "lineEdit_length_plane", "lineEdit_area", "lineEdit_area_plane"})
        shown << panel->findChild<QLineEdit*>(field)->text();
    QCOMPARE(shown, results);
    // What a surveyor reads is absolute.
    const QTableWidget* a = panel->findChild<QTableWidget*>("tableWidget_a");
    const pcVec3f first = kPoints[size_t(picks[picks.size() > 3 ? 2 : 0])];
    QCOMPARE(a->item(0, 1)->text(), QStringLiteral("%1,%2,%3")
                                        .arg(kOrigin.x + first.x, 0, 'f', 3)
                                        .arg(kOrigin.y + first.y, 0, 'f', 3)
                                        .arg(kOrigin.z + first.z, 0, 'f', 3));
}

void TestToolPanels::cutTypedInSurveyCoordinates()
{
    Fixture f;
    QVERIFY(f.make());
    f.viewer->onClickedTool_Cut();
    auto* panel = qobject_cast<Func_Cut_Widget*>(f.viewer->toolPanel(DataSetViewer::Tool_Cut));
    QVERIFY(panel);
    panel->findChild<QRadioButton*>("radioButton_by_box")->click();
    // Point 2 alone, with a box half a metre wide: a frame in single
    // precision would be off by half a metre at 5 000 000 m.
    const QList<QPair<const char*, double>> values{{"center_x", 500004}, {"center_y", 5000000}, {"center_z", 100},
                                                   {"size_x", 0.5},       {"size_y", 0.5},       {"size_z", 0.5}};
    for (const auto& v : values) panel->findChild<QDoubleSpinBox*>(QStringLiteral("doubleSpinBox_box_") + v.first)->setValue(v.second);
    panel->findChild<QToolButton*>("toolButton_cut_inner")->click();
    PtCloud_DataSetFile reader(f.project.dataSet("known")->getFilePath_Points());
    QVERIFY(reader.openFile());
    QCOMPARE(reader.getHeader().pointCount, quint64(kPoints.size() - 1));
    QCOMPARE(f.scene->pointsItem()->pointCount(), quint32(kPoints.size() - 1));
}

void TestToolPanels::panelsOutliveNothing_data()
{
    QTest::addColumn<bool>("cut");
    QTest::addColumn<QString>("action");
    for (bool cut : {true, false})
        for (const char* action : {"close project", "switch dataset", "close window"})
            QTest::newRow(qPrintable(QStringLiteral("%1, %2").arg(cut ? "cut" : "measure", action))) << cut << action;
}

void TestToolPanels::panelsOutliveNothing()
{
    QFETCH(bool, cut);
    QFETCH(QString, action);
    Fixture f;
    QVERIFY(f.make());
    const unsigned children = f.view->getRoot()->getNumChildren();
    cut ? f.viewer->onClickedTool_Cut() : f.viewer->onClickedTool_Measure();
    QPointer<MovableSubWidget> panel = f.viewer->toolPanel(cut ? DataSetViewer::Tool_Cut : DataSetViewer::Tool_Measure);
    QVERIFY(panel);
    // Overlays in the view and a tracked node: the cut's box and centre, the measure's point A.
    if (cut) {
        panel->findChild<QRadioButton*>("radioButton_by_box")->click();
        panel->findChild<QToolButton*>("toolButton_select_center")->click();
    }
    QVERIFY(f.pressOn(0));
    QVERIFY(f.view->getManipulate()->getTrackNode());
    QVERIFY(f.view->getRoot()->getNumChildren() > children);
    QPointer<DataSetViewer> viewer = f.viewer;
    if (action == "close project")
        f.view->onSceneClosed();
    else if (action == "switch dataset")
        f.scene->showDataSet("grid");
    else
        f.view->close();
    QTRY_VERIFY(panel.isNull());
    QVERIFY(!f.view->getManipulate()->getTrackNode());
    if (action == "close window") return;
    // The viewer is back, and the view holds no overlay of the panel.
    QVERIFY(viewer && viewer->isVisible());
    QCOMPARE(f.view->getRoot()->getNumChildren(), action == "close project" ? children - 1 : children);
}

QTEST_MAIN(TestToolPanels)
#include "tst_ToolPanels.moc"
