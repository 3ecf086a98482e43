#pragma once

#include <QString>
#include <QStringList>
#include <QVariantList>
#include <vector>

#include "ControlParams.h"
#include "PtCloudEnums.h"
#include "stPtCloud_DataSetHeader.h"
#include "stPtCloud_PointArray.h"

namespace ptCloud {

class ILongLiveActionProgress;

// The long processing actions of a dataset, run on a worker thread: each
// reads the dataset's points file through a reader of its own, runs one
// processing stage and writes its result to the target path atomically.
// Nothing of the project is changed here; the caller adopts the result.
class PtCloud_LongActions {
public:
    PtCloud_LongActions(const QString& pointsFile, ILongLiveActionProgress* progress);

    EEPtCloudActResult doMesh(const stControlParam_DataSet_Do& p);    // codes 0-2, and 3 (DEM)
    EEPtCloudActResult doSplit(const stControlParam_DataSet_Do& p);   // codes 100-107
    EEPtCloudActResult doSample(const stControlParam_DataSet_Do& p);  // code 200

private:
    // Every point of the source in one array; on failure the reason goes to the progress text.
    EEPtCloudActResult loadSource(stPtCloud_PointArray* all, stPtCloud_DataSetHeader* header);
    EEPtCloudActResult doDem(const stControlParam_DataSet_Do& p);
    // Writes the DEM products to paths: mesh, height map, its world file, contour, classification.
    EEPtCloudActResult makeDem(stPtCloud_PointArray& all, const stPtCloud_DataSetHeader& header,
                               const QStringList& paths, int pixels, int levels);
    // Labels of every point by split method func (100-107) with the split
    // dialog's list. False with an empty reason for a list of the wrong shape.
    static bool runSplit(int func, const QVariantList& list, const stPtCloud_PointArray& all, std::vector<int>* labels,
                         bool* classes, bool* removeGround, ILongLiveActionProgress* progress, QString* why);

    QString m_points;
    ILongLiveActionProgress* m_progress;
};

}  // namespace ptCloud
