// Every real LAS file of the shared data against its independently computed
// manifest entry: header fields, counts, record bounds, coordinate sums,
// class histograms, colour depth and the standard's bends each file shows.

#include <QtTest>
#include <cmath>
#include <map>

#include "tst_las_data.h"

using namespace ptCloud;

class TstLasManifest : public QObject {
    Q_OBJECT
private slots:
    void readsEveryFile_data();
    void readsEveryFile();
};

void TstLasManifest::readsEveryFile_data() {
    LAS_REQUIRE_SHARED_DATA();
    lasTestData::addRows(QStringLiteral("las/"));
}

namespace {

QStringList vlrKeys(const QJsonArray& list) {
    QStringList out;
    for (const QJsonValue& v : list) {
        const QJsonObject o = v.toObject();
        out << QStringLiteral("%1/%2/%3/%4").arg(o.value("user_id").toString()).arg(o.value("record_id").toInt())
                   .arg(o.value("length").toInt()).arg(o.value("description").toString());
    }
    return out;
}

QStringList vlrKeys(const QList<LasVlr>& list, bool extended) {
    QStringList out;
    for (const LasVlr& v : list)
        if (v.extended == extended)
            out << QStringLiteral("%1/%2/%3/%4").arg(v.userId).arg(v.recordId).arg(v.length).arg(v.description);
    return out;
}

}  // namespace

void TstLasManifest::readsEveryFile() {
    QFETCH(QString, key);
    const QJsonObject m = lasTestData::manifest().value(key).toObject();
    LasReader reader;
    QString error;
    QVERIFY2(reader.open(lasTestData::path(key), &error), qPrintable(error));
    const LasHeader& h = reader.header();

    QCOMPARE(QStringLiteral("%1.%2").arg(h.versionMajor).arg(h.versionMinor), m.value("version").toString());
    QCOMPARE(int(h.pointFormat), m.value("point_format").toInt());
    QCOMPARE(int(h.recordLength), m.value("record_length").toInt());
    QCOMPARE(h.extraBytes(), m.value("extra_bytes_per_record").toInt());
    QCOMPARE(int(h.headerSize), m.value("header_size").toInt());
    QCOMPARE(qint64(h.offsetToPointData), qint64(m.value("offset_to_point_data").toDouble()));
    QCOMPARE(qint64(h.pointCount), qint64(m.value("point_count").toDouble()));
    QCOMPARE(qint64(h.legacyPointCount), qint64(m.value("legacy_point_count").toDouble()));
    QCOMPARE(int(h.globalEncoding), m.value("global_encoding").toInt());
    QCOMPARE(h.generatingSoftware, m.value("generating_software").toString());
    QCOMPARE(int(h.vlrCount), m.value("vlr_count").toInt());
    QCOMPARE(int(h.evlrCount), m.value("evlr_count").toInt());
    const QJsonArray scale = m.value("scale").toArray(), offset = m.value("offset").toArray();
    for (int a = 0; a < 3; ++a) {
        QCOMPARE(h.scale[a], scale[a].toDouble());
        QCOMPARE(h.offset[a], offset[a].toDouble());
    }
    QCOMPARE(vlrKeys(h.vlrs, false), vlrKeys(m.value("vlrs").toArray()));
    QCOMPARE(vlrKeys(h.vlrs, true), vlrKeys(m.value("evlrs").toArray()));
    for (const LasVlr& v : h.vlrs) {
        if (v.userId != QLatin1String("LASF_Projection")) continue;
        if (v.recordId == 2112) QVERIFY(!h.wkt.isEmpty());
        if (v.recordId == 34735) QVERIFY2(h.geoKeys.contains(QLatin1String("GeoKey (")), qPrintable(h.geoKeys));
    }

    const QList<EDataSetColumn> cols = h.columns();
    QCOMPARE(cols.contains(DSC_Color), m.value("has_rgb").toBool());
    QCOMPARE(cols.contains(DSC_GpsTime), m.value("has_gps_time").toBool());
    QCOMPARE(cols.contains(DSC_WavePacketDescriptorIndex), m.value("has_waveform").toBool());

    // Each departure from the standard the manifest lists is one the reader
    // reports and reads past; the bounds one is checked against the records below.
    const QString boundsWarning = QStringLiteral("header bounds differ from record bounds");
    QStringList expected;
    for (const QJsonValue& w : m.value("warnings").toArray()) {
        const QString text = w.toString();
        QVERIFY2(text == boundsWarning || text.contains(QLatin1String("bytes between VLRs and point data")) ||
                     text.contains(QLatin1String("runs past point data offset")) ||
                     text.contains(QLatin1String("must be 0 for format")),
                 qPrintable(QStringLiteral("unhandled warning kind: ") + text));
        if (text != boundsWarning) expected << text;
    }
    QCOMPARE(reader.warnings(), expected);

    const pcVec3d origin = lasTestData::centre(m);
    stPtCloud_PointArray all;
    QVERIFY2(lasTestData::readAll(reader, cols, origin, 50000, all, &error), qPrintable(error));
    const qint64 n = qint64(m.value("records_read").toDouble());
    QCOMPARE(qint64(all.count), n);
    QCOMPARE(qint64(reader.pointsRead()), n);

    const double o[3] = {origin.x, origin.y, origin.z};
    long double sum[3] = {0, 0, 0};
    double lo[3], hi[3], maxRel = 0;
    std::fill(lo, lo + 3, HUGE_VAL);
    std::fill(hi, hi + 3, -HUGE_VAL);
    for (const pcVec3f& p : all.positions) {
        const float rel[3] = {p.x, p.y, p.z};
        for (int a = 0; a < 3; ++a) {
            const double v = o[a] + double(rel[a]);
            sum[a] += v;
            lo[a] = std::min(lo[a], v);
            hi[a] = std::max(hi[a], v);
            maxRel = std::max(maxRel, std::fabs(double(rel[a])));
        }
    }
    // A position is exact in double before it is stored as a float relative
    // to the origin, which rounds it by at most half a float ulp; the
    // manifest rounds to the file's scale. Either error may dominate, and
    // both add up at most linearly over the points.
    const double floatError = std::ldexp(maxRel, -24);
    const QJsonArray bounds = m.value("bounds_records").toArray(), sums = m.value("xyz_sum").toArray();
    for (int a = 0; a < 3 && n > 0; ++a) {
        const double perPoint = std::max(h.scale[a] / 2, floatError);
        QVERIFY2(std::fabs(lo[a] - bounds[a].toDouble()) <= perPoint, qPrintable(QString::number(lo[a], 'f', 9)));
        QVERIFY2(std::fabs(hi[a] - bounds[a + 3].toDouble()) <= perPoint, qPrintable(QString::number(hi[a], 'f', 9)));
        const double want = sums[a].toDouble();
        const double tol = std::max(double(n) * perPoint, 1e-12 * std::fabs(want));
        QVERIFY2(std::fabs(double(sum[a]) - want) <= tol,
                 qPrintable(QStringLiteral("axis %1: sum %2, manifest %3, tolerance %4")
                                .arg(a).arg(double(sum[a]), 0, 'f', 6).arg(want, 0, 'f', 6).arg(tol)));
    }
    if (m.value("warnings").toArray().contains(boundsWarning)) {
        bool differs = false;
        for (int a = 0; a < 3; ++a)
            differs = differs || std::fabs(h.headerMin[a] - lo[a]) > h.scale[a] ||
                      std::fabs(h.headerMax[a] - hi[a]) > h.scale[a];
        QVERIFY(differs);
    }

    std::map<QString, int> classes, expectedClasses;
    const quint8* cls = all.columnData<quint8>(DSC_Classification);
    for (int i = 0; i < all.count; ++i) ++classes[QString::number(cls[i])];
    const QJsonObject hist = m.value("classification").toObject();
    for (auto it = hist.begin(); it != hist.end(); ++it) expectedClasses[it.key()] = it.value().toInt();
    QVERIFY(classes == expectedClasses);

    if (m.contains("rgb_max") && n > 0) {
        const int rgbMax = m.value("rgb_max").toInt();
        QCOMPARE(reader.colorsAre8Bit(), rgbMax <= 255);
        float top = 0;
        for (const pcVec4f& c : all.colors) top = std::max({top, c.x, c.y, c.z});
        QCOMPARE(int(std::lround(top * (rgbMax <= 255 ? 255.f : 65535.f))), rgbMax);
    }
}

QTEST_GUILESS_MAIN(TstLasManifest)
#include "tst_las_manifest.moc"
