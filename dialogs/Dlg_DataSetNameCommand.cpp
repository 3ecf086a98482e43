#include "Dlg_DataSetNameCommand.h"

#include <QApplication>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QVBoxLayout>

#include "DataSetNameRule.h"
#include "PtCloud_Controller.h"

Dlg_DataSetNameCommand::Dlg_DataSetNameCommand(const QString& title, const QSet<QString>& existingNames,
                                               QWidget* parent)
    : QDialog(parent), m_existingNames(existingNames), m_form(new QFormLayout), m_nameEdit(new QLineEdit(this))
{
    setWindowTitle(title);
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    m_nameEdit->setObjectName(QStringLiteral("lineEdit_name"));
    m_form->addRow(tr("name"), m_nameEdit);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    m_ok = buttons->button(QDialogButtonBox::Ok);
    m_ok->setObjectName(QStringLiteral("pushButton_ok"));
    buttons->button(QDialogButtonBox::Cancel)->setObjectName(QStringLiteral("pushButton_cancel"));
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(m_form);
    layout->addWidget(buttons);
    connect(m_nameEdit, SIGNAL(textChanged(QString)), this, SLOT(onNameTextChanged(QString)), Qt::UniqueConnection);
    connect(m_ok, SIGNAL(clicked(bool)), this, SLOT(onClickedOK()), Qt::UniqueConnection);
    connect(buttons, SIGNAL(rejected()), this, SLOT(reject()), Qt::UniqueConnection);
    m_ok->setEnabled(false);
    resize(380, sizeHint().height());
}

QStringList Dlg_DataSetNameCommand::dataSetNames(const ptCloud::PtCloud_Controller* controller)
{
    QMap<QString, QString> paths;
    if (controller) controller->getDataSetFilepaths(paths);
    return paths.keys();
}

QSet<QString> Dlg_DataSetNameCommand::nameSet(const QStringList& names)
{
    return QSet<QString>(names.cbegin(), names.cend());
}

bool Dlg_DataSetNameCommand::inputsComplete() const { return true; }

void Dlg_DataSetNameCommand::updateOkButton() { m_ok->setEnabled(!m_name.isEmpty() && inputsComplete()); }

void Dlg_DataSetNameCommand::onNameTextChanged(const QString& text)
{
    m_name = DataSetNameRule::accepted(text, m_existingNames);
    updateOkButton();
}

void Dlg_DataSetNameCommand::onClickedOK()
{
    if (m_name.isEmpty() || !inputsComplete()) return;
    // Copies and merges write whole datasets: the window waits visibly.
    QApplication::setOverrideCursor(Qt::WaitCursor);
    const ptCloud::EEPtCloudActResult result = runCommand(m_name);
    QApplication::restoreOverrideCursor();
    if (result == ptCloud::PCAR_Success) {
        accept();
        return;
    }
    QMessageBox::critical(this, tr("error"), failureText(), QMessageBox::Ok);
}
