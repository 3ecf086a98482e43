#include "Dlg_CreateDataSet.h"

#include <QApplication>
#include <QCheckBox>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>

#include "DataSetNameRule.h"
#include "PtCloudScene.h"
#include "PtCloud_Controller.h"
#include "ui_Dlg_CreateDataSet.h"

using namespace ptCloud;

// Texts of this dialog belong to its form's translation context, "create_dataset_dlg".

namespace {

// The columns a user may choose, with their names for the list.
struct ColumnEntry {
    EDataSetColumn column;
    const char* name;
};
const ColumnEntry kColumns[] = {
    {DSC_Location, QT_TRANSLATE_NOOP("create_dataset_dlg", "Location")},
    {DSC_Color, QT_TRANSLATE_NOOP("create_dataset_dlg", "Color")},
    {DSC_Intensity, QT_TRANSLATE_NOOP("create_dataset_dlg", "Intensity")},
    {DSC_ReturnNumber, QT_TRANSLATE_NOOP("create_dataset_dlg", "ReturnNumber")},
    {DSC_NumberOfReturnsGivenPulse, QT_TRANSLATE_NOOP("create_dataset_dlg", "NumberOfReturnsGivenPulse")},
    {DSC_ScanDirectionFlag, QT_TRANSLATE_NOOP("create_dataset_dlg", "ScanDirectionFlag")},
    {DSC_EdgeOfFlightingLine, QT_TRANSLATE_NOOP("create_dataset_dlg", "EdgeOfFlightingLine")},
    {DSC_Classification, QT_TRANSLATE_NOOP("create_dataset_dlg", "Classification")},
    {DSC_ScanAngleRank, QT_TRANSLATE_NOOP("create_dataset_dlg", "ScanAngleRank")},
    {DSC_UserData, QT_TRANSLATE_NOOP("create_dataset_dlg", "UserData")},
    {DSC_PointSourceId, QT_TRANSLATE_NOOP("create_dataset_dlg", "PointSourceId")},
    {DSC_GpsTime, QT_TRANSLATE_NOOP("create_dataset_dlg", "GpsTime")},
    {DSC_WavePacketDescriptorIndex, QT_TRANSLATE_NOOP("create_dataset_dlg", "WavePacketDescriptorIndex")},
    {DSC_ByteOffsetToWaveformData, QT_TRANSLATE_NOOP("create_dataset_dlg", "ByteOffsetToWaveformData")},
    {DSC_WaveformPacketSizeInBytes, QT_TRANSLATE_NOOP("create_dataset_dlg", "WaveformPacketSizeInBytes")},
    {DSC_ReturnPointWaveformLocation, QT_TRANSLATE_NOOP("create_dataset_dlg", "ReturnPointWaveformLocation")},
    {DSC_Location_T, QT_TRANSLATE_NOOP("create_dataset_dlg", "Location_T")},
};

EDataSetColumn columnOf(const QListWidgetItem* item) { return EDataSetColumn(item->data(Qt::UserRole).toInt()); }

}  // namespace

Dlg_CreateDataSet::Dlg_CreateDataSet(PtCloudScene* scene, QWidget* parent)
    : QDialog(parent), ui(new Ui::create_dataset_dlg), m_scene(scene)
{
    ui->setupUi(this);
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    PtCloud_Controller* controller = scene->controller();
    QMap<QString, QString> lasFiles, dataSets;
    if (controller) {
        controller->getLasFilepaths(lasFiles);
        controller->getDataSetFilepaths(dataSets);
    }
    for (auto it = dataSets.cbegin(); it != dataSets.cend(); ++it) m_existingNames.insert(it.key());
    for (auto it = lasFiles.cbegin(); it != lasFiles.cend(); ++it) {
        auto* item = new QListWidgetItem(ui->listWidget_source_files);
        auto* box = new QCheckBox(it.key(), ui->listWidget_source_files);
        ui->listWidget_source_files->setItemWidget(item, box);
        connect(box, SIGNAL(stateChanged(int)), this, SLOT(onLasFilesCheckStateChanged()), Qt::UniqueConnection);
    }
    for (const ColumnEntry& entry : kColumns) {
        auto* item = new QListWidgetItem(QCoreApplication::translate("create_dataset_dlg", entry.name),
                                         ui->listWidget_columns);
        item->setData(Qt::UserRole, int(entry.column));
        item->setFlags(Qt::ItemIsUserCheckable);
        item->setCheckState(Qt::Unchecked);
    }
    connect(ui->lineEdit_name, SIGNAL(textChanged(QString)), this, SLOT(onNameTextChanged(QString)),
            Qt::UniqueConnection);
    connect(ui->pushButton_select_all_columns, SIGNAL(clicked(bool)), this, SLOT(onSelectAll()), Qt::UniqueConnection);
    connect(ui->pushButton_columns_clear_selection, SIGNAL(clicked(bool)), this, SLOT(onClearSelection()),
            Qt::UniqueConnection);
    connect(ui->pushButton_ok, SIGNAL(clicked(bool)), this, SLOT(onClickedOK()), Qt::UniqueConnection);
    connect(ui->pushButton_cancel, SIGNAL(clicked(bool)), this, SLOT(reject()), Qt::UniqueConnection);
    updateOkButton();
}

Dlg_CreateDataSet::~Dlg_CreateDataSet() = default;

QStringList Dlg_CreateDataSet::checkedSources() const
{
    QStringList sources;
    QListWidget* list = ui->listWidget_source_files;
    for (int i = 0; i < list->count(); ++i) {
        const auto* box = qobject_cast<QCheckBox*>(list->itemWidget(list->item(i)));
        if (box && box->isChecked()) sources << box->text();
    }
    return sources;
}

void Dlg_CreateDataSet::onLasFilesCheckStateChanged()
{
    m_commonColumns.clear();
    bool first = true;
    PtCloud_Controller* controller = m_scene->controller();
    for (const QString& source : checkedSources()) {
        QList<EDataSetColumn> columns;
        if (controller) controller->getLasFileColumns(source, columns);
        if (first) {
            m_commonColumns = QSet<EDataSetColumn>(columns.cbegin(), columns.cend());
            first = false;
        } else {
            m_commonColumns.intersect(QSet<EDataSetColumn>(columns.cbegin(), columns.cend()));
        }
    }
    QListWidget* list = ui->listWidget_columns;
    for (int i = 0; i < list->count(); ++i) {
        QListWidgetItem* item = list->item(i);
        const EDataSetColumn column = columnOf(item);
        if (!m_commonColumns.contains(column)) {
            item->setCheckState(Qt::Unchecked);
            item->setFlags(Qt::ItemIsUserCheckable);
        } else if (column == DSC_Location) {
            // Every dataset keeps its positions: Location is checked and stays so.
            item->setCheckState(Qt::Checked);
            item->setFlags(Qt::ItemIsUserCheckable);
        } else {
            item->setFlags(Qt::ItemIsUserCheckable | Qt::ItemIsEnabled);
        }
    }
    updateOkButton();
}

void Dlg_CreateDataSet::onNameTextChanged(const QString& text)
{
    m_name = DataSetNameRule::accepted(text, m_existingNames);
    updateOkButton();
}

void Dlg_CreateDataSet::setColumnsChecked(bool checked)
{
    QListWidget* list = ui->listWidget_columns;
    for (int i = 0; i < list->count(); ++i) {
        QListWidgetItem* item = list->item(i);
        if (item->flags() & Qt::ItemIsEnabled) item->setCheckState(checked ? Qt::Checked : Qt::Unchecked);
    }
    updateOkButton();
}

void Dlg_CreateDataSet::onSelectAll() { setColumnsChecked(true); }

void Dlg_CreateDataSet::onClearSelection() { setColumnsChecked(false); }

void Dlg_CreateDataSet::updateOkButton()
{
    bool location = false;
    QListWidget* list = ui->listWidget_columns;
    for (int i = 0; i < list->count(); ++i)
        if (columnOf(list->item(i)) == DSC_Location) location = list->item(i)->checkState() == Qt::Checked;
    ui->pushButton_ok->setEnabled(location && !checkedSources().isEmpty() && !m_name.isEmpty());
}

void Dlg_CreateDataSet::onClickedOK()
{
    stControlParam_DataSet_Make param;
    param.lasNames = checkedSources();
    bool location = false;
    QListWidget* list = ui->listWidget_columns;
    for (int i = 0; i < list->count(); ++i) {
        if (list->item(i)->checkState() != Qt::Checked) continue;
        param.columns << columnOf(list->item(i));
        location = location || columnOf(list->item(i)) == DSC_Location;
    }
    param.name = m_name;
    PtCloud_Controller* controller = m_scene->controller();
    if (!location || param.lasNames.isEmpty() || m_name.isEmpty() || !controller) return;
    QApplication::setOverrideCursor(Qt::WaitCursor);
    const EEPtCloudActResult result = controller->doCmd_DataSet_Make(param);
    QApplication::restoreOverrideCursor();
    if (result == PCAR_Success) {
        emit m_scene->sgNeedSaveProject();
        accept();
        return;
    }
    QMessageBox::critical(this, QCoreApplication::translate("create_dataset_dlg", "error"),
                          QCoreApplication::translate("create_dataset_dlg", "Failed with unknow error."),
                          QMessageBox::Ok);
}
