// Generated LAS files of every point format whose every field is known: the
// reader must decode each bit field, scale and count as the LAS standard lays
// them out, in any chunk size.

#include <QTemporaryDir>
#include <QtTest>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "LasReader.h"

using namespace ptCloud;

class TstLasFormats : public QObject {
    Q_OBJECT
private slots:
    void decodesEveryField_data();
    void decodesEveryField();
    void choosesPointCount_data();
    void choosesPointCount();
    void detectsColourDepth_data();
    void detectsColourDepth();
    void keepsCoordinateSystem_data();
    void keepsCoordinateSystem();
    void readsOnlyRequestedColumns();
};

namespace {

const double kScale[3] = {0.001, 0.0005, 0.01};
const double kOffset[3] = {500000.0, 5000000.0, 100.0};

// Values of point i, chosen to fill each field's range: raw X and Y run from
// the int32 limits inwards.
struct Point {
    qint32 raw[3];
    quint16 intensity, pointSource, rgb[3], nir;
    quint8 ret, rets, scanDir, edge, cls, classFlags, user, waveIndex;
    int angle;  // int8 (formats 0-5) or int16 in 0.006 degrees (6-10)
    double gps;
    quint64 waveOffset;
    quint32 waveSize;
    float waveLoc, xyzt[3];
};

enum class Rgb { Wide, Narrow, DarkFirstHalf };

Point pointAt(int i, bool ext, Rgb rgb, int n) {
    Point p;
    p.raw[0] = std::numeric_limits<qint32>::min() + 1 + i * 977;
    p.raw[1] = std::numeric_limits<qint32>::max() - i * 1013;
    p.raw[2] = i * 7 - 3000;
    p.intensity = quint16((quint32(i) * 2654435761u) >> 16);
    p.pointSource = quint16(i * 31);
    const bool narrow = rgb == Rgb::Narrow || (rgb == Rgb::DarkFirstHalf && i < n / 2);
    const int mask = narrow ? 0xFF : 0xFFFF;
    p.rgb[0] = quint16((i * 97 + 300) & mask);
    p.rgb[1] = quint16((i * 131) & mask);
    p.rgb[2] = quint16((i * 17) & mask);
    p.nir = quint16(i * 5);
    p.ret = quint8(ext ? 1 + i % 15 : 1 + i % 7);
    p.rets = quint8(ext ? 1 + (i / 3) % 15 : 1 + (i / 5) % 7);
    p.scanDir = quint8(i & 1);
    p.edge = quint8((i >> 1) & 1);
    p.cls = quint8(ext ? i % 256 : i % 32);
    p.classFlags = quint8(ext ? i % 16 : i % 8);
    p.user = quint8(i * 7);
    p.waveIndex = quint8(i % 256);
    p.angle = ext ? (i * 37) % 60001 - 30000 : i % 181 - 90;
    p.gps = 1.5e8 + i * 0.001953125;
    p.waveOffset = quint64(i) * 0x100000001ull;
    p.waveSize = quint32(i * 13);
    p.waveLoc = i * 0.25f;
    p.xyzt[0] = i * 0.5f;
    p.xyzt[1] = -i * 0.125f;
    p.xyzt[2] = 1.f + i;
    return p;
}

using Bytes = std::vector<char>;
template <class T> void put(Bytes& b, int at, T v) { std::memcpy(b.data() + at, &v, sizeof(T)); }
QByteArray toBytes(const Bytes& b) { return QByteArray(b.data(), int(b.size())); }

const int kRecordLength[11] = {20, 28, 26, 34, 57, 63, 30, 36, 38, 59, 67};
const int kGps[11] = {-1, 20, -1, 20, 20, 20, 22, 22, 22, 22, 22};
const int kRgb[11] = {-1, -1, 20, 28, -1, 28, -1, 30, 30, -1, 30};
const int kWave[11] = {-1, -1, -1, -1, 28, 34, -1, -1, -1, 30, 38};

// One record laid out as the LAS 1.4 standard's point format tables say.
QByteArray record(int format, int extra, const Point& p) {
    const bool ext = format >= 6;
    Bytes r(size_t(kRecordLength[format] + extra), '\x5A');
    for (int a = 0; a < 3; ++a) put<qint32>(r, 4 * a, p.raw[a]);
    put<quint16>(r, 12, p.intensity);
    if (ext) {
        put<quint8>(r, 14, quint8(p.ret | p.rets << 4));
        put<quint8>(r, 15, quint8(p.classFlags | p.scanDir << 6 | p.edge << 7));
        put<quint8>(r, 16, p.cls);
        put<quint8>(r, 17, p.user);
        put<qint16>(r, 18, qint16(p.angle));
        put<quint16>(r, 20, p.pointSource);
    } else {
        put<quint8>(r, 14, quint8(p.ret | p.rets << 3 | p.scanDir << 6 | p.edge << 7));
        put<quint8>(r, 15, quint8(p.cls | p.classFlags << 5));
        put<qint8>(r, 16, qint8(p.angle));
        put<quint8>(r, 17, p.user);
        put<quint16>(r, 18, p.pointSource);
    }
    if (kGps[format] >= 0) put<double>(r, kGps[format], p.gps);
    if (kRgb[format] >= 0) {
        for (int a = 0; a < 3; ++a) put<quint16>(r, kRgb[format] + 2 * a, p.rgb[a]);
        if (format == 8 || format == 10) put<quint16>(r, kRgb[format] + 6, p.nir);
    }
    if (const int w = kWave[format]; w >= 0) {
        put<quint8>(r, w, p.waveIndex);
        put<quint64>(r, w + 1, p.waveOffset);
        put<quint32>(r, w + 9, p.waveSize);
        put<float>(r, w + 13, p.waveLoc);
        for (int a = 0; a < 3; ++a) put<float>(r, w + 17 + 4 * a, p.xyzt[a]);
    }
    return toBytes(r);
}

QByteArray vlr(const char* user, quint16 id, const QByteArray& data, bool extended) {
    Bytes v(extended ? 60 : 54, '\0');
    std::strncpy(v.data() + 2, user, 16);
    put<quint16>(v, 18, id);
    if (extended)
        put<quint64>(v, 20, quint64(data.size()));
    else
        put<quint16>(v, 20, quint16(data.size()));
    return toBytes(v) + data;
}

struct LasLayout {
    int format = 0, minor = 2, extra = 0, count = 0;
    Rgb rgb = Rgb::Wide;
    qint64 legacyCount = -1, count64 = -1;  // -1: the true count where the version has the field
    QList<QByteArray> vlrs, evlrs;
};

QByteArray lasFile(const LasLayout& s) {
    const int headerSize = s.minor <= 2 ? 227 : s.minor == 3 ? 235 : 375;
    QByteArray vlrs;
    for (const QByteArray& v : s.vlrs) vlrs += v;
    Bytes h(size_t(headerSize), '\0');
    std::memcpy(h.data(), "LASF", 4);
    put<quint8>(h, 24, 1);
    put<quint8>(h, 25, quint8(s.minor));
    put<quint16>(h, 94, quint16(headerSize));
    put<quint32>(h, 96, quint32(headerSize + vlrs.size()));
    put<quint32>(h, 100, quint32(s.vlrs.size()));
    put<quint8>(h, 104, quint8(s.format));
    const int recLen = kRecordLength[s.format] + s.extra;
    put<quint16>(h, 105, quint16(recLen));
    put<quint32>(h, 107, quint32(s.legacyCount >= 0 ? s.legacyCount : s.format >= 6 ? 0 : s.count));
    for (int a = 0; a < 3; ++a) {
        put<double>(h, 131 + 8 * a, kScale[a]);
        put<double>(h, 155 + 8 * a, kOffset[a]);
    }
    QByteArray points;
    for (int i = 0; i < s.count; ++i) points += record(s.format, s.extra, pointAt(i, s.format >= 6, s.rgb, s.count));
    QByteArray evlrs;
    for (const QByteArray& v : s.evlrs) evlrs += v;
    if (s.minor >= 4) {
        put<quint64>(h, 235, s.evlrs.isEmpty() ? 0 : quint64(headerSize + vlrs.size() + points.size()));
        put<quint32>(h, 243, quint32(s.evlrs.size()));
        put<quint64>(h, 247, quint64(s.count64 >= 0 ? s.count64 : s.count));
    }
    return toBytes(h) + vlrs + points + evlrs;
}

QString writeFile(const QTemporaryDir& dir, const QByteArray& data) {
    const QString path = dir.filePath(QStringLiteral("generated.las"));
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly) || f.write(data) != data.size()) return QString();
    return path;
}

template <class T> T value(const stPtCloud_PointArray& a, EDataSetColumn c, int i) {
    return a.columnData<T>(c)[i];
}

}  // namespace

void TstLasFormats::decodesEveryField_data() {
    QTest::addColumn<int>("format");
    QTest::addColumn<int>("minor");
    QTest::addColumn<int>("extra");
    QTest::addColumn<int>("chunk");
    for (int f = 0; f <= 10; ++f) {
        const int minor = f >= 6 ? 4 : (f >= 4 ? 3 : 2);
        QTest::addRow("format %d", f) << f << minor << 0 << 1000;
        QTest::addRow("format %d, 5 extra bytes, chunks of 7", f) << f << minor << 5 << 7;
    }
    QTest::newRow("format 1 in LAS 1.0, chunks of 1") << 1 << 0 << 0 << 1;
    QTest::newRow("format 3 in LAS 1.4") << 3 << 4 << 0 << 333;
}

void TstLasFormats::decodesEveryField() {
    QFETCH(int, format);
    QFETCH(int, minor);
    QFETCH(int, extra);
    QFETCH(int, chunk);
    const int n = 1000;
    LasLayout layout;
    layout.format = format;
    layout.minor = minor;
    layout.extra = extra;
    layout.count = n;
    QTemporaryDir dir;
    const QString path = writeFile(dir, lasFile(layout));
    LasReader reader;
    QString error;
    QVERIFY2(reader.open(path, &error), qPrintable(error));
    QCOMPARE(reader.header().pointCount, quint64(n));
    QCOMPARE(reader.header().extraBytes(), extra);

    const bool ext = format >= 6, rgb = kRgb[format] >= 0, gps = kGps[format] >= 0, wave = kWave[format] >= 0;
    const QList<EDataSetColumn> all = userColumns();
    QList<EDataSetColumn> expected;
    for (EDataSetColumn c : all) {
        const bool present = c == DSC_Color ? rgb : c == DSC_GpsTime ? gps
                           : c >= DSC_WavePacketDescriptorIndex ? wave : true;
        if (present) expected << c;
    }
    QCOMPARE(reader.header().columns(), expected);

    const Point first = pointAt(0, ext, Rgb::Wide, n);
    const pcVec3d origin(first.raw[0] * kScale[0] + kOffset[0], first.raw[1] * kScale[1] + kOffset[1],
                         first.raw[2] * kScale[2] + kOffset[2]);
    // Records hold the same values as the chunks, read alongside by a second
    // reader: every column of the layout, those the file lacks as zeros.
    const stPtCloud_RecordLayout records = stPtCloud_RecordLayout::forColumns(all);
    LasReader recordReader;
    QVERIFY2(recordReader.open(path, &error), qPrintable(error));
    std::vector<char> r;
    for (int pass = 0; pass < 2; ++pass) {  // the second pass after rewind()
        int seen = 0;
        stPtCloud_PointArray a;
        for (qint64 got; (got = reader.readChunk(a, chunk, all, origin, &error)) != 0; seen += int(got)) {
            QVERIFY2(got > 0 && got <= chunk, qPrintable(error));
            if (pass == 0) {
                // On the file's own grid the records are exact across the whole int32 range.
                QCOMPARE(recordReader.readRecords(r, chunk, records, origin, pcVec3d(kScale[0], kScale[1], kScale[2]),
                                                  &error),
                         got);
                QCOMPARE(r.size(), size_t(got) * records.bytes);
                for (int j = 0; j < int(got); ++j) {
                    const char* rec = r.data() + size_t(j) * records.bytes;
                    const Point p = pointAt(seen + j, ext, Rgb::Wide, n);
                    const pcVec3q whole(qint64(p.raw[0]) - first.raw[0], qint64(p.raw[1]) - first.raw[1],
                                        qint64(p.raw[2]) - first.raw[2]);
                    QVERIFY(std::memcmp(rec, &whole, sizeof whole) == 0);
                    for (const stPtCloud_RecordLayout::Field& f : records.fields) {
                        std::vector<char> want(f.width, 0);
                        if (f.column == DSC_Color && rgb) {
                            const Point p = pointAt(seen + j, ext, Rgb::Wide, n);
                            std::memcpy(want.data(), p.rgb, 6);
                        } else if (a.columns.count(f.column)) {
                            std::memcpy(want.data(), a.columns[f.column].data() + size_t(j) * f.width, f.width);
                        }
                        QVERIFY2(std::memcmp(rec + f.offset, want.data(), f.width) == 0,
                                 qPrintable(QStringLiteral("point %1, column %2").arg(seen + j).arg(int(f.column))));
                    }
                }
            }
            QCOMPARE(a.count, int(got));
            QCOMPARE(a.positions.size(), size_t(got));
            QCOMPARE(a.colors.size(), rgb ? size_t(got) : size_t(0));
            QCOMPARE(a.columnList(), expected);
            for (int j = 0; j < a.count; ++j) {
                const int i = seen + j;
                const Point p = pointAt(i, ext, Rgb::Wide, n);
                const float pos[3] = {a.positions[j].x, a.positions[j].y, a.positions[j].z};
                const double o[3] = {origin.x, origin.y, origin.z};
                for (int ax = 0; ax < 3; ++ax) {
                    const double want = p.raw[ax] * kScale[ax] + kOffset[ax] - o[ax];
                    QVERIFY2(std::fabs(pos[ax] - want) <= std::ldexp(std::fabs(want), -24),
                             qPrintable(QStringLiteral("point %1 axis %2: %3 vs %4").arg(i).arg(ax).arg(pos[ax]).arg(want)));
                }
                QCOMPARE(value<quint16>(a, DSC_Intensity, j), p.intensity);
                QCOMPARE(value<quint8>(a, DSC_ReturnNumber, j), p.ret);
                QCOMPARE(value<quint8>(a, DSC_NumberOfReturnsGivenPulse, j), p.rets);
                QCOMPARE(value<quint8>(a, DSC_ScanDirectionFlag, j), p.scanDir);
                QCOMPARE(value<quint8>(a, DSC_EdgeOfFlightingLine, j), p.edge);
                QCOMPARE(value<quint8>(a, DSC_Classification, j), p.cls);
                QCOMPARE(value<float>(a, DSC_ScanAngleRank, j), float(ext ? p.angle * 0.006 : p.angle));
                QCOMPARE(value<quint8>(a, DSC_UserData, j), p.user);
                QCOMPARE(value<quint16>(a, DSC_PointSourceId, j), p.pointSource);
                if (gps) QCOMPARE(value<double>(a, DSC_GpsTime, j), p.gps);
                if (rgb) QCOMPARE(a.colors[j], pcVec4f(p.rgb[0] / 65535.f, p.rgb[1] / 65535.f, p.rgb[2] / 65535.f, 1.f));
                if (wave) {
                    QCOMPARE(value<quint8>(a, DSC_WavePacketDescriptorIndex, j), p.waveIndex);
                    QCOMPARE(value<quint64>(a, DSC_ByteOffsetToWaveformData, j), p.waveOffset);
                    QCOMPARE(value<quint32>(a, DSC_WaveformPacketSizeInBytes, j), p.waveSize);
                    QCOMPARE(value<float>(a, DSC_ReturnPointWaveformLocation, j), p.waveLoc);
                    const float* t = a.columnData<float>(DSC_Location_T) + 3 * j;
                    QCOMPARE(pcVec3f(t[0], t[1], t[2]), pcVec3f(p.xyzt[0], p.xyzt[1], p.xyzt[2]));
                }
            }
        }
        QCOMPARE(seen, n);
        QCOMPARE(reader.pointsRead(), quint64(n));
        QVERIFY(reader.rewind());
    }
}

void TstLasFormats::choosesPointCount_data() {
    QTest::addColumn<int>("format");
    QTest::addColumn<int>("minor");
    QTest::addColumn<qint64>("legacy");
    QTest::addColumn<qint64>("count64");
    QTest::addColumn<int>("expected");
    QTest::newRow("1.4 format 6, legacy 0") << 6 << 4 << qint64(0) << qint64(50) << 50;
    QTest::newRow("1.4 format 6, stale legacy count") << 6 << 4 << qint64(7) << qint64(50) << 50;
    QTest::newRow("1.4 format 1, 64-bit count unset") << 1 << 4 << qint64(50) << qint64(0) << 50;
    QTest::newRow("1.4 format 1, fewer points than stored") << 1 << 4 << qint64(20) << qint64(20) << 20;
    QTest::newRow("1.2 format 1") << 1 << 2 << qint64(50) << qint64(-1) << 50;
}

void TstLasFormats::choosesPointCount() {
    QFETCH(int, format);
    QFETCH(int, minor);
    QFETCH(qint64, legacy);
    QFETCH(qint64, count64);
    QFETCH(int, expected);
    LasLayout layout;
    layout.format = format;
    layout.minor = minor;
    layout.count = 50;
    layout.legacyCount = legacy;
    layout.count64 = count64;
    QTemporaryDir dir;
    LasReader reader;
    QString error;
    QVERIFY2(reader.open(writeFile(dir, lasFile(layout)), &error), qPrintable(error));
    QCOMPARE(reader.header().pointCount, quint64(expected));
    stPtCloud_PointArray a;
    QCOMPARE(reader.readChunk(a, 1000, {DSC_Location}, pcVec3d(), &error), qint64(expected));
    QCOMPARE(reader.readChunk(a, 1000, {DSC_Location}, pcVec3d(), &error), qint64(0));
}

void TstLasFormats::detectsColourDepth_data() {
    QTest::addColumn<int>("format");
    QTest::addColumn<int>("mode");
    QTest::addColumn<bool>("eightBit");
    QTest::newRow("format 2, 16-bit") << 2 << int(Rgb::Wide) << false;
    QTest::newRow("format 3, 8-bit values") << 3 << int(Rgb::Narrow) << true;
    QTest::newRow("format 7, 8-bit values") << 7 << int(Rgb::Narrow) << true;
    QTest::newRow("format 8, dark first half") << 8 << int(Rgb::DarkFirstHalf) << false;
}

void TstLasFormats::detectsColourDepth() {
    QFETCH(int, format);
    QFETCH(int, mode);
    QFETCH(bool, eightBit);
    LasLayout layout;
    layout.format = format;
    layout.minor = 4;
    layout.count = 20000;
    layout.rgb = Rgb(mode);
    QTemporaryDir dir;
    LasReader reader;
    QString error;
    QVERIFY2(reader.open(writeFile(dir, lasFile(layout)), &error), qPrintable(error));
    QCOMPARE(reader.colorsAre8Bit(), eightBit);
    stPtCloud_PointArray a;
    QCOMPARE(reader.readChunk(a, layout.count, {DSC_Location, DSC_Color}, pcVec3d(), &error), qint64(layout.count));
    QVERIFY(reader.rewind());
    std::vector<char> r;
    const stPtCloud_RecordLayout records = stPtCloud_RecordLayout::forColumns({DSC_Location, DSC_Color});
    QCOMPARE(reader.readRecords(r, layout.count, records, pcVec3d(), pcVec3d(0.001, 0.001, 0.001), &error),
             qint64(layout.count));
    const float full = eightBit ? 255.f : 65535.f;
    for (int i = 0; i < layout.count; i += 97) {
        const Point p = pointAt(i, true, layout.rgb, layout.count);
        QCOMPARE(a.colors[i], pcVec4f(p.rgb[0] / full, p.rgb[1] / full, p.rgb[2] / full, 1.f));
        // Records keep colours as 16-bit channels: 8-bit values scaled by 257.
        quint16 rgb[3];
        std::memcpy(rgb, r.data() + size_t(i) * records.bytes + records.fields.front().offset, sizeof rgb);
        for (int c = 0; c < 3; ++c) QCOMPARE(rgb[c], quint16(p.rgb[c] * (eightBit ? 257 : 1)));
    }
}

void TstLasFormats::keepsCoordinateSystem_data() {
    QTest::addColumn<int>("minor");
    QTest::addColumn<bool>("inEvlr");
    QTest::newRow("WKT in a VLR") << 2 << false;
    QTest::newRow("WKT in an EVLR") << 4 << true;
}

void TstLasFormats::keepsCoordinateSystem() {
    QFETCH(int, minor);
    QFETCH(bool, inEvlr);
    const QByteArray wkt = "PROJCS[\"NAD83 / UTM zone 17N\",GEOGCS[\"NAD83\"]]";
    QByteArray keys;
    const quint16 dir[] = {1, 1, 0, 4, 1024, 0, 1, 1, 3072, 0, 1, 26917, 1026, 34737, 21, 0, 2057, 34736, 1, 0};
    for (quint16 w : dir) keys += QByteArray(reinterpret_cast<const char*>(&w), 2);
    const double semiMajor = 6378137.0;
    LasLayout layout;
    layout.minor = minor;
    layout.count = 3;
    layout.vlrs << vlr("LASF_Projection", 34735, keys, false)
              << vlr("LASF_Projection", 34736, QByteArray(reinterpret_cast<const char*>(&semiMajor), 8), false)
              << vlr("LASF_Projection", 34737, QByteArray("NAD83 / UTM zone 17N|"), false)
              << vlr("SomeVendor", 2112, QByteArray("not the coordinate system"), false);
    (inEvlr ? layout.evlrs : layout.vlrs) << vlr("LASF_Projection", 2112, wkt + '\0', inEvlr);
    QTemporaryDir tmp;
    LasReader reader;
    QString error;
    QVERIFY2(reader.open(writeFile(tmp, lasFile(layout)), &error), qPrintable(error));
    QCOMPARE(reader.header().wkt, QString::fromLatin1(wkt));
    QCOMPARE(reader.header().geoKeys, QStringLiteral("GTModelTypeGeoKey (1024) = 1\n"
                                                     "ProjectedCSTypeGeoKey (3072) = 26917\n"
                                                     "GTCitationGeoKey (1026) = \"NAD83 / UTM zone 17N\"\n"
                                                     "GeogSemiMajorAxisGeoKey (2057) = 6378137"));
    QCOMPARE(reader.header().vlrs.size(), 5);
    QCOMPARE(reader.header().vlrs.last().extended, inEvlr);
    QVERIFY(reader.warnings().isEmpty());
}

void TstLasFormats::readsOnlyRequestedColumns() {
    LasLayout layout;
    layout.format = 0;
    layout.count = 10;
    QTemporaryDir dir;
    LasReader reader;
    QString error;
    QVERIFY2(reader.open(writeFile(dir, lasFile(layout)), &error), qPrintable(error));
    stPtCloud_PointArray a;
    a.columns[DSC_Intensity].resize(4);  // left from an earlier use of the array
    const QList<EDataSetColumn> want{DSC_Location, DSC_Classification, DSC_GpsTime, DSC_Color};
    QCOMPARE(reader.readChunk(a, 4, want, pcVec3d(), &error), qint64(4));
    QCOMPARE(a.columnList(), (QList<EDataSetColumn>{DSC_Location, DSC_Classification}));
    QCOMPARE(a.columns[DSC_Classification].size(), size_t(4));
    QVERIFY(a.colors.empty());
    QCOMPARE(reader.readChunk(a, 0, want, pcVec3d(), &error), qint64(-1));
    QVERIFY2(error.contains(QLatin1String("not positive")), qPrintable(error));
}

QTEST_GUILESS_MAIN(TstLasFormats)
#include "tst_las_formats.moc"
