#pragma once

#include "Dlg_DataSetNameCommand.h"

namespace ptCloud {
class PtCloud_Controller;
}

// Gives a dataset a new name; the same name in other letter case is allowed.
class Dlg_RenameDataSet : public Dlg_DataSetNameCommand {
    Q_OBJECT
public:
    Dlg_RenameDataSet(ptCloud::PtCloud_Controller* controller, const QString& oldName, QWidget* parent = nullptr);

protected:
    bool inputsComplete() const override;
    ptCloud::EEPtCloudActResult runCommand(const QString& name) override;
    QString failureText() const override;

private:
    ptCloud::PtCloud_Controller* m_controller;
    QString m_oldName;
};
