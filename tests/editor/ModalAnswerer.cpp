#include "ModalAnswerer.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDialog>
#include <QPushButton>

namespace {
const char* const kAnswered = "modalAnswererAnswered";
}

ModalAnswerer::ModalAnswerer(QMessageBox::StandardButton answer) : m_answer(answer)
{
    connect(&m_timer, SIGNAL(timeout()), this, SLOT(poll()));
    m_timer.start(10);
}

void ModalAnswerer::poll()
{
    QWidget* modal = QApplication::activeModalWidget();
    // A window answered once is marked: the next one may live at the same address.
    if (!modal || !modal->isVisible() || modal->property(kAnswered).toBool()) return;
    modal->setProperty(kAnswered, true);
    if (auto* box = qobject_cast<QMessageBox*>(modal)) {
        boxes.append({box->windowTitle(), box->text(), box->icon(), box->informativeText()});
        QAbstractButton* button = box->button(m_answer);
        if (!button) button = box->defaultButton();
        if (!button && !box->buttons().isEmpty()) button = box->buttons().first();
        if (button) button->click();
        return;
    }
    auto* dialog = qobject_cast<QDialog*>(modal);
    if (!dialog || !m_handler) return;
    ++otherDialogs;
    m_handler(dialog);
}
