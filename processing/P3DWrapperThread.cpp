#include "P3DWrapperThread.h"

#include "PtCloud_Controller.h"

using namespace ptCloud;

P3DWrapperThread::P3DWrapperThread(PtCloud_Controller* controller, const QString& dataSetName, int func,
                                   const QVariant& params, const QString& targetName, QObject* parent)
    : QThread(parent),
      m_controller(controller),
      m_dataSetName(dataSetName),
      m_func(func),
      m_params(params),
      m_targetName(targetName)
{
}

P3DWrapperThread::P3DWrapperThread(Task task, QObject* parent)
    : P3DWrapperThread(nullptr, QString(), -1, QVariant(), QString(), parent)
{
    m_task = std::move(task);
}

P3DWrapperThread::~P3DWrapperThread() { wait(); }

void P3DWrapperThread::setProgress(ILongLiveActionProgress* progress) { m_progress = progress; }

EEPtCloudActResult P3DWrapperThread::result() const { return m_result.load(); }

template <class Record>
Record P3DWrapperThread::record() const
{
    Record r;
    r.dataSetName = m_dataSetName;
    r.targetName = m_targetName;
    r.func = m_func;
    r.params = m_params;
    return r;
}

void P3DWrapperThread::run()
{
    if (m_func > 200) return;
    // An exception leaving run() would terminate the whole application; a
    // command that throws has crashed as far as the user is concerned.
    try {
        if (m_task)
            m_result = m_task(m_progress);
        else if (m_func >= 0 && m_func <= 3)
            m_result = doMesh(record<stControlParam_DataSet_Do_Mesh>());
        else if (m_func >= 100 && m_func <= 107)
            m_result = doSplit(record<stControlParam_DataSet_Do_Split>());
        else if (m_func == 200)
            m_result = doSample(record<stControlParam_DataSet_Do_Sample>());
    } catch (...) {
        m_result = PCAR_Crashed;
    }
}

EEPtCloudActResult P3DWrapperThread::doMesh(const stControlParam_DataSet_Do_Mesh& p)
{
    return m_controller ? m_controller->doCmd_DataSet_Do_Mesh(p, m_progress) : PCAR_CannotExecute;
}

EEPtCloudActResult P3DWrapperThread::doSplit(const stControlParam_DataSet_Do_Split& p)
{
    return m_controller ? m_controller->doCmd_DataSet_Do_Split(p, m_progress) : PCAR_CannotExecute;
}

EEPtCloudActResult P3DWrapperThread::doSample(const stControlParam_DataSet_Do_Sample& p)
{
    return m_controller ? m_controller->doCmd_DataSet_Do_Sample(p, m_progress) : PCAR_CannotExecute;
}
