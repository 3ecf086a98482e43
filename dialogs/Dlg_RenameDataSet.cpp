#include "Dlg_RenameDataSet.h"

#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>

#include "PtCloud_Controller.h"

using namespace ptCloud;

namespace {
// Every other dataset's name: the dataset's own may change its letter case.
QSet<QString> otherNames(const PtCloud_Controller* controller, const QString& oldName)
{
    QSet<QString> names = Dlg_DataSetNameCommand::nameSet(Dlg_DataSetNameCommand::dataSetNames(controller));
    names.remove(oldName);
    return names;
}
}  // namespace

Dlg_RenameDataSet::Dlg_RenameDataSet(PtCloud_Controller* controller, const QString& oldName, QWidget* parent)
    : Dlg_DataSetNameCommand(tr("Rename DataSet"), otherNames(controller, oldName), parent),
      m_controller(controller),
      m_oldName(oldName)
{
    form()->insertRow(0, tr("dataset"), new QLabel(oldName, this));
    nameEdit()->setText(oldName);
    nameEdit()->selectAll();
}

bool Dlg_RenameDataSet::inputsComplete() const { return m_controller && acceptedName() != m_oldName; }

EEPtCloudActResult Dlg_RenameDataSet::runCommand(const QString& name)
{
    stControlParam_DataSet_Rename param;
    param.oldName = m_oldName;
    param.newName = name;
    return m_controller->doCmd_DataSet_Rename(param);
}

QString Dlg_RenameDataSet::failureText() const { return tr("Failed with unknow error."); }
