#include "LasReader.h"

#include "LazChunkReader.h"
#include "LazFormat.h"

#include <QtEndian>
#include <algorithm>
#include <cmath>
#include <cstring>

#include "PtCloud_GridMap.h"

namespace ptCloud {

static_assert(Q_BYTE_ORDER == Q_LITTLE_ENDIAN, "records are decoded by copying little-endian bytes");

namespace {

const int kVlrHeaderBytes = 54;
const int kEvlrHeaderBytes = 60;
const int kFullHeaderBytes = 375;
// Records decoded per buffer fill: big enough for few, large reads, small
// enough that every column pass over the buffer stays in cache.
const int kBufferBytes = 1 << 20;
// Projection records larger than this are not kept (a WKT is a few KiB).
const quint64 kMaxKeptRecord = 1 << 24;
// The largest coordinate magnitude a file may reach.
const double kCoordinateLimit = 1e12;

template <class T> T le(const char* p) {
    T v;
    std::memcpy(&v, p, sizeof(T));
    return v;
}

QString fixedText(const char* p, int size) {
    const char* end = static_cast<const char*>(std::memchr(p, 0, size_t(size)));
    return QString::fromLatin1(p, end ? int(end - p) : size).trimmed();
}

int minimumHeaderSize(int versionMinor) {
    if (versionMinor <= 2) return 227;
    return versionMinor == 3 ? 235 : kFullHeaderBytes;
}

bool isLaszipRecord(const LasVlr& v) {
    return v.userId == QLatin1String("laszip encoded");
}

bool isProjectionRecord(const LasVlr& v) {
    return v.userId == QLatin1String("LASF_Projection") &&
           (v.recordId == 2112 || v.recordId == 34735 || v.recordId == 34736 || v.recordId == 34737);
}

const char* geoKeyName(int id) {
    switch (id) {
    case 1024: return "GTModelTypeGeoKey";
    case 1025: return "GTRasterTypeGeoKey";
    case 1026: return "GTCitationGeoKey";
    case 2048: return "GeographicTypeGeoKey";
    case 2049: return "GeogCitationGeoKey";
    case 2050: return "GeogGeodeticDatumGeoKey";
    case 2051: return "GeogPrimeMeridianGeoKey";
    case 2052: return "GeogLinearUnitsGeoKey";
    case 2054: return "GeogAngularUnitsGeoKey";
    case 2056: return "GeogEllipsoidGeoKey";
    case 2057: return "GeogSemiMajorAxisGeoKey";
    case 2058: return "GeogSemiMinorAxisGeoKey";
    case 2059: return "GeogInvFlatteningGeoKey";
    case 3072: return "ProjectedCSTypeGeoKey";
    case 3073: return "PCSCitationGeoKey";
    case 3074: return "ProjectionGeoKey";
    case 3075: return "ProjCoordTransGeoKey";
    case 3076: return "ProjLinearUnitsGeoKey";
    case 4096: return "VerticalCSTypeGeoKey";
    case 4097: return "VerticalCitationGeoKey";
    case 4098: return "VerticalDatumGeoKey";
    case 4099: return "VerticalUnitsGeoKey";
    default: return nullptr;
    }
}

// One "Name (id) = value" line per GeoTIFF key; values that live in the
// double or ASCII records are looked up there.
QString readableGeoKeys(const QByteArray& dir, const QByteArray& doubles, const QByteArray& ascii) {
    const int shorts = dir.size() / 2;
    if (shorts < 4) return QString();
    auto word = [&](int i) { return int(le<quint16>(dir.constData() + 2 * i)); };
    const int keys = std::min(word(3), shorts / 4 - 1);
    QStringList lines;
    for (int k = 1; k <= keys; ++k) {
        const int id = word(4 * k), location = word(4 * k + 1), count = word(4 * k + 2), value = word(4 * k + 3);
        QString text;
        if (location == 0) {
            text = QString::number(value);
        } else if (location == 34736) {
            QStringList nums;
            for (int i = value; i < value + count && (i + 1) * 8 <= doubles.size(); ++i)
                nums << QString::number(le<double>(doubles.constData() + 8 * i), 'g', 17);
            text = nums.join(QLatin1String(", "));
        } else if (location == 34737) {
            if (value < ascii.size()) {
                QString s = QString::fromLatin1(ascii.mid(value, count));
                while (s.endsWith(QLatin1Char('|')) || s.endsWith(QLatin1Char('\0'))) s.chop(1);
                text = QLatin1Char('"') + s + QLatin1Char('"');
            }
        } else {
            text = QStringLiteral("in tag %1").arg(location);
        }
        const char* name = geoKeyName(id);
        lines << QStringLiteral("%1 (%2) = %3").arg(name ? QString::fromLatin1(name) : QStringLiteral("key"))
                     .arg(id).arg(text);
    }
    return lines.join(QLatin1Char('\n'));
}

// Where the optional parts of a record start (-1: absent).
struct RecordLayout {
    int gps = -1, rgb = -1, wave = -1;
};

RecordLayout layoutOf(int format) {
    RecordLayout l;
    static const int gps[11] = {-1, 20, -1, 20, 20, 20, 22, 22, 22, 22, 22};
    static const int rgb[11] = {-1, -1, 20, 28, -1, 28, -1, 30, 30, -1, 30};
    static const int wave[11] = {-1, -1, -1, -1, 28, 34, -1, -1, -1, 30, 38};
    l.gps = gps[format];
    l.rgb = rgb[format];
    l.wave = wave[format];
    return l;
}

// Copies an N-byte field of every record to dst, a value every `stride` bytes.
template <int N> void copyField(const char* src, int recLen, int k, int at, uint8_t* dst, size_t stride) {
    for (int i = 0; i < k; ++i) std::memcpy(dst + size_t(i) * stride, src + size_t(i) * recLen + at, N);
}

void extractBits(const char* src, int recLen, int k, int at, int shift, int mask, uint8_t* dst, size_t stride) {
    for (int i = 0; i < k; ++i)
        dst[size_t(i) * stride] = uint8_t((uint8_t(src[size_t(i) * recLen + at]) >> shift) & mask);
}

}  // namespace

LasReader::LasReader() = default;

LasReader::~LasReader() { close(); }

void LasReader::close() {
    if (m_file.isOpen()) m_file.close();
    m_laz.reset();
    m_compressed = false;
    m_header = LasHeader();
    m_read = 0;
    m_color8 = false;
    m_warnings.clear();
}

bool LasReader::open(const QString& path, QString* error) {
    close();
    QString why;
    m_file.setFileName(path);
    if (!m_file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        why = QStringLiteral("cannot open %1: %2").arg(path, m_file.errorString());
    else if (readHeader(&why) && (readVlrs(), readEvlrs(), openCompressed(&why)) && detectColorDepth(&why))
        return true;
    close();
    if (error) *error = why;
    return false;
}

bool LasReader::readHeader(QString* why) {
    const qint64 fileSize = m_file.size();
    const QByteArray raw = m_file.read(kFullHeaderBytes);
    const char* p = raw.constData();
    if (raw.size() < 4 || std::memcmp(p, "LASF", 4) != 0) {
        *why = QStringLiteral("not a LAS file: no LASF signature");
        return false;
    }
    LasHeader& h = m_header;
    if (raw.size() < 227) {
        *why = QStringLiteral("file ends inside the LAS header (%1 bytes)").arg(raw.size());
        return false;
    }
    h.versionMajor = quint8(p[24]);
    h.versionMinor = quint8(p[25]);
    if (h.versionMajor != 1 || h.versionMinor > 4) {
        *why = QStringLiteral("unsupported LAS version %1.%2").arg(h.versionMajor).arg(h.versionMinor);
        return false;
    }
    h.globalEncoding = le<quint16>(p + 6);
    h.systemIdentifier = fixedText(p + 26, 32);
    h.generatingSoftware = fixedText(p + 58, 32);
    h.headerSize = le<quint16>(p + 94);
    const int minHeader = minimumHeaderSize(h.versionMinor);
    if (h.headerSize < minHeader) {
        *why = QStringLiteral("header size %1 is below the %2 bytes of LAS %3.%4")
                   .arg(h.headerSize).arg(minHeader).arg(h.versionMajor).arg(h.versionMinor);
        return false;
    }
    if (raw.size() < minHeader || fileSize < h.headerSize) {
        *why = QStringLiteral("file ends inside the LAS header (%1 bytes)").arg(fileSize);
        return false;
    }
    h.offsetToPointData = le<quint32>(p + 96);
    h.vlrCount = le<quint32>(p + 100);
    const quint8 rawFormat = quint8(p[104]);
    m_compressed = rawFormat & 0x80;
    h.pointFormat = rawFormat & 0x3F;
    if (h.pointFormat > 10) {
        *why = QStringLiteral("unsupported point format %1").arg(h.pointFormat);
        return false;
    }
    h.recordLength = le<quint16>(p + 105);
    if (h.recordLength < h.standardRecordLength()) {
        *why = QStringLiteral("record length %1 is below the %2 bytes of point format %3")
                   .arg(h.recordLength).arg(h.standardRecordLength()).arg(h.pointFormat);
        return false;
    }
    h.legacyPointCount = le<quint32>(p + 107);
    for (int a = 0; a < 3; ++a) {
        h.scale[a] = le<double>(p + 131 + 8 * a);
        h.offset[a] = le<double>(p + 155 + 8 * a);
        h.headerMax[a] = le<double>(p + 179 + 16 * a);
        h.headerMin[a] = le<double>(p + 187 + 16 * a);
        if (h.scale[a] == 0.0 || !std::isfinite(h.scale[a]) || !std::isfinite(h.offset[a])) {
            *why = QStringLiteral("%1 scale %2 or offset %3 is unusable")
                       .arg(QLatin1Char(char('X' + a))).arg(h.scale[a]).arg(h.offset[a]);
            return false;
        }
        // Past this a double no longer holds a coordinate to the millimetre
        // (and a large enough scale turns records into infinities).
        const double reach = std::fabs(h.offset[a]) + 2147483648.0 * std::fabs(h.scale[a]);
        if (!(reach <= kCoordinateLimit)) {
            *why = QStringLiteral("%1 scale %2 and offset %3 give coordinates beyond %4")
                       .arg(QLatin1Char(char('X' + a))).arg(h.scale[a]).arg(h.offset[a]).arg(kCoordinateLimit);
            return false;
        }
    }
    if (h.versionMinor >= 3) h.waveformDataStart = le<quint64>(p + 227);
    quint64 count64 = 0;
    if (h.versionMinor >= 4) {
        h.evlrStart = le<quint64>(p + 235);
        h.evlrCount = le<quint32>(p + 243);
        count64 = le<quint64>(p + 247);
    }
    h.pointCount = count64 ? count64 : h.legacyPointCount;
    if (h.pointFormat >= 6 && h.legacyPointCount != 0)
        m_warnings << QStringLiteral("legacy point count %1 must be 0 for format %2")
                          .arg(h.legacyPointCount).arg(h.pointFormat);
    if (h.offsetToPointData < h.headerSize) {
        *why = QStringLiteral("point data offset %1 lies inside the %2-byte header")
                   .arg(h.offsetToPointData).arg(h.headerSize);
        return false;
    }
    if (h.pointCount == 0 || m_compressed) return true;
    const quint64 available = quint64(std::max<qint64>(0, fileSize - qint64(h.offsetToPointData)));
    const quint64 complete = available / h.recordLength;
    if (complete < h.pointCount) {
        *why = QStringLiteral("point data ends after %1 complete records of the %2 the header announces")
                   .arg(complete).arg(h.pointCount);
        return false;
    }
    return true;
}

void LasReader::readVlrs() {
    LasHeader& h = m_header;
    quint64 pos = h.headerSize;
    for (quint32 i = 0; i < h.vlrCount; ++i) {
        char head[kVlrHeaderBytes];
        const bool fits = pos + kVlrHeaderBytes <= h.offsetToPointData && m_file.seek(qint64(pos)) &&
                          m_file.read(head, kVlrHeaderBytes) == kVlrHeaderBytes;
        const quint16 length = fits ? le<quint16>(head + 20) : 0;
        if (!fits || pos + kVlrHeaderBytes + length > h.offsetToPointData) {
            m_warnings << QStringLiteral("VLR %1 of %2 runs past point data offset").arg(i + 1).arg(h.vlrCount);
            return;
        }
        LasVlr v;
        v.userId = fixedText(head + 2, 16);
        v.recordId = le<quint16>(head + 18);
        v.description = fixedText(head + 22, 32);
        v.length = length;
        if (isProjectionRecord(v) || isLaszipRecord(v)) v.data = m_file.read(length);
        h.vlrs << v;
        pos += kVlrHeaderBytes + length;
    }
    // Version 1.0 files carry a 2-byte start signature before the points.
    if (h.offsetToPointData > pos + 2)
        m_warnings << QStringLiteral("%1 bytes between VLRs and point data").arg(h.offsetToPointData - pos);
}

void LasReader::readEvlrs() {
    LasHeader& h = m_header;
    const quint64 fileSize = quint64(m_file.size());
    quint64 pos = h.evlrStart;
    for (quint32 i = 0; i < h.evlrCount && pos != 0; ++i) {
        char head[kEvlrHeaderBytes];
        if (pos + kEvlrHeaderBytes > fileSize || !m_file.seek(qint64(pos)) ||
            m_file.read(head, kEvlrHeaderBytes) != kEvlrHeaderBytes)
            break;
        LasVlr v;
        v.extended = true;
        v.userId = fixedText(head + 2, 16);
        v.recordId = le<quint16>(head + 18);
        v.length = le<quint64>(head + 20);
        v.description = fixedText(head + 28, 32);
        if (v.length > fileSize - pos - kEvlrHeaderBytes) break;
        if ((isProjectionRecord(v) || isLaszipRecord(v)) && v.length <= kMaxKeptRecord)
            v.data = m_file.read(qint64(v.length));
        h.vlrs << v;
        pos += kEvlrHeaderBytes + v.length;
    }
    QByteArray keys, doubles, ascii;
    for (const LasVlr& v : h.vlrs) {
        if (v.data.isEmpty()) continue;
        if (v.recordId == 2112 && h.wkt.isEmpty()) {
            const int end = v.data.indexOf('\0');
            h.wkt = QString::fromUtf8(end < 0 ? v.data : v.data.left(end)).trimmed();
        }
        if (v.recordId == 34735) keys = v.data;
        if (v.recordId == 34736) doubles = v.data;
        if (v.recordId == 34737) ascii = v.data;
    }
    h.geoKeys = readableGeoKeys(keys, doubles, ascii);
}

bool LasReader::openCompressed(QString* why) {
    LasHeader& h = m_header;
    const LasVlr* laszip = nullptr;
    bool copc = false;
    for (const LasVlr& v : h.vlrs) {
        if (isLaszipRecord(v)) laszip = &v;
        copc = copc || (v.userId == QLatin1String("copc") && v.recordId == 1);
    }
    if (!m_compressed && !laszip) return true;
    m_compressed = true;
    if (!laszip) {
        *why = QStringLiteral("compressed point format %1 but no laszip VLR").arg(h.pointFormat);
        return false;
    }
    LazFormat format;
    if (!format.parse(laszip->data, why) || !format.check(h.pointFormat, h.recordLength, why)) return false;
    m_laz.reset(new LazChunkReader);
    if (!m_laz->open(m_file.fileName(), format, h.recordLength, h.offsetToPointData, h.pointCount, why)) return false;
    h.compression = m_laz->describe();
    if (copc) {
        bool hierarchy = false;
        for (const LasVlr& v : h.vlrs) hierarchy = hierarchy || (v.userId == QLatin1String("copc") && v.recordId == 1000);
        h.compression += hierarchy ? QStringLiteral("; COPC with its octree hierarchy") : QStringLiteral("; COPC");
    }
    return true;
}

bool LasReader::detectColorDepth(QString* why) {
    const LasHeader& h = m_header;
    const int rgb = layoutOf(h.pointFormat).rgb;
    m_color8 = false;
    if (rgb >= 0 && h.pointCount > 0) {
        // Spans spread over the whole file: a dark first strip must not make
        // a 16-bit file look 8-bit.
        const quint64 spans = 64, span = 64;
        const quint64 step = std::max<quint64>(1, h.pointCount / spans);
        std::vector<char> buf(size_t(span) * h.recordLength);
        bool small = true;
        auto allSmall = [&](quint64 k) {
            for (quint64 i = 0; i < k && small; ++i) {
                const char* c = buf.data() + i * h.recordLength + rgb;
                small = le<quint16>(c) <= 255 && le<quint16>(c + 2) <= 255 && le<quint16>(c + 4) <= 255;
            }
        };
        if (m_laz) {
            // Compressed points are reached chunk by chunk: the heads of chunks spread over the file.
            const int chunks = m_laz->chunkCount();
            const int chunkStep = std::max(1, chunks / int(spans));
            for (int c = 0; c < chunks && small; c += chunkStep) {
                const quint32 k = quint32(std::min<quint64>(span, m_laz->chunkPoints(c)));
                if (!m_laz->sample(c, k, buf.data(), why)) return false;
                allSmall(k);
            }
        }
        for (quint64 first = 0; !m_laz && first < h.pointCount && small; first += std::max(step, span)) {
            const quint64 k = std::min(span, h.pointCount - first);
            const qint64 bytes = qint64(k * h.recordLength);
            if (!m_file.seek(qint64(h.offsetToPointData + first * h.recordLength)) ||
                m_file.read(buf.data(), bytes) != bytes) {
                *why = QStringLiteral("cannot read point %1: %2").arg(first).arg(m_file.errorString());
                return false;
            }
            allSmall(k);
        }
        m_color8 = small;
    }
    if (!rewind()) {
        *why = QStringLiteral("cannot seek to the point data: %1").arg(m_file.errorString());
        return false;
    }
    return true;
}

bool LasReader::rewind() {
    if (!m_file.isOpen() || !m_file.seek(m_header.offsetToPointData)) return false;
    if (m_laz) m_laz->rewind();
    m_read = 0;
    return true;
}

template <class Decode> qint64 LasReader::readPoints(int maxPoints, QString* error, Decode decode) {
    auto fail = [&](const QString& why) {
        if (error) *error = why;
        return qint64(-1);
    };
    if (!m_file.isOpen()) return fail(QStringLiteral("no LAS file is open"));
    if (maxPoints <= 0) return fail(QStringLiteral("chunk size %1 is not positive").arg(maxPoints));
    const LasHeader& h = m_header;
    const int n = int(std::min<quint64>(quint64(maxPoints), h.pointCount - m_read));
    decode(nullptr, n, -1);
    const int recLen = h.recordLength;
    const int perFill = std::max(1, kBufferBytes / recLen);
    m_buffer.resize(size_t(perFill) * size_t(recLen));
    for (int done = 0; done < n;) {
        const int k = std::min(perFill, n - done);
        const qint64 bytes = qint64(k) * recLen;
        QString why;
        if (m_laz ? !m_laz->read(m_buffer.data(), quint64(k), &why) : m_file.read(m_buffer.data(), bytes) != bytes)
            return fail(!why.isEmpty() ? why : QStringLiteral("LAS file ended after %1 of %2 points").arg(m_read + quint64(done))
                            .arg(h.pointCount));
        decode(m_buffer.data(), k, done);
        done += k;
    }
    m_read += quint64(n);
    return n;
}

qint64 LasReader::readChunk(stPtCloud_PointArray& out, int maxPoints, const QList<EDataSetColumn>& columns,
                            const pcVec3d& origin, QString* error) {
    const LasHeader& h = m_header;
    const QList<EDataSetColumn> present = h.columns();
    QList<EDataSetColumn> raw;
    for (EDataSetColumn c : columns)
        if (c != DSC_Location && c != DSC_Color && present.contains(c) && !raw.contains(c)) raw << c;
    const bool wantColor = columns.contains(DSC_Color) && h.hasRgb();
    return readPoints(maxPoints, error, [&](const char* src, int k, int at) {
        if (at < 0) {
            // Reuses the caller's vectors from the previous chunk: no allocation per chunk.
            out.count = k;
            out.origin = origin;
            out.positions.resize(size_t(k));
            out.colors.resize(wantColor ? size_t(k) : 0);
            out.normals.clear();
            out.triangles.clear();
            for (auto it = out.columns.begin(); it != out.columns.end();)
                it = raw.contains(it->first) ? std::next(it) : out.columns.erase(it);
            for (EDataSetColumn c : raw) out.columns[c].resize(size_t(k) * size_t(columnValueBytes(c)));
            return;
        }
        decodePositions(src, k, origin, reinterpret_cast<uint8_t*>(out.positions.data() + at), sizeof(pcVec3f));
        if (wantColor) {
            // 8-bit values scaled by 257 over 65535 are over 255.
            const float full = m_color8 ? 255.f : 65535.f;
            const int rgb = layoutOf(h.pointFormat).rgb;
            pcVec4f* col = out.colors.data() + at;
            for (int i = 0; i < k; ++i) {
                const char* c = src + size_t(i) * h.recordLength + rgb;
                col[i] = pcVec4f(le<quint16>(c) / full, le<quint16>(c + 2) / full, le<quint16>(c + 4) / full, 1.f);
            }
        }
        for (EDataSetColumn c : raw) {
            const size_t width = size_t(columnValueBytes(c));
            decodeColumn(c, src, k, out.columns[c].data() + size_t(at) * width, width);
        }
    });
}

qint64 LasReader::readRecords(std::vector<char>& out, int maxPoints, const stPtCloud_RecordLayout& layout,
                              const pcVec3d& origin, const pcVec3d& quantum, QString* error) {
    const LasHeader& h = m_header;
    const QList<EDataSetColumn> present = h.columns();
    const size_t stride = layout.bytes;
    const PtCloud_GridMap grid(pcVec3d(h.offset[0], h.offset[1], h.offset[2]),
                               pcVec3d(h.scale[0], h.scale[1], h.scale[2]), origin, quantum);
    bool complete = true;
    for (const stPtCloud_RecordLayout::Field& field : layout.fields) complete = complete && present.contains(field.column);
    return readPoints(maxPoints, error, [&](const char* src, int k, int at) {
        if (at < 0) {
            if (complete)
                out.resize(size_t(k) * stride);
            else
                out.assign(size_t(k) * stride, 0);  // columns the file lacks stay zero
            return;
        }
        uint8_t* records = reinterpret_cast<uint8_t*>(out.data()) + size_t(at) * stride;
        for (int i = 0; i < k; ++i) {
            const char* r = src + size_t(i) * h.recordLength;
            const pcVec3q q = grid.map(le<qint32>(r), le<qint32>(r + 4), le<qint32>(r + 8));
            std::memcpy(records + size_t(i) * stride, &q, sizeof q);
        }
        for (const stPtCloud_RecordLayout::Field& field : layout.fields) {
            if (!present.contains(field.column)) continue;
            uint8_t* dst = records + field.offset;
            if (field.column != DSC_Color) {
                decodeColumn(field.column, src, k, dst, stride);
                continue;
            }
            const char* rgb = src + layoutOf(h.pointFormat).rgb;
            const quint16 scale = m_color8 ? 257 : 1;
            for (int i = 0; i < k; ++i, rgb += h.recordLength, dst += stride)
                for (int c = 0; c < 3; ++c) {
                    const quint16 v = quint16(le<quint16>(rgb + 2 * c) * scale);
                    std::memcpy(dst + 2 * c, &v, 2);
                }
        }
    });
}

void LasReader::decodePositions(const char* src, int k, const pcVec3d& origin, uint8_t* dst, size_t stride) const {
    const LasHeader& h = m_header;
    const int recLen = h.recordLength;
    // Doubles throughout: raw integers near the int32 limits times small
    // scales must land exactly before the shift to the block origin.
    const double s[3] = {h.scale[0], h.scale[1], h.scale[2]};
    const double o[3] = {h.offset[0] - origin.x, h.offset[1] - origin.y, h.offset[2] - origin.z};
    for (int i = 0; i < k; ++i) {
        const char* r = src + size_t(i) * recLen;
        const pcVec3f p(float(le<qint32>(r) * s[0] + o[0]), float(le<qint32>(r + 4) * s[1] + o[1]),
                        float(le<qint32>(r + 8) * s[2] + o[2]));
        std::memcpy(dst + size_t(i) * stride, &p, sizeof p);
    }
}

void LasReader::decodeColumn(EDataSetColumn c, const char* src, int k, uint8_t* dst, size_t stride) const {
    const LasHeader& h = m_header;
    const int recLen = h.recordLength;
    const bool ext = h.isExtendedFormat();
    const RecordLayout l = layoutOf(h.pointFormat);
    switch (c) {
    case DSC_Intensity: copyField<2>(src, recLen, k, 12, dst, stride); break;
    case DSC_ReturnNumber: extractBits(src, recLen, k, 14, 0, ext ? 0x0F : 0x07, dst, stride); break;
    case DSC_NumberOfReturnsGivenPulse:
        extractBits(src, recLen, k, 14, ext ? 4 : 3, ext ? 0x0F : 0x07, dst, stride);
        break;
    case DSC_ScanDirectionFlag: extractBits(src, recLen, k, ext ? 15 : 14, 6, 1, dst, stride); break;
    case DSC_EdgeOfFlightingLine: extractBits(src, recLen, k, ext ? 15 : 14, 7, 1, dst, stride); break;
    case DSC_Classification: extractBits(src, recLen, k, ext ? 16 : 15, 0, ext ? 0xFF : 0x1F, dst, stride); break;
    case DSC_ScanAngleRank:
        for (int i = 0; i < k; ++i) {
            const char* r = src + size_t(i) * recLen;
            const float a = ext ? float(le<qint16>(r + 18) * 0.006) : float(qint8(r[16]));
            std::memcpy(dst + size_t(i) * stride, &a, sizeof a);
        }
        break;
    case DSC_UserData: copyField<1>(src, recLen, k, 17, dst, stride); break;
    case DSC_PointSourceId: copyField<2>(src, recLen, k, ext ? 20 : 18, dst, stride); break;
    case DSC_GpsTime: copyField<8>(src, recLen, k, l.gps, dst, stride); break;
    case DSC_WavePacketDescriptorIndex: copyField<1>(src, recLen, k, l.wave, dst, stride); break;
    case DSC_ByteOffsetToWaveformData: copyField<8>(src, recLen, k, l.wave + 1, dst, stride); break;
    case DSC_WaveformPacketSizeInBytes: copyField<4>(src, recLen, k, l.wave + 9, dst, stride); break;
    case DSC_ReturnPointWaveformLocation: copyField<4>(src, recLen, k, l.wave + 13, dst, stride); break;
    case DSC_Location_T: copyField<12>(src, recLen, k, l.wave + 17, dst, stride); break;
    default: break;
    }
}

}  // namespace ptCloud
