#include "PtCloud_BlockFileFormat.h"

#include <cstring>

namespace ptCloud {

// Payloads are copied straight into and out of memory.
static_assert(Q_BYTE_ORDER == Q_LITTLE_ENDIAN, "block files are read and written little-endian");

namespace {

const char kMagic[8] = {'P', 'T', 'C', 'B', 'L', 'O', 'C', 'K'};

// Header field offsets.
enum : int {
    kOffMagic = 0,
    kOffVersion = 8,
    kOffHeaderBytes = 12,
    kOffType = 16,
    kOffSort = 20,
    kOffColoring = 24,
    kOffColumnMask = 28,
    kOffOrigin = 32,
    kOffPointCount = 56,
    kOffBlockCount = 64,
    kOffIndexChecksum = 68,
    kOffIndexOffset = 72,
    kOffBounds = 80,
    kOffQuantum = 104,  // version 2
};

// The checksum closes the header, whose size depends on the version.
constexpr int kHeaderBytesV1 = 128;
constexpr int kHeaderBytesV2 = 160;
static_assert(kHeaderBytesV2 == PtCloud_BlockFileFormat::kMaxHeaderBytes, "largest header");

// Index entry field offsets; the corner and width only in version 2.
enum : int { kEntId = 0, kEntCount = 4, kEntBox = 8, kEntOffset = 32, kEntBytes = 40, kEntCorner = 48, kEntWide = 72 };
constexpr int kEntryBytesV1 = 48;
constexpr int kEntryBytesV2 = 80;

template <class T> void put(char* base, int at, const T& v)
{
    std::memcpy(base + at, &v, sizeof v);
}

template <class T> T get(const char* base, int at)
{
    T v;
    std::memcpy(&v, base + at, sizeof v);
    return v;
}

void putBox(char* base, int at, const pcBoundingBoxf& b)
{
    const float f[6] = {b.min.x, b.min.y, b.min.z, b.max.x, b.max.y, b.max.z};
    std::memcpy(base + at, f, sizeof f);
}

pcBoundingBoxf getBox(const char* base, int at)
{
    float f[6];
    std::memcpy(f, base + at, sizeof f);
    return pcBoundingBoxf(f[0], f[1], f[2], f[3], f[4], f[5]);
}

bool boxIsFinite(const pcBoundingBoxf& b)
{
    return std::isfinite(b.min.x) && std::isfinite(b.min.y) && std::isfinite(b.min.z) &&
           std::isfinite(b.max.x) && std::isfinite(b.max.y) && std::isfinite(b.max.z);
}

quint32 columnMask(const QList<EDataSetColumn>& columns)
{
    quint32 mask = 1u << DSC_Location;
    for (EDataSetColumn c : columns)
        if (c >= 0 && c < DSC_Count) mask |= 1u << c;
    return mask;
}

QList<EDataSetColumn> columnsOfMask(quint32 mask)
{
    QList<EDataSetColumn> out;
    for (int i = 0; i < DSC_Count; ++i)
        if (mask & (1u << i)) out << EDataSetColumn(i);
    return out;
}

struct Crc32Table {
    quint32 v[256];
    Crc32Table()
    {
        for (quint32 i = 0; i < 256; ++i) {
            quint32 c = i;
            for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            v[i] = c;
        }
    }
};

}  // namespace

quint32 PtCloud_BlockFileFormat::checksum(const char* data, size_t n)
{
    static const Crc32Table table;
    quint32 c = 0xFFFFFFFFu;
    for (size_t i = 0; i < n; ++i) c = table.v[(c ^ quint8(data[i])) & 0xFF] ^ (c >> 8);
    return c ^ 0xFFFFFFFFu;
}

int PtCloud_BlockFileFormat::headerBytes(const stPtCloud_DataSetHeader& header)
{
    return header.storesQuanta() ? kHeaderBytesV2 : kHeaderBytesV1;
}

int PtCloud_BlockFileFormat::indexEntryBytes(const stPtCloud_DataSetHeader& header)
{
    return header.storesQuanta() ? kEntryBytesV2 : kEntryBytesV1;
}

quint64 PtCloud_BlockFileFormat::pointBytes(const QList<EDataSetColumn>& columns)
{
    quint64 bytes = quint64(columnValueBytes(DSC_Location));
    for (EDataSetColumn c : columnsOfMask(columnMask(columns)))
        if (c != DSC_Location) bytes += quint64(columnValueBytes(c));
    return bytes;
}

qint64 PtCloud_BlockFileFormat::triangleCount(const stPtCloud_DataSetHeader& header, const IndexEntry& entry)
{
    const quint64 count = entry.count, bytes = entry.bytes;
    // Wide positions take twice the room of the others.
    const quint64 perPoint = pointBytes(header.columns) + (entry.wide ? 3 * sizeof(float) : 0);
    if (count > bytes / perPoint) return -1;
    const quint64 rest = bytes - count * perPoint;
    if (header.type != DST_Mesh) return rest == 0 ? 0 : -1;
    return rest % kTriangleBytes == 0 ? qint64(rest / kTriangleBytes) : -1;
}

QByteArray PtCloud_BlockFileFormat::encodeHeader(const stPtCloud_DataSetHeader& header,
                                                 const IndexLocation& index)
{
    char p[kMaxHeaderBytes] = {};
    const bool quanta = header.storesQuanta();
    const int size = headerBytes(header);
    std::memcpy(p + kOffMagic, kMagic, sizeof kMagic);
    put<quint32>(p, kOffVersion, quanta ? kVersionQuanta : kVersionFloats);
    put<quint32>(p, kOffHeaderBytes, quint32(size));
    put<quint32>(p, kOffType, quint32(header.type));
    put<quint32>(p, kOffSort, quint32(header.sort));
    put<quint32>(p, kOffColoring, quint32(header.coloringMode));
    put<quint32>(p, kOffColumnMask, columnMask(header.columns));
    const double origin[3] = {header.origin.x, header.origin.y, header.origin.z};
    std::memcpy(p + kOffOrigin, origin, sizeof origin);
    put<quint64>(p, kOffPointCount, header.pointCount);
    put<quint32>(p, kOffBlockCount, header.blockCount);
    put<quint32>(p, kOffIndexChecksum, index.checksum);
    put<quint64>(p, kOffIndexOffset, index.offset);
    putBox(p, kOffBounds, header.bounds);
    if (quanta) {
        const double quantum[3] = {header.quantum.x, header.quantum.y, header.quantum.z};
        std::memcpy(p + kOffQuantum, quantum, sizeof quantum);
    }
    put<quint32>(p, size - 4, checksum(p, size_t(size - 4)));
    return QByteArray(p, size);
}

bool PtCloud_BlockFileFormat::decodeHeader(const QByteArray& bytes, quint64 fileSize,
                                           stPtCloud_DataSetHeader* header,
                                           IndexLocation* index, QString* error)
{
    auto fail = [error](const QString& why) {
        if (error) *error = why;
        return false;
    };
    const char* p = bytes.constData();
    if (bytes.size() < kOffHeaderBytes + 4 || std::memcmp(p, kMagic, sizeof kMagic) != 0)
        return fail(QStringLiteral("not a ptCloud block file (bad signature)"));
    const quint32 version = get<quint32>(p, kOffVersion);
    if (version != kVersionFloats && version != kVersionQuanta)
        return fail(QStringLiteral("block file version %1 is not supported (this build reads %2 and %3)")
                        .arg(version)
                        .arg(kVersionFloats)
                        .arg(kVersionQuanta));
    const int size = version == kVersionQuanta ? kHeaderBytesV2 : kHeaderBytesV1;
    const quint32 headerBytes = get<quint32>(p, kOffHeaderBytes);
    if (headerBytes != quint32(size) || bytes.size() < size)
        return fail(QStringLiteral("block file header is truncated or has a wrong size"));
    if (get<quint32>(p, size - 4) != checksum(p, size_t(size - 4)))
        return fail(QStringLiteral("block file header is corrupt (checksum mismatch)"));

    const quint32 type = get<quint32>(p, kOffType);
    const quint32 sort = get<quint32>(p, kOffSort);
    const quint32 coloring = get<quint32>(p, kOffColoring);
    const quint32 mask = get<quint32>(p, kOffColumnMask);
    if (type > DST_Classify || sort > DSS_Morton || coloring > CM_Cluster)
        return fail(QStringLiteral("block file header has an unknown type, sort or colouring"));
    if (!(mask & (1u << DSC_Location)) || (mask >> DSC_Count) != 0)
        return fail(QStringLiteral("block file header has an unknown column set"));

    stPtCloud_DataSetHeader h;
    h.type = EDataSetType(type);
    h.sort = EDataSetSort(sort);
    h.coloringMode = EColoringMode(coloring);
    double origin[3];
    std::memcpy(origin, p + kOffOrigin, sizeof origin);
    h.origin = pcVec3d(origin[0], origin[1], origin[2]);
    h.columns = columnsOfMask(mask);
    h.pointCount = get<quint64>(p, kOffPointCount);
    h.blockCount = get<quint32>(p, kOffBlockCount);
    h.bounds = getBox(p, kOffBounds);
    if (version == kVersionQuanta) {
        double quantum[3];
        std::memcpy(quantum, p + kOffQuantum, sizeof quantum);
        h.quantum = pcVec3d(quantum[0], quantum[1], quantum[2]);
        // Also false for NaN.
        if (!(quantum[0] > 0 && quantum[1] > 0 && quantum[2] > 0) || !std::isfinite(quantum[0]) ||
            !std::isfinite(quantum[1]) || !std::isfinite(quantum[2]))
            return fail(QStringLiteral("block file quantum is not a positive number"));
    }
    IndexLocation where;
    where.offset = get<quint64>(p, kOffIndexOffset);
    where.checksum = get<quint32>(p, kOffIndexChecksum);

    if (!std::isfinite(origin[0]) || !std::isfinite(origin[1]) || !std::isfinite(origin[2]))
        return fail(QStringLiteral("block file origin is not a number"));
    const quint64 indexBytes = quint64(h.blockCount) * quint64(indexEntryBytes(h));
    if (where.offset < quint64(size) || where.offset > fileSize ||
        fileSize - where.offset != indexBytes)
        return fail(QStringLiteral("block file is truncated or its index is misplaced "
                                   "(%1 bytes, index of %2 blocks at %3)")
                        .arg(fileSize)
                        .arg(h.blockCount)
                        .arg(where.offset));
    *header = h;
    if (index) *index = where;
    return true;
}

QByteArray PtCloud_BlockFileFormat::encodeIndex(const stPtCloud_DataSetHeader& header,
                                                const std::vector<IndexEntry>& entries)
{
    const int entryBytes = indexEntryBytes(header);
    std::vector<char> bytes(entries.size() * size_t(entryBytes));
    char* p = bytes.data();
    for (const IndexEntry& e : entries) {
        put<qint32>(p, kEntId, qint32(e.id));
        put<quint32>(p, kEntCount, e.count);
        putBox(p, kEntBox, e.box);
        put<quint64>(p, kEntOffset, e.offset);
        put<quint64>(p, kEntBytes, e.bytes);
        if (header.storesQuanta()) {
            const qint64 corner[3] = {e.corner.x, e.corner.y, e.corner.z};
            std::memcpy(p + kEntCorner, corner, sizeof corner);
            put<quint32>(p, kEntWide, e.wide ? 1u : 0u);
        }
        p += entryBytes;
    }
    return QByteArray(bytes.data(), int(bytes.size()));
}

bool PtCloud_BlockFileFormat::decodeIndex(const QByteArray& bytes,
                                          const stPtCloud_DataSetHeader& header,
                                          const IndexLocation& index,
                                          std::vector<IndexEntry>* entries, QString* error)
{
    auto fail = [error](const QString& why) {
        if (error) *error = why;
        return false;
    };
    const int entryBytes = indexEntryBytes(header);
    if (quint64(bytes.size()) != quint64(header.blockCount) * quint64(entryBytes))
        return fail(QStringLiteral("block index is truncated"));
    if (checksum(bytes.constData(), size_t(bytes.size())) != index.checksum)
        return fail(QStringLiteral("block index is corrupt (checksum mismatch)"));
    std::vector<IndexEntry> out;
    out.reserve(header.blockCount);
    quint64 total = 0;
    const char* p = bytes.constData();
    for (quint32 i = 0; i < header.blockCount; ++i, p += entryBytes) {
        IndexEntry e;
        e.id = get<qint32>(p, kEntId);
        e.count = get<quint32>(p, kEntCount);
        e.box = getBox(p, kEntBox);
        e.offset = get<quint64>(p, kEntOffset);
        e.bytes = get<quint64>(p, kEntBytes);
        if (header.storesQuanta()) {
            qint64 corner[3];
            std::memcpy(corner, p + kEntCorner, sizeof corner);
            e.corner = pcVec3q(corner[0], corner[1], corner[2]);
            const quint32 wide = get<quint32>(p, kEntWide);
            if (wide > 1) return fail(QStringLiteral("block %1 has an unknown position width").arg(e.id));
            e.wide = wide == 1;
        }
        if (!out.empty() && e.id <= out.back().id)
            return fail(QStringLiteral("block index is not in id order at entry %1").arg(i));
        if (e.offset < quint64(headerBytes(header)) || e.offset > index.offset ||
            e.bytes > index.offset - e.offset)
            return fail(QStringLiteral("block %1 lies outside the payload area").arg(e.id));
        if (triangleCount(header, e) < 0)
            return fail(QStringLiteral("block %1 has a size that does not match its %2 points")
                            .arg(e.id)
                            .arg(e.count));
        if (e.count > 0 && (!e.box.valid() || !boxIsFinite(e.box)))
            return fail(QStringLiteral("block %1 has an invalid box").arg(e.id));
        total += e.count;
        out.push_back(e);
    }
    if (total != header.pointCount)
        return fail(QStringLiteral("block counts add up to %1, header says %2")
                        .arg(total)
                        .arg(header.pointCount));
    *entries = std::move(out);
    return true;
}

void PtCloud_BlockFileFormat::decodeNarrow(const void* offsets, size_t n, const pcVec3q& corner,
                                           const pcVec3d& quantum, void* into)
{
    constexpr std::int64_t kHalf = std::int64_t(1) << 31;
    const double step[3] = {quantum.x, quantum.y, quantum.z};
    const double base[3] = {double(corner.x + kHalf) * step[0], double(corner.y + kHalf) * step[1],
                            double(corner.z + kHalf) * step[2]};
    const char* from = static_cast<const char*>(offsets);
    char* to = static_cast<char*>(into);
    for (size_t i = 0; i < n; ++i)
        for (int a = 0; a < 3; ++a) {
            quint32 u;
            std::memcpy(&u, from + 4 * (3 * i + size_t(a)), 4);
            const float f = float(base[a] + double(qint32(u ^ 0x80000000u)) * step[a]);
            std::memcpy(to + 4 * (3 * i + size_t(a)), &f, 4);
        }
}

void PtCloud_BlockFileFormat::encodeColors(const pcVec4f* colors, size_t n, quint16* out)
{
    auto channel = [](float v) {
        const float s = v * 65535.f + 0.5f;
        return quint16(s <= 0.f ? 0.f : (s >= 65535.f ? 65535.f : s));
    };
    for (size_t i = 0; i < n; ++i) {
        out[3 * i] = channel(colors[i].x);
        out[3 * i + 1] = channel(colors[i].y);
        out[3 * i + 2] = channel(colors[i].z);
    }
}

void PtCloud_BlockFileFormat::decodeColors(const quint16* channels, size_t n, pcVec4f* out)
{
    const float scale = 1.f / 65535.f;
    for (size_t i = 0; i < n; ++i)
        out[i] = pcVec4f(channels[3 * i] * scale, channels[3 * i + 1] * scale,
                         channels[3 * i + 2] * scale, 1.f);
}

}  // namespace ptCloud
