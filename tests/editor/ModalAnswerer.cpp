#include "ModalAnswerer.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDialog>
#include <QPushButton>

ModalAnswerer::ModalAnswerer(QMessageBox::StandardButton answer) : m_answer(answer)
{
    connect(&m_timer, SIGNAL(timeout()), this, SLOT(poll()));
    m_timer.start(10);
}

void ModalAnswerer::poll()
{
    QWidget* modal = QApplication::activeModalWidget();
    if (!modal || !modal->isVisible() || modal == m_handled) return;
    if (auto* box = qobject_cast<QMessageBox*>(modal)) {
        m_handled = box;
        boxes.append({box->windowTitle(), box->text(), box->icon()});
        QAbstractButton* button = box->button(m_answer);
        if (!button) button = box->defaultButton();
        if (!button && !box->buttons().isEmpty()) button = box->buttons().first();
        if (button) button->click();
        return;
    }
    auto* dialog = qobject_cast<QDialog*>(modal);
    if (!dialog || !m_handler) return;
    m_handled = dialog;
    ++otherDialogs;
    m_handler(dialog);
}
