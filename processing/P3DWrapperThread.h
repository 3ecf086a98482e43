#pragma once

#include <QString>
#include <QThread>
#include <QVariant>
#include <atomic>
#include <functional>

#include "ControlParams.h"
#include "PtCloudEnums.h"

namespace ptCloud {
class ILongLiveActionProgress;
class PtCloud_Controller;
}  // namespace ptCloud

// Runs one long processing command of the controller on its own thread.
// Codes 0-3 make meshes and the DEM, 100-107 split, 200 samples; any other
// code runs nothing and leaves the result at "cannot execute". The thread
// never touches widgets: it talks to its owner only through the progress
// interface and the result, which the owner reads once isFinished() is true.
class P3DWrapperThread : public QThread {
    Q_OBJECT
public:
    P3DWrapperThread(ptCloud::PtCloud_Controller* controller, const QString& dataSetName, int func,
                     const QVariant& params, const QString& targetName, QObject* parent = nullptr);
    // Work of the caller's own that reports to the same progress sink (an
    // edit of a dataset's points by a tool, for one). It runs on the worker
    // thread and must not touch widgets or objects of the GUI thread.
    using Task = std::function<ptCloud::EEPtCloudActResult(ptCloud::ILongLiveActionProgress*)>;
    explicit P3DWrapperThread(Task task, QObject* parent = nullptr);
    // Waits for a command still running: destroying a running QThread aborts.
    ~P3DWrapperThread() override;

    // The sink the command reports to and polls for a stop; set before start().
    void setProgress(ptCloud::ILongLiveActionProgress* progress);
    ptCloud::PtCloud_Controller* controller() const { return m_controller; }
    ptCloud::EEPtCloudActResult result() const;

protected:
    void run() override;
    // The controller's operations. Virtual so that tests can script a command
    // that reports progress and honours a stop like the library does.
    virtual ptCloud::EEPtCloudActResult doMesh(const ptCloud::stControlParam_DataSet_Do_Mesh& p);
    virtual ptCloud::EEPtCloudActResult doSplit(const ptCloud::stControlParam_DataSet_Do_Split& p);
    virtual ptCloud::EEPtCloudActResult doSample(const ptCloud::stControlParam_DataSet_Do_Sample& p);
    ptCloud::ILongLiveActionProgress* progressSink() const { return m_progress; }

private:
    template <class Record>
    Record record() const;

    ptCloud::PtCloud_Controller* m_controller;  // not owned
    QString m_dataSetName;
    int m_func;
    QVariant m_params;  // positional, as the parameter dialog produced them
    QString m_targetName;
    Task m_task;  // when set, run instead of a controller command
    ptCloud::ILongLiveActionProgress* m_progress = nullptr;  // not owned
    // Written by the worker, read by the owner: a thread that never ran a
    // command reports "cannot execute".
    std::atomic<ptCloud::EEPtCloudActResult> m_result{ptCloud::PCAR_CannotExecute};
};
