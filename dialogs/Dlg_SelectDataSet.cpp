#include "Dlg_SelectDataSet.h"

#include <QDialogButtonBox>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QVBoxLayout>

#include "Dlg_RenameDataSet.h"
#include "PtCloud_Controller.h"

using namespace ptCloud;

Dlg_SelectDataSet::Dlg_SelectDataSet(PtCloud_Controller* controller, const QStringList& names,
                                     const QString& current, QWidget* parent)
    : QDialog(parent), m_controller(controller), m_list(new QListWidget(this))
{
    setWindowTitle(tr("Select DataSet"));
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    m_list->setObjectName(QStringLiteral("listWidget_datasets"));
    m_list->addItems(names);
    const QList<QListWidgetItem*> shown = m_list->findItems(current, Qt::MatchExactly);
    if (!shown.isEmpty()) m_list->setCurrentItem(shown.first());

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    m_ok = buttons->button(QDialogButtonBox::Ok);
    m_ok->setObjectName(QStringLiteral("pushButton_ok"));
    m_rename = buttons->addButton(tr("Rename..."), QDialogButtonBox::ActionRole);
    m_rename->setObjectName(QStringLiteral("pushButton_rename"));
    m_remove = buttons->addButton(tr("Remove"), QDialogButtonBox::ActionRole);
    m_remove->setObjectName(QStringLiteral("pushButton_remove"));
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_list);
    layout->addWidget(buttons);

    connect(buttons, SIGNAL(accepted()), this, SLOT(accept()), Qt::UniqueConnection);
    connect(buttons, SIGNAL(rejected()), this, SLOT(reject()), Qt::UniqueConnection);
    connect(m_rename, SIGNAL(clicked(bool)), this, SLOT(onClickedRename()), Qt::UniqueConnection);
    connect(m_remove, SIGNAL(clicked(bool)), this, SLOT(onClickedRemove()), Qt::UniqueConnection);
    connect(m_list, SIGNAL(itemSelectionChanged()), this, SLOT(onSelectionChanged()), Qt::UniqueConnection);
    connect(m_list, SIGNAL(itemDoubleClicked(QListWidgetItem*)), this, SLOT(onItemDoubleClicked(QListWidgetItem*)),
            Qt::UniqueConnection);
    onSelectionChanged();
    resize(360, 320);
}

QString Dlg_SelectDataSet::selectedName() const
{
    const QListWidgetItem* item = m_list->currentItem();
    return item && item->isSelected() ? item->text() : QString();
}

void Dlg_SelectDataSet::onSelectionChanged()
{
    const bool chosen = !selectedName().isEmpty();
    m_ok->setEnabled(chosen);
    m_rename->setEnabled(chosen && m_controller);
    m_remove->setEnabled(chosen && m_controller);
}

void Dlg_SelectDataSet::onItemDoubleClicked(QListWidgetItem* item)
{
    if (item) accept();
}

void Dlg_SelectDataSet::onClickedRename()
{
    QListWidgetItem* item = m_list->currentItem();
    if (!item || !m_controller) return;
    Dlg_RenameDataSet dialog(m_controller, item->text(), this);
    if (dialog.exec() == QDialog::Accepted) item->setText(dialog.acceptedName());
}

void Dlg_SelectDataSet::onClickedRemove()
{
    QListWidgetItem* item = m_list->currentItem();
    if (!item || !m_controller) return;
    if (QMessageBox::question(this, tr("Confirm"),
                              tr("Do you want to remove the dataset \"%1\" with all its contents?").arg(item->text()),
                              QMessageBox::Yes | QMessageBox::No) != QMessageBox::Yes)
        return;
    stControlParam_DataSet_Remove param;
    param.name = item->text();
    if (m_controller->doCmd_DataSet_Remove(param) != PCAR_Success) {
        QMessageBox::critical(this, tr("error"), tr("Remove las file failed."), QMessageBox::Ok);
        return;
    }
    delete item;
    onSelectionChanged();
}
