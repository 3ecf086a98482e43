#include "stPtCloud_PointArray.h"

#include <algorithm>
#include <cstring>

#include "PtCloud_LocalFrame.h"

namespace ptCloud {

namespace {

struct ColumnStorage {
    EColumnValueType type;
    int bytes;
};

// Location and Normal are kept as pcVec3f, Color as pcVec4f; their entries
// give the size they take in a block file (Color as three 16-bit channels).
const ColumnStorage kStorage[DSC_Count] = {
    {EColumnValueType::F32x3, 12},  // Location
    {EColumnValueType::F32x3, 12},  // Normal
    {EColumnValueType::I32, 4},     // Label
    {EColumnValueType::U16, 6},     // Color
    {EColumnValueType::U16, 2},     // Intensity
    {EColumnValueType::U8, 1},      // ReturnNumber
    {EColumnValueType::U8, 1},      // NumberOfReturnsGivenPulse
    {EColumnValueType::U8, 1},      // ScanDirectionFlag
    {EColumnValueType::U8, 1},      // EdgeOfFlightingLine
    {EColumnValueType::U8, 1},      // Classification
    {EColumnValueType::F32, 4},     // ScanAngleRank, degrees
    {EColumnValueType::U8, 1},      // UserData
    {EColumnValueType::U16, 2},     // PointSourceId
    {EColumnValueType::F64, 8},     // GpsTime
    {EColumnValueType::U8, 1},      // WavePacketDescriptorIndex
    {EColumnValueType::U64, 8},     // ByteOffsetToWaveformData
    {EColumnValueType::U32, 4},     // WaveformPacketSizeInBytes
    {EColumnValueType::F32, 4},     // ReturnPointWaveformLocation
    {EColumnValueType::F32x3, 12},  // Location_T
};

template <class T> void compactVector(std::vector<T>& v, const std::vector<char>& keep)
{
    if (v.empty()) return;
    size_t out = 0;
    for (size_t i = 0; i < keep.size(); ++i)
        if (keep[i]) v[out++] = v[i];
    v.resize(out);
}

template <size_t N> void compactFixed(std::vector<uint8_t>& bytes, const std::vector<char>& keep)
{
    uint8_t* p = bytes.data();
    size_t out = 0;
    for (size_t i = 0; i < keep.size(); ++i) {
        if (!keep[i]) continue;
        if (out != i) std::memcpy(p + out * N, p + i * N, N);
        ++out;
    }
    bytes.resize(out * N);
}

void compactBytes(std::vector<uint8_t>& bytes, int width, const std::vector<char>& keep)
{
    switch (width) {
    case 1: compactFixed<1>(bytes, keep); break;
    case 2: compactFixed<2>(bytes, keep); break;
    case 4: compactFixed<4>(bytes, keep); break;
    case 8: compactFixed<8>(bytes, keep); break;
    default: compactFixed<12>(bytes, keep); break;
    }
}

template <class T> T loadValue(const uint8_t* p)
{
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

QVariantList threeDoubles(double x, double y, double z)
{
    return QVariantList{x, y, z};
}

QVariant rawValue(EColumnValueType type, const uint8_t* p)
{
    switch (type) {
    case EColumnValueType::U8: return QVariant(uint(*p));
    case EColumnValueType::U16: return QVariant(uint(loadValue<quint16>(p)));
    case EColumnValueType::U32: return QVariant(uint(loadValue<quint32>(p)));
    case EColumnValueType::U64: return QVariant(qulonglong(loadValue<quint64>(p)));
    case EColumnValueType::I32: return QVariant(int(loadValue<qint32>(p)));
    case EColumnValueType::F32: return QVariant(double(loadValue<float>(p)));
    case EColumnValueType::F64: return QVariant(loadValue<double>(p));
    case EColumnValueType::F32x3: {
        const pcVec3f v = loadValue<pcVec3f>(p);
        return threeDoubles(v.x, v.y, v.z);
    }
    }
    return QVariant();
}

template <class Shape>
void keepByShape(stPtCloud_PointArray& points, const Shape& shape, bool keepInside)
{
    std::vector<char> keep(size_t(points.count));
    for (size_t i = 0; i < keep.size(); ++i)
        keep[i] = shape.contains(points.positions[i]) == keepInside;
    points.keepPoints(keep);
}

}  // namespace

EColumnValueType columnValueType(EDataSetColumn c)
{
    return (c >= 0 && c < DSC_Count) ? kStorage[c].type : EColumnValueType::U8;
}

int columnValueBytes(EDataSetColumn c)
{
    return (c >= 0 && c < DSC_Count) ? kStorage[c].bytes : 0;
}

QList<EDataSetColumn> stPtCloud_PointArray::columnList() const
{
    QList<EDataSetColumn> out{DSC_Location};
    for (int i = 1; i < DSC_Count; ++i)
        if (hasColumn(EDataSetColumn(i))) out << EDataSetColumn(i);
    return out;
}

bool stPtCloud_PointArray::hasColumn(EDataSetColumn c) const
{
    switch (c) {
    case DSC_Location: return true;
    case DSC_Color: return m_hasColor || !colors.empty();
    case DSC_Normal: return m_hasNormal || !normals.empty();
    default: return columns.count(c) != 0;
    }
}

void stPtCloud_PointArray::addColumn(EDataSetColumn c)
{
    if (c < 0 || c >= DSC_Count || c == DSC_Location || hasColumn(c)) return;
    if (c == DSC_Color) {
        m_hasColor = true;
        colors.assign(size_t(count), pcVec4f());
    } else if (c == DSC_Normal) {
        m_hasNormal = true;
        normals.assign(size_t(count), pcVec3f());
    } else {
        columns[c].assign(size_t(count) * size_t(columnValueBytes(c)), 0);
    }
}

void stPtCloud_PointArray::resize(int n)
{
    if (n < 0) n = 0;
    const size_t sn = size_t(n);
    positions.resize(sn);
    if (!quanta.empty()) quanta.resize(sn);
    if (hasColumn(DSC_Color)) {
        m_hasColor = true;
        colors.resize(sn);
    }
    if (hasColumn(DSC_Normal)) {
        m_hasNormal = true;
        normals.resize(sn);
    }
    for (auto& col : columns) col.second.resize(sn * size_t(columnValueBytes(col.first)), 0);
    count = n;
}

void stPtCloud_PointArray::appendPoints(const stPtCloud_PointArray& src, int begin, int end)
{
    begin = std::max(begin, 0);
    end = std::min(end, src.count);
    if (begin >= end) return;
    const size_t from = size_t(begin), to = size_t(end), n = to - from;
    if (src.origin == origin) {
        positions.insert(positions.end(), src.positions.begin() + std::ptrdiff_t(from),
                         src.positions.begin() + std::ptrdiff_t(to));
    } else {
        for (size_t i = from; i < to; ++i) {
            const pcVec3f& p = src.positions[i];
            positions.emplace_back(float(src.origin.x - origin.x + double(p.x)),
                                   float(src.origin.y - origin.y + double(p.y)),
                                   float(src.origin.z - origin.z + double(p.z)));
        }
    }
    // Exact positions go on only while every point brings its own, in one frame.
    if (src.quanta.size() == size_t(src.count) && src.quantum == quantum && src.origin == origin &&
        quanta.size() + n == positions.size())
        quanta.insert(quanta.end(), src.quanta.begin() + std::ptrdiff_t(from), src.quanta.begin() + std::ptrdiff_t(to));
    else
        quanta.clear();
    if (hasColumn(DSC_Color)) {
        m_hasColor = true;
        if (src.colors.empty()) colors.resize(colors.size() + n);
        else colors.insert(colors.end(), src.colors.begin() + std::ptrdiff_t(from), src.colors.begin() + std::ptrdiff_t(to));
    }
    if (hasColumn(DSC_Normal)) {
        m_hasNormal = true;
        if (src.normals.empty()) normals.resize(normals.size() + n);
        else normals.insert(normals.end(), src.normals.begin() + std::ptrdiff_t(from), src.normals.begin() + std::ptrdiff_t(to));
    }
    for (auto& col : columns) {
        const size_t width = size_t(columnValueBytes(col.first));
        const uint8_t* data = src.columnData<uint8_t>(col.first);
        if (data)
            col.second.insert(col.second.end(), data + from * width, data + to * width);
        else
            col.second.resize(col.second.size() + n * width, 0);
    }
    count += int(n);
}

void stPtCloud_PointArray::keepPoints(const std::vector<char>& keep)
{
    if (keep.size() != size_t(count)) return;
    if (!triangles.empty()) {
        // Old index -> new index; removed points map to -1.
        std::vector<int> remap(keep.size(), -1);
        int next = 0;
        for (size_t i = 0; i < keep.size(); ++i)
            if (keep[i]) remap[i] = next++;
        size_t out = 0;
        for (size_t t = 0; t + 2 < triangles.size(); t += 3) {
            const unsigned int a = triangles[t], b = triangles[t + 1], c = triangles[t + 2];
            if (a >= keep.size() || b >= keep.size() || c >= keep.size()) continue;
            if (remap[a] < 0 || remap[b] < 0 || remap[c] < 0) continue;
            triangles[out++] = unsigned(remap[a]);
            triangles[out++] = unsigned(remap[b]);
            triangles[out++] = unsigned(remap[c]);
        }
        triangles.resize(out);
    }
    compactVector(positions, keep);
    compactVector(quanta, keep);
    compactVector(colors, keep);
    compactVector(normals, keep);
    for (auto& col : columns) compactBytes(col.second, columnValueBytes(col.first), keep);
    count = int(positions.size());
}

bool stPtCloud_PointArray::getPeace(unsigned int index, QMap<EDataSetColumn, QVariant>& out) const
{
    out.clear();
    if (index >= unsigned(count) || positions.size() != size_t(count)) return false;
    const pcVec3d p = PtCloud_LocalFrame(origin).toAbsolute(positions[index]);
    out.insert(DSC_Location, threeDoubles(p.x, p.y, p.z));
    if (index < colors.size()) {
        const pcVec4f& c = colors[index];
        auto to255 = [](float v) { return qBound(0, int(std::lround(v * 255.f)), 255); };
        out.insert(DSC_Color, QVariantList{to255(c.x), to255(c.y), to255(c.z)});
    }
    if (index < normals.size()) {
        const pcVec3f& n = normals[index];
        out.insert(DSC_Normal, threeDoubles(n.x, n.y, n.z));
    }
    for (const auto& col : columns) {
        const size_t width = size_t(columnValueBytes(col.first));
        if (col.second.size() < (size_t(index) + 1) * width) continue;
        out.insert(col.first, rawValue(columnValueType(col.first), col.second.data() + index * width));
    }
    return true;
}

void stPtCloud_PointArray::removeInnerByBox(const pcBoundingBoxf& box)
{
    keepByShape(*this, box, false);
}

void stPtCloud_PointArray::removeOutterByBox(const pcBoundingBoxf& box)
{
    keepByShape(*this, box, true);
}

void stPtCloud_PointArray::removeInnerBySphere(const pcBoundingSpheref& sphere)
{
    keepByShape(*this, sphere, false);
}

void stPtCloud_PointArray::removeOutterBySphere(const pcBoundingSpheref& sphere)
{
    keepByShape(*this, sphere, true);
}

pcBoundingBoxf stPtCloud_PointArray::computeBounds() const
{
    pcBoundingBoxf box;
    for (const pcVec3f& p : positions) box.expandBy(p);
    return box;
}

}  // namespace ptCloud
