#include "Dlg_CopyDataSet.h"

#include <QComboBox>
#include <QFormLayout>

#include "PtCloudScene.h"
#include "PtCloud_Controller.h"

using namespace ptCloud;

Dlg_CopyDataSet::Dlg_CopyDataSet(PtCloudScene* scene, QWidget* parent)
    : Dlg_DataSetNameCommand(tr("Copy DataSet"), nameSet(dataSetNames(scene->controller())), parent),
      m_scene(scene),
      m_source(new QComboBox(this))
{
    m_source->setObjectName(QStringLiteral("comboBox_source"));
    m_source->addItems(dataSetNames(scene->controller()));
    m_source->setCurrentText(scene->currentDataSetName());
    form()->insertRow(0, tr("source"), m_source);
    connect(m_source, SIGNAL(currentIndexChanged(int)), this, SLOT(updateOkButton()), Qt::UniqueConnection);
}

bool Dlg_CopyDataSet::inputsComplete() const { return m_scene->controller() && m_source->currentIndex() >= 0; }

EEPtCloudActResult Dlg_CopyDataSet::runCommand(const QString& name)
{
    stControlParam_DataSet_Copy param;
    param.source = m_source->currentText();
    param.target = name;
    return m_scene->controller()->doCmd_DataSet_Copy(param);
}

QString Dlg_CopyDataSet::failureText() const { return tr("Copy dataSet failed."); }
