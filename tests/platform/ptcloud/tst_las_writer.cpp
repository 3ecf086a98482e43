// LasWriter: every real file read, written as LAS 1.4 and read back keeps its
// points; the target appears only on a successful close.

#include <QTemporaryDir>
#include <QtTest>
#include <cmath>

#include "LasWriter.h"
#include "tst_las_data.h"

using namespace ptCloud;

class TstLasWriter : public QObject {
    Q_OBJECT
private slots:
    void roundTrip_data();
    void roundTrip();
    void fillsMissingColumns();
    void failedWriteKeepsOldFile();
    void refusesUnwritablePath();
};

void TstLasWriter::roundTrip_data() {
    LAS_REQUIRE_SHARED_DATA();
    lasTestData::addRows(QStringLiteral("las/"));
}

void TstLasWriter::roundTrip() {
    QFETCH(QString, key);
    const pcVec3d origin = lasTestData::centre(lasTestData::manifest().value(key).toObject());
    LasReader source;
    QString error;
    QVERIFY2(source.open(lasTestData::path(key), &error), qPrintable(error));
    const LasHeader sh = source.header();
    const QList<EDataSetColumn> cols = sh.columns();
    stPtCloud_PointArray before;
    QVERIFY2(lasTestData::readAll(source, cols, origin, 1 << 20, before, &error), qPrintable(error));

    QTemporaryDir dir;
    const QString out = dir.filePath(QStringLiteral("out.las"));
    LasWriter writer;
    QVERIFY2(writer.open(out, sh.hasRgb(), sh.scale, sh.offset, sh.wkt, &error), qPrintable(error));
    QVERIFY(source.rewind());
    stPtCloud_PointArray chunk;
    for (qint64 n; (n = source.readChunk(chunk, 40000, cols, origin, &error)) != 0;) {
        QVERIFY2(n > 0, qPrintable(error));
        QVERIFY2(writer.write(chunk, &error), qPrintable(error));
    }
    QVERIFY(!QFile::exists(out));
    QVERIFY2(writer.close(&error), qPrintable(error));

    LasReader back;
    QVERIFY2(back.open(out, &error), qPrintable(error));
    const LasHeader& h = back.header();
    QCOMPARE(QStringLiteral("%1.%2 %3").arg(h.versionMajor).arg(h.versionMinor).arg(h.headerSize),
             QStringLiteral("1.4 375"));
    QCOMPARE(int(h.pointFormat), sh.hasRgb() ? 7 : 6);
    QCOMPARE(h.legacyPointCount, quint32(0));
    QCOMPARE(h.pointCount, quint64(before.count));
    QCOMPARE(h.wkt, sh.wkt);
    QCOMPARE(bool(h.globalEncoding & 16), !sh.wkt.isEmpty());
    QVERIFY(back.warnings().isEmpty());
    for (int a = 0; a < 3; ++a) {
        QCOMPARE(h.scale[a], sh.scale[a]);
        QCOMPARE(h.offset[a], sh.offset[a]);
    }
    stPtCloud_PointArray after;
    QVERIFY2(lasTestData::readAll(back, h.columns(), origin, 1 << 20, after, &error), qPrintable(error));
    QCOMPARE(after.count, before.count);

    // Positions were floats relative to the origin: writing rounds them to the
    // file's grid, which is at most half a step plus the float's own rounding
    // away from the original record.
    double maxRel = 0;
    for (const pcVec3f& p : before.positions) maxRel = std::max({maxRel, double(std::fabs(p.x)),
                                                                 double(std::fabs(p.y)), double(std::fabs(p.z))});
    const double o[3] = {origin.x, origin.y, origin.z};
    double lo[3] = {HUGE_VAL, HUGE_VAL, HUGE_VAL}, hi[3] = {-HUGE_VAL, -HUGE_VAL, -HUGE_VAL};
    for (int i = 0; i < before.count; ++i) {
        const float p[3] = {before.positions[i].x, before.positions[i].y, before.positions[i].z};
        const float q[3] = {after.positions[i].x, after.positions[i].y, after.positions[i].z};
        for (int a = 0; a < 3; ++a) {
            const double tol = sh.scale[a] / 2 + 2 * std::ldexp(maxRel, -24);
            if (std::fabs(double(p[a]) - double(q[a])) > tol)
                QFAIL(qPrintable(QStringLiteral("point %1 axis %2 moved %3").arg(i).arg(a).arg(q[a] - p[a])));
            lo[a] = std::min(lo[a], o[a] + q[a]);
            hi[a] = std::max(hi[a], o[a] + q[a]);
        }
    }
    for (int a = 0; a < 3 && before.count > 0; ++a) {
        const double tol = sh.scale[a] / 2 + std::ldexp(maxRel, -24);
        QVERIFY(std::fabs(h.headerMin[a] - lo[a]) <= tol && std::fabs(h.headerMax[a] - hi[a]) <= tol);
    }
    // Every other field keeps its value to the bit; the scan angle keeps it
    // to half a step of the 1.4 format's 0.006 degrees.
    for (EDataSetColumn c : {DSC_Classification, DSC_GpsTime, DSC_Intensity, DSC_ReturnNumber,
                             DSC_NumberOfReturnsGivenPulse, DSC_ScanDirectionFlag, DSC_EdgeOfFlightingLine,
                             DSC_UserData, DSC_PointSourceId})
        if (before.hasColumn(c))
            QVERIFY2(after.hasColumn(c) && after.columns.at(c) == before.columns.at(c), qPrintable(columnName(c)));
    const float* angleBefore = before.columnData<float>(DSC_ScanAngleRank);
    const float* angleAfter = after.columnData<float>(DSC_ScanAngleRank);
    for (int i = 0; i < before.count; ++i) QVERIFY(std::fabs(angleBefore[i] - angleAfter[i]) <= 0.0031f);
    QCOMPARE(after.colors.size(), before.colors.size());
    for (size_t i = 0; i < before.colors.size(); ++i) {
        const pcVec4f& c = before.colors[i];
        const pcVec4f& d = after.colors[i];
        if (std::fabs(c.x - d.x) > 1e-6f || std::fabs(c.y - d.y) > 1e-6f || std::fabs(c.z - d.z) > 1e-6f)
            QFAIL(qPrintable(QStringLiteral("colour of point %1 differs").arg(i)));
    }

    // The by-return counts of the 1.4 header add up to the points with a return number.
    QFile f(out);
    QVERIFY(f.open(QIODevice::ReadOnly));
    const QByteArray head = f.read(375);
    quint64 byReturn = 0, numbered = 0;
    for (int r = 0; r < 15; ++r) byReturn += qFromLittleEndian<quint64>(head.constData() + 255 + 8 * r);
    const quint8* ret = after.columnData<quint8>(DSC_ReturnNumber);
    for (int i = 0; i < after.count; ++i) numbered += ret[i] >= 1 ? 1 : 0;
    QCOMPARE(byReturn, numbered);
}

void TstLasWriter::fillsMissingColumns() {
    stPtCloud_PointArray points;
    points.origin = pcVec3d(1000.0, 2000.0, 30.0);
    points.count = 3;
    points.positions = {pcVec3f(0, 0, 0), pcVec3f(1.25f, -2.5f, 0.5f), pcVec3f(-10, 10, -1)};
    points.columns[DSC_Classification] = {2, 6, 70};
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("sparse.las"));
    const double scale[3] = {0.01, 0.01, 0.01}, offset[3] = {1000, 2000, 0};
    LasWriter writer;
    QString error;
    QVERIFY2(writer.open(path, true, scale, offset, QString(), &error), qPrintable(error));
    QVERIFY2(writer.write(points, &error), qPrintable(error));
    QVERIFY2(writer.close(&error), qPrintable(error));

    LasReader reader;
    QVERIFY2(reader.open(path, &error), qPrintable(error));
    QCOMPARE(int(reader.header().pointFormat), 7);
    QCOMPARE(reader.header().headerMin[0], 990.0);
    QCOMPARE(reader.header().headerMax[1], 2010.0);
    stPtCloud_PointArray a;
    QCOMPARE(reader.readChunk(a, 10, reader.header().columns(), points.origin, &error), qint64(3));
    QCOMPARE(a.positions[1], pcVec3f(1.25f, -2.5f, 0.5f));
    QCOMPARE(a.columns[DSC_Classification], (std::vector<uint8_t>{2, 6, 70}));
    QCOMPARE(a.columns[DSC_ReturnNumber], (std::vector<uint8_t>{1, 1, 1}));
    QCOMPARE(a.columns[DSC_Intensity], std::vector<uint8_t>(6, 0));
    QCOMPARE(a.colors[2], pcVec4f(0, 0, 0, 1));
}

void TstLasWriter::failedWriteKeepsOldFile() {
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("target.las"));
    QFile old(path);
    QVERIFY(old.open(QIODevice::WriteOnly) && old.write("old content") == 11);
    old.close();
    stPtCloud_PointArray points;
    points.count = 2;
    points.positions = {pcVec3f(0, 0, 0), pcVec3f(0, 0, 0)};
    points.origin = pcVec3d(0, 0, 1e9);  // beyond int32 at a 0.01 step
    const double scale[3] = {0.01, 0.01, 0.01}, offset[3] = {0, 0, 0};
    QString error;
    {
        LasWriter writer;
        QVERIFY2(writer.open(path, false, scale, offset, QStringLiteral("GEOGCS[\"WGS 84\"]"), &error),
                 qPrintable(error));
        QVERIFY(!writer.write(points, &error));
        QVERIFY2(error.contains(QLatin1String("does not fit the scale and offset")), qPrintable(error));
        QVERIFY(!writer.close(&error));
    }
    QVERIFY(old.open(QIODevice::ReadOnly));
    QCOMPARE(old.readAll(), QByteArray("old content"));
    QCOMPARE(QDir(dir.path()).entryList(QDir::Files), QStringList{QStringLiteral("target.las")});
}

void TstLasWriter::refusesUnwritablePath() {
    const double scale[3] = {0.01, 0.01, 0.01}, zeroScale[3] = {0.01, 0, 0.01}, offset[3] = {0, 0, 0};
    LasWriter writer;
    QString error;
    QVERIFY(!writer.open(QStringLiteral("/nonexistent/dir/out.las"), false, scale, offset, QString(), &error));
    QVERIFY2(error.startsWith(QLatin1String("cannot write /nonexistent/dir/out.las")), qPrintable(error));
    QTemporaryDir dir;
    QVERIFY(!writer.open(dir.filePath(QStringLiteral("z.las")), false, zeroScale, offset, QString(), &error));
    QVERIFY2(error.startsWith(QLatin1String("Y scale 0")), qPrintable(error));
    QVERIFY(!writer.close(&error));
    QVERIFY(!QFile::exists(dir.filePath(QStringLiteral("z.las"))));
}

QTEST_GUILESS_MAIN(TstLasWriter)
#include "tst_las_writer.moc"
