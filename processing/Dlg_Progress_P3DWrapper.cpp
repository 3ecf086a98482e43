#include "Dlg_Progress_P3DWrapper.h"

#include <QMessageBox>
#include <QSignalBlocker>
#include <QTextBlock>
#include <QTextCursor>

#include "P3DWrapperThread.h"
#include "PtCloud_Controller.h"
#include "ui_Dlg_Progress_P3DWrapper.h"

using namespace ptCloud;

namespace {
constexpr int kCheckIntervalMs = 100;

QString failureText(EEPtCloudActResult result)
{
    switch (result) {
    case PCAR_InvalidDataSet:
        return QCoreApplication::translate("progress_bar_dlg", "Failed with error : invalid datset.");
    case PCAR_CannotExecute:
        return QCoreApplication::translate("progress_bar_dlg", "Failed with error : function can not execute.");
    case PCAR_ExecuteFailed:
        return QCoreApplication::translate("progress_bar_dlg", "Failed with error : function execute failed.");
    case PCAR_Crashed:
    case PCAR_CrashedAndClose:
        return QCoreApplication::translate("progress_bar_dlg", "Failed with error : function execute crashed.");
    default:
        return QCoreApplication::translate("progress_bar_dlg", "Failed with error : unknow error.");
    }
}
}  // namespace

Dlg_Progress_P3DWrapper::Dlg_Progress_P3DWrapper(PtCloud_Controller* controller, const QString& dataSetName,
                                                 int func, const QVariant& params, const QString& targetName,
                                                 QWidget* parent)
    : Dlg_Progress_P3DWrapper(new P3DWrapperThread(controller, dataSetName, func, params, targetName), parent)
{
}

Dlg_Progress_P3DWrapper::Dlg_Progress_P3DWrapper(
    std::function<EEPtCloudActResult(ILongLiveActionProgress*)> task, QWidget* parent)
    : Dlg_Progress_P3DWrapper(new P3DWrapperThread(std::move(task)), parent)
{
}

Dlg_Progress_P3DWrapper::Dlg_Progress_P3DWrapper(P3DWrapperThread* thread, QWidget* parent)
    : QDialog(parent), ui(std::make_unique<Ui::progress_bar_dlg>()), m_thread(thread)
{
    ui->setupUi(this);
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    m_thread->setProgress(this);
    connect(ui->pushButton_cancel, SIGNAL(clicked(bool)), this, SLOT(onClickedCancel()), Qt::UniqueConnection);
    connect(&m_checkTimer, SIGNAL(timeout()), this, SLOT(onCheckProgressTimer()), Qt::UniqueConnection);
    m_checkTimer.setInterval(kCheckIntervalMs);
    m_checkTimer.start();
    // Started from the event loop, not here: a subclass is still being
    // constructed here, and the worker would call its progress interface
    // while its constructor rewrites the object's vtable.
    QMetaObject::invokeMethod(
        this, [this] { if (m_thread) m_thread->start(QThread::InheritPriority); }, Qt::QueuedConnection);
}

Dlg_Progress_P3DWrapper::~Dlg_Progress_P3DWrapper() { stopCommand(); }

bool Dlg_Progress_P3DWrapper::isStopRequested()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_stopRequested;
}

void Dlg_Progress_P3DWrapper::setProgress(int value)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_progressValue = value;
}

void Dlg_Progress_P3DWrapper::setProgressText(const QString& text)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_progressText = text;
}

void Dlg_Progress_P3DWrapper::requestStop()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_stopRequested = true;
}

int Dlg_Progress_P3DWrapper::progress()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_progressValue;
}

QString Dlg_Progress_P3DWrapper::progressText()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_progressText;
}

void Dlg_Progress_P3DWrapper::onCheckProgressTimer()
{
    if (!m_thread) return;
    if (!m_thread->isFinished()) {
        // A value outside the bar's range would never stick and so would
        // append its text again at every tick.
        const int value = qBound(ui->progressBar->minimum(), progress(), ui->progressBar->maximum());
        if (ui->progressBar->value() != value) {
            ui->progressBar->setValue(value);
            ui->plainTextEdit->appendPlainText(progressText());
        }
        return;
    }
    m_checkTimer.stop();
    const EEPtCloudActResult result = m_thread->result();
    m_thread.reset();
    if (result == PCAR_Success) {
        accept();
        m_finished = true;
        return;
    }
    showFailure(result);
    m_finished = true;
    if (result == PCAR_CrashedAndClose) QDialog::reject();
}

void Dlg_Progress_P3DWrapper::showFailure(EEPtCloudActResult result)
{
    ui->plainTextEdit->appendPlainText(failureText(result));
    QTextCharFormat format;
    format.setFontPointSize(15);
    format.setForeground(QColor(255, 0, 0));
    format.setBackground(QColor(0, 255, 255));
    QTextCursor line(ui->plainTextEdit->document()->lastBlock());
    line.movePosition(QTextCursor::EndOfBlock, QTextCursor::KeepAnchor);
    line.mergeCharFormat(format);
}

void Dlg_Progress_P3DWrapper::reject()
{
    if (m_thread && !m_finished)
        onClickedCancel();
    else
        QDialog::reject();
}

void Dlg_Progress_P3DWrapper::onClickedCancel()
{
    if (m_finished) {
        QDialog::reject();
        return;
    }
    // No result may be handled while the question is open: the dialog could
    // close under it.
    QSignalBlocker blockTimer(&m_checkTimer);
    const QMessageBox::StandardButton answer = QMessageBox::warning(
        this, QCoreApplication::translate("progress_bar_dlg", "warninig"),
        QCoreApplication::translate("progress_bar_dlg",
                                    "stop the function may damage the dataset fileContinue to stop?"),
        QMessageBox::Yes | QMessageBox::No);
    if (answer != QMessageBox::Yes) return;
    m_checkTimer.stop();
    blockTimer.unblock();
    stopCommand();
    QDialog::reject();
}

void Dlg_Progress_P3DWrapper::stopCommand()
{
    if (!m_thread) return;
    m_checkTimer.stop();
    if (m_thread->isRunning()) {
        requestStop();
        m_thread->wait();
    }
    if (m_thread->controller()) m_thread->controller()->reset();
    m_thread.reset();
}
