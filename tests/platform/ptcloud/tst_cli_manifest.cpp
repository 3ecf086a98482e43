// Every real LAS file of the shared data through the command line: one-step
// import, then dataset info against the independently computed manifest;
// then export and import of the export, which must give the same answers.

#include <QJsonArray>
#include <QTemporaryDir>
#include <QtTest>
#include <cmath>

#include "tst_cli_runner.h"
#include "tst_las_data.h"

class TstCliManifest : public QObject {
    Q_OBJECT
private slots:
    void importMatchesManifest_data();
    void importMatchesManifest();
};

namespace {

double at(const QJsonValue& array, int i) { return array.toArray().at(i).toDouble(); }

// What single-precision positions around the dataset's origin can resolve on
// each axis, at the farthest point of the bounds.
double floatResolution(const QJsonObject& info, int axis)
{
    const double origin = at(info.value("origin"), axis);
    const double far = std::max(std::fabs(at(info.value("bounds"), axis) - origin),
                                std::fabs(at(info.value("bounds"), axis + 3) - origin));
    return far * std::ldexp(1.0, -23);
}

void compareClasses(const QJsonObject& got, const QJsonObject& expected)
{
    QCOMPARE(got.keys(), expected.keys());
    for (const QString& c : expected.keys())
        QCOMPARE(qint64(got.value(c).toDouble()), qint64(expected.value(c).toDouble()));
}

}  // namespace

void TstCliManifest::importMatchesManifest_data()
{
    LAS_REQUIRE_SHARED_DATA();
    lasTestData::addRows(QStringLiteral("las/"));
}

void TstCliManifest::importMatchesManifest()
{
    QFETCH(QString, key);
    const QJsonObject entry = lasTestData::manifest().value(key).toObject();
    const QString name = QFileInfo(key).completeBaseName();
    QTemporaryDir tmp;
    QVERIFY(tmp.isValid());
    const QString project = tmp.filePath("project");

    const TstCliRunner::Result imported = TstCliRunner::run({"import", lasTestData::path(key), "--project", project});
    QVERIFY2(imported.ok(), imported.describe());
    QString error;
    const QJsonObject info = TstCliRunner::info(project, name, &error);
    QVERIFY2(!info.isEmpty(), qPrintable(error));

    const qint64 count = qint64(entry.value("point_count").toDouble());
    QCOMPARE(qint64(info.value("points").toDouble()), count);
    compareClasses(info.value("classification").toObject(), entry.value("classification").toObject());
    if (count == 0) {
        QVERIFY(info.value("bounds").isNull());
        return;
    }
    for (int a = 0; a < 3; ++a) {
        const double resolution = floatResolution(info, a);
        for (int side = 0; side < 6; side += 3)
            QVERIFY2(std::fabs(at(info.value("bounds"), a + side) - at(entry.value("bounds_records"), a + side)) <=
                         2 * resolution + 1e-9,
                     qPrintable(QStringLiteral("bound %1: %2 vs %3").arg(a + side)
                                    .arg(at(info.value("bounds"), a + side), 0, 'f', 9)
                                    .arg(at(entry.value("bounds_records"), a + side), 0, 'f', 9)));
        const double mean = at(entry.value("xyz_sum"), a) / double(count);
        QVERIFY2(std::fabs(at(info.value("mean"), a) - mean) <= 0.001,
                 qPrintable(QStringLiteral("mean %1: %2 vs %3").arg(a).arg(at(info.value("mean"), a), 0, 'f', 6)
                                .arg(mean, 0, 'f', 6)));
    }

    // The export, read back, holds the same points to within the file's own
    // resolution (and what float storage adds on each side).
    const QString exported = tmp.filePath(name + "_export.las");
    const TstCliRunner::Result written = TstCliRunner::run({"dataset", "export", project, name, exported});
    QVERIFY2(written.ok(), written.describe());
    const TstCliRunner::Result again = TstCliRunner::run({"import", exported, "--project", project});
    QVERIFY2(again.ok(), again.describe());
    const QJsonObject back = TstCliRunner::info(project, name + "_export", &error);
    QVERIFY2(!back.isEmpty(), qPrintable(error));
    QCOMPARE(qint64(back.value("points").toDouble()), count);
    compareClasses(back.value("classification").toObject(), info.value("classification").toObject());
    for (int a = 0; a < 3; ++a) {
        const double tolerance = at(entry.value("scale"), a) + 4 * floatResolution(info, a);
        for (int side = 0; side < 6; side += 3)
            QVERIFY2(std::fabs(at(back.value("bounds"), a + side) - at(info.value("bounds"), a + side)) <= tolerance,
                     qPrintable(QStringLiteral("exported bound %1 moved by %2")
                                    .arg(a + side).arg(at(back.value("bounds"), a + side) - at(info.value("bounds"), a + side))));
        QVERIFY2(std::fabs(at(back.value("mean"), a) - at(info.value("mean"), a)) <= tolerance,
                 qPrintable(QStringLiteral("exported mean %1 moved by %2")
                                .arg(a).arg(at(back.value("mean"), a) - at(info.value("mean"), a))));
    }
}

QTEST_GUILESS_MAIN(TstCliManifest)
#include "tst_cli_manifest.moc"
