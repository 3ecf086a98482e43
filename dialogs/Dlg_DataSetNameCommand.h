#pragma once

#include <QDialog>
#include <QSet>
#include <QString>

#include "PtCloudEnums.h"

namespace ptCloud {
class PtCloud_Controller;
}
class QFormLayout;
class QLineEdit;
class QPushButton;

// The part the rename, copy and merge dialogs share: a new dataset name that
// must be acceptable (trimmed, non-empty, no \ / : * ? " < > |, unlike every
// existing name ignoring case), OK that runs the dialog's controller command,
// a box titled "error" with the command's text when it fails (the dialog
// stays open), and accept when it succeeds.
class Dlg_DataSetNameCommand : public QDialog {
    Q_OBJECT
public:
    // The trimmed name when it is acceptable, else empty.
    QString acceptedName() const { return m_name; }

    // The project's dataset names in name order; none without a controller.
    static QStringList dataSetNames(const ptCloud::PtCloud_Controller* controller);
    static QSet<QString> nameSet(const QStringList& names);

protected:
    Dlg_DataSetNameCommand(const QString& title, const QSet<QString>& existingNames, QWidget* parent);

    // Subclasses put their own rows above the name.
    QFormLayout* form() const { return m_form; }
    QLineEdit* nameEdit() const { return m_nameEdit; }
    // The subclass's other inputs are complete enough for OK.
    virtual bool inputsComplete() const;
    virtual ptCloud::EEPtCloudActResult runCommand(const QString& name) = 0;
    // The fixed text shown when the command fails.
    virtual QString failureText() const = 0;

protected slots:
    void updateOkButton();

private slots:
    void onNameTextChanged(const QString& text);
    void onClickedOK();

private:
    QSet<QString> m_existingNames;
    QString m_name;
    QFormLayout* m_form;
    QLineEdit* m_nameEdit;
    QPushButton* m_ok;
};
