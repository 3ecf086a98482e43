#pragma once

#include <QDialog>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QVariant>

class QComboBox;
class QLineEdit;
class QPushButton;
class QStackedWidget;

// The part the mesh and split dialogs share: a function combo whose entry i
// shows page i, a name for the new content that must be acceptable as a
// dataset name, and OK, which takes the page's positional parameter list
// with the code firstCode + i.
class Dlg_Do_Named : public QDialog {
    Q_OBJECT
public:
    ~Dlg_Do_Named() override;

    // After exec() returned Accepted: the new content's name, the function
    // code and the positional parameter list (a QVariantList).
    QString name() const { return m_name; }
    int func() const { return m_func; }
    QVariant params() const { return m_params; }

protected:
    // existingNames: the project's dataset names, which the new name must not repeat.
    Dlg_Do_Named(const QSet<QString>& existingNames, QWidget* parent);
    // Wires the subclass's form once setupUi() has run: fills the combo with
    // the functions, one per page, and shows the first.
    void bindForm(QComboBox* function, const QStringList& functions, QLineEdit* name, QStackedWidget* pages,
                  QPushButton* ok, QPushButton* cancel, int firstCode);
    // The list of a page from its widgets as they are now; false for a page that does not exist.
    virtual bool pageParams(int page, QVariantList* out) const = 0;

private slots:
    void onNameTextChanged(const QString& text);
    void onComboBoxFunctionChanged(int index);
    void onClickedOK();

private:
    void updateOkButton();

    QSet<QString> m_existingNames;
    QString m_name;  // empty while the typed name is not acceptable
    int m_func = -1;
    QVariant m_params;
    QComboBox* m_function = nullptr;  // the form's widgets, owned by the form
    QStackedWidget* m_pages = nullptr;
    QPushButton* m_ok = nullptr;
    int m_firstCode = 0;
};
