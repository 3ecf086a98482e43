// The volume panel on the demo scene, whose stockpile has a known volume:
// grid and DTM results through the panel's own fields (absolute heights),
// the no-DEM case, rows of areas gone from the list, a failed calculation
// that changes nothing shown, and one overlay per area.

#include <QtTest>
#include <QtWidgets>
#include <cmath>

#include "DataSetViewer.h"
#include "Func_Volume_Widget.h"
#include "ModalAnswerer.h"
#include "OsgGraphItem_VolumeArea.h"
#include "PtCloudDataSet.h"
#include "PtCloudScene.h"
#include "PtCloudWidget.h"
#include "PtCloud_Controller.h"
#include "PtCloud_DataSetFile.h"
#include "PtCloud_DemoScene.h"
#include "ShownView.h"
#include "VolumeCalcAreaList.h"

using namespace ptCloud;

namespace {
// Dense enough for half-metre cells on the stockpile; the DEM takes minutes.
const quint64 kDemoPoints = 500000;

QStringList overlayNames(osgHelper::OsgQWidget* view)
{
    QStringList names;
    for (unsigned i = 0; i < view->getRoot()->getNumChildren(); ++i)
        if (auto* item = dynamic_cast<OsgGraphItem_VolumeArea*>(view->getRoot()->getChild(i))) names << item->name();
    names.sort();
    return names;
}
}  // namespace

class TstToolsVolume : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();
    void stockpile_data();
    void stockpile();
    void withoutDemOnlyGrid();
    void goneAreaRowShowsZero();
    void failedCalculationChangesNothing();
    void oneOverlayPerArea();

private:
    Func_Volume_Widget* openPanel(const QString& dataSet);
    // A new area around the stockpile: a square of half side h (m), ground
    // fixed at the pad, the top above the pile, cells of grid metres.
    void addStockpileArea(Func_Volume_Widget* panel, double h);
    template <class T> T* field(const char* name) { return m_panel->findChild<T*>(QString::fromLatin1(name)); }
    QStringList tableTexts() const;

    TestProject m_project;
    std::unique_ptr<PtCloudWidget> m_view;
    QPointer<Func_Volume_Widget> m_panel;
};

void TstToolsVolume::initTestCase()
{
    QVERIFY(m_project.open());
    const QString las = m_project.filePath("demo.las");
    PtCloud_DemoScene demo(kDemoPoints, 7);
    QString error, key;
    QVERIFY2(demo.writeLas(las, nullptr, &error), qPrintable(error));
    PtCloud_Controller* controller = m_project.controller();
    QCOMPARE(controller->doCmd_LasFile_Import({las}, &key), PCAR_Success);
    QCOMPARE(controller->doCmd_DataSet_Make({{key}, {DSC_Location}, "site"}), PCAR_Success);
    QCOMPARE(controller->doCmd_DataSet_Make({{key}, {DSC_Location}, "bare"}), PCAR_Success);
    // The DEM action as the dataset viewer runs it.
    PtCloudDataSet* ds = m_project.dataSet("site");
    stControlParam_DataSet_Do_Mesh dem;
    dem.dataSetName = "site";
    dem.func = 3;
    dem.params = QVariantList{ds->getFilePath_Dem_Mesh(), ds->getFilePath_Dem_HeightMap(), 1920,
                              ds->getFilePath_Dem_Contour(), 50, ds->getFilePath_Dem_Classify()};
    QCOMPARE(controller->doCmd_DataSet_Do_Mesh(dem, nullptr), PCAR_Success);
    QVERIFY(ds->setContent_Dem_Mesh());
    m_view = ShownView::create(QSize(900, 700));
    QVERIFY(m_view);
    m_view->onSceneOpened(m_project.scene());
}

void TstToolsVolume::init() { m_panel = nullptr; }

void TstToolsVolume::cleanup()
{
    if (m_panel) m_panel->close();
    QTest::qWait(10);
    for (const char* name : {"site", "bare"})
        if (PtCloudDataSet* ds = m_project.dataSet(name)) ds->removeContent_EarthVolume();
}

Func_Volume_Widget* TstToolsVolume::openPanel(const QString& dataSet)
{
    PtCloudScene* scene = m_view->ptCloudScene();
    scene->showDataSet(dataSet);
    scene->dataSetViewer()->onClickedTool_Volumn();
    m_panel = qobject_cast<Func_Volume_Widget*>(scene->dataSetViewer()->toolPanel(DataSetViewer::Tool_Volume));
    return m_panel;
}

void TstToolsVolume::addStockpileArea(Func_Volume_Widget* panel, double h)
{
    const PtCloud_DemoScene::Stockpile s = PtCloud_DemoScene::stockpile();
    const pcVec3d o = m_project.dataSet(m_view->ptCloudScene()->currentDataSetName())->getLocalFrame().origin();
    field<QPushButton>("pushButton_add_area")->click();
    field<QPushButton>("pushButton_boundary_select")->click();
    for (const QPointF& c : {QPointF(-h, -h), QPointF(h, -h), QPointF(h, h), QPointF(-h, h)})
        panel->pickPoint(osg::Vec3f(float(s.x + c.x() - o.x), float(s.y + c.y() - o.y), 0.f));
    field<QPushButton>("pushButton_boundary_select")->click();
    field<QRadioButton>("radioButton_ground_fixed")->setChecked(true);
    field<QDoubleSpinBox>("doubleSpinBox_ground_height")->setValue(s.baseZ);
    field<QDoubleSpinBox>("doubleSpinBox_sky_limit")->setValue(s.baseZ + s.height + 2.0);
}

QStringList TstToolsVolume::tableTexts() const
{
    QStringList texts;
    const QTableWidget* table = m_panel->findChild<QTableWidget*>("tableWidget_selections");
    for (int r = 0; r < table->rowCount(); ++r)
        for (int c = 0; c < 3; ++c) texts << (table->item(r, c) ? table->item(r, c)->text() : QString());
    texts << m_panel->findChild<QLabel*>("label_boundary_avg_value")->text();
    return texts;
}

void TstToolsVolume::stockpile_data()
{
    QTest::addColumn<bool>("dtm");
    QTest::newRow("grid") << false;
    QTest::newRow("dtm") << true;
}

void TstToolsVolume::stockpile()
{
    QFETCH(bool, dtm);
    QVERIFY(openPanel("site"));
    QVERIFY(field<QRadioButton>("radioButton_dtm")->isChecked());
    addStockpileArea(m_panel, 25.0);
    field<QRadioButton>(dtm ? "radioButton_dtm" : "radioButton_grid")->setChecked(true);
    field<QPushButton>("pushButton_calc")->click();
    const double expected = PtCloud_DemoScene::stockpile().volume();
    const QTableWidget* table = field<QTableWidget>("tableWidget_selections");
    QCOMPARE(table->rowCount(), 2);
    const double dig = table->item(0, 1)->text().toDouble();
    QVERIFY2(std::fabs(dig - expected) < 0.01 * expected,
             qPrintable(QStringLiteral("%1 vs %2").arg(dig).arg(expected)));
    QCOMPARE(table->item(1, 1)->text(), table->item(0, 1)->text());
    QVERIFY(table->item(0, 2)->text().toDouble() < 0.01 * expected);
}

void TstToolsVolume::withoutDemOnlyGrid()
{
    QVERIFY(!m_project.dataSet("bare")->getContent_EarthVolume());
    QVERIFY(openPanel("bare"));
    QVERIFY(m_project.dataSet("bare")->getContent_EarthVolume());
    QVERIFY(field<QRadioButton>("radioButton_grid")->isChecked());
    QVERIFY(!field<QRadioButton>("radioButton_dtm")->isEnabled());
    addStockpileArea(m_panel, 25.0);
    QVERIFY(!m_project.dataSet("bare")->getContent_EarthVolume()->doCalc(VCF_DTM));
}

void TstToolsVolume::goneAreaRowShowsZero()
{
    QVERIFY(openPanel("bare"));
    addStockpileArea(m_panel, 25.0);
    addStockpileArea(m_panel, 20.0);
    field<QPushButton>("pushButton_calc")->click();
    const QStringList before = tableTexts();
    // The second area leaves the list behind the panel's back.
    m_project.dataSet("bare")->getContent_EarthVolume()->removeArea("area_2");
    field<QPushButton>("pushButton_calc")->click();
    const QStringList after = tableTexts();
    QCOMPARE(after.mid(0, 3), before.mid(0, 3));
    QCOMPARE(after.mid(3, 3), (QStringList{"area_2", "0.00", "0.00"}));
    QCOMPARE(after.mid(6, 3), (QStringList{"total", before[1], before[2]}));
}

void TstToolsVolume::failedCalculationChangesNothing()
{
    QVERIFY(openPanel("bare"));
    addStockpileArea(m_panel, 25.0);
    field<QPushButton>("pushButton_calc")->click();
    const QStringList before = tableTexts();
    // Millimetre cells over 50 m exceed the calculator's cell cap.
    field<QDoubleSpinBox>("doubleSpinBox_grid_size")->setValue(0.001);
    ModalAnswerer answerer(QMessageBox::Ok);
    field<QPushButton>("pushButton_calc")->click();
    QCOMPARE(answerer.boxes.size(), 1);
    QCOMPARE(answerer.boxes[0].title, QString("error"));
    const QString reason = m_project.dataSet("bare")->getContent_EarthVolume()->getArea("area_1")->lastError();
    QVERIFY(!reason.isEmpty());
    QVERIFY2(answerer.boxes[0].text.contains(reason), qPrintable(answerer.boxes[0].text));
    QCOMPARE(tableTexts(), before);
}

void TstToolsVolume::oneOverlayPerArea()
{
    QVERIFY(openPanel("bare"));
    ModalAnswerer answerer(QMessageBox::Yes);
    for (int i = 0; i < 3; ++i) field<QPushButton>("pushButton_add_area")->click();
    QCOMPARE(overlayNames(m_view.get()), (QStringList{"area_1", "area_2", "area_3"}));
    const QTableWidget* table = field<QTableWidget>("tableWidget_selections");
    qobject_cast<QAbstractButton*>(table->cellWidget(1, 3))->click();
    QCOMPARE(overlayNames(m_view.get()), (QStringList{"area_1", "area_3"}));
    field<QPushButton>("pushButton_add_area")->click();
    QCOMPARE(overlayNames(m_view.get()), (QStringList{"area_1", "area_2", "area_3"}));
    QCOMPARE(table->rowCount(), 4);
    m_panel->close();
    QTest::qWait(10);
    // The areas stay drawn by the scene after the panel closed.
    QCOMPARE(overlayNames(m_view.get()).size(), 3);
}

QTEST_MAIN(TstToolsVolume)
#include "tst_tools_volume.moc"
