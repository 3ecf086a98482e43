#include "GraphTestData.h"

#include "PtCloud_BlockFileWriter.h"

#include <cstring>

using namespace ptCloud;

pcVec3d GraphTestData::origin() { return pcVec3d(612345.125, 4123456.75, 87.5); }

stPtCloud_DataSetHeader GraphTestData::header(EColoringMode mode, const QList<EDataSetColumn>& columns)
{
    stPtCloud_DataSetHeader h;
    h.type = DST_Points;
    h.sort = DSS_Morton;
    h.coloringMode = mode;
    h.origin = origin();
    h.columns = columns;
    return h;
}

stPtCloud_PointArray GraphTestData::block(const stPtCloud_DataSetHeader& header, int n)
{
    stPtCloud_PointArray a;
    a.origin = header.origin;
    a.coloringMode = header.coloringMode;
    for (EDataSetColumn c : header.columns) a.addColumn(c);
    a.resize(n);
    return a;
}

stPtCloud_PointArray GraphTestData::grid(const stPtCloud_DataSetHeader& header, int perSide, const pcVec3f& corner,
                                         float size)
{
    stPtCloud_PointArray a = block(header, perSide * perSide);
    const float step = perSide > 1 ? size / float(perSide - 1) : 0.f;
    for (int row = 0; row < perSide; ++row)
        for (int col = 0; col < perSide; ++col)
            a.positions[size_t(row * perSide + col)] =
                pcVec3f(corner.x + step * float(col), corner.y + step * float(row), corner.z);
    return a;
}

bool GraphTestData::write(const QString& path, const stPtCloud_DataSetHeader& header,
                          const QMap<int, stPtCloud_PointArray>& blocks, QString* error)
{
    PtCloud_BlockFileWriter writer(path);
    if (!writer.begin(header, error)) return false;
    for (auto it = blocks.cbegin(); it != blocks.cend(); ++it)
        if (!writer.writeBlock(it.key(), it.value(), error)) return false;
    return writer.commit(error);
}

void GraphTestData::setIntensity(stPtCloud_PointArray& block, int index, quint16 value)
{
    std::memcpy(block.columns[DSC_Intensity].data() + size_t(index) * sizeof value, &value, sizeof value);
}

void GraphTestData::setByte(stPtCloud_PointArray& block, EDataSetColumn column, int index, quint8 value)
{
    block.columns[column][size_t(index)] = value;
}

void GraphTestData::setLabel(stPtCloud_PointArray& block, int index, qint32 value)
{
    std::memcpy(block.columns[DSC_Label].data() + size_t(index) * sizeof value, &value, sizeof value);
}
