#include "Dlg_LasFiles.h"

#include <QFileDialog>
#include <QHeaderView>
#include <QLocale>
#include <QMessageBox>
#include <QPushButton>

#include "AppConfig.h"
#include "LasReader.h"
#include "PtCloudResources.h"
#include "PtCloudScene.h"
#include "PtCloud_Controller.h"
#include "Toolkits.h"
#include "ui_Dlg_LasFiles.h"

using namespace ptCloud;

// Texts of this dialog belong to its form's translation context, "las_files_dialog".

namespace {
const char* const kLasFileProperty = "las_file_name";
}

Dlg_LasFiles::Dlg_LasFiles(PtCloudScene* owner, QWidget* parent)
    : QDialog(parent), ui(new Ui::las_files_dialog), m_owner(owner)
{
    PtCloudResources::initialize();
    ui->setupUi(this);
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    QTableWidget* table = ui->tableWidget_lasfiles;
    table->setColumnCount(2);
    table->setHorizontalHeaderLabels({QCoreApplication::translate("las_files_dialog", "name"),
                                      QCoreApplication::translate("las_files_dialog", "delete")});
    table->setColumnWidth(0, 200);
    table->setColumnWidth(1, 50);
    table->horizontalHeader()->setStretchLastSection(false);
    table->verticalHeader()->setVisible(false);
    table->clearContents();
    table->setRowCount(0);
    connect(ui->pushButton_add_lasfile, SIGNAL(clicked(bool)), this, SLOT(onButtonClicked_AddLasFile()),
            Qt::UniqueConnection);
    connect(ui->pushButton_quit, SIGNAL(clicked(bool)), this, SLOT(reject()), Qt::UniqueConnection);
    connect(table, SIGNAL(itemSelectionChanged()), this, SLOT(onCurrentLasFileChanged()), Qt::UniqueConnection);
    setEnabled(false);
}

Dlg_LasFiles::~Dlg_LasFiles() = default;

const char* Dlg_LasFiles::historyKey() { return "dir_his_points_cloud_import_las"; }

void Dlg_LasFiles::setController(PtCloud_Controller* controller)
{
    if (m_controller) {
        m_controller = nullptr;
        ui->tableWidget_lasfiles->clearContents();
        ui->tableWidget_lasfiles->setRowCount(0);
        ui->plainTextEdit->clear();
        setEnabled(false);
    }
    if (!controller) return;
    m_controller = controller;
    QMap<QString, QString> lasFiles;
    controller->getLasFilepaths(lasFiles);
    for (auto it = lasFiles.cbegin(); it != lasFiles.cend(); ++it) addRow(it.key());
    setEnabled(true);
}

void Dlg_LasFiles::addRow(const QString& key)
{
    QTableWidget* table = ui->tableWidget_lasfiles;
    const int row = table->rowCount();
    table->insertRow(row);
    auto* name = new QTableWidgetItem(key);
    name->setTextAlignment(Qt::AlignHCenter | Qt::AlignVCenter);
    table->setItem(row, 0, name);
    table->setItem(row, 1, new QTableWidgetItem());
    auto* remove = new QPushButton(QIcon(QStringLiteral(":res/trash.png")), QString(), table);
    remove->setFlat(true);
    remove->setStyleSheet(QStringLiteral("QPushButton{border:none;background:transparent;}"));
    remove->setProperty(kLasFileProperty, key);
    connect(remove, SIGNAL(clicked(bool)), this, SLOT(onButtonClicked_DeleteLastFile()), Qt::UniqueConnection);
    table->setCellWidget(row, 1, remove);
}

void Dlg_LasFiles::notifyOwner()
{
    if (m_owner) emit m_owner->sgNeedSaveProject();
}

QString Dlg_LasFiles::askLasFilePath(const QString& startDirectory)
{
    const QString filter = QStringLiteral("%1(*.las *.*)").arg(QCoreApplication::translate("las_files_dialog", "Las File"));
    return QFileDialog::getOpenFileName(this, QCoreApplication::translate("las_files_dialog", "Select las file"),
                                        startDirectory, filter);
}

void Dlg_LasFiles::onButtonClicked_AddLasFile()
{
    if (!m_controller) return;
    OpenSaveDirectoryHistory& history = AppConfig::getInstance().module_openSaveHistory();
    const QString path = askLasFilePath(history.getHistory(QString::fromLatin1(historyKey())));
    if (path.isEmpty()) return;
    history.setHistory(QString::fromLatin1(historyKey()), path);
    stControlParam_LasFile_Import param;
    param.filepath = path;
    QString key;
    if (m_controller->doCmd_LasFile_Import(param, &key) != PCAR_Success) {
        // The fixed text stays what it is; the reason goes under it.
        QMessageBox box(QMessageBox::Critical, QCoreApplication::translate("las_files_dialog", "error"),
                        QCoreApplication::translate("las_files_dialog", "Import las file failed."),
                        QMessageBox::Ok, this);
        box.setInformativeText(QStringLiteral("%1: %2").arg(path, key));
        box.exec();
        return;
    }
    notifyOwner();
    addRow(key);
}

void Dlg_LasFiles::onButtonClicked_DeleteLastFile()
{
    if (!m_controller) return;
    QObject* button = sender();
    const QString key = button ? button->property(kLasFileProperty).toString() : QString();
    QTableWidget* table = ui->tableWidget_lasfiles;
    int row = -1;
    for (int r = 0; r < table->rowCount() && row < 0; ++r)
        if (table->cellWidget(r, 1) == button) row = r;
    if (QMessageBox::question(this, QCoreApplication::translate("las_files_dialog", "Confirm"),
                              QCoreApplication::translate("las_files_dialog", "Be sure to delete the las file reference?"),
                              QMessageBox::Yes | QMessageBox::No) != QMessageBox::Yes)
        return;
    stControlParam_LasFile_Remove param;
    param.key = key;
    if (m_controller->doCmd_LasFile_Remove(param) != PCAR_Success) {
        QMessageBox::critical(this, QCoreApplication::translate("las_files_dialog", "error"),
                              QCoreApplication::translate("las_files_dialog", "Remove las file failed."));
        return;
    }
    notifyOwner();
    if (row >= 0) table->removeRow(row);
}

void Dlg_LasFiles::onCurrentLasFileChanged()
{
    ui->plainTextEdit->clear();
    const QList<QTableWidgetItem*> selected = ui->tableWidget_lasfiles->selectedItems();
    if (!m_controller || selected.isEmpty()) return;
    const QString key = ui->tableWidget_lasfiles->item(selected.first()->row(), 0)->text();
    QMap<QString, QString> paths;
    m_controller->getLasFilepaths(paths);
    const QString path = paths.value(key);
    QStringList lines{QCoreApplication::translate("las_files_dialog", "file: %1").arg(path)};
    LasReader reader;
    QString error;
    if (!reader.open(path, &error)) {
        lines << QCoreApplication::translate("las_files_dialog", "can not be read: %1").arg(error);
    } else {
        const LasHeader& h = reader.header();
        QStringList columns;
        for (EDataSetColumn c : h.columns()) columns << columnName(c);
        const auto corner = [](const double* v) {
            return QStringLiteral("%1, %2, %3")
                .arg(tk::Toolkits::DoubleToString(v[0], 3), tk::Toolkits::DoubleToString(v[1], 3),
                     tk::Toolkits::DoubleToString(v[2], 3));
        };
        lines << QCoreApplication::translate("las_files_dialog", "LAS %1.%2, point format %3")
                     .arg(h.versionMajor)
                     .arg(h.versionMinor)
                     .arg(h.pointFormat);
        if (!h.compression.isEmpty())
            lines << QCoreApplication::translate("las_files_dialog", "compressed: %1").arg(h.compression);
        lines << QCoreApplication::translate("las_files_dialog", "points: %1").arg(QLocale().toString(h.pointCount))
              << QCoreApplication::translate("las_files_dialog", "min: %1").arg(corner(h.headerMin))
              << QCoreApplication::translate("las_files_dialog", "max: %1").arg(corner(h.headerMax))
              << QCoreApplication::translate("las_files_dialog", "columns: %1").arg(columns.join(QStringLiteral(", ")));
    }
    ui->plainTextEdit->setPlainText(lines.join(QLatin1Char('\n')));
}
