#include "Dlg_Do_Split.h"

#include "ui_Dlg_Do_Split.h"

namespace {
enum Page {
    PageDbScan = 0,
    PageKMeans,
    PageKMeansExtra,
    PageEuclidean,
    PageEuclideanFast,
    PageRegionGrowing,
    PagePatchwork2,
    PageCsf
};
constexpr int kFirstCode = 100;
}  // namespace

Dlg_Do_Split::Dlg_Do_Split(const QSet<QString>& existingNames, QWidget* parent)
    : Dlg_Do_Named(existingNames, parent), ui(std::make_unique<Ui::do_split_parameters_dlg>())
{
    ui->setupUi(this);
    const QStringList functions{QCoreApplication::translate("do_split_parameters_dlg", "DbScan"),
                                QCoreApplication::translate("do_split_parameters_dlg", "KMeans"),
                                QCoreApplication::translate("do_split_parameters_dlg", "KMeans Extra"),
                                QCoreApplication::translate("do_split_parameters_dlg", "Euclidean"),
                                QCoreApplication::translate("do_split_parameters_dlg", "Euclidean Fast"),
                                QCoreApplication::translate("do_split_parameters_dlg", "Region Growing"),
                                QCoreApplication::translate("do_split_parameters_dlg", "Patchwork++"),
                                QCoreApplication::translate("do_split_parameters_dlg", "CSF")};
    bindForm(ui->comboBox_function, functions, ui->lineEdit_name, ui->stackedWidget, ui->pushButton_ok,
             ui->pushButton_cancel, kFirstCode);
}

Dlg_Do_Split::~Dlg_Do_Split() = default;

bool Dlg_Do_Split::pageParams(int page, QVariantList* out) const
{
    switch (page) {
    case PageDbScan:
        *out = {ui->doubleSpinBox_dbscan_epsilon->value(), ui->spinBox_dbscan_min_pts->value(),
                ui->checkBox_dbscan_retain_noise->isChecked()};
        return true;
    case PageKMeans:
        *out = {ui->spinBox_kmeans_max_iteration->value(), ui->spinBox_kmeans_cluster_number->value()};
        return true;
    case PageKMeansExtra:
        *out = {ui->spinBox_kmeans_extra_max_iteration->value(), ui->spinBox_kmeans_extra_cluster_number->value()};
        return true;
    case PageEuclidean:
        *out = {ui->doubleSpinBox_euclidean_tolerance->value(), ui->spinBox_euclidean_min_cluster->value(),
                ui->spinBox_euclidean_max_cluster->value()};
        return true;
    case PageEuclideanFast:
        *out = {ui->doubleSpinBox_euclidean_fast_distance_threshold->value(),
                ui->spinBox_euclidean_fast_max_size->value()};
        return true;
    case PageRegionGrowing:
        *out = {ui->spinBox_region_growing_tolerance->value(), ui->doubleSpinBox_region_growing_smooth->value(),
                ui->doubleSpinBox_region_growing_cure->value(), ui->spinBox_region_growing_min_cluster->value(),
                ui->spinBox_region_growing_max_cluster->value()};
        return true;
    case PagePatchwork2:
        out->clear();
        return true;
    case PageCsf:
        // The library reads the two flags first and last.
        *out = {ui->checkBox_csf_sloop_smooth->isChecked(), ui->doubleSpinBox_csf_class_threshold->value(),
                ui->doubleSpinBox_csf_cloth_resolution->value(), ui->spinBox_csf_interations->value(),
                ui->spinBox_csf_rigidness->value(), ui->doubleSpinBox_csf_time_step->value(),
                ui->checkBox_csf_remove_ground->isChecked()};
        return true;
    default:
        return false;
    }
}
