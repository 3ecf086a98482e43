#pragma once

#include <QDialog>
#include <QTimer>
#include <functional>
#include <memory>
#include <mutex>

#include "ILongLiveActionProgress.h"
#include "PtCloudEnums.h"

class P3DWrapperThread;
namespace ptCloud {
class PtCloud_Controller;
}
namespace Ui {
class progress_bar_dlg;
}

// Runs one long processing command on a worker thread behind a modal
// progress bar and log, and is the command's progress sink. The command
// starts once the event loop runs; the dialog polls the worker every 100 ms,
// accepts on success and keeps failures on screen until the user closes it.
// Closing it any other way stops the command first.
class Dlg_Progress_P3DWrapper : public QDialog, public ptCloud::ILongLiveActionProgress {
    Q_OBJECT
public:
    Dlg_Progress_P3DWrapper(ptCloud::PtCloud_Controller* controller, const QString& dataSetName, int func,
                            const QVariant& params, const QString& targetName, QWidget* parent = nullptr);
    // Runs a task of the caller's (see P3DWrapperThread::Task).
    Dlg_Progress_P3DWrapper(std::function<ptCloud::EEPtCloudActResult(ptCloud::ILongLiveActionProgress*)> task,
                            QWidget* parent);
    ~Dlg_Progress_P3DWrapper() override;

    // Called by the command on the worker thread.
    bool isStopRequested() override;
    void setProgress(int value) override;
    void setProgressText(const QString& text) override;
    // Called on the interface thread.
    void requestStop() override;
    int progress() override;
    QString progressText() override;

    // Escape and the window's close button ask like the Cancel button while
    // the command runs: stopping it may leave the dataset damaged.
    void reject() override;

protected:
    // Runs a command thread built by the caller: not started yet, owned from here on.
    Dlg_Progress_P3DWrapper(P3DWrapperThread* thread, QWidget* parent);
    // Requests a stop, waits for the worker without limit, lets the
    // controller drop what the command left half written, destroys the thread.
    // A subclass that overrides the progress interface calls it from its own
    // destructor, so the worker never calls into a half-destroyed object.
    void stopCommand();

private slots:
    void onCheckProgressTimer();
    void onClickedCancel();

private:
    void showFailure(ptCloud::EEPtCloudActResult result);

    std::unique_ptr<Ui::progress_bar_dlg> ui;
    std::unique_ptr<P3DWrapperThread> m_thread;  // null once the command has finished or been stopped
    QTimer m_checkTimer;
    // Guards the three fields below. A pthread mutex rather than QMutex, whose
    // futex ThreadSanitizer cannot see.
    std::mutex m_mutex;
    int m_progressValue = 0;
    QString m_progressText;
    bool m_stopRequested = false;
    bool m_finished = false;  // a result has been shown
};
