#pragma once

#include <QDialog>
#include <QSet>
#include <QString>
#include <memory>

#include "PtCloudEnums.h"

class PtCloudScene;
namespace Ui {
class create_dataset_dlg;
}

// Makes a new dataset of the project from some of its LAS source files,
// keeping the point columns the user chooses among those all the chosen
// files share. Location is always kept.
class Dlg_CreateDataSet : public QDialog {
    Q_OBJECT
public:
    Dlg_CreateDataSet(PtCloudScene* scene, QWidget* parent = nullptr);
    ~Dlg_CreateDataSet() override;

    // The columns all checked source files have.
    QSet<ptCloud::EDataSetColumn> commonColumns() const { return m_commonColumns; }
    // The trimmed name when it is acceptable, else empty.
    QString acceptedName() const { return m_name; }

private slots:
    void onLasFilesCheckStateChanged();
    void onNameTextChanged(const QString& text);
    void onSelectAll();
    void onClearSelection();
    void onClickedOK();

private:
    void updateOkButton();
    void setColumnsChecked(bool checked);
    QStringList checkedSources() const;

    std::unique_ptr<Ui::create_dataset_dlg> ui;
    PtCloudScene* m_scene;
    QSet<QString> m_existingNames;
    QSet<ptCloud::EDataSetColumn> m_commonColumns;
    QString m_name;
};
