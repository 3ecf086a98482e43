#include "Dlg_Do_Sample.h"

#include "ui_Dlg_Do_Sample.h"

namespace {
enum Page { PagePoissonDisk = 0, PageCount };
constexpr int kPoissonDiskCode = 200;
}  // namespace

Dlg_Do_Sample::Dlg_Do_Sample(QWidget* parent) : QDialog(parent), ui(std::make_unique<Ui::do_sample_param_dlg>())
{
    ui->setupUi(this);
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    ui->comboBox_function->addItem(QCoreApplication::translate("do_sample_param_dlg", "Poisson Disk"));
    ui->comboBox_function->setCurrentIndex(PagePoissonDisk);
    ui->stackedWidget->setCurrentIndex(PagePoissonDisk);
    onPossionDisk_targetPercentsChanged(ui->horizontalSlider_poisson_disk_target_percents->value());
    connect(ui->horizontalSlider_poisson_disk_target_percents, SIGNAL(valueChanged(int)), this,
            SLOT(onPossionDisk_targetPercentsChanged(int)), Qt::UniqueConnection);
    connect(ui->comboBox_function, SIGNAL(currentIndexChanged(int)), this, SLOT(onComboBoxFunctionChanged(int)),
            Qt::UniqueConnection);
    connect(ui->pushButton_ok, SIGNAL(clicked(bool)), this, SLOT(onClickedOK()), Qt::UniqueConnection);
    connect(ui->pushButton_cancel, SIGNAL(clicked(bool)), this, SLOT(reject()), Qt::UniqueConnection);
}

Dlg_Do_Sample::~Dlg_Do_Sample() = default;

void Dlg_Do_Sample::onPossionDisk_targetPercentsChanged(int value)
{
    ui->label_poisson_disk_percents->setText(QCoreApplication::translate("do_sample_param_dlg", "%1%").arg(value));
}

void Dlg_Do_Sample::onComboBoxFunctionChanged(int index)
{
    // OK stays usable while a function is chosen: every page has valid values.
    if (index >= 0 && index < PageCount) ui->stackedWidget->setCurrentIndex(index);
    ui->pushButton_ok->setEnabled(index != -1);
}

void Dlg_Do_Sample::onClickedOK()
{
    if (ui->stackedWidget->currentIndex() != PagePoissonDisk) return;
    m_func = kPoissonDiskCode;
    m_params = QVariantList{ui->horizontalSlider_poisson_disk_target_percents->value() / 100.0,
                            ui->doubleSpinBox_poisson_disk_init_factor->value(),
                            ui->doubleSpinBox_poisson_disk_make_mesh_alpha->value()};
    accept();
}
