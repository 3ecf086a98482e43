#include "Dlg_Do_MakeMesh.h"

#include "ui_Dlg_Do_MakeMesh.h"

namespace {
enum Page { PageAlpha = 0, PageBallPivoting = 1, PagePoisson = 2 };
}

Dlg_Do_MakeMesh::Dlg_Do_MakeMesh(const QSet<QString>& existingNames, QWidget* parent)
    : Dlg_Do_Named(existingNames, parent), ui(std::make_unique<Ui::do_make_mesh_paramter_dlg>())
{
    ui->setupUi(this);
    const QStringList functions{QCoreApplication::translate("do_make_mesh_paramter_dlg", "Alpha"),
                                QCoreApplication::translate("do_make_mesh_paramter_dlg", "Ball Pivoting"),
                                QCoreApplication::translate("do_make_mesh_paramter_dlg", "Poisson")};
    bindForm(ui->comboBox_function, functions, ui->lineEdit_name, ui->stackedWidget, ui->pushButton_ok,
             ui->pushButton_cancel, 0);
}

Dlg_Do_MakeMesh::~Dlg_Do_MakeMesh() = default;

bool Dlg_Do_MakeMesh::pageParams(int page, QVariantList* out) const
{
    switch (page) {
    case PageAlpha:
        *out = {ui->checkBox_alpha_fast_normal->isChecked(), ui->doubleSpinBox_alpha_alpha->value()};
        return true;
    case PageBallPivoting:
        *out = {ui->checkBox_ball_pivoting_fast_normal->isChecked(), ui->doubleSpinBox_ball_pivoting_radius->value()};
        return true;
    case PagePoisson:
        *out = {ui->checkBox_poisson_fast_normal->isChecked(), uint(ui->spinBox_poisson_depth->value()),
                ui->doubleSpinBox_poisson_width->value(), ui->doubleSpinBox_poisson_density_divide->value()};
        return true;
    default:
        return false;
    }
}
