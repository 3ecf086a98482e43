#pragma once

#include "Dlg_DataSetNameCommand.h"

class PtCloudScene;
class QComboBox;

// Copies a dataset, with all its contents, under a new name.
class Dlg_CopyDataSet : public Dlg_DataSetNameCommand {
    Q_OBJECT
public:
    // The shown dataset is the one offered first.
    Dlg_CopyDataSet(PtCloudScene* scene, QWidget* parent = nullptr);

protected:
    bool inputsComplete() const override;
    ptCloud::EEPtCloudActResult runCommand(const QString& name) override;
    QString failureText() const override;

private:
    PtCloudScene* m_scene;
    QComboBox* m_source;
};
