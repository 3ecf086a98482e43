#pragma once

#include <QList>
#include <QMessageBox>
#include <QObject>
#include <QString>
#include <QTimer>
#include <functional>

class QDialog;

// Answers the modal windows a test opens, so that no test waits in a modal
// loop: every message box is recorded and the chosen button pressed; any
// other modal dialog goes to the dialog handler, which must end it.
class ModalAnswerer : public QObject {
    Q_OBJECT
public:
    struct Box {
        QString title;
        QString text;
        QMessageBox::Icon icon;
        QString informativeText;
    };

    explicit ModalAnswerer(QMessageBox::StandardButton answer = QMessageBox::Yes);

    void setAnswer(QMessageBox::StandardButton answer) { m_answer = answer; }
    void setDialogHandler(std::function<void(QDialog*)> handler) { m_handler = std::move(handler); }

    QList<Box> boxes;   // every message box seen, in order
    int otherDialogs = 0;  // dialogs handed to the handler

private slots:
    void poll();

private:
    QTimer m_timer;
    QMessageBox::StandardButton m_answer;
    std::function<void(QDialog*)> m_handler;
};
