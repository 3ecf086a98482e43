#include "Func_Volume_Widget.h"

#include <QApplication>
#include <QCloseEvent>
#include <QHeaderView>
#include <QKeyEvent>
#include <QMessageBox>
#include <QMouseEvent>
#include <QSignalBlocker>
#include <QToolButton>

#include "MarkerColors.h"
#include "OsgGraphItem_PcDataSet.h"
#include "OsgGraphItem_PointList.h"
#include "OsgQWidget.h"
#include "OsgTackballManipulate.h"
#include "PtCloudDataSet.h"
#include "PtCloudScene.h"
#include "PtCloud_DataSetFile.h"
#include "VolumeCalcArea.h"
#include "VolumeCalcAreaList.h"
#include "tk/Toolkits.h"
#include "ui_Func_Volume_Widget.h"

using namespace ptCloud;

namespace {
enum EColumn { Column_Name = 0, Column_Dig = 1, Column_Fill = 2, Column_Delete = 3 };
const char* const kAreaProperty = "area_name";
}  // namespace

Func_Volume_Widget::Func_Volume_Widget(PtCloudScene* scene, osgHelper::OsgQWidget* view)
    : MovableSubWidget(view), m_view(view), m_scene(scene), ui(std::make_unique<Ui::volume_calc_widget>())
{
    ui->setupUi(this);
    setAttribute(Qt::WA_DeleteOnClose);
    m_savedTrackNode = view->getManipulate()->getTrackNode();
    m_item = scene->pointsItem();
    m_dataSet = scene->currentDataSet();
    PtCloud_DataSetFile* dem = nullptr;
    if (m_dataSet) {
        if (!m_dataSet->getContent_EarthVolume()) m_dataSet->addContent_EarthVolume();
        m_originZ = m_dataSet->getLocalFrame().origin().z;
        if (PtCloud_DataSetFile* mesh = m_dataSet->getContent_Dem_Mesh(); mesh && mesh->isValid()) dem = mesh;
        if (VolumeCalcAreaList* list = areaList()) {
            list->setGridFile(m_dataSet->getContent_PointDataSetFile());
            list->setDTMFile(dem);
        }
        // The area list and its files belong to the dataset.
        connect(m_dataSet, SIGNAL(sgContentRemoved_EarthVolume(QString)), this, SLOT(onClickedClose()),
                Qt::UniqueConnection);
        connect(m_dataSet, SIGNAL(destroyed(QObject*)), this, SLOT(onClickedClose()), Qt::UniqueConnection);
    }
    ui->radioButton_dtm->setEnabled(dem != nullptr);
    (dem ? ui->radioButton_dtm : ui->radioButton_grid)->setChecked(true);

    QHeaderView* header = ui->tableWidget_selections->horizontalHeader();
    const int widths[] = {120, 100, 100, 50};
    for (int c = 0; c < 4; ++c) header->resizeSection(c, widths[c]);

    m_boundaryMarkers = new OsgGraphItem_PointList;
    view->getRoot()->addChild(m_boundaryMarkers.get());

    connect(ui->radioButton_dtm, SIGNAL(toggled(bool)), this, SLOT(onFunctionCmbChanged()), Qt::UniqueConnection);
    connect(ui->pushButton_add_area, SIGNAL(clicked(bool)), this, SLOT(onClickedAddArea()), Qt::UniqueConnection);
    connect(ui->tableWidget_selections, SIGNAL(cellClicked(int, int)), this, SLOT(onActiveAreaChanged(int, int)),
            Qt::UniqueConnection);
    connect(ui->pushButton_boundary_select, SIGNAL(clicked(bool)), this, SLOT(onClickedBeginOrEndBoundarySelect()),
            Qt::UniqueConnection);
    connect(ui->radioButton_ground_boundary_avg, SIGNAL(toggled(bool)), this,
            SLOT(onGroundHeight_byBoundaryAvgToggled(bool)), Qt::UniqueConnection);
    connect(ui->radioButton_ground_fixed, SIGNAL(toggled(bool)), this, SLOT(onGroundHeight_byFixedToggled(bool)),
            Qt::UniqueConnection);
    connect(ui->doubleSpinBox_ground_height, SIGNAL(valueChanged(double)), this,
            SLOT(onGroundHeight_byFixed_valueChanged()), Qt::UniqueConnection);
    connect(ui->doubleSpinBox_sky_limit, SIGNAL(valueChanged(double)), this,
            SLOT(onGridFunc_maxTopHeight_valueChanged()), Qt::UniqueConnection);
    connect(ui->doubleSpinBox_grid_size, SIGNAL(valueChanged(double)), this, SLOT(onGridFunc_gridSize_valueChanged()),
            Qt::UniqueConnection);
    connect(ui->pushButton_calc, SIGNAL(clicked(bool)), this, SLOT(onClickedCalc()), Qt::UniqueConnection);
    connect(ui->toolButton_close, SIGNAL(clicked(bool)), this, SLOT(onClickedClose()), Qt::UniqueConnection);

    if (m_scene) m_scene->syncVolumeAreaItems(function());
    rebuildRows();
    showActiveArea();
}

// The view may be half destroyed here (the panel is its child): the overlays
// and the tracked node were dealt with at close.
Func_Volume_Widget::~Func_Volume_Widget() = default;

EVolumeCalcFunction Func_Volume_Widget::function() const
{
    return ui->radioButton_dtm->isChecked() ? VCF_DTM : VCF_Grid;
}

VolumeCalcAreaList* Func_Volume_Widget::areaList() const
{
    return m_dataSet ? m_dataSet->getContent_EarthVolume() : nullptr;
}

VolumeCalcArea* Func_Volume_Widget::activeArea() const
{
    VolumeCalcAreaList* list = areaList();
    return list && !m_activeArea.isEmpty() ? list->getArea(m_activeArea) : nullptr;
}

bool Func_Volume_Widget::viewMousePressEvent(QMouseEvent* event)
{
    osg::ref_ptr<OsgGraphItem_PcDataSet> item;
    if (!m_selecting || event->button() != Qt::LeftButton || !m_item.lock(item) || !item->isReady()) return false;
    const double scale = m_view->getPixelScale();
    int block = -1, index = -1;
    osg::Vec3f position;
    if (!item->pickNearest(event->x() * scale, (m_view->height() - event->y()) * scale, &block, &index, &position,
                           nullptr))
        return false;
    pickPoint(position);
    return true;
}

bool Func_Volume_Widget::viewKeyPressEvent(QKeyEvent* event)
{
    VolumeCalcArea* area = activeArea();
    if (!m_selecting || !area) return false;
    switch (event->key()) {
    case Qt::Key_Backspace: {
        std::vector<pcVec3f> boundary = area->boundary();
        if (boundary.empty()) return true;
        boundary.pop_back();
        area->setBoundary(boundary);
        boundaryChanged();
        return true;
    }
    case Qt::Key_Return:
    case Qt::Key_Enter:
    case Qt::Key_Escape: setSelecting(false); return true;
    default: return false;
    }
}

void Func_Volume_Widget::pickPoint(const osg::Vec3f& position)
{
    VolumeCalcArea* area = activeArea();
    if (!m_selecting || !area) return;
    area->addBoundaryPoint(pcVec3f(position.x(), position.y(), position.z()));
    boundaryChanged();
}

void Func_Volume_Widget::boundaryChanged()
{
    if (!m_boundaryMarkers) return;  // closed
    osg::Vec3Array* vertices = m_boundaryMarkers->vertices();
    osg::Vec4Array* colors = m_boundaryMarkers->colors();
    vertices->clear();
    colors->clear();
    if (const VolumeCalcArea* area = activeArea())
        for (const pcVec3f& p : area->boundary()) {
            vertices->push_back(osg::Vec3(p.x, p.y, p.z));
            colors->push_back(MarkerColors::markerRed());
        }
    m_boundaryMarkers->rebuild();
    ui->label_points_num_value->setText(QString::number(vertices->size()));
    if (m_scene) m_scene->syncVolumeAreaItems(function());
    m_view->requestRedraw();
}

void Func_Volume_Widget::setSelecting(bool selecting)
{
    m_selecting = selecting && activeArea();
    ui->pushButton_boundary_select->setText(m_selecting
                                                ? QCoreApplication::translate("volume_calc_widget", "end select")
                                                : QCoreApplication::translate("volume_calc_widget", "begin select"));
}

void Func_Volume_Widget::rebuildRows()
{
    QTableWidget* table = ui->tableWidget_selections;
    table->setRowCount(0);
    VolumeCalcAreaList* list = areaList();
    if (!list) return;
    QMap<QString, VolumeCalcArea*> areas;
    list->getAreas(areas);
    for (auto it = areas.cbegin(); it != areas.cend(); ++it) {
        const int row = table->rowCount();
        table->insertRow(row);
        table->setItem(row, Column_Name, new QTableWidgetItem(it.key()));
        auto* remove = new QToolButton(table);
        remove->setIcon(QIcon(QStringLiteral(":res/trash.png")));
        remove->setAutoRaise(true);
        remove->setProperty(kAreaProperty, it.key());
        connect(remove, SIGNAL(clicked(bool)), this, SLOT(onClickedRemoveArea()), Qt::UniqueConnection);
        table->setCellWidget(row, Column_Delete, remove);
        if (it.key() == m_activeArea) table->selectRow(row);
    }
    const int total = table->rowCount();
    table->insertRow(total);
    table->setItem(total, Column_Name,
                   new QTableWidgetItem(QCoreApplication::translate("volume_calc_widget", "total")));
    refreshResults();
}

void Func_Volume_Widget::refreshResults()
{
    QTableWidget* table = ui->tableWidget_selections;
    const int rows = table->rowCount();
    if (rows == 0) return;
    VolumeCalcAreaList* list = areaList();
    const bool dtm = function() == VCF_DTM;
    double digSum = 0.0, fillSum = 0.0;
    auto write = [table](int row, double dig, double fill) {
        table->setItem(row, Column_Dig, new QTableWidgetItem(tk::Toolkits::DoubleToString(dig, 2)));
        table->setItem(row, Column_Fill, new QTableWidgetItem(tk::Toolkits::DoubleToString(fill, 2)));
    };
    for (int row = 0; row + 1 < rows; ++row) {
        const QTableWidgetItem* name = table->item(row, Column_Name);
        const VolumeCalcArea* area = list && name ? list->getArea(name->text()) : nullptr;
        const double dig = !area ? 0.0 : dtm ? area->getDigVolume_dtm() : area->getDigVolume_grid();
        const double fill = !area ? 0.0 : dtm ? area->getFillVolume_dtm() : area->getFillVolume_grid();
        write(row, dig, fill);
        digSum += dig;
        fillSum += fill;
    }
    write(rows - 1, digSum, fillSum);
    const VolumeCalcArea* area = activeArea();
    ui->label_boundary_avg_value->setText(area && area->pointCount() > 0
                                              ? tk::Toolkits::DoubleToString(area->getGroundHeightBoundaryAvg() +
                                                                                 m_originZ, 3)
                                              : tk::Toolkits::DoubleToString(0.0, 3));
}

void Func_Volume_Widget::showActiveArea()
{
    const VolumeCalcArea* area = activeArea();
    ui->groupBox_parameter->setEnabled(area != nullptr);
    if (area) {
        const QSignalBlocker b1(ui->radioButton_ground_boundary_avg), b2(ui->radioButton_ground_fixed),
            b3(ui->doubleSpinBox_ground_height), b4(ui->doubleSpinBox_sky_limit), b5(ui->doubleSpinBox_grid_size);
        const bool fixed = area->groundHeightMode() == VolumeCalcArea::GroundFixed;
        (fixed ? ui->radioButton_ground_fixed : ui->radioButton_ground_boundary_avg)->setChecked(true);
        ui->doubleSpinBox_ground_height->setValue(area->fixedGroundHeight() + m_originZ);
        ui->doubleSpinBox_sky_limit->setValue(area->skyLimit() + m_originZ);
        ui->doubleSpinBox_grid_size->setValue(area->gridSize());
    }
    ui->doubleSpinBox_ground_height->setEnabled(ui->radioButton_ground_fixed->isChecked());
    boundaryChanged();
    refreshResults();
}

void Func_Volume_Widget::onFunctionCmbChanged()
{
    refreshResults();
    if (m_scene) m_scene->syncVolumeAreaItems(function());
}

void Func_Volume_Widget::onClickedAddArea()
{
    VolumeCalcAreaList* list = areaList();
    if (!list || !m_scene) return;
    QString name;
    for (int i = 1; name.isEmpty() || list->getArea(name); ++i) name = QStringLiteral("area_%1").arg(i);
    VolumeCalcArea* area = m_scene->addVolumeArea(name);
    if (!area) return;
    area->setGridSize(kDefaultGridSize);
    setSelecting(false);
    m_activeArea = name;
    rebuildRows();
    showActiveArea();
}

void Func_Volume_Widget::onActiveAreaChanged(int row, int /*column*/)
{
    const QTableWidgetItem* name = ui->tableWidget_selections->item(row, Column_Name);
    if (row + 1 >= ui->tableWidget_selections->rowCount() || !name) return;
    setSelecting(false);
    m_activeArea = name->text();
    showActiveArea();
}

void Func_Volume_Widget::onClickedRemoveArea()
{
    const QString name = sender() ? sender()->property(kAreaProperty).toString() : QString();
    if (name.isEmpty() || !m_scene) return;
    if (QMessageBox::question(
            this, QCoreApplication::translate("volume_calc_widget", "Confirm"),
            QCoreApplication::translate("volume_calc_widget", "Do you want to delete the area %1?").arg(name),
            QMessageBox::Yes | QMessageBox::No) != QMessageBox::Yes)
        return;
    if (name == m_activeArea) {
        setSelecting(false);
        m_activeArea.clear();
    }
    m_scene->removeVolumeArea(name);
    rebuildRows();
    showActiveArea();
}

void Func_Volume_Widget::onClickedBeginOrEndBoundarySelect()
{
    VolumeCalcArea* area = activeArea();
    if (!m_selecting && area) {
        // A new selection draws the boundary anew.
        area->clearBoundary();
        boundaryChanged();
    }
    setSelecting(!m_selecting);
}

void Func_Volume_Widget::onGroundHeight_byBoundaryAvgToggled(bool checked)
{
    if (!checked) return;
    if (VolumeCalcArea* area = activeArea()) area->setGroundHeightMode(VolumeCalcArea::GroundBoundaryAvg);
    ui->doubleSpinBox_ground_height->setEnabled(false);
}

void Func_Volume_Widget::onGroundHeight_byFixedToggled(bool checked)
{
    if (!checked) return;
    if (VolumeCalcArea* area = activeArea()) area->setGroundHeightMode(VolumeCalcArea::GroundFixed);
    ui->doubleSpinBox_ground_height->setEnabled(true);
}

void Func_Volume_Widget::onGroundHeight_byFixed_valueChanged()
{
    if (VolumeCalcArea* area = activeArea())
        area->setFixedGroundHeight(ui->doubleSpinBox_ground_height->value() - m_originZ);
}

void Func_Volume_Widget::onGridFunc_maxTopHeight_valueChanged()
{
    if (VolumeCalcArea* area = activeArea()) area->setSkyLimit(ui->doubleSpinBox_sky_limit->value() - m_originZ);
}

void Func_Volume_Widget::onGridFunc_gridSize_valueChanged()
{
    if (VolumeCalcArea* area = activeArea()) area->setGridSize(ui->doubleSpinBox_grid_size->value());
}

void Func_Volume_Widget::onClickedCalc()
{
    VolumeCalcAreaList* list = areaList();
    if (!list) return;
    const EVolumeCalcFunction calcFunction = function();
    QApplication::setOverrideCursor(Qt::WaitCursor);
    const bool ok = list->doCalc(calcFunction);
    QApplication::restoreOverrideCursor();
    QStringList failures;
    QMap<QString, VolumeCalcArea*> areas;
    list->getAreas(areas);
    for (auto it = areas.cbegin(); it != areas.cend(); ++it)
        if (!it.value()->lastCalcOk()) failures << QStringLiteral("%1: %2").arg(it.key(), it.value()->lastError());
    if (!ok) {
        if (failures.isEmpty()) failures << list->lastError();
        QMessageBox::critical(this, QCoreApplication::translate("volume_calc_widget", "error"),
                              failures.join(QLatin1Char('\n')));
        return;
    }
    refreshResults();
    if (m_scene) m_scene->syncVolumeAreaItems(calcFunction);
    if (!failures.isEmpty())
        QMessageBox::warning(this, QCoreApplication::translate("volume_calc_widget", "warning"),
                             failures.join(QLatin1Char('\n')));
}

void Func_Volume_Widget::onClickedClose() { close(); }

void Func_Volume_Widget::closeEvent(QCloseEvent* event)
{
    osgHelper::OsgTackballManipulate* manipulator = m_view->getManipulate();
    osg::ref_ptr<osg::Node> saved;
    m_savedTrackNode.lock(saved);
    if (manipulator->getTrackNode() != saved.get()) manipulator->setTrackNode(saved.get());
    if (m_boundaryMarkers) m_view->getRoot()->removeChild(m_boundaryMarkers.get());
    m_boundaryMarkers = nullptr;
    m_view->requestRedraw();
    MovableSubWidget::closeEvent(event);
}
