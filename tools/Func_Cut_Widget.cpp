#include "Func_Cut_Widget.h"

#include <QCloseEvent>
#include <QMessageBox>
#include <QMouseEvent>
#include <QSignalBlocker>

#include "Dlg_Progress_P3DWrapper.h"
#include "OsgGraphItem_Box.h"
#include "OsgGraphItem_PcDataSet.h"
#include "OsgGraphItem_Point.h"
#include "OsgGraphItem_Sphere.h"
#include "PtCloudDataSet.h"
#include "OsgQWidget.h"
#include "ui_Func_Cut_Widget.h"

using namespace ptCloud;

// Texts of the panel belong to its form's translation context, "func_cut_widget".

Func_Cut_Widget::Func_Cut_Widget(PtCloudScene* scene, osgHelper::OsgQWidget* view)
    : MovableSubWidget(view), ui(new Ui::func_cut_widget), m_link(scene, view)
{
    ui->setupUi(this);
    setAttribute(Qt::WA_DeleteOnClose);
    connect(ui->toolButton_close, SIGNAL(clicked(bool)), this, SLOT(onClicked_Close()), Qt::UniqueConnection);
    connect(ui->radioButton_by_box, SIGNAL(toggled(bool)), this, SLOT(onSelectorChanged()), Qt::UniqueConnection);
    connect(ui->radioButton_by_sphere, SIGNAL(toggled(bool)), this, SLOT(onSelectorChanged()), Qt::UniqueConnection);
    for (QDoubleSpinBox* spin : {ui->doubleSpinBox_box_center_x, ui->doubleSpinBox_box_center_y,
                                 ui->doubleSpinBox_box_center_z, ui->doubleSpinBox_box_size_x,
                                 ui->doubleSpinBox_box_size_y, ui->doubleSpinBox_box_size_z})
        connect(spin, SIGNAL(valueChanged(double)), this, SLOT(onBoxParameterChanged(double)), Qt::UniqueConnection);
    for (QDoubleSpinBox* spin : {ui->doubleSpinBox_sphere_center_x, ui->doubleSpinBox_sphere_center_y,
                                 ui->doubleSpinBox_sphere_center_z, ui->doubleSpinBox_sphere_radius})
        connect(spin, SIGNAL(valueChanged(double)), this, SLOT(onSphereParameterChanged(double)),
                Qt::UniqueConnection);
    connect(ui->toolButton_select_center, SIGNAL(clicked(bool)), this, SLOT(onClicked_SelectCenter()),
            Qt::UniqueConnection);
    connect(ui->toolButton_cut_outter, SIGNAL(clicked(bool)), this, SLOT(onClicked_CutOutter()), Qt::UniqueConnection);
    connect(ui->toolButton_cut_inner, SIGNAL(clicked(bool)), this, SLOT(onClicked_CutInner()), Qt::UniqueConnection);
    ui->toolButton_cut_outter->setEnabled(false);
    ui->toolButton_cut_inner->setEnabled(false);
    // Tall enough for every row in the user's font.
    resize(width(), std::max(height(), sizeHint().height()));
}

Func_Cut_Widget::~Func_Cut_Widget() = default;

pcBoundingBoxf Func_Cut_Widget::box() const
{
    return m_link.frame().boxToRelative(
        {ui->doubleSpinBox_box_center_x->value(), ui->doubleSpinBox_box_center_y->value(),
         ui->doubleSpinBox_box_center_z->value()},
        {ui->doubleSpinBox_box_size_x->value(), ui->doubleSpinBox_box_size_y->value(),
         ui->doubleSpinBox_box_size_z->value()});
}

pcBoundingSpheref Func_Cut_Widget::sphere() const
{
    return m_link.frame().sphereToRelative({ui->doubleSpinBox_sphere_center_x->value(),
                                            ui->doubleSpinBox_sphere_center_y->value(),
                                            ui->doubleSpinBox_sphere_center_z->value()},
                                           ui->doubleSpinBox_sphere_radius->value());
}

void Func_Cut_Widget::updateCutButtons()
{
    const bool enabled = !ui->toolButton_select_center->isChecked() &&
                         (ui->radioButton_by_box->isChecked() || ui->radioButton_by_sphere->isChecked());
    ui->toolButton_cut_outter->setEnabled(enabled);
    ui->toolButton_cut_inner->setEnabled(enabled);
}

void Func_Cut_Widget::updateOverlays()
{
    if (!ui->radioButton_by_box->isChecked()) {
        m_link.drop(m_box);
    } else if (!m_box) {
        m_box = new OsgGraphItem_Box(box());
        m_link.show(m_box.get());
    }
    if (!ui->radioButton_by_sphere->isChecked()) {
        m_link.drop(m_sphere);
    } else if (!m_sphere) {
        m_sphere = new OsgGraphItem_Sphere(sphere());
        m_link.show(m_sphere.get());
    }
}

void Func_Cut_Widget::onSelectorChanged()
{
    updateOverlays();
    updateCutButtons();
}

void Func_Cut_Widget::onBoxParameterChanged(double)
{
    if (!m_box) return;
    m_box->setBox(box());
    m_link.requestRedraw();
}

void Func_Cut_Widget::onSphereParameterChanged(double)
{
    if (!m_sphere) return;
    m_sphere->setSphere(sphere());
    m_link.requestRedraw();
}

void Func_Cut_Widget::onClicked_SelectCenter()
{
    if (ui->toolButton_select_center->isChecked()) {
        m_link.drop(m_centre);
        m_link.drop(m_box);
        m_link.drop(m_sphere);
    }
    updateCutButtons();
}

bool Func_Cut_Widget::viewMousePressEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton || !ui->toolButton_select_center->isChecked() || !m_link.pointsReady())
        return false;
    ToolViewLink::Pick picked;
    if (!m_link.pick(event, &picked)) return true;
    m_link.drop(m_centre);
    m_centre = new OsgGraphItem_Point(picked.position, QString());
    m_link.show(m_centre.get());
    m_link.track(m_centre.get());
    ui->toolButton_select_center->setChecked(false);

    const pcVec3d centre =
        m_link.frame().toAbsolute(pcVec3f(picked.position.x(), picked.position.y(), picked.position.z()));
    {
        const QSignalBlocker bx(ui->doubleSpinBox_box_center_x), by(ui->doubleSpinBox_box_center_y),
            bz(ui->doubleSpinBox_box_center_z), sx(ui->doubleSpinBox_sphere_center_x),
            sy(ui->doubleSpinBox_sphere_center_y), sz(ui->doubleSpinBox_sphere_center_z);
        ui->doubleSpinBox_box_center_x->setValue(centre.x);
        ui->doubleSpinBox_box_center_y->setValue(centre.y);
        ui->doubleSpinBox_box_center_z->setValue(centre.z);
        ui->doubleSpinBox_sphere_center_x->setValue(centre.x);
        ui->doubleSpinBox_sphere_center_y->setValue(centre.y);
        ui->doubleSpinBox_sphere_center_z->setValue(centre.z);
    }
    updateOverlays();
    updateCutButtons();
    return true;
}

void Func_Cut_Widget::onClicked_CutOutter() { cut(PtCloud_PointsCut::Side_Outter); }

void Func_Cut_Widget::onClicked_CutInner() { cut(PtCloud_PointsCut::Side_Inner); }

void Func_Cut_Widget::cut(PtCloud_PointsCut::ESide side)
{
    PtCloudDataSet* ds = m_link.dataSet();
    if (!ds) return;
    const PtCloud_PointsCut selector = ui->radioButton_by_box->isChecked()      ? PtCloud_PointsCut::byBox(box(), side)
                                       : ui->radioButton_by_sphere->isChecked() ? PtCloud_PointsCut::bySphere(sphere(), side)
                                                                                : PtCloud_PointsCut(side);
    const QString source = ds->getFilePath_Points();
    const QString target = ds->createEmptyLocatedContent_Points();
    // Written on the worker, read here once it has finished.
    PtCloud_PointsCut::EResult result = PtCloud_PointsCut::Result_Failed;
    QString error;
    Dlg_Progress_P3DWrapper progress(
        [&](ILongLiveActionProgress* sink) {
            result = selector.run(source, target, sink, &error);
            return PCAR_Success;
        },
        this);
    const bool finished = progress.exec() == QDialog::Accepted;
    ds = m_link.dataSet();
    if (!ds) return;
    // The new points replace the old ones and the scene shows them afresh.
    if (finished && result == PtCloud_PointsCut::Result_Written && ds->updateContent_Points()) return;
    ds->discardLocatedContents();
    if (!finished) return;
    if (result == PtCloud_PointsCut::Result_Unchanged) {
        if (OsgGraphItem_PcDataSet* item = m_link.pointsItem()) item->reload();
        m_link.requestRedraw();
        return;
    }
    qWarning("cut of %s: %s", qPrintable(ds->getName()), qPrintable(error));
    QMessageBox::critical(this, QCoreApplication::translate("func_cut_widget", "error"),
                          QCoreApplication::translate("func_cut_widget",
                                                      "Unexpected error: the data set file can not edit."));
}

void Func_Cut_Widget::onClicked_Close() { close(); }

void Func_Cut_Widget::closeEvent(QCloseEvent* event)
{
    m_link.restoreTrack();
    m_link.drop(m_centre);
    m_link.drop(m_box);
    m_link.drop(m_sphere);
    MovableSubWidget::closeEvent(event);
}
