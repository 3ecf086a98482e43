#pragma once

#include "Dlg_DataSetNameCommand.h"

class PtCloudScene;
class QListWidget;

// Merges two or more datasets into a new one, which keeps the columns they
// all have.
class Dlg_MergeDataSet : public Dlg_DataSetNameCommand {
    Q_OBJECT
public:
    Dlg_MergeDataSet(PtCloudScene* scene, QWidget* parent = nullptr);

    // The checked datasets, in list order.
    QStringList checkedSources() const;

protected:
    bool inputsComplete() const override;
    ptCloud::EEPtCloudActResult runCommand(const QString& name) override;
    QString failureText() const override;

private:
    PtCloudScene* m_scene;
    QListWidget* m_sources;
};
