#include "Dlg_Do_Named.h"

#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QStackedWidget>

#include "DataSetNameRule.h"

Dlg_Do_Named::Dlg_Do_Named(const QSet<QString>& existingNames, QWidget* parent)
    : QDialog(parent), m_existingNames(existingNames)
{
}

Dlg_Do_Named::~Dlg_Do_Named() = default;

void Dlg_Do_Named::bindForm(QComboBox* function, const QStringList& functions, QLineEdit* name,
                            QStackedWidget* pages, QPushButton* ok, QPushButton* cancel, int firstCode)
{
    m_function = function;
    m_pages = pages;
    m_ok = ok;
    m_firstCode = firstCode;
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    m_function->addItems(functions);
    m_function->setCurrentIndex(0);
    m_pages->setCurrentIndex(0);
    updateOkButton();
    connect(name, SIGNAL(textChanged(const QString&)), this, SLOT(onNameTextChanged(const QString&)),
            Qt::UniqueConnection);
    connect(m_function, SIGNAL(currentIndexChanged(int)), this, SLOT(onComboBoxFunctionChanged(int)),
            Qt::UniqueConnection);
    connect(m_ok, SIGNAL(clicked(bool)), this, SLOT(onClickedOK()), Qt::UniqueConnection);
    connect(cancel, SIGNAL(clicked(bool)), this, SLOT(reject()), Qt::UniqueConnection);
}

void Dlg_Do_Named::onNameTextChanged(const QString& text)
{
    m_name = DataSetNameRule::accepted(text, m_existingNames);
    updateOkButton();
}

void Dlg_Do_Named::onComboBoxFunctionChanged(int index)
{
    if (index < m_pages->count()) m_pages->setCurrentIndex(index);
    updateOkButton();
}

void Dlg_Do_Named::updateOkButton()
{
    m_ok->setEnabled(m_function->currentIndex() < m_pages->count() && !m_name.isEmpty());
}

void Dlg_Do_Named::onClickedOK()
{
    const int page = m_pages->currentIndex();
    QVariantList params;
    if (!pageParams(page, &params)) return;
    m_func = m_firstCode + page;
    m_params = params;
    accept();
}
