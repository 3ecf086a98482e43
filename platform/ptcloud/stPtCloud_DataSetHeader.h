#pragma once

#include <QList>
#include <QString>
#include <algorithm>
#include <cmath>

#include "PtCloudEnums.h"
#include "PtCloudTypes.h"

namespace ptCloud {

// What a data file says about itself, before any block is read.
struct stPtCloud_DataSetHeader {
    EDataSetType type = DST_Points;
    EDataSetSort sort = DSS_None;
    EColoringMode coloringMode = CM_Height;
    pcVec3d origin;                    // absolute position of the relative frame's (0,0,0)
    // The grid positions are stored on, one step an axis: every position is
    // origin + whole quanta, exactly. Zero: positions are stored as the
    // single-precision values they are read as (meshes, files of version 1).
    pcVec3d quantum;
    QList<EDataSetColumn> columns;     // Location first, then value order
    quint64 pointCount = 0;
    quint32 blockCount = 0;
    pcBoundingBoxf bounds;             // of all points, relative to origin

    bool storesQuanta() const { return quantum.x > 0 && quantum.y > 0 && quantum.z > 0; }
    // How far apart the single-precision positions handed out can lie at the
    // point farthest from the origin, when that is coarser than the quantum
    // (the stored positions stay exact); 0 when they hold every quantum.
    double drawnSpacing() const
    {
        if (!storesQuanta() || !bounds.valid()) return 0.0;
        const double reach[3] = {std::max(std::fabs(bounds.min.x), std::fabs(bounds.max.x)),
                                 std::max(std::fabs(bounds.min.y), std::fabs(bounds.max.y)),
                                 std::max(std::fabs(bounds.min.z), std::fabs(bounds.max.z))};
        const double step[3] = {quantum.x, quantum.y, quantum.z};
        double worst = 0.0;
        for (int a = 0; a < 3; ++a) {
            // Floats are 2^-23 of their power of two apart.
            const double spacing = reach[a] > 0 ? std::ldexp(1.0, std::ilogb(reach[a]) - 23) : 0.0;
            if (spacing > step[a]) worst = std::max(worst, spacing);
        }
        return worst;
    }
    // "positions drawn to N mm" when drawnSpacing() is not 0, else empty.
    QString drawnNote() const
    {
        const double spacing = drawnSpacing();
        return spacing > 0 ? QStringLiteral("positions drawn to %1 mm").arg(spacing * 1000.0, 0, 'g', 4) : QString();
    }
};

}  // namespace ptCloud
