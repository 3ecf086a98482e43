#include "LasWriter.h"

#include <QDate>

#include "LazChunkCodec.h"
#include "LazEncoder.h"
#include "LazFormat.h"
#include "LazIntegerModel.h"
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "PtCloud_FileCommit.h"
#include "PtCloud_GridMap.h"

namespace ptCloud {

static_assert(Q_BYTE_ORDER == Q_LITTLE_ENDIAN, "records are encoded by copying little-endian bytes");

namespace {

const int kHeaderBytes = 375;
const int kVlrHeaderBytes = 54;
const quint16 kWktRecordId = 2112;
const quint16 kWktEncodingBit = 1 << 4;
const quint16 kExtraBytesRecordId = 4;
const int kExtraBytesDescriptorBytes = 192;
const quint8 kExtraBytesInt32 = 6;
// Points encoded per write call.
const int kPointsPerWrite = 32768;
const quint32 kLazChunkPoints = 50000;

// The laszip VLR's description of this writer's records.
LazFormat lazFormat(bool withColor, bool withLabel) {
    LazFormat f;
    f.compressor = LazFormat::LayeredChunked;
    f.chunkSize = kLazChunkPoints;
    f.items.append({LazFormat::Point14, 30, 3});
    if (withColor) f.items.append({LazFormat::Rgb14, 6, 3});
    if (withLabel) f.items.append({LazFormat::Byte14, 4, 3});
    return f;
}

template <class T> void put(char* p, T v) { std::memcpy(p, &v, sizeof(T)); }

void putText(char* p, int size, const char* text) {
    std::strncpy(p, text, size_t(size));
}

// A column's values for one point, or the fallback when the array lacks it.
template <class T> struct ColumnView {
    const T* data = nullptr;
    T fallback = T();
    T at(int i) const { return data ? data[i] : fallback; }
};

}  // namespace

LasWriter::LasWriter() = default;

LasWriter::~LasWriter() = default;  // an uncommitted QSaveFile discards its temporary file

bool LasWriter::open(const QString& path, bool withColor, const double scale[3], const double offset[3],
                     const QString& wkt, QString* error) {
    auto fail = [&](const QString& why) {
        if (error) *error = why;
        if (m_file.isOpen()) m_file.cancelWriting();
        return false;
    };
    for (int a = 0; a < 3; ++a)
        if (!(scale[a] > 0.0) || !std::isfinite(scale[a]) || !std::isfinite(offset[a]))
            return fail(QStringLiteral("%1 scale %2 or offset %3 is unusable")
                            .arg(QLatin1Char(char('X' + a))).arg(scale[a]).arg(offset[a]));
    m_wkt = wkt.isEmpty() ? QByteArray() : wkt.toUtf8() + '\0';
    if (m_wkt.size() > std::numeric_limits<quint16>::max())
        return fail(QStringLiteral("coordinate system text of %1 bytes does not fit a LAS record").arg(m_wkt.size()));
    if (m_file.isOpen()) m_file.cancelWriting();
    m_file.setFileName(path);
    if (!m_file.open(QIODevice::WriteOnly))
        return fail(QStringLiteral("cannot write %1: %2").arg(path, m_file.errorString()));
    m_withColor = withColor;
    const bool compressed = path.endsWith(QLatin1String(".laz"), Qt::CaseInsensitive);
    const LazFormat laz = lazFormat(withColor, m_withLabel);
    const QByteArray lazVlr = compressed ? laz.serialise() : QByteArray();
    m_codec.reset(compressed ? new LazChunkCodec(laz, recordLength()) : nullptr);
    m_chunk.clear();
    m_chunkBytes.clear();
    std::copy(scale, scale + 3, m_scale);
    std::copy(offset, offset + 3, m_offset);
    m_count = 0;
    std::fill(m_min, m_min + 3, std::numeric_limits<double>::max());
    std::fill(m_max, m_max + 3, -std::numeric_limits<double>::max());
    std::fill(m_byReturn, m_byReturn + 15, 0);
    m_offsetToPoints = m_headerSize + (m_wkt.isEmpty() ? 0 : kVlrHeaderBytes + m_wkt.size()) +
                       (m_withLabel ? kVlrHeaderBytes + kExtraBytesDescriptorBytes : 0) +
                       (compressed ? kVlrHeaderBytes + lazVlr.size() : 0);

    // The header is written again by close(), once counts and bounds are known.
    std::vector<char> lead(m_offsetToPoints, '\0');
    char* v = lead.data() + m_headerSize;
    if (!m_wkt.isEmpty()) {
        putText(v + 2, 16, "LASF_Projection");
        put<quint16>(v + 18, kWktRecordId);
        put<quint16>(v + 20, quint16(m_wkt.size()));
        putText(v + 22, 32, "OGC coordinate system WKT");
        std::memcpy(v + kVlrHeaderBytes, m_wkt.constData(), size_t(m_wkt.size()));
        v += kVlrHeaderBytes + m_wkt.size();
    }
    if (m_withLabel) {
        putText(v + 2, 16, "LASF_Spec");
        put<quint16>(v + 18, kExtraBytesRecordId);
        put<quint16>(v + 20, quint16(kExtraBytesDescriptorBytes));
        putText(v + 22, 32, "Extra bytes");
        char* d = v + kVlrHeaderBytes;
        put<quint8>(d + 2, kExtraBytesInt32);  // no no-data, min, max, scale or offset: options stay 0
        putText(d + 4, 32, "label");
        putText(d + 160, 32, "cluster or class label");
        v += kVlrHeaderBytes + kExtraBytesDescriptorBytes;
    }
    if (compressed) {
        putText(v + 2, 16, "laszip encoded");
        put<quint16>(v + 18, LazFormat::kRecordId);
        put<quint16>(v + 20, quint16(lazVlr.size()));
        putText(v + 22, 32, "LAZ layered chunks");
        std::memcpy(v + kVlrHeaderBytes, lazVlr.constData(), size_t(lazVlr.size()));
        // Compressed points start with the chunk table's offset, known at close().
        lead.resize(lead.size() + 8, '\0');
    }
    if (m_file.write(lead.data(), qint64(lead.size())) != qint64(lead.size()))
        return fail(PtCloud_FileCommit::writeFailure(m_file));
    return true;
}

int LasWriter::recordLength() const { return (m_withColor ? 36 : 30) + (m_withLabel ? 4 : 0); }

bool LasWriter::write(const stPtCloud_PointArray& points, QString* error) {
    // A file missing some points must not be committed later: give it up.
    auto fail = [&](const QString& why) {
        if (error) *error = why;
        if (m_file.isOpen()) m_file.cancelWriting();
        return false;
    };
    if (!m_file.isOpen()) return fail(QStringLiteral("no LAS file is open for writing"));
    const int n = points.count;
    if (points.positions.size() != size_t(n) || (m_withColor && !points.colors.empty() && points.colors.size() != size_t(n)))
        return fail(QStringLiteral("point array of %1 points has %2 positions and %3 colours")
                        .arg(n).arg(points.positions.size()).arg(points.colors.size()));
    QString bad;
    auto column = [&](EDataSetColumn c, auto fallback) {
        using T = decltype(fallback);
        ColumnView<T> v;
        v.fallback = fallback;
        auto it = points.columns.find(c);
        if (it == points.columns.end()) return v;
        if (it->second.size() != size_t(n) * sizeof(T))
            bad = QStringLiteral("column %1 holds %2 bytes for %3 points").arg(columnName(c)).arg(it->second.size()).arg(n);
        else
            v.data = reinterpret_cast<const T*>(it->second.data());
        return v;
    };
    // A return number of 0 is invalid LAS: points without returns are single returns.
    const auto intensity = column(DSC_Intensity, quint16(0));
    const auto ret = column(DSC_ReturnNumber, quint8(1));
    const auto rets = column(DSC_NumberOfReturnsGivenPulse, quint8(1));
    const auto scanDir = column(DSC_ScanDirectionFlag, quint8(0));
    const auto edge = column(DSC_EdgeOfFlightingLine, quint8(0));
    const auto cls = column(DSC_Classification, quint8(0));
    const auto angle = column(DSC_ScanAngleRank, 0.f);
    const auto user = column(DSC_UserData, quint8(0));
    const auto source = column(DSC_PointSourceId, quint16(0));
    const auto gps = column(DSC_GpsTime, 0.0);
    const auto label = column(DSC_Label, qint32(-1));
    if (!bad.isEmpty()) return fail(bad);
    const bool colors = m_withColor && !points.colors.empty();

    const int recLen = recordLength();
    const double origin[3] = {points.origin.x, points.origin.y, points.origin.z};
    // Exact positions, where the points bring them, go to the file's grid
    // without passing through single precision.
    const bool quanta = points.quanta.size() == size_t(n);
    const PtCloud_GridMap grid(points.origin, points.quantum, pcVec3d(m_offset[0], m_offset[1], m_offset[2]),
                               pcVec3d(m_scale[0], m_scale[1], m_scale[2]));
    std::vector<char> buf(size_t(std::min(n, kPointsPerWrite)) * size_t(recLen));
    for (int first = 0; first < n; first += kPointsPerWrite) {
        const int k = std::min(kPointsPerWrite, n - first);
        std::fill(buf.begin(), buf.end(), '\0');
        for (int j = 0; j < k; ++j) {
            const int i = first + j;
            char* r = buf.data() + size_t(j) * size_t(recLen);
            const float rel[3] = {points.positions[size_t(i)].x, points.positions[size_t(i)].y,
                                  points.positions[size_t(i)].z};
            const pcVec3q* exact = quanta ? &points.quanta[size_t(i)] : nullptr;
            const std::int64_t whole[3] = {exact ? exact->x : 0, exact ? exact->y : 0, exact ? exact->z : 0};
            for (int a = 0; a < 3; ++a) {
                const double q = exact ? double(grid.axis(a, whole[a]))
                                       : std::round((origin[a] + double(rel[a]) - m_offset[a]) / m_scale[a]);
                if (!(q >= std::numeric_limits<qint32>::min() && q <= std::numeric_limits<qint32>::max()))
                    return fail(QStringLiteral("point %1 does not fit the scale and offset of the file")
                                    .arg(m_count + quint64(j)));
                put<qint32>(r + 4 * a, qint32(q));
                const double v = q * m_scale[a] + m_offset[a];
                m_min[a] = std::min(m_min[a], v);
                m_max[a] = std::max(m_max[a], v);
            }
            const quint8 rn = ret.at(i) & 0x0F;
            if (rn >= 1) ++m_byReturn[rn - 1];
            put<quint16>(r + 12, intensity.at(i));
            put<quint8>(r + 14, quint8(rn | (rets.at(i) & 0x0F) << 4));
            put<quint8>(r + 15, quint8((scanDir.at(i) & 1) << 6 | (edge.at(i) & 1) << 7));
            put<quint8>(r + 16, cls.at(i));
            put<quint8>(r + 17, user.at(i));
            put<qint16>(r + 18, qint16(std::lround(std::clamp(double(angle.at(i)), -180.0, 180.0) / 0.006)));
            put<quint16>(r + 20, source.at(i));
            put<double>(r + 22, gps.at(i));
            if (colors) {
                const pcVec4f& c = points.colors[size_t(i)];
                const float rgb[3] = {c.x, c.y, c.z};
                for (int a = 0; a < 3; ++a)
                    put<quint16>(r + 30 + 2 * a, quint16(std::lround(std::clamp(rgb[a], 0.f, 1.f) * 65535.f)));
            }
            if (m_withLabel) put<qint32>(r + recLen - 4, label.at(i));
        }
        if (!putRecords(buf.data(), k))
            return fail(PtCloud_FileCommit::writeFailure(m_file));
        m_count += quint64(k);
    }
    return true;
}

bool LasWriter::putRecords(const char* records, int k) {
    const size_t bytes = size_t(k) * size_t(recordLength());
    if (!m_codec) return m_file.write(records, qint64(bytes)) == qint64(bytes);
    const size_t chunkBytes = size_t(kLazChunkPoints) * size_t(recordLength());
    for (size_t at = 0; at < bytes;) {
        const size_t take = std::min(bytes - at, chunkBytes - m_chunk.size());
        m_chunk.insert(m_chunk.end(), records + at, records + at + take);
        at += take;
        if (m_chunk.size() == chunkBytes && !flushChunk()) return false;
    }
    return true;
}

bool LasWriter::flushChunk() {
    if (m_chunk.empty()) return true;
    const std::vector<uint8_t> coded = m_codec->encode(reinterpret_cast<const uint8_t*>(m_chunk.data()),
                                                       quint32(m_chunk.size() / size_t(recordLength())));
    m_chunk.clear();
    m_chunkBytes.push_back(quint32(coded.size()));
    return m_file.write(reinterpret_cast<const char*>(coded.data()), qint64(coded.size())) == qint64(coded.size());
}

bool LasWriter::close(QString* error) {
    auto fail = [&](const QString& why) {
        if (error) *error = why;
        if (m_file.isOpen()) m_file.cancelWriting();
        return false;
    };
    if (!m_file.isOpen()) return fail(QStringLiteral("no LAS file is open for writing"));
    if (m_codec) {
        // The chunk table: version, count, then each chunk's size coded as a step from the last.
        if (!flushChunk())
            return fail(PtCloud_FileCommit::writeFailure(m_file));
        char table[16];
        put<qint64>(table, m_file.pos());
        put<quint32>(table + 8, 0);
        put<quint32>(table + 12, quint32(m_chunkBytes.size()));
        LazEncoder e;
        LazIntegerModel sizes(32, 2);
        qint32 last = 0;
        for (quint32 b : m_chunkBytes) last = sizes.code(e, last, qint32(b), 1);
        e.finish();
        const qint64 coded = qint64(e.bytes().size());
        if (m_file.write(table + 8, 8) != 8 ||
            m_file.write(reinterpret_cast<const char*>(e.bytes().data()), coded) != coded ||
            !m_file.seek(m_offsetToPoints) || m_file.write(table, 8) != 8)
            return fail(PtCloud_FileCommit::writeFailure(m_file));
    }
    std::vector<char> head(kHeaderBytes, '\0');
    char* h = head.data();
    std::memcpy(h, "LASF", 4);
    put<quint16>(h + 6, m_wkt.isEmpty() ? 0 : kWktEncodingBit);
    h[24] = 1;
    h[25] = 4;
    putText(h + 26, 32, "EXTRACTION");
    putText(h + 58, 32, "PtCloud Editor");
    const QDate today = QDate::currentDate();
    put<quint16>(h + 90, quint16(today.dayOfYear()));
    put<quint16>(h + 92, quint16(today.year()));
    put<quint16>(h + 94, quint16(m_headerSize));
    put<quint32>(h + 96, m_offsetToPoints);
    put<quint32>(h + 100, quint32((m_wkt.isEmpty() ? 0 : 1) + (m_withLabel ? 1 : 0) + (m_codec ? 1 : 0)));
    put<quint8>(h + 104, quint8((m_withColor ? 7 : 6) | (m_codec ? 0x80 : 0)));
    put<quint16>(h + 105, quint16(recordLength()));
    // The 32-bit counts at 107 and 111 stay 0, as formats 6 and up require.
    for (int a = 0; a < 3; ++a) {
        const bool any = m_count > 0;
        put<double>(h + 131 + 8 * a, m_scale[a]);
        put<double>(h + 155 + 8 * a, m_offset[a]);
        put<double>(h + 179 + 16 * a, any ? m_max[a] : 0.0);
        put<double>(h + 187 + 16 * a, any ? m_min[a] : 0.0);
    }
    put<quint64>(h + 247, m_count);
    for (int r = 0; r < 15; ++r) put<quint64>(h + 255 + 8 * r, m_byReturn[r]);
    if (!m_file.seek(0) || m_file.write(head.data(), kHeaderBytes) != kHeaderBytes)
        return fail(PtCloud_FileCommit::writeFailure(m_file));
    return PtCloud_FileCommit::commit(m_file, error);
}

}  // namespace ptCloud
