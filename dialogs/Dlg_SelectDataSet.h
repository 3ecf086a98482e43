#pragma once

#include <QDialog>
#include <QStringList>

namespace ptCloud {
class PtCloud_Controller;
}
class QListWidget;
class QListWidgetItem;
class QPushButton;

// Chooses the dataset to show among the project's datasets; also renames
// and removes datasets, since this is where the user sees them all.
class Dlg_SelectDataSet : public QDialog {
    Q_OBJECT
public:
    // current: the dataset shown now, chosen at the start.
    Dlg_SelectDataSet(ptCloud::PtCloud_Controller* controller, const QStringList& names, const QString& current,
                      QWidget* parent = nullptr);

    // The chosen dataset; empty when none is.
    QString selectedName() const;

private slots:
    void onSelectionChanged();
    void onItemDoubleClicked(QListWidgetItem* item);
    void onClickedRename();
    void onClickedRemove();

private:
    ptCloud::PtCloud_Controller* m_controller;
    QListWidget* m_list;
    QPushButton* m_ok;
    QPushButton* m_rename;
    QPushButton* m_remove;
};
