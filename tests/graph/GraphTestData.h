#pragma once

#include <QMap>
#include <QString>

#include "PtCloudEnums.h"
#include "stPtCloud_DataSetHeader.h"
#include "stPtCloud_PointArray.h"

// Generated block files for the graph tests: blocks whose every point is
// known, written with the data model's own writer.
class GraphTestData {
public:
    // Survey-like origin, so that absolute coordinates need double precision.
    static ptCloud::pcVec3d origin();
    static ptCloud::stPtCloud_DataSetHeader header(ptCloud::EColoringMode mode,
                                                   const QList<ptCloud::EDataSetColumn>& columns);
    // n zero points with every column of the header.
    static ptCloud::stPtCloud_PointArray block(const ptCloud::stPtCloud_DataSetHeader& header, int n);
    // perSide x perSide points on a square grid of side `size` at the
    // corner's height, starting at the corner, row by row along x.
    static ptCloud::stPtCloud_PointArray grid(const ptCloud::stPtCloud_DataSetHeader& header, int perSide,
                                              const ptCloud::pcVec3f& corner, float size);
    static bool write(const QString& path, const ptCloud::stPtCloud_DataSetHeader& header,
                      const QMap<int, ptCloud::stPtCloud_PointArray>& blocks, QString* error);

    static void setIntensity(ptCloud::stPtCloud_PointArray& block, int index, quint16 value);
    static void setByte(ptCloud::stPtCloud_PointArray& block, ptCloud::EDataSetColumn column, int index,
                        quint8 value);
    static void setLabel(ptCloud::stPtCloud_PointArray& block, int index, qint32 value);
};
