// The synthetic survey scene: the file ptcloud demo writes holds the scene
// its known answers describe (classes where they belong, the stockpile's
// height and volume, roofs on their footprints), and the stream has exactly
// the points asked for, repeatably.

#include <QTemporaryDir>
#include <QtTest>
#include <cmath>
#include <map>

#include "LasReader.h"
#include "PtCloud_DemoScene.h"
#include "tst_cli_runner.h"

using namespace ptCloud;

class TstDemoScene : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void classesAndAnswers();
    void stockpileVolume();
    void streamHasExactCount_data();
    void streamHasExactCount();
    void seedDecidesPoints();

private:
    struct Point {
        double x, y, z;
        int cls;
    };
    QTemporaryDir m_tmp;
    std::vector<Point> m_points;  // of the file written by the command line
    LasHeader m_header;
};

namespace {
const quint64 kPoints = 1000000;
}

void TstDemoScene::initTestCase()
{
    QVERIFY(m_tmp.isValid());
    const QString path = m_tmp.filePath("demo.las");
    const TstCliRunner::Result r =
        TstCliRunner::run({"demo", path, "--points", QString::number(kPoints), "--seed", "7"});
    QVERIFY2(r.ok() && r.err.isEmpty(), r.describe());

    LasReader reader;
    QString error;
    QVERIFY2(reader.open(path, &error), qPrintable(error));
    m_header = reader.header();
    stPtCloud_PointArray chunk;
    qint64 n;
    while ((n = reader.readChunk(chunk, 50000, {DSC_Location, DSC_Classification}, pcVec3d(500000, 4000000, 0),
                                 &error)) > 0) {
        const uint8_t* cls = chunk.columnData<uint8_t>(DSC_Classification);
        for (int i = 0; i < chunk.count; ++i) {
            const pcVec3f& p = chunk.positions[size_t(i)];
            m_points.push_back({chunk.origin.x + p.x, chunk.origin.y + p.y, chunk.origin.z + p.z, cls[i]});
        }
    }
    QVERIFY2(n == 0, qPrintable(error));
}

void TstDemoScene::classesAndAnswers()
{
    QCOMPARE(m_points.size(), size_t(kPoints));
    QCOMPARE(int(m_header.pointFormat), 7);  // RGB
    QCOMPARE(m_header.scale[0], 0.001);
    PtCloud_DemoScene scene(kPoints, 7);
    const PtCloud_DemoScene::Rect extent = PtCloud_DemoScene::extent();
    std::map<int, quint64> perClass;
    std::vector<quint64> perBuilding(size_t(scene.buildings().size()), 0);
    for (const Point& p : m_points) {
        ++perClass[p.cls];
        QVERIFY(extent.contains(p.x, p.y));
        const double ground = PtCloud_DemoScene::groundHeight(p.x, p.y);
        switch (p.cls) {
        case PtCloud_DemoScene::ClassGround:
            QVERIFY2(std::fabs(p.z - ground) <= 0.02, qPrintable(QString("ground off by %1").arg(p.z - ground)));
            break;
        case PtCloud_DemoScene::ClassLowVegetation:
        case PtCloud_DemoScene::ClassMediumVegetation:
        case PtCloud_DemoScene::ClassHighVegetation: {
            // The class follows the height above the terrain: below 2 m, 2-5 m, above.
            const double above = p.z - PtCloud_DemoScene::baseHeight(p.x, p.y);
            const int expected = above < 2.0 ? 3 : (above < 5.0 ? 4 : 5);
            QVERIFY2(std::abs(p.cls - expected) <= (std::fabs(above - 2) < 0.01 || std::fabs(above - 5) < 0.01),
                     qPrintable(QString("class %1 at %2 m").arg(p.cls).arg(above)));
            break;
        }
        case PtCloud_DemoScene::ClassBuilding: {
            int inside = -1;
            for (int b = 0; b < scene.buildings().size(); ++b) {
                const PtCloud_DemoScene::Rect& f = scene.buildings()[b].footprint;
                if (p.x >= f.minX - 0.002 && p.x <= f.maxX + 0.002 && p.y >= f.minY - 0.002 && p.y <= f.maxY + 0.002)
                    inside = b;
            }
            QVERIFY2(inside >= 0, "building point outside every footprint");
            QVERIFY(p.z <= scene.buildings()[inside].roofZ + 0.001);
            if (std::fabs(p.z - scene.buildings()[inside].roofZ) <= 0.001) ++perBuilding[size_t(inside)];
            break;
        }
        case PtCloud_DemoScene::ClassNoise:
            QVERIFY(p.z >= ground + 40 - 0.01 || p.z <= ground - 3 + 0.01);
            break;
        default:
            QFAIL(qPrintable(QString("unexpected class %1").arg(p.cls)));
        }
    }
    for (int c : {2, 3, 4, 5, 6, 7}) QVERIFY2(perClass[c] > 0, qPrintable(QString("no point of class %1").arg(c)));
    QCOMPARE(perClass[7], scene.noisePointCount());
    for (quint64 roof : perBuilding) QVERIFY(roof > 100);
}

void TstDemoScene::stockpileVolume()
{
    // Ground points on a 2 m grid around the pile: the cells' mean height
    // above the pad times their area, summed, is the cone's volume; the top
    // is the pile's height.
    const PtCloud_DemoScene::Stockpile pile = PtCloud_DemoScene::stockpile();
    const double reach = pile.radius + 3.0, cell = 2.0;
    const int cells = int(2 * reach / cell);
    std::vector<double> sum(size_t(cells * cells), 0.0);
    std::vector<int> count(sum.size(), 0);
    double top = 0;
    for (const Point& p : m_points) {
        if (p.cls != PtCloud_DemoScene::ClassGround) continue;
        const int i = int(std::floor((p.x - pile.x + reach) / cell)), j = int(std::floor((p.y - pile.y + reach) / cell));
        if (i < 0 || j < 0 || i >= cells || j >= cells) continue;
        sum[size_t(j * cells + i)] += p.z - pile.baseZ;
        ++count[size_t(j * cells + i)];
        if (std::hypot(p.x - pile.x, p.y - pile.y) < 1.0) top = std::max(top, p.z - pile.baseZ);
    }
    double volume = 0;
    for (size_t c = 0; c < sum.size(); ++c) {
        QVERIFY2(count[c] > 0, "the pile is sampled too sparsely for this check");
        volume += sum[c] / count[c] * cell * cell;
    }
    QVERIFY2(std::fabs(volume - pile.volume()) < 0.03 * pile.volume(),
             qPrintable(QString("volume %1, expected %2").arg(volume).arg(pile.volume())));
    QVERIFY2(top > pile.height * 0.9 && top < pile.height + 0.05, qPrintable(QString("top %1").arg(top)));
    QCOMPARE(pile.volume(), M_PI * 15.0 * 15.0 * 6.0 / 3.0);
}

void TstDemoScene::streamHasExactCount_data()
{
    QTest::addColumn<quint64>("points");
    QTest::addColumn<int>("chunk");
    QTest::newRow("one point") << quint64(1) << 1000;
    QTest::newRow("below noise threshold") << quint64(199) << 64;
    QTest::newRow("first with noise") << quint64(200) << 7;
    QTest::newRow("chunk multiple") << quint64(4096) << 1024;
    QTest::newRow("odd size") << quint64(123457) << 65536;
}

void TstDemoScene::streamHasExactCount()
{
    QFETCH(quint64, points);
    QFETCH(int, chunk);
    PtCloud_DemoScene scene(points, 3);
    stPtCloud_PointArray out;
    quint64 total = 0, noise = 0;
    int n;
    while ((n = scene.nextChunk(out, chunk)) > 0) {
        QVERIFY(n <= chunk);
        QCOMPARE(out.count, n);
        QCOMPARE(out.columnList(), PtCloud_DemoScene::columns());
        const uint8_t* cls = out.columnData<uint8_t>(DSC_Classification);
        for (int i = 0; i < n; ++i) noise += cls[i] == PtCloud_DemoScene::ClassNoise;
        total += quint64(n);
    }
    QCOMPARE(total, points);
    QCOMPARE(noise, scene.noisePointCount());
    QCOMPARE(scene.nextChunk(out, chunk), 0);
}

void TstDemoScene::seedDecidesPoints()
{
    auto firstChunk = [](quint64 seed) {
        PtCloud_DemoScene scene(10000, seed);
        stPtCloud_PointArray out;
        scene.nextChunk(out, 10000);
        return out.positions;
    };
    QVERIFY(firstChunk(5) == firstChunk(5));
    QVERIFY(firstChunk(5) != firstChunk(6));
    // Rewinding replays the same stream.
    PtCloud_DemoScene scene(5000, 9);
    stPtCloud_PointArray a, b;
    scene.nextChunk(a, 5000);
    scene.rewind();
    scene.nextChunk(b, 5000);
    QVERIFY(a.positions == b.positions);
}

QTEST_GUILESS_MAIN(TstDemoScene)
#include "tst_demo_scene.moc"
