// Broken LAS files, made in a temporary folder by damaging real ones: each is
// refused by open() with a one-line reason, without a crash.

#include <QTemporaryDir>
#include <QtTest>
#include <cstring>

#include "tst_las_data.h"

using namespace ptCloud;

class TstLasBroken : public QObject {
    Q_OBJECT
private slots:
    void refusesDamagedFile_data();
    void refusesDamagedFile();
    void reportsFileShrinkingWhileRead();
    void refusesMissingFile();
};

namespace {

template <class T> QByteArray bytes(T v) {
    QByteArray b(int(sizeof(T)), '\0');
    std::memcpy(b.data(), &v, sizeof(T));
    return b;
}

// Offsets of header fields in the LAS public header.
enum : int {
    kSignature = 0, kVersion = 24, kHeaderSize = 94, kPointOffset = 96, kFormat = 104, kRecordLength = 105,
    kLegacyCount = 107, kScaleY = 139, kCount64 = 247, kFirstVlrUser14 = 375 + 2
};

}  // namespace

void TstLasBroken::refusesDamagedFile_data() {
    LAS_REQUIRE_SHARED_DATA();
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("at");
    QTest::addColumn<QByteArray>("patch");
    QTest::addColumn<qint64>("truncateTo");
    QTest::addColumn<QString>("reason");

    // simple.las: LAS 1.2, format 3, 1065 records of 34 bytes from byte 227.
    // test1_4.las: LAS 1.4, format 6, 1000 records of 30 bytes from byte 2305.
    const QString v12 = QStringLiteral("las/simple.las"), v14 = QStringLiteral("las/test1_4.las");
    const QString las = QStringLiteral("broken.las");
    const QByteArray none;
    QTest::newRow("truncated mid-points") << v12 << las << 0 << none << qint64(227 + 500 * 34 + 17)
        << "point data ends after 500 complete records of the 1065";
    QTest::newRow("wrong signature") << v12 << las << int(kSignature) << QByteArray("LASX") << qint64(-1)
        << "no LASF signature";
    QTest::newRow("empty file") << v12 << las << 0 << none << qint64(0) << "no LASF signature";
    QTest::newRow("header cut short") << v12 << las << 0 << none << qint64(150) << "file ends inside the LAS header";
    QTest::newRow("point count beyond the file") << v12 << las << int(kLegacyCount) << bytes<quint32>(2000)
        << qint64(-1) << "point data ends after 1065 complete records of the 2000";
    QTest::newRow("64-bit count beyond the file") << v14 << las << int(kCount64) << bytes<quint64>(1ull << 40)
        << qint64(-1) << "point data ends after 1000 complete records of the 1099511627776";
    QTest::newRow("zero scale") << v12 << las << int(kScaleY) << bytes<double>(0.0) << qint64(-1)
        << "Y scale 0 or offset";
    QTest::newRow("record length below the format's") << v12 << las << int(kRecordLength) << bytes<quint16>(33)
        << qint64(-1) << "record length 33 is below the 34 bytes of point format 3";
    QTest::newRow("version 2.0") << v12 << las << int(kVersion) << QByteArray("\x02\x00", 2) << qint64(-1)
        << "unsupported LAS version 2.0";
    QTest::newRow("version 1.5") << v12 << las << int(kVersion) << QByteArray("\x01\x05", 2) << qint64(-1)
        << "unsupported LAS version 1.5";
    QTest::newRow("header size too small") << v12 << las << int(kHeaderSize) << bytes<quint16>(200) << qint64(-1)
        << "header size 200 is below the 227 bytes of LAS 1.2";
    QTest::newRow("1.4 header of 1.2 size") << v14 << las << int(kHeaderSize) << bytes<quint16>(227) << qint64(-1)
        << "header size 227 is below the 375 bytes of LAS 1.4";
    QTest::newRow("point format 11") << v12 << las << int(kFormat) << bytes<quint8>(11) << qint64(-1)
        << "unsupported point format 11";
    QTest::newRow("point data inside the header") << v12 << las << int(kPointOffset) << bytes<quint32>(100)
        << qint64(-1) << "point data offset 100 lies inside the 227-byte header";
    QTest::newRow("compression bit") << v12 << las << int(kFormat) << bytes<quint8>(0x83) << qint64(-1)
        << "compressed point format 3 but no laszip VLR";
    QTest::newRow("laszip VLR") << v14 << las << int(kFirstVlrUser14) << QByteArray("laszip encoded\0\0", 16)
        << qint64(-1) << "unknown LAZ coder";
}

void TstLasBroken::refusesDamagedFile() {
    QFETCH(QString, source);
    QFETCH(QString, name);
    QFETCH(int, at);
    QFETCH(QByteArray, patch);
    QFETCH(qint64, truncateTo);
    QFETCH(QString, reason);

    QFile in(lasTestData::path(source));
    QVERIFY(in.open(QIODevice::ReadOnly));
    QByteArray data = in.readAll();
    data.replace(at, patch.size(), patch);
    if (truncateTo >= 0) data.truncate(int(truncateTo));
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString path = dir.filePath(name);
    QFile out(path);
    QVERIFY(out.open(QIODevice::WriteOnly) && out.write(data) == data.size());
    out.close();

    LasReader reader;
    QString error;
    QVERIFY(!reader.open(path, &error));
    QVERIFY2(error.contains(reason), qPrintable(error));
    QVERIFY(!error.contains(QLatin1Char('\n')));
    QCOMPARE(reader.header().pointCount, quint64(0));
    stPtCloud_PointArray points;
    QCOMPARE(reader.readChunk(points, 100, {DSC_Location}, pcVec3d(), &error), qint64(-1));
}

void TstLasBroken::reportsFileShrinkingWhileRead() {
    LAS_REQUIRE_SHARED_DATA();
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("shrinks.las"));
    QVERIFY(QFile::copy(lasTestData::path(QStringLiteral("las/simple.las")), path));
    QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    LasReader reader;
    QString error;
    QVERIFY2(reader.open(path, &error), qPrintable(error));
    stPtCloud_PointArray points;
    QCOMPARE(reader.readChunk(points, 400, {DSC_Location}, pcVec3d(), &error), qint64(400));
    QVERIFY(QFile::resize(path, 227 + 600 * 34));
    QCOMPARE(reader.readChunk(points, 400, {DSC_Location}, pcVec3d(), &error), qint64(-1));
    QCOMPARE(error, QStringLiteral("LAS file ended after 400 of 1065 points"));
}

void TstLasBroken::refusesMissingFile() {
    LasReader reader;
    QString error;
    QVERIFY(!reader.open(QStringLiteral("/nonexistent/dir/file.las"), &error));
    QVERIFY2(error.startsWith(QLatin1String("cannot open /nonexistent/dir/file.las")), qPrintable(error));
}

QTEST_GUILESS_MAIN(TstLasBroken)
#include "tst_las_broken.moc"
