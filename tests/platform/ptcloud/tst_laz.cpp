// LAZ reading: every compressed file of the shared data decodes to exactly
// the records of its uncompressed twin (or, without a twin, to the count and
// bounds its header states), and damaged files fail with one clear line.

#include <QTemporaryDir>
#include <QtTest>
#include <cmath>
#include <cstring>

#include <random>

#include "LasWriter.h"
#include "LazChunkCodec.h"
#include "LazChunkReader.h"
#include "tst_las_data.h"

using namespace ptCloud;

class TstLaz : public QObject {
    Q_OBJECT
private slots:
    void decodesLikeTwin_data();
    void decodesLikeTwin();
    void matchesHeader_data();
    void matchesHeader();
    void refusesDamage_data();
    void refusesDamage();
    void encodesRoundTrip_data();
    void encodesRoundTrip();
    void writerMatchesLas();
};

namespace {

// All records of a LAZ file, decoded, as one block of bytes.
bool decodeAll(const QString& path, QByteArray* records, LasHeader* header, QString* error) {
    LasReader reader;
    if (!reader.open(path, error)) return false;
    *header = reader.header();
    LazFormat format;
    for (const LasVlr& v : header->vlrs)
        if (v.userId == QLatin1String("laszip encoded") && !format.parse(v.data, error)) return false;
    LazChunkReader laz;
    if (!laz.open(path, format, header->recordLength, header->offsetToPointData, header->pointCount, error))
        return false;
    records->resize(int(header->pointCount * header->recordLength));
    return laz.read(records->data(), header->pointCount, error);
}

}  // namespace

void TstLaz::decodesLikeTwin_data() {
    LAS_REQUIRE_SHARED_DATA();
    QTest::addColumn<QString>("name");
    for (const char* name : {"simple", "autzen_trim", "1_4_w_evlr", "Megaplot", "bcts_1"}) QTest::newRow(name) << name;
}

void TstLaz::decodesLikeTwin() {
    QFETCH(QString, name);
    QByteArray records;
    LasHeader h;
    QString error;
    QVERIFY2(decodeAll(lasTestData::path("laz/" + name + ".laz"), &records, &h, &error), qPrintable(error));
    LasReader twinReader;
    QVERIFY2(twinReader.open(lasTestData::path("las/" + name + ".las"), &error), qPrintable(error));
    const LasHeader& t = twinReader.header();
    QCOMPARE(t.pointCount, h.pointCount);
    QCOMPARE(t.recordLength, h.recordLength);
    QFile twin(lasTestData::path("las/" + name + ".las"));
    QVERIFY(twin.open(QIODevice::ReadOnly) && twin.seek(t.offsetToPointData));
    const QByteArray expected = twin.read(records.size());
    for (quint64 i = 0; i < h.pointCount; ++i) {
        const int at = int(i * h.recordLength);
        if (std::memcmp(records.constData() + at, expected.constData() + at, h.recordLength) != 0)
            QFAIL(qPrintable(QStringLiteral("record %1 differs: %2 instead of %3").arg(i)
                                 .arg(QString(records.mid(at, h.recordLength).toHex()))
                                 .arg(QString(expected.mid(at, h.recordLength).toHex()))));
    }
}

void TstLaz::matchesHeader_data() {
    LAS_REQUIRE_SHARED_DATA();
    QTest::addColumn<QString>("name");
    for (const char* name : {"extra-bytes", "simple.copc", "lone-star.copc", "fullwave"}) QTest::newRow(name) << name;
}

void TstLaz::matchesHeader() {
    QFETCH(QString, name);
    const QString key = "laz/" + name + ".laz";
    const QJsonObject m = lasTestData::manifest().value(key).toObject();
    QByteArray records;
    LasHeader h;
    QString error;
    QVERIFY2(decodeAll(lasTestData::path(key), &records, &h, &error), qPrintable(error));
    QCOMPARE(qint64(h.pointCount), qint64(m.value("point_count").toDouble()));
    const QJsonArray bounds = m.value("bounds_header").toArray();
    for (int a = 0; a < 3; ++a) {
        double lo = HUGE_VAL, hi = -HUGE_VAL;
        for (quint64 i = 0; i < h.pointCount; ++i) {
            qint32 raw;
            std::memcpy(&raw, records.constData() + i * h.recordLength + 4 * a, 4);
            const double v = raw * h.scale[a] + h.offset[a];
            lo = std::min(lo, v);
            hi = std::max(hi, v);
        }
        QVERIFY2(std::fabs(lo - bounds[a].toDouble()) <= h.scale[a], qPrintable(QString::number(lo, 'f', 6)));
        QVERIFY2(std::fabs(hi - bounds[a + 3].toDouble()) <= h.scale[a], qPrintable(QString::number(hi, 'f', 6)));
    }
    LasReader reader;
    QVERIFY(reader.open(lasTestData::path(key), &error));
    QVERIFY2(reader.header().compression.startsWith(QLatin1String("LAZ")), qPrintable(reader.header().compression));
    QCOMPARE(reader.header().compression.contains(QLatin1String("COPC")), name.endsWith(QLatin1String("copc")));
}

void TstLaz::refusesDamage_data() {
    LAS_REQUIRE_SHARED_DATA();
    // simple.laz: point-wise, one chunk of 1065 points from byte 341, chunk
    // table at 18203; its laszip VLR's payload starts at byte 281.
    // 1_4_w_evlr.laz: layered, one chunk from 2407, table at 8858.
    QTest::addColumn<QString>("name");
    QTest::addColumn<qint64>("at");      // where the damage goes; negative: cut the file there
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("message");
    QTest::newRow("truncated") << "simple" << qint64(-9000) << QByteArray() << "lies outside the file";
    QTest::newRow("cut inside table") << "simple" << qint64(-18206) << QByteArray() << "lies outside the file";
    QTest::newRow("table past end") << "simple" << qint64(333) << QByteArray("\xff\xff\x00\x00", 4)
                                    << "lies outside the file";
    QTest::newRow("chunk past table") << "simple" << qint64(18211) << QByteArray("\xff\xff\xff\xff\xff\xff\xff", 7)
                                      << "chunk table";
    QTest::newRow("corrupt layers") << "1_4_w_evlr" << qint64(2441) << QByteArray("\xff\xff\xff\x7f", 4)
                                    << "layers need";
    QTest::newRow("unknown compressor") << "simple" << qint64(281) << QByteArray("\x07\x00", 2)
                                        << "unknown LAZ compressor 7";
    QTest::newRow("unknown item version") << "simple" << qint64(319) << QByteArray("\x09\x00", 2)
                                          << "LAZ item type 6 version 9 is not supported";
    QTest::newRow("no laszip VLR") << "simple" << qint64(229) << QByteArray("x", 1) << "no laszip VLR";
}

void TstLaz::refusesDamage() {
    QFETCH(QString, name);
    QFETCH(qint64, at);
    QFETCH(QByteArray, bytes);
    QFETCH(QString, message);
    QFile src(lasTestData::path("laz/" + name + ".laz"));
    QVERIFY(src.open(QIODevice::ReadOnly));
    QByteArray data = src.readAll();
    if (at < 0) data.truncate(int(-at));
    else data.replace(int(at), bytes.size(), bytes);
    QTemporaryDir dir;
    QFile out(dir.filePath("damaged.laz"));
    QVERIFY(out.open(QIODevice::WriteOnly) && out.write(data) == data.size());
    out.close();
    LasReader reader;
    QString error;
    stPtCloud_PointArray all;
    const bool ok = reader.open(out.fileName(), &error) &&
                    lasTestData::readAll(reader, reader.header().columns(), {}, 50000, all, &error);
    QVERIFY(!ok);
    QVERIFY2(error.contains(message) && !error.contains(QLatin1Char('\n')), qPrintable(error));
}

void TstLaz::encodesRoundTrip_data() {
    QTest::addColumn<int>("format");
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("chunk");
    for (int format : {6, 7, 8}) {
        const QString f = QString::number(format);
        QTest::addRow("%d all zero", format) << format << "zero" << 1000 << 400;
        QTest::addRow("%d extremes", format) << format << "extreme" << 3000 << 1000;
        QTest::addRow("%d repeated point", format) << format << "repeat" << 700 << 300;
        QTest::addRow("%d one-point chunks", format) << format << "walk" << 5 << 1;
        QTest::addRow("%d walk, last chunk partial", format) << format << "walk" << 2500 << 1000;
    }
}

void TstLaz::encodesRoundTrip() {
    QFETCH(int, format);
    QFETCH(QString, pattern);
    QFETCH(int, count);
    QFETCH(int, chunk);
    const int recLen = format == 6 ? 30 : format == 7 ? 36 : 38;
    LazFormat laz;
    laz.compressor = LazFormat::LayeredChunked;
    laz.chunkSize = quint32(chunk);
    laz.items.append({LazFormat::Point14, 30, 3});
    if (format == 7) laz.items.append({LazFormat::Rgb14, 6, 3});
    if (format == 8) laz.items.append({LazFormat::RgbNir14, 8, 3});
    laz.items.append({LazFormat::Byte14, 3, 3});
    QString why;
    QVERIFY2(laz.check(format, recLen + 3, &why), qPrintable(why));
    const int len = recLen + 3;
    std::mt19937 rng(uint32_t(format * 1000 + count));
    std::vector<uint8_t> records(size_t(count) * size_t(len), 0);
    for (int i = 0; i < count && pattern != "zero"; ++i) {
        uint8_t* r = records.data() + size_t(i) * size_t(len);
        if (pattern == "repeat" && i > 0) {
            std::memcpy(r, r - len, size_t(len));
            continue;
        }
        for (int b = 0; b < len; ++b) r[b] = uint8_t(rng());  // every field, flag and channel at random
        if (pattern == "extreme") {
            for (int a = 0; a < 3; ++a) qToLittleEndian<qint32>(i % 2 ? INT32_MAX : INT32_MIN, r + 4 * a);
            std::memset(r + 30, i % 3 ? 0xFF : 0, size_t(len - 30));
        } else if (pattern == "walk" && i > 0) {
            // Neighbours a few units apart, with the same time now and then: what scanners write.
            for (int a = 0; a < 3; ++a)
                qToLittleEndian<qint32>(qFromLittleEndian<qint32>(r - len + 4 * a) + int(rng() % 201) - 100, r + 4 * a);
            if (rng() % 3 == 0) std::memcpy(r + 22, r - len + 22, 8);
        }
    }
    LazChunkCodec codec(laz, len);
    std::vector<uint8_t> decoded(size_t(len) * size_t(chunk));
    for (int first = 0; first < count; first += chunk) {
        const quint32 k = quint32(std::min(chunk, count - first));
        const uint8_t* in = records.data() + size_t(first) * size_t(len);
        const std::vector<uint8_t> coded = codec.encode(in, k);
        QVERIFY2(codec.decode(coded.data(), coded.size(), k, k, decoded.data(), &why), qPrintable(why));
        for (quint32 i = 0; i < k; ++i)
            if (std::memcmp(decoded.data() + i * len, in + i * len, size_t(len)) != 0)
                QFAIL(qPrintable(QStringLiteral("record %1 differs").arg(first + int(i))));
    }
}

// The LAZ export holds exactly the records of the LAS export, over several chunks.
void TstLaz::writerMatchesLas() {
    stPtCloud_PointArray points;
    points.count = 120000;
    points.origin = pcVec3d(500000, 4000000, 100);
    std::mt19937 rng(7);
    for (int i = 0; i < points.count; ++i) {
        points.positions.push_back(pcVec3f(float(i % 400) * 0.25f, float(i / 400) * 0.25f, float(rng() % 1000) * 0.01f));
        points.colors.push_back(pcVec4f(float(rng() % 256) / 255.f, 0.5f, float(i % 2), 1.f));
    }
    QTemporaryDir dir;
    const double scale[3] = {0.001, 0.001, 0.001}, offset[3] = {500000, 4000000, 0};
    QByteArray records[2];
    for (int compressed = 0; compressed < 2; ++compressed) {
        const QString path = dir.filePath(compressed ? "out.laz" : "out.las");
        LasWriter writer;
        QString error;
        QVERIFY2(writer.open(path, true, scale, offset, QString(), &error) && writer.write(points, &error) &&
                     writer.close(&error),
                 qPrintable(error));
        LasHeader h;
        if (compressed) {
            QVERIFY2(decodeAll(path, &records[1], &h, &error), qPrintable(error));
        } else {
            LasReader reader;
            QVERIFY(reader.open(path, &error));
            QFile f(path);
            QVERIFY(f.open(QIODevice::ReadOnly) && f.seek(reader.header().offsetToPointData));
            records[0] = f.readAll();
        }
    }
    QCOMPARE(records[1].size(), records[0].size());
    QVERIFY(records[1] == records[0]);
}

QTEST_GUILESS_MAIN(TstLaz)
#include "tst_laz.moc"
