#include "Func_Measure_Widget.h"

#include <QCloseEvent>
#include <QMouseEvent>

#include "OsgGraphItem_Line_WithPlane.h"
#include "OsgGraphItem_Point.h"
#include "OsgGraphItem_TriangleLine_WithPlane.h"
#include "OsgQWidget.h"
#include "PtCloud_Measure.h"
#include "Toolkits.h"
#include "ui_Func_Measure_Widget.h"

using namespace ptCloud;

// Texts of the panel belong to its form's translation context, "func_measure_widget".

namespace {

pcVec3f toPc(const osg::Vec3f& v) { return {v.x(), v.y(), v.z()}; }

QString threeDecimals(double v) { return tk::Toolkits::DoubleToString(v, 3); }

QString triple(const QVariant& value, bool decimals)
{
    const QVariantList v = value.toList();
    if (v.size() != 3) return value.toString();
    QStringList parts;
    for (const QVariant& x : v) parts << (decimals ? threeDecimals(x.toDouble()) : x.toString());
    return QStringLiteral("%1,%2,%3").arg(parts[0], parts[1], parts[2]);
}

// The attribute rows in the order they are listed.
struct Row {
    EDataSetColumn column;
    const char* label;
};
const Row kRows[] = {
    {DSC_Location, QT_TRANSLATE_NOOP("func_measure_widget", "Location")},
    {DSC_Color, QT_TRANSLATE_NOOP("func_measure_widget", "Color")},
    {DSC_Intensity, QT_TRANSLATE_NOOP("func_measure_widget", "Intensity")},
    {DSC_Classification, QT_TRANSLATE_NOOP("func_measure_widget", "Classification")},
    {DSC_ReturnNumber, QT_TRANSLATE_NOOP("func_measure_widget", "Return")},
    {DSC_NumberOfReturnsGivenPulse, QT_TRANSLATE_NOOP("func_measure_widget", "Returns given pulse")},
    {DSC_ScanDirectionFlag, QT_TRANSLATE_NOOP("func_measure_widget", "Scan direction flag")},
    {DSC_EdgeOfFlightingLine, QT_TRANSLATE_NOOP("func_measure_widget", "Edge of flighting line")},
    {DSC_ScanAngleRank, QT_TRANSLATE_NOOP("func_measure_widget", "Scan angle rank")},
    {DSC_UserData, QT_TRANSLATE_NOOP("func_measure_widget", "User data")},
    {DSC_PointSourceId, QT_TRANSLATE_NOOP("func_measure_widget", "Point source id")},
    {DSC_GpsTime, QT_TRANSLATE_NOOP("func_measure_widget", "Gps time")},
};

QString rowValue(EDataSetColumn column, const QVariant& value)
{
    switch (column) {
    case DSC_Location: return triple(value, true);
    case DSC_Color: return triple(value, false);
    case DSC_ReturnNumber: return QCoreApplication::translate("func_measure_widget", "number: %1").arg(value.toString());
    case DSC_GpsTime: return QString::number(value.toDouble(), 'f', 6);
    default: return value.toString();
    }
}

}  // namespace

Func_Measure_Widget::Func_Measure_Widget(PtCloudScene* scene, osgHelper::OsgQWidget* view)
    : MovableSubWidget(view), ui(new Ui::func_measure_widget), m_link(scene, view)
{
    ui->setupUi(this);
    setAttribute(Qt::WA_DeleteOnClose);
    for (QTableWidget* table : {ui->tableWidget_a, ui->tableWidget_b, ui->tableWidget_c}) table->setColumnCount(2);
    connect(ui->toolButton_close, SIGNAL(clicked(bool)), this, SLOT(onClickedClose()), Qt::UniqueConnection);
    connect(ui->toolButton_select_point, SIGNAL(clicked(bool)), this, SLOT(onSelectTypeChanged_selectPoint()),
            Qt::UniqueConnection);
    connect(ui->toolButton_measure_distance, SIGNAL(clicked(bool)), this,
            SLOT(onSelectTypeChanged_measureDistance()), Qt::UniqueConnection);
    connect(ui->toolButton_measure_area, SIGNAL(clicked(bool)), this, SLOT(onSelectTypeChanged_measureArea()),
            Qt::UniqueConnection);
    ui->toolButton_select_point->setChecked(true);
    enterMode(Mode_Point);
}

Func_Measure_Widget::~Func_Measure_Widget() = default;

void Func_Measure_Widget::enterMode(EMode mode)
{
    ui->label_b->setVisible(mode != Mode_Point);
    ui->tableWidget_b->setVisible(mode != Mode_Point);
    ui->label_c->setVisible(mode == Mode_Area);
    ui->tableWidget_c->setVisible(mode == Mode_Area);
    resize(width(), mode == Mode_Point ? 240 : mode == Mode_Distance ? 390 : 540);
    ui->toolButton_select_point->setChecked(mode == Mode_Point);
    ui->toolButton_measure_distance->setChecked(mode == Mode_Distance);
    ui->toolButton_measure_area->setChecked(mode == Mode_Area);
}

void Func_Measure_Widget::onSelectTypeChanged_selectPoint()
{
    if (ui->toolButton_select_point->isChecked()) enterMode(Mode_Point);
}

void Func_Measure_Widget::onSelectTypeChanged_measureDistance()
{
    if (ui->toolButton_measure_distance->isChecked()) enterMode(Mode_Distance);
}

void Func_Measure_Widget::onSelectTypeChanged_measureArea()
{
    if (ui->toolButton_measure_area->isChecked()) enterMode(Mode_Area);
}

void Func_Measure_Widget::fillTable(QTableWidget* table, const QMap<EDataSetColumn, QVariant>& attributes)
{
    table->setRowCount(0);
    for (const Row& row : kRows) {
        const auto value = attributes.constFind(row.column);
        if (value == attributes.constEnd()) continue;
        const int r = table->rowCount();
        table->insertRow(r);
        table->setItem(r, 0, new QTableWidgetItem(QCoreApplication::translate("func_measure_widget", row.label)));
        table->setItem(r, 1, new QTableWidgetItem(rowValue(row.column, value.value())));
    }
    table->resizeColumnToContents(0);
}

osg::ref_ptr<OsgGraphItem_Point> Func_Measure_Widget::addPoint(const ToolViewLink::Pick& pick, const QString& label,
                                                               QTableWidget* table)
{
    osg::ref_ptr<OsgGraphItem_Point> point = new OsgGraphItem_Point(pick.position, label);
    m_link.show(point.get());
    fillTable(table, pick.attributes);
    return point;
}

void Func_Measure_Widget::clearResults()
{
    for (QLineEdit* field : {ui->lineEdit_length, ui->lineEdit_length_plane, ui->lineEdit_area, ui->lineEdit_area_plane})
        field->clear();
}

void Func_Measure_Widget::clearAll()
{
    m_link.drop(m_a);
    m_link.drop(m_b);
    m_link.drop(m_c);
    m_link.drop(m_line);
    m_link.drop(m_triangle);
    for (QTableWidget* table : {ui->tableWidget_a, ui->tableWidget_b, ui->tableWidget_c}) table->setRowCount(0);
}

bool Func_Measure_Widget::viewMousePressEvent(QMouseEvent* event)
{
    const bool point = ui->toolButton_select_point->isChecked();
    const bool distance = ui->toolButton_measure_distance->isChecked();
    const bool area = ui->toolButton_measure_area->isChecked();
    if (event->button() != Qt::LeftButton || !(point || distance || area) || !m_link.pointsReady()) return false;
    ToolViewLink::Pick picked;
    if (!m_link.pick(event, &picked)) return true;

    if (point) {
        if (m_a) {
            m_a->setPosition(picked.position);
            fillTable(ui->tableWidget_a, picked.attributes);
        } else {
            m_a = addPoint(picked, QStringLiteral("A"), ui->tableWidget_a);
            m_link.track(m_a.get());
        }
        clearResults();
        m_link.requestRedraw();
        return true;
    }
    if (distance && m_a && m_b) clearAll();
    if (area) {
        if (m_c) clearAll();
        m_link.drop(m_line);
    }
    if (!m_a) {
        m_a = addPoint(picked, QStringLiteral("A"), ui->tableWidget_a);
        m_link.track(m_a.get());
    } else if (!m_b) {
        m_b = addPoint(picked, QStringLiteral("B"), ui->tableWidget_b);
        m_line = new OsgGraphItem_Line_WithPlane(m_a->position(), m_b->position());
        m_link.show(m_line.get());
        m_link.track(m_line.get());
        clearResults();
        if (distance) {
            const pcVec3f a = toPc(m_a->position()), b = toPc(m_b->position());
            ui->lineEdit_length->setText(threeDecimals(PtCloud_Measure::length(a, b)));
            ui->lineEdit_length_plane->setText(threeDecimals(PtCloud_Measure::planeLength(a, b)));
        }
    } else if (area) {
        m_c = addPoint(picked, QStringLiteral("C"), ui->tableWidget_c);
        m_triangle = new OsgGraphItem_TriangleLine_WithPlane(m_a->position(), m_b->position(), m_c->position());
        m_link.show(m_triangle.get());
        m_link.track(m_triangle.get());
        const pcVec3f a = toPc(m_a->position()), b = toPc(m_b->position()), c = toPc(m_c->position());
        ui->lineEdit_area->setText(threeDecimals(PtCloud_Measure::area(a, b, c)));
        ui->lineEdit_area_plane->setText(threeDecimals(PtCloud_Measure::planeArea(a, b, c)));
    }
    return true;
}

void Func_Measure_Widget::onClickedClose() { close(); }

void Func_Measure_Widget::closeEvent(QCloseEvent* event)
{
    m_link.restoreTrack();
    clearAll();
    MovableSubWidget::closeEvent(event);
}
