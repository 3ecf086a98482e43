#include "stPtCloud_RecordLayout.h"

#include "PtCloudTypes.h"
#include "stPtCloud_PointArray.h"

namespace ptCloud {

stPtCloud_RecordLayout stPtCloud_RecordLayout::forColumns(const QList<EDataSetColumn>& columns)
{
    stPtCloud_RecordLayout l;
    l.bytes = sizeof(pcVec3q);
    for (int c = DSC_Location + 1; c < DSC_Count; ++c) {
        const EDataSetColumn col = EDataSetColumn(c);
        if (!columns.contains(col)) continue;
        const size_t width = size_t(columnValueBytes(col));
        l.fields.push_back({col, l.bytes, width});
        l.bytes += width;
    }
    return l;
}

QList<EDataSetColumn> stPtCloud_RecordLayout::columns() const
{
    QList<EDataSetColumn> out{DSC_Location};
    for (const Field& s : fields) out << s.column;
    return out;
}

}  // namespace ptCloud
