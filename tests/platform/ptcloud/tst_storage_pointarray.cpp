// In-place edits of a block's points: removals by box and sphere on a regular
// grid whose answers are counted by hand, columns staying with their points,
// triangles re-indexed, and the per-point attribute map.

#include <QtTest>
#include <array>
#include <set>
#include <tuple>

#include "stPtCloud_PointArray.h"

Q_DECLARE_METATYPE(ptCloud::pcBoundingBoxf)
Q_DECLARE_METATYPE(ptCloud::pcBoundingSpheref)

using namespace ptCloud;

namespace {

// A 10 x 10 x 10 grid of points at integer coordinates 0..9. Every column is
// filled from the point's own coordinates, so a point whose columns moved
// away from it is caught after any compaction.
stPtCloud_PointArray makeGrid(int side = 10)
{
    stPtCloud_PointArray a;
    a.origin = pcVec3d(500000.25, 4000000.5, 100.0);
    for (EDataSetColumn c : {DSC_Color, DSC_Normal, DSC_Intensity, DSC_GpsTime, DSC_Label,
                             DSC_Classification, DSC_Location_T})
        a.addColumn(c);
    a.resize(side * side * side);
    int i = 0;
    for (int z = 0; z < side; ++z)
        for (int y = 0; y < side; ++y)
            for (int x = 0; x < side; ++x, ++i) {
                a.positions[i] = pcVec3f(float(x), float(y), float(z));
                a.colors[i] = pcVec4f(x / 9.f, y / 9.f, z / 9.f, 1.f);
                a.normals[i] = pcVec3f(float(z), float(y), float(x));
                const int key = x + 100 * y + 10000 * z;
                a.columnData<quint16>(DSC_Intensity)[i] = quint16(key % 65536);
                a.columnData<double>(DSC_GpsTime)[i] = key * 0.5;
                a.columnData<qint32>(DSC_Label)[i] = -key;
                a.columnData<quint8>(DSC_Classification)[i] = quint8(x + y);
                a.columnData<pcVec3f>(DSC_Location_T)[i] = pcVec3f(float(y), float(z), float(x));
            }
    return a;
}

bool columnsFollowPositions(const stPtCloud_PointArray& a)
{
    for (int i = 0; i < a.count; ++i) {
        const pcVec3f p = a.positions[i];
        const int x = int(p.x), y = int(p.y), z = int(p.z);
        const int key = x + 100 * y + 10000 * z;
        if (!(a.colors[i] == pcVec4f(x / 9.f, y / 9.f, z / 9.f, 1.f)) ||
            a.normals[i] != pcVec3f(p.z, p.y, p.x) ||
            a.columnData<quint16>(DSC_Intensity)[i] != quint16(key % 65536) ||
            a.columnData<double>(DSC_GpsTime)[i] != key * 0.5 ||
            a.columnData<qint32>(DSC_Label)[i] != -key ||
            a.columnData<quint8>(DSC_Classification)[i] != quint8(x + y) ||
            a.columnData<pcVec3f>(DSC_Location_T)[i] != pcVec3f(p.y, p.z, p.x))
            return false;
    }
    return true;
}

bool sizesAgree(const stPtCloud_PointArray& a)
{
    const size_t n = size_t(a.count);
    if (a.positions.size() != n || a.colors.size() != n || a.normals.size() != n) return false;
    for (const auto& col : a.columns)
        if (col.second.size() != n * size_t(columnValueBytes(col.first))) return false;
    return true;
}

enum Shape { InnerBox, OutterBox, InnerSphere, OutterSphere };

}  // namespace

class TestStoragePointArray : public QObject {
    Q_OBJECT
private slots:
    void removals_data();
    void removals();
    void trianglesReindexed();
    void peaceFillsEveryColumn();
    void appendRebasesToOwnOrigin();
    void emptyArrayKeepsItsColumns();
};

void TestStoragePointArray::removals_data()
{
    QTest::addColumn<int>("shape");
    QTest::addColumn<pcBoundingBoxf>("box");
    QTest::addColumn<pcBoundingSpheref>("sphere");
    QTest::addColumn<int>("removed");

    const pcBoundingSpheref none;
    const pcBoundingBoxf noBox;
    // 3..5 on each axis: 27 points.
    const pcBoundingBoxf cube(2.5f, 2.5f, 2.5f, 5.5f, 5.5f, 5.5f);
    QTest::newRow("inner box") << int(InnerBox) << cube << none << 27;
    QTest::newRow("outter box") << int(OutterBox) << cube << none << 1000 - 27;
    // Closed box: points on its faces are inside.
    const pcBoundingBoxf faces(2.f, 2.f, 2.f, 4.f, 4.f, 4.f);
    QTest::newRow("inner box, points on faces") << int(InnerBox) << faces << none << 27;
    // A slab 0..9 x 0..9 x [4,4]: one layer of 100 points.
    const pcBoundingBoxf slab(-1.f, -1.f, 4.f, 10.f, 10.f, 4.f);
    QTest::newRow("inner box, one layer") << int(InnerBox) << slab << none << 100;
    const pcBoundingBoxf away(20.f, 20.f, 20.f, 30.f, 30.f, 30.f);
    QTest::newRow("inner box, misses") << int(InnerBox) << away << none << 0;
    QTest::newRow("outter box, misses") << int(OutterBox) << away << none << 1000;
    // Centre, 6 face neighbours (d = 1), 12 edge neighbours (d = 1.414).
    const pcBoundingSpheref s15(5.f, 5.f, 5.f, 1.5f);
    QTest::newRow("inner sphere r 1.5") << int(InnerSphere) << noBox << s15 << 19;
    QTest::newRow("outter sphere r 1.5") << int(OutterSphere) << noBox << s15 << 1000 - 19;
    // Closed sphere: the 6 neighbours at exactly r = 1 are inside.
    const pcBoundingSpheref s1(5.f, 5.f, 5.f, 1.f);
    QTest::newRow("inner sphere r 1") << int(InnerSphere) << noBox << s1 << 7;
    const pcBoundingSpheref all(4.5f, 4.5f, 4.5f, 100.f);
    QTest::newRow("inner sphere, everything") << int(InnerSphere) << noBox << all << 1000;
}

void TestStoragePointArray::removals()
{
    QFETCH(int, shape);
    QFETCH(pcBoundingBoxf, box);
    QFETCH(pcBoundingSpheref, sphere);
    QFETCH(int, removed);

    stPtCloud_PointArray a = makeGrid();
    switch (shape) {
    case InnerBox: a.removeInnerByBox(box); break;
    case OutterBox: a.removeOutterByBox(box); break;
    case InnerSphere: a.removeInnerBySphere(sphere); break;
    default: a.removeOutterBySphere(sphere); break;
    }
    QCOMPARE(a.count, 1000 - removed);
    QVERIFY(sizesAgree(a));
    QVERIFY(columnsFollowPositions(a));
    const bool inner = shape == InnerBox || shape == InnerSphere;
    const bool isBox = shape == InnerBox || shape == OutterBox;
    for (const pcVec3f& p : a.positions) {
        const bool inside = isBox ? box.contains(p) : sphere.contains(p);
        QVERIFY(inside != inner);
    }
    // Order of the survivors is kept (the grid is in x-fastest order).
    for (int i = 1; i < a.count; ++i) {
        const pcVec3f& p = a.positions[i - 1];
        const pcVec3f& q = a.positions[i];
        QVERIFY(std::make_tuple(p.z, p.y, p.x) < std::make_tuple(q.z, q.y, q.x));
    }
}

void TestStoragePointArray::trianglesReindexed()
{
    // One 10 x 10 layer, two triangles a grid square: 9 * 9 * 2 = 162.
    stPtCloud_PointArray a;
    a.resize(100);
    for (int y = 0; y < 10; ++y)
        for (int x = 0; x < 10; ++x) a.positions[y * 10 + x] = pcVec3f(float(x), float(y), 0.f);
    using Tri = std::multiset<std::tuple<float, float>>;
    std::set<Tri> expected;
    const pcBoundingBoxf box(2.5f, 2.5f, -1.f, 5.5f, 5.5f, 1.f);  // removes x, y in 3..5
    for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 9; ++x) {
            const unsigned v = unsigned(y * 10 + x);
            for (const auto& t : {std::array<unsigned, 3>{v, v + 1, v + 11},
                                  std::array<unsigned, 3>{v, v + 11, v + 10}}) {
                a.triangles.insert(a.triangles.end(), t.begin(), t.end());
                Tri tri;
                bool keep = true;
                for (unsigned k : t) {
                    keep = keep && !box.contains(a.positions[k]);
                    tri.insert({a.positions[k].x, a.positions[k].y});
                }
                if (keep) expected.insert(tri);
            }
        }
    QCOMPARE(a.triangles.size(), size_t(162 * 3));
    a.removeInnerByBox(box);
    QCOMPARE(a.count, 100 - 9);
    // Squares with a corner in 3..5 x 3..5 have their lower-left corner in
    // 2..5 x 2..5: 16 squares, 32 triangles. The diagonal runs from the lower
    // left to the upper right, so in squares (2, 5) and (5, 2) one triangle
    // misses the removed corner and stays.
    QCOMPARE(a.triangles.size(), size_t((162 - 30) * 3));
    std::set<Tri> got;
    for (size_t t = 0; t < a.triangles.size(); t += 3) {
        Tri tri;
        for (size_t k = 0; k < 3; ++k) {
            QVERIFY(a.triangles[t + k] < unsigned(a.count));
            const pcVec3f& p = a.positions[a.triangles[t + k]];
            tri.insert({p.x, p.y});
        }
        got.insert(tri);
    }
    QVERIFY(got == expected);
}

void TestStoragePointArray::peaceFillsEveryColumn()
{
    const stPtCloud_PointArray a = makeGrid();
    // Point (3, 4, 5).
    const unsigned index = 5 * 100 + 4 * 10 + 3;
    QMap<EDataSetColumn, QVariant> out;
    out.insert(DSC_ScanAngleRank, 1.0);  // stale entries are dropped
    QVERIFY(a.getPeace(index, out));
    QCOMPARE(out.keys(), (QList<EDataSetColumn>{DSC_Location, DSC_Normal, DSC_Label, DSC_Color,
                                                DSC_Intensity, DSC_Classification, DSC_GpsTime,
                                                DSC_Location_T}));
    // Absolute, in double: the origin's fraction survives.
    const QVariantList loc = out[DSC_Location].toList();
    QCOMPARE(loc.size(), 3);
    QCOMPARE(loc[0].toDouble(), 500003.25);
    QCOMPARE(loc[1].toDouble(), 4000004.5);
    QCOMPARE(loc[2].toDouble(), 105.0);
    const QVariantList color = out[DSC_Color].toList();
    QCOMPARE(color, (QVariantList{qRound(3 / 9.0 * 255), qRound(4 / 9.0 * 255), qRound(5 / 9.0 * 255)}));
    QCOMPARE(out[DSC_Normal].toList(), (QVariantList{5.0, 4.0, 3.0}));
    QCOMPARE(out[DSC_Location_T].toList(), (QVariantList{4.0, 5.0, 3.0}));
    const int key = 3 + 400 + 50000;
    QCOMPARE(out[DSC_Intensity].toUInt(), uint(key % 65536));
    QCOMPARE(out[DSC_GpsTime].toDouble(), key * 0.5);
    QCOMPARE(out[DSC_Label].toInt(), -key);
    QCOMPARE(out[DSC_Classification].toUInt(), 7u);

    // Just past the last point: nothing, not even the stale values.
    QVERIFY(a.getPeace(999, out));
    QVERIFY(!a.getPeace(1000, out));
    QVERIFY(out.isEmpty());
}

void TestStoragePointArray::appendRebasesToOwnOrigin()
{
    const stPtCloud_PointArray src = makeGrid(2);
    stPtCloud_PointArray dst;
    dst.origin = pcVec3d(500000.0, 4000000.0, 0.0);
    dst.addColumn(DSC_Intensity);
    dst.addColumn(DSC_ScanAngleRank);  // absent from src: stays zero
    dst.appendPoints(src, 7, 8);       // (1, 1, 1)
    QCOMPARE(dst.count, 1);
    QCOMPARE(dst.positions[0], pcVec3f(1.25f, 1.5f, 101.f));
    QCOMPARE(dst.columnData<quint16>(DSC_Intensity)[0], quint16(1 + 100 + 10000));
    QCOMPARE(dst.columnData<float>(DSC_ScanAngleRank)[0], 0.f);
    QVERIFY(!dst.hasColumn(DSC_GpsTime));
    QVERIFY(dst.colors.empty());
}

void TestStoragePointArray::emptyArrayKeepsItsColumns()
{
    stPtCloud_PointArray a;
    a.addColumn(DSC_Color);
    a.addColumn(DSC_Normal);
    a.addColumn(DSC_UserData);
    QCOMPARE(a.columnList(), (QList<EDataSetColumn>{DSC_Location, DSC_Normal, DSC_Color, DSC_UserData}));
    const stPtCloud_PointArray src = makeGrid(2);
    a.origin = src.origin;
    a.appendPoints(src, 1, 2);
    QCOMPARE(a.colors.size(), size_t(1));
    QCOMPARE(a.normals.size(), size_t(1));
    QCOMPARE(a.computeBounds().min, pcVec3f(1.f, 0.f, 0.f));
}

QTEST_APPLESS_MAIN(TestStoragePointArray)
#include "tst_storage_pointarray.moc"
