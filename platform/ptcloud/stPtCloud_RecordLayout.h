#pragma once

#include <QList>
#include <cstddef>
#include <vector>

#include "PtCloudEnums.h"

namespace ptCloud {

// Points interleaved one record each, for work that moves points whole
// (building a dataset) where a column each would cost a pass each: the
// position first (pcVec3q: whole quanta from the dataset's origin), then every other
// column kept, in column order, as the block file stores its values (Color as
// three 16-bit channels, Normal as three floats, the rest as columnValueBytes
// gives them).
struct stPtCloud_RecordLayout {
    struct Field {
        EDataSetColumn column;
        size_t offset;
        size_t width;
    };

    size_t bytes = 0;           // of one record
    std::vector<Field> fields;  // every column but Location, in column order

    // The layout keeping the given columns (Location always).
    static stPtCloud_RecordLayout forColumns(const QList<EDataSetColumn>& columns);
    // The columns it keeps, Location first.
    QList<EDataSetColumn> columns() const;
};

}  // namespace ptCloud
