#include "Dlg_MergeDataSet.h"

#include <QFormLayout>
#include <QListWidget>

#include "PtCloudScene.h"
#include "PtCloud_Controller.h"

using namespace ptCloud;

Dlg_MergeDataSet::Dlg_MergeDataSet(PtCloudScene* scene, QWidget* parent)
    : Dlg_DataSetNameCommand(tr("Merge DataSets"), nameSet(dataSetNames(scene->controller())), parent),
      m_scene(scene),
      m_sources(new QListWidget(this))
{
    m_sources->setObjectName(QStringLiteral("listWidget_sources"));
    for (const QString& name : dataSetNames(scene->controller())) {
        auto* item = new QListWidgetItem(name, m_sources);
        item->setFlags(Qt::ItemIsUserCheckable | Qt::ItemIsEnabled);
        item->setCheckState(Qt::Unchecked);
    }
    form()->insertRow(0, tr("datasets"), m_sources);
    connect(m_sources, SIGNAL(itemChanged(QListWidgetItem*)), this, SLOT(updateOkButton()), Qt::UniqueConnection);
}

QStringList Dlg_MergeDataSet::checkedSources() const
{
    QStringList sources;
    for (int i = 0; i < m_sources->count(); ++i)
        if (m_sources->item(i)->checkState() == Qt::Checked) sources << m_sources->item(i)->text();
    return sources;
}

bool Dlg_MergeDataSet::inputsComplete() const { return m_scene->controller() && checkedSources().size() >= 2; }

EEPtCloudActResult Dlg_MergeDataSet::runCommand(const QString& name)
{
    stControlParam_DataSet_Merge param;
    param.sources = checkedSources();
    param.target = name;
    return m_scene->controller()->doCmd_DataSet_Merge(param);
}

QString Dlg_MergeDataSet::failureText() const { return tr("Failed with unknow error."); }
