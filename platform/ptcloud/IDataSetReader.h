#pragma once

#include <QMap>
#include <tuple>

#include "PtCloudEnums.h"
#include "PtCloudTypes.h"
#include "stPtCloud_DataSetHeader.h"
#include "stPtCloud_PointArray.h"

namespace ptCloud {

// Block access to a point data set. Each reader owns its own file handle, so
// a thread reads through a reader object of its own; one reader is not shared
// between threads.
class IDataSetReader {
public:
    virtual ~IDataSetReader();
    // Per block id: number of points and box (relative frame). False when not open.
    virtual bool getBlocks(QMap<int, std::tuple<unsigned int, pcBoundingBoxf>>& out) const = 0;
    // The block's points, owned by the reader and valid until the next
    // readBlock or closeFile; null when the id is unknown or unreadable.
    virtual const stPtCloud_PointArray* readBlock(int index) = 0;
    virtual bool openFile() = 0;
    virtual void closeFile() = 0;
    virtual EDataSetSort getSortType() const = 0;
    virtual EDataSetType getDataSetType() const = 0;
    // Header of the data (origin, columns, counts); valid once opened.
    virtual const stPtCloud_DataSetHeader& getHeader() const = 0;
};

}  // namespace ptCloud
