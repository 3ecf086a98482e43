#pragma once

#include <QList>

#include "PtCloudEnums.h"
#include "PtCloudTypes.h"

namespace ptCloud {

// What a data file says about itself, before any block is read.
struct stPtCloud_DataSetHeader {
    EDataSetType type = DST_Points;
    EDataSetSort sort = DSS_None;
    EColoringMode coloringMode = CM_Height;
    pcVec3d origin;                    // absolute position of the relative frame's (0,0,0)
    QList<EDataSetColumn> columns;     // Location first, then value order
    quint64 pointCount = 0;
    quint32 blockCount = 0;
    pcBoundingBoxf bounds;             // of all points, relative to origin
};

}  // namespace ptCloud
