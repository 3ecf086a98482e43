#pragma once

#include <QDialog>
#include <memory>

class PtCloudScene;
namespace ptCloud {
class PtCloud_Controller;
}
namespace Ui {
class las_files_dialog;
}

// Lists the LAS source files the project references, imports another and
// removes a reference. The table changes only after the controller has
// reported success; the owner hears of every change.
class Dlg_LasFiles : public QDialog {
    Q_OBJECT
public:
    // owner: told (sgNeedSaveProject) after each change; may be null.
    Dlg_LasFiles(PtCloudScene* owner, QWidget* parent = nullptr);
    ~Dlg_LasFiles() override;

    // Null empties and disables the dialog.
    void setController(ptCloud::PtCloud_Controller* controller);

    // The key under which the import dialog remembers its folder.
    static const char* historyKey();

protected:
    // Asks the user for one LAS file; empty when cancelled.
    virtual QString askLasFilePath(const QString& startDirectory);

private slots:
    void onButtonClicked_AddLasFile();
    void onButtonClicked_DeleteLastFile();
    void onCurrentLasFileChanged();

private:
    void addRow(const QString& key);
    void notifyOwner();

    std::unique_ptr<Ui::las_files_dialog> ui;
    PtCloudScene* m_owner;
    ptCloud::PtCloud_Controller* m_controller = nullptr;
};
