#pragma once
// One block of points with its columns, as read from or written to a data file.

#include <QList>
#include <QMap>
#include <QVariant>
#include <cstdint>
#include <map>
#include <vector>

#include "PtCloudEnums.h"
#include "PtCloudTypes.h"

namespace ptCloud {

// Storage type of one per-point column other than Location, Color and Normal.
enum class EColumnValueType { U8, U16, U32, U64, I32, F32, F64, F32x3 };
EColumnValueType columnValueType(EDataSetColumn c);
int columnValueBytes(EDataSetColumn c);  // bytes per point of the column's raw storage

class stPtCloud_PointArray {
public:
    int count = 0;  // number of points; every per-point array holds exactly this many
    pcVec3d origin;  // absolute position of (0,0,0) of this block's positions
    std::vector<pcVec3f> positions;   // relative to origin
    // The exact positions, in whole quanta from origin, where the reader was
    // asked for them (PtCloud_DataSetFile::setExactPositions); else empty.
    // Kept in step by resize, appendPoints and keepPoints.
    std::vector<pcVec3q> quanta;
    pcVec3d quantum;
    std::vector<pcVec4f> colors;      // RGBA in 0..1; empty when the data has no Color column
    std::vector<pcVec3f> normals;     // empty unless the data has normals (meshes)
    std::vector<unsigned int> triangles;  // three vertex indices a triangle (meshes only)
    // Raw little-endian values of every other column, count * columnValueBytes(c) bytes.
    std::map<EDataSetColumn, std::vector<uint8_t>> columns;
    EColoringMode coloringMode = CM_Height;

    stPtCloud_PointArray() = default;
    ~stPtCloud_PointArray() = default;

    // Columns present: Location first, then the others in value order.
    QList<EDataSetColumn> columnList() const;
    bool hasColumn(EDataSetColumn c) const;
    // Adds an empty (zero-filled) column sized for count points.
    void addColumn(EDataSetColumn c);
    template <class T> T* columnData(EDataSetColumn c) {
        auto it = columns.find(c);
        return it == columns.end() ? nullptr : reinterpret_cast<T*>(it->second.data());
    }
    template <class T> const T* columnData(EDataSetColumn c) const {
        auto it = columns.find(c);
        return it == columns.end() ? nullptr : reinterpret_cast<const T*>(it->second.data());
    }

    // Resizes every per-point array to n points (new points are zero).
    void resize(int n);
    // Appends points [begin, end) of src (same columns expected; missing
    // ones stay zero), rebased to this array's origin.
    void appendPoints(const stPtCloud_PointArray& src, int begin, int end);
    // Keeps the points whose flag is non-zero, in order; triangles that lose a
    // vertex are dropped and the others re-indexed.
    void keepPoints(const std::vector<char>& keep);

    // Fills every column of point index: Location and Location_T as a
    // QVariantList of three doubles (Location absolute), Color as a QVariantList
    // of three ints 0..255, Normal as three doubles, the others as numbers.
    bool getPeace(unsigned int index, QMap<EDataSetColumn, QVariant>& out) const;

    // In-place removal of the points inside (Inner) or outside (Outter) a
    // shape given in the same relative frame as positions.
    void removeInnerByBox(const pcBoundingBoxf& box);
    void removeOutterByBox(const pcBoundingBoxf& box);
    void removeInnerBySphere(const pcBoundingSpheref& sphere);
    void removeOutterBySphere(const pcBoundingSpheref& sphere);

    pcBoundingBoxf computeBounds() const;

private:
    // Color and Normal are known present even while the array holds no point.
    bool m_hasColor = false;
    bool m_hasNormal = false;
};

}  // namespace ptCloud
