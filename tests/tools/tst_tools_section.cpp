// The section tool in a shown view: the profile looks across the line in
// every direction (where known points land on the screen), the panel's picks
// and width select the strip's points of a dataset at survey coordinates, a
// dataset without colours is drawn white, and the panel survives the scene.

#include <QtTest>
#include <QtWidgets>
#include <cmath>

#include <osg/Viewport>

#include "DataSetViewer.h"
#include "Func_Section_Widget.h"
#include "OsgGraphItem_PointList.h"
#include "PtCloudDataSet.h"
#include "PtCloudScene.h"
#include "PtCloudWidget.h"
#include "PtCloud_BlockFileWriter.h"
#include "SectionViewOsgWidget.h"
#include "SectionViewWidget.h"
#include "OsgTackballManipulate.h"
#include "ShownView.h"

using namespace ptCloud;

namespace {
const pcVec3d kUtm(500000.0, 5000000.0, 200.0);

// The profile item of a section view.
OsgGraphItem_PointList* profileOf(osgHelper::OsgQWidget* view)
{
    for (unsigned i = 0; i < view->getRoot()->getNumChildren(); ++i)
        if (auto* item = dynamic_cast<OsgGraphItem_PointList*>(view->getRoot()->getChild(i))) return item;
    return nullptr;
}

// Window position of a point as the view's trackball puts the camera.
osg::Vec3d onScreen(osgHelper::OsgQWidget* view, const osg::Vec3d& p)
{
    const osg::Camera* camera = view->getViewer()->getCamera();
    return p * view->getManipulate()->getInverseMatrix() * camera->getProjectionMatrix() *
           camera->getViewport()->computeWindowMatrix();
}
}  // namespace

class TstToolsSection : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void looksAcrossTheLine_data();
    void looksAcrossTheLine();
    void panelSelectsTheStrip_data();
    void panelSelectsTheStrip();
    void panelOutlivesTheScene_data();
    void panelOutlivesTheScene();

private:
    QTemporaryDir m_dir;
};

void TstToolsSection::initTestCase()
{
    QVERIFY(m_dir.isValid());
    TestProject::isolateSettings(m_dir.path());
}

void TstToolsSection::looksAcrossTheLine_data()
{
    QTest::addColumn<double>("angle");
    for (double a : {0.0, 90.0, 135.0, 200.0, 300.0}) QTest::newRow(qPrintable(QString::number(a))) << a;
}

void TstToolsSection::looksAcrossTheLine()
{
    QFETCH(double, angle);
    // Two posts, a low and a high point each, a metre inside the ends of a
    // 40 m line.
    const osg::Vec2d start(30.0, -20.0);
    const osg::Vec2d step(std::cos(osg::DegreesToRadians(angle)), std::sin(osg::DegreesToRadians(angle)));
    const osg::Vec2d end = start + step * 40.0, first = start + step, last = end - step;
    const osg::Vec3d posts[4] = {{first.x(), first.y(), 0.0}, {first.x(), first.y(), 10.0},
                                 {last.x(), last.y(), 0.0}, {last.x(), last.y(), 10.0}};
    stPtCloud_DataSetHeader header;
    header.origin = kUtm;
    header.columns = {DSC_Location};
    stPtCloud_PointArray block;
    block.origin = kUtm;
    for (const osg::Vec3d& p : posts) block.positions.emplace_back(float(p.x()), float(p.y()), float(p.z()));
    block.count = 4;
    const QString path = m_dir.filePath(QStringLiteral("posts_%1.pcb").arg(angle));
    PtCloud_BlockFileWriter writer(path);
    QString error;
    QVERIFY(writer.begin(header, &error) && writer.writeBlock(0, block, &error) && writer.commit(&error));

    SectionViewOsgWidget view;
    view.resize(400, 300);
    view.show();
    QVERIFY(QTest::qWaitForWindowExposed(&view));
    QTest::qWait(50);
    view.setDataSetFile(path);
    QVERIFY2(view.showSection(start, end, 2.0, true, &error), qPrintable(error));
    QCOMPARE(view.sectionPointCount(), 4);
    const osg::Vec3d s0 = onScreen(&view, posts[0]), s1 = onScreen(&view, posts[1]);
    const osg::Vec3d e0 = onScreen(&view, posts[2]), e1 = onScreen(&view, posts[3]);
    // Posts stand upright (a top view would put both points of one on the
    // same pixel), the start is on the left, and all is in the window.
    QVERIFY2(std::fabs(s1.x() - s0.x()) < 1.0 && s1.y() - s0.y() > 20.0, qPrintable(QString::number(s1.y() - s0.y())));
    QVERIFY(std::fabs(e1.x() - e0.x()) < 1.0 && e1.y() - e0.y() > 20.0);
    QVERIFY2(e0.x() - s0.x() > 50.0, qPrintable(QString::number(e0.x() - s0.x())));
    QVERIFY(std::fabs(e0.y() - s0.y()) < 1.0);
    for (const osg::Vec3d& p : {s0, s1, e0, e1}) QVERIFY(p.x() >= 0 && p.x() <= 400 * 3 && p.y() >= 0);
}

void TstToolsSection::panelSelectsTheStrip_data()
{
    QTest::addColumn<bool>("colour");
    QTest::addColumn<double>("width");
    QTest::addColumn<int>("rows");
    // The line runs half-way between two rows of the 1 m grid, from x = 1.5
    // to 12.5: 11 points a row, and one more row each side per 2 m of width.
    QTest::newRow("1.8 m, no colour") << false << 1.8 << 2;
    QTest::newRow("2.2 m, colour") << true << 2.2 << 2;
    QTest::newRow("4 m, no colour") << false << 4.0 << 4;
    QTest::newRow("0.9 m, colour") << true << 0.9 << 0;
}

void TstToolsSection::panelSelectsTheStrip()
{
    QFETCH(bool, colour);
    QFETCH(double, width);
    QFETCH(int, rows);
    ShownProject shown;
    QVERIFY(shown.project.open() && shown.project.addGridDataSet("grid", 20, kUtm, colour) && shown.show());
    PtCloudDataSet* ds = shown.project.dataSet("grid");
    const pcVec3d o = ds->getLocalFrame().origin();
    auto relative = [&](double x, double y) {
        return osg::Vec3f(float(kUtm.x + x - o.x), float(kUtm.y + y - o.y), float(kUtm.z - o.z));
    };
    shown.scene->dataSetViewer()->onClickedTool_Section();
    auto* panel =
        qobject_cast<Func_Section_Widget*>(shown.scene->dataSetViewer()->toolPanel(DataSetViewer::Tool_Section));
    QVERIFY(panel);
    panel->findChild<QDoubleSpinBox*>("doubleSpinBox_width")->setValue(width);
    panel->pickPoint(relative(1.5, 7.5));
    panel->pickPoint(relative(1.5, 7.5));  // the start again: no line yet
    QCOMPARE(panel->sectionView()->profileView()->sectionPointCount(), 0);
    panel->pickPoint(relative(12.5, 7.5));
    OsgGraphItem_PointList* profile = profileOf(panel->sectionView()->profileView());
    QVERIFY(profile);
    QCOMPARE(int(profile->vertices()->size()), rows * 11);
    for (const osg::Vec4& c : *profile->colors()) QCOMPARE(c == osg::Vec4(1, 1, 1, 1), !colour);
    // A wider strip takes the next rows in, the camera stays.
    const osg::Matrixd camera = panel->sectionView()->profileView()->getManipulate()->getInverseMatrix();
    panel->findChild<QDoubleSpinBox*>("doubleSpinBox_width")->setValue(width + 2.0);
    QCOMPARE(int(profile->vertices()->size()), (rows + 2) * 11);
    QCOMPARE(panel->sectionView()->profileView()->getManipulate()->getInverseMatrix(), camera);
    // A third pick starts a new line.
    panel->pickPoint(relative(3.0, 3.0));
    QCOMPARE(profile->vertices()->size(), size_t(0));
}

void TstToolsSection::panelOutlivesTheScene_data()
{
    QTest::addColumn<bool>("volume");
    QTest::addColumn<QString>("end");
    for (bool volume : {false, true}) {
        const char* tool = volume ? "volume" : "section";
        QTest::addRow("%s, project closed", tool) << volume << "close";
        QTest::addRow("%s, other dataset shown", tool) << volume << "switch";
        QTest::addRow("%s, view destroyed", tool) << volume << "destroy";
    }
}

void TstToolsSection::panelOutlivesTheScene()
{
    QFETCH(bool, volume);
    QFETCH(QString, end);
    ShownProject shown;
    QVERIFY(shown.make({{"a", 10}, {"b", 10}}, kUtm) && shown.show());
    DataSetViewer* viewer = shown.scene->dataSetViewer();
    QPointer<QWidget> profile;
    if (volume) {
        viewer->onClickedTool_Volumn();
        QVERIFY(viewer->toolPanel(DataSetViewer::Tool_Volume));
        viewer->toolPanel(DataSetViewer::Tool_Volume)->findChild<QPushButton*>("pushButton_add_area")->click();
    } else {
        viewer->onClickedTool_Section();
        auto* section = qobject_cast<Func_Section_Widget*>(viewer->toolPanel(DataSetViewer::Tool_Section));
        QVERIFY(section);
        section->pickPoint(osg::Vec3f(1, 1, 0));
        section->pickPoint(osg::Vec3f(8, 8, 0));
        profile = section->sectionView();
    }
    QPointer<QWidget> panel = viewer->toolPanel(volume ? DataSetViewer::Tool_Volume : DataSetViewer::Tool_Section);
    const unsigned children = shown.view->getRoot()->getNumChildren();
    if (end == "close") shown.view->onSceneClosed();
    if (end == "switch") shown.scene->showDataSet(shown.scene->currentDataSetName() == "a" ? "b" : "a");
    if (end == "destroy") shown.view.reset();
    QTest::qWait(20);
    QVERIFY(!panel && !profile);
    // The panel's overlays left with it.
    if (shown.view) QVERIFY(shown.view->getRoot()->getNumChildren() < children);
}

QTEST_MAIN(TstToolsSection)
#include "tst_tools_section.moc"
