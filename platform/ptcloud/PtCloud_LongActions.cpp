#include "PtCloud_LongActions.h"

namespace ptCloud {

PtCloud_LongActions::PtCloud_LongActions(const QString& pointsFile, ILongLiveActionProgress* progress)
    : m_points(pointsFile), m_progress(progress)
{
}

EEPtCloudActResult PtCloud_LongActions::doMesh(const stControlParam_DataSet_Do&) { return PCAR_CannotExecute; }

EEPtCloudActResult PtCloud_LongActions::doSplit(const stControlParam_DataSet_Do&) { return PCAR_CannotExecute; }

EEPtCloudActResult PtCloud_LongActions::doSample(const stControlParam_DataSet_Do&) { return PCAR_CannotExecute; }

}  // namespace ptCloud
