// Broken LAS files through the command line: each gets a non-zero exit and a
// one-line reason, and no project is made or changed by it, whichever way the
// file is brought in.

#include <QTemporaryDir>
#include <QtTest>
#include <cstring>

#include "tst_cli_runner.h"
#include "tst_las_data.h"

class TstCliBroken : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void leavesProjectUnchanged_data();
    void leavesProjectUnchanged();

private:
    QTemporaryDir m_tmp;
    QString m_project;
    QMap<QString, QByteArray> m_projectBefore;
};

namespace {

enum Damage { Truncated, WrongSignature, CountBeyondFile, ZeroScale, HugeScale, HugeOffset, ShortRecord, Compressed };

// simple.las: LAS 1.2, point format 3 (34-byte records), 1065 points from byte 227.
QByteArray damaged(Damage damage)
{
    QFile f(lasTestData::path(damage == Compressed ? "laz/simple.laz" : "las/simple.las"));
    if (!f.open(QIODevice::ReadOnly)) return QByteArray();
    QByteArray data = f.readAll();
    auto patch = [&data](int offset, auto value) { std::memcpy(data.data() + offset, &value, sizeof value); };
    switch (damage) {
    case Truncated: data.truncate(227 + 700 * 34 + 5); break;
    case WrongSignature: data.replace(0, 4, "LASG"); break;
    case CountBeyondFile: patch(107, quint32(5000)); break;
    case ZeroScale: patch(131, 0.0); break;
    case HugeScale: patch(131, 1e300); break;
    case HugeOffset: patch(171, -1.5e117); break;
    case ShortRecord: patch(105, quint16(30)); break;
    case Compressed: data.truncate(9000); break;
    }
    return data;
}

}  // namespace

void TstCliBroken::initTestCase()
{
    LAS_REQUIRE_SHARED_DATA();
    QVERIFY(m_tmp.isValid());
    // A project with something in it, so that "unchanged" means something.
    m_project = m_tmp.filePath("project");
    const TstCliRunner::Result made =
        TstCliRunner::run({"import", lasTestData::path("las/simple.las"), "--project", m_project});
    QVERIFY2(made.ok(), made.describe());
    m_projectBefore = TstCliRunner::snapshot(m_project);
    QVERIFY(m_projectBefore.size() > 2);
}

void TstCliBroken::leavesProjectUnchanged_data()
{
    QTest::addColumn<int>("damage");
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<QString>("reason");
    QTest::newRow("truncated") << int(Truncated) << "truncated.las" << "700 complete records";
    QTest::newRow("wrong signature") << int(WrongSignature) << "signature.las" << "signature";
    QTest::newRow("point count beyond the file") << int(CountBeyondFile) << "count.las" << "of the 5000";
    QTest::newRow("zero scale") << int(ZeroScale) << "scale.las" << "scale";
    QTest::newRow("X scale overflowing") << int(HugeScale) << "huge.las" << "X scale 1e+300";
    QTest::newRow("Z offset overflowing") << int(HugeOffset) << "far.las" << "Z scale";
    QTest::newRow("record length below the format") << int(ShortRecord) << "record.las" << "record length 30";
    QTest::newRow("truncated laz") << int(Compressed) << "simple.laz" << "LAZ chunk table";
}

void TstCliBroken::leavesProjectUnchanged()
{
    QFETCH(int, damage);
    QFETCH(QString, fileName);
    QFETCH(QString, reason);
    // Each broken file sits alone in a folder, so the default project beside it would show.
    QTemporaryDir folder;
    QVERIFY(folder.isValid());
    const QString path = folder.filePath(fileName);
    QFile out(path);
    const QByteArray bytes = damaged(Damage(damage));
    QVERIFY(!bytes.isEmpty());
    QVERIFY(out.open(QIODevice::WriteOnly) && out.write(bytes) == bytes.size());
    out.close();
    const QMap<QString, QByteArray> folderBefore = TstCliRunner::snapshot(folder.path());
    const QString fresh = m_tmp.filePath("fresh");

    const QList<QStringList> calls{
        {"las", "import", m_project, path},
        {"las", "import", m_project, lasTestData::path("las/point10.las"), path},  // one bad file spoils all
        {"import", path, "--project", m_project},
        {"import", path, "--project", fresh},
        {"import", path},
    };
    for (const QStringList& call : calls) {
        const TstCliRunner::Result r = TstCliRunner::run(call);
        const QString what = call.join(' ');
        QVERIFY2(r.finished && r.exitCode != 0, qPrintable(what));
        QVERIFY2(r.out.isEmpty(), qPrintable(what + ": " + r.out));
        QVERIFY2(r.errLine().startsWith("ptcloud: ") && !r.errLine().contains('\n'), qPrintable(what + ": " + r.err));
        QVERIFY2(r.errLine().contains(reason), qPrintable(what + ": " + r.err));
        QVERIFY2(TstCliRunner::snapshot(m_project) == m_projectBefore, qPrintable(what));
        QVERIFY2(TstCliRunner::snapshot(folder.path()) == folderBefore, qPrintable(what));
        QVERIFY2(!QFileInfo::exists(fresh), qPrintable(what));
    }
}

QTEST_GUILESS_MAIN(TstCliBroken)
#include "tst_cli_broken.moc"
