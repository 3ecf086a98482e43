// Earth volumes of a dataset's areas against a stockpile of known volume.

#include <QTemporaryDir>
#include <QtTest>
#include <cmath>

#include "PtCloud_BlockFileWriter.h"
#include "PtCloud_DataSetFile.h"
#include "VolumeCalcAreaList.h"

using namespace ptCloud;

namespace {
constexpr double kRadius = 10.0, kHeight = 5.0, kStep = 0.1, kHalf = 15.0;
const pcVec3d kOrigin(500000.0, 4000000.0, 100.0);

double coneHeight(double x, double y)
{
    const double r = std::sqrt(x * x + y * y);
    return r < kRadius ? kHeight * (1.0 - r / kRadius) : 0.0;
}

// The cone on flat ground (z = 0) sampled on a regular grid, split into four
// blocks; with triangles it is a mesh of the same surface.
bool writeCone(const QString& path, bool mesh)
{
    stPtCloud_DataSetHeader h;
    h.type = mesh ? DST_Mesh : DST_Points;
    h.origin = kOrigin;
    h.columns = {DSC_Location};
    PtCloud_BlockFileWriter w(path);
    QString err;
    if (!w.begin(h, &err)) return false;
    const int n = int(std::lround(2 * kHalf / kStep)) + 1;
    const int half = n / 2;
    int id = 0;
    for (int bx = 0; bx < 2; ++bx)
        for (int by = 0; by < 2; ++by) {
            stPtCloud_PointArray a;
            a.origin = kOrigin;
            const int i0 = bx * half, i1 = bx ? n - 1 : half, j0 = by * half, j1 = by ? n - 1 : half;
            const int cols = j1 - j0 + 1;
            for (int i = i0; i <= i1; ++i)
                for (int j = j0; j <= j1; ++j) {
                    const double x = -kHalf + i * kStep, y = -kHalf + j * kStep;
                    a.positions.emplace_back(float(x), float(y), float(coneHeight(x, y)));
                }
            a.count = int(a.positions.size());
            if (mesh)
                for (int i = 0; i < i1 - i0; ++i)
                    for (int j = 0; j + 1 < cols; ++j) {
                        const unsigned v = unsigned(i * cols + j);
                        a.triangles.insert(a.triangles.end(), {v, v + unsigned(cols), v + 1, v + 1, v + unsigned(cols),
                                                               v + unsigned(cols) + 1});
                    }
            if (!w.writeBlock(id++, a, &err)) return false;
        }
    return w.commit(&err);
}
}  // namespace

class TestVolumeList : public QObject {
    Q_OBJECT
private slots:
    void stockpile_data();
    void stockpile();
    void failsWithoutSource();
    void areasPersist();
};

void TestVolumeList::stockpile_data()
{
    QTest::addColumn<int>("function");
    QTest::addColumn<double>("ground");
    QTest::addColumn<double>("dig");
    QTest::addColumn<double>("fill");
    const double cone = M_PI * kRadius * kRadius * kHeight / 3.0;
    const double square = 2 * kHalf * 2 * kHalf;
    QTest::newRow("grid on the ground") << int(VCF_Grid) << 0.0 << cone << 0.0;
    QTest::newRow("dtm on the ground") << int(VCF_DTM) << 0.0 << cone << 0.0;
    // A ground one metre up: the cone above it is a similar cone of height 4,
    // and the rest of the square is to fill.
    const double upper = M_PI * std::pow(kRadius * 0.8, 2) * 4.0 / 3.0;
    const double below = square * 1.0 - (cone - upper);
    QTest::newRow("grid raised ground") << int(VCF_Grid) << 1.0 << upper << below;
    QTest::newRow("dtm raised ground") << int(VCF_DTM) << 1.0 << upper << below;
}

void TestVolumeList::stockpile()
{
    QFETCH(int, function);
    QFETCH(double, ground);
    QFETCH(double, dig);
    QFETCH(double, fill);
    QTemporaryDir dir;
    PtCloud_DataSetFile points(dir.filePath("points.pcb")), dem(dir.filePath("dem.pcb"));
    QVERIFY(writeCone(points.getFilepath(), false));
    QVERIFY(writeCone(dem.getFilepath(), true));
    VolumeCalcAreaList list(dir.filePath("volume.json"));
    list.setGridFile(&points);
    list.setDTMFile(&dem);
    VolumeCalcArea* area = list.addArea("pile");
    const float e = float(kHalf - 0.05);
    area->setBoundary({pcVec3f(-e, -e, 0), pcVec3f(e, -e, 0), pcVec3f(e, e, 0), pcVec3f(-e, e, 0)});
    area->setGroundHeightMode(VolumeCalcArea::GroundFixed);
    area->setFixedGroundHeight(ground);
    area->setGridSize(0.5);
    QVERIFY2(list.doCalc(EVolumeCalcFunction(function)), qPrintable(list.lastError()));
    const double gotDig = function == VCF_DTM ? area->getDigVolume_dtm() : area->getDigVolume_grid();
    const double gotFill = function == VCF_DTM ? area->getFillVolume_dtm() : area->getFillVolume_grid();
    // The boundary lies 5 cm inside the sampled square: the fill of that rim is not counted.
    const double rim = 4 * 2 * kHalf * 0.05 * ground;
    QVERIFY2(std::fabs(gotDig - dig) < 0.02 * dig + 0.5, qPrintable(QString::number(gotDig)));
    QVERIFY2(std::fabs(gotFill - fill) < 0.02 * fill + rim + 0.5, qPrintable(QString::number(gotFill)));
    // The boundary runs on flat ground at z = 0.
    QVERIFY(std::fabs(area->getGroundHeightBoundaryAvg()) < 0.05f || ground != 0.0);
}

void TestVolumeList::failsWithoutSource()
{
    QTemporaryDir dir;
    VolumeCalcAreaList list(dir.filePath("volume.json"));
    list.addArea("a")->setBoundary({pcVec3f(0, 0, 0), pcVec3f(1, 0, 0), pcVec3f(0, 1, 0)});
    QVERIFY(!list.doCalc(VCF_DTM));
    QVERIFY(!list.doCalc(VCF_Grid));
    QVERIFY(!list.lastError().isEmpty());
    QCOMPARE(list.getArea("a")->getDigVolume_grid(), 0.0);
}

void TestVolumeList::areasPersist()
{
    QTemporaryDir dir;
    {
        VolumeCalcAreaList list(dir.filePath("volume.json"));
        QVERIFY(list.addArea("a"));
        QVERIFY(!list.addArea("a"));
        list.addArea("b")->setSkyLimit(12.5);
        list.removeArea("a");
    }
    VolumeCalcAreaList list(dir.filePath("volume.json"));
    QString err;
    QVERIFY(list.load(&err));
    QMap<QString, const VolumeCalcArea*> areas;
    list.getAreas(areas);
    QCOMPARE(areas.keys(), QStringList({"b"}));
    QCOMPARE(areas.value("b")->skyLimit(), 12.5);
}

QTEST_GUILESS_MAIN(TestVolumeList)
#include "tst_volume_list.moc"
