// Command packages: exactly the keys of the chosen function, the value types
// a host reads back, the defaults for missing keys, the fields a package
// leaves alone, and the deliberate oddities of the exchanged format. Writing
// compares the package with the record and reading compares the record with
// the package, so together they cover the round trip.

#include <QtTest>
#include <functional>

#include "stPtCloud_uiCmdPackage_makeMesh.h"
#include "stPtCloud_uiCmdPackage_sample.h"
#include "stPtCloud_uiCmdPackage_showWindow.h"
#include "stPtCloud_uiCmdPackage_split.h"

using MakeMesh = stPtCloud_uiCmdPackage_makeMesh;
using Sample = stPtCloud_uiCmdPackage_sample;
using Split = stPtCloud_uiCmdPackage_split;

namespace {
constexpr int kEveryFunction = -100;

// One keyed field of a record: its key, the function that carries it, the
// default fromPackage stores when the key is missing (its type is the type
// the package holds), and access to the member.
template <class R>
struct Field {
    QString key;
    int func;
    QVariant def;
    std::function<QVariant(const R&)> get;
    std::function<void(R&, const QVariant&)> set;
};

#define FIELD(R, key, member, fn, def)                                                 \
    Field<R>                                                                           \
    {                                                                                  \
        key, fn, QVariant(def), [](const R& r) { return QVariant(r.member); },          \
            [](R& r, const QVariant& v) { r.member = v.value<decltype(r.member)>(); } \
    }

const QList<Field<MakeMesh>>& fields(const MakeMesh*)
{
    static const QList<Field<MakeMesh>> list{
        FIELD(MakeMesh, "fast_normal", fast_normal, kEveryFunction, true),
        FIELD(MakeMesh, "alphaValue", alphaValue, 0, 1000.0),
        FIELD(MakeMesh, "ball_radius", ball_radius, 1, 600.0),
        FIELD(MakeMesh, "poisson_details", poisson_details, 2, 8u),
        FIELD(MakeMesh, "poisson_width", poisson_width, 2, 120u),
        FIELD(MakeMesh, "poisson_density_divide", poisson_density_divide, 2, 1.0),
    };
    return list;
}

const QList<Field<Sample>>& fields(const Sample*)
{
    static const QList<Field<Sample>> list{
        FIELD(Sample, "PoissonDisk_TargetPercents", PoissonDisk_TargetPercents, 0, 0.5),
        FIELD(Sample, "PoissonDisk_Init_Factor", PoissonDisk_Init_Factor, 0, 5.0),
        FIELD(Sample, "PoissonDisk_MakeMeshAlpha", PoissonDisk_MakeMeshAlpha, 0, 100.0),
    };
    return list;
}

const QList<Field<Split>>& fields(const Split*)
{
    static const QList<Field<Split>> list{
        FIELD(Split, "_dbscan_epsilon", dbscan_epsilon, 0, 200.0),
        FIELD(Split, "_dbscan_minpts", dbscan_minpts, 0, 45),
        FIELD(Split, "_dbscan_retainNoise", dbscan_retainNoise, 0, true),
        FIELD(Split, "_KMeans_MaxIteration", KMeans_MaxIteration, 1, 10),
        FIELD(Split, "_KMeans_ClusterNum", KMeans_ClusterNum, 1, 100),
        FIELD(Split, "_KMeansExtra_MaxIteration", KMeansExtra_MaxIteration, 2, 10),
        FIELD(Split, "_KMeansExtra_ClusterNum", KMeansExtra_ClusterNum, 2, 100),
        FIELD(Split, "_Euclidean_Tolerance", Euclidean_Tolerance, 3, 100.0),
        FIELD(Split, "_Euclidean_MinCluster", Euclidean_MinCluster, 3, 20),
        FIELD(Split, "_Euclidean_MaxCluster", Euclidean_MaxCluster, 3, 1000000),
        FIELD(Split, "_Euclidean_DisTh", Euclidean_DisTh, 4, 200.0),
        FIELD(Split, "_Euclidean_MaxSize", Euclidean_MaxSize, 4, 50),
        FIELD(Split, "_RegionGrowing_Tolerance", RegionGrowing_Tolerance, 5, 20),
        FIELD(Split, "_RegionGrowing_Smooth", RegionGrowing_Smooth, 5, 10.0),
        FIELD(Split, "_RegionGrowing_Cure", RegionGrowing_Cure, 5, 1.0),
        FIELD(Split, "_RegionGrowing_MinCluster", RegionGrowing_MinCluster, 5, 50),
        FIELD(Split, "_RegionGrowing_MaxCluster", RegionGrowing_MaxCluster, 5, 1000000),
        FIELD(Split, "_CSF_SloopSmooth", CSF_SloopSmooth, 13, true),
        FIELD(Split, "_CSF_ClassThreshold", CSF_ClassThreshold, 13, 500.0),
        FIELD(Split, "_CSF_ClothResolution", CSF_ClothResolution, 13, 500.0),
        FIELD(Split, "_CSF_Interations", CSF_Interations, 13, 500),
        FIELD(Split, "_CSF_Rigidness", CSF_Rigidness, 13, 3),
        FIELD(Split, "_CSF_TimeStep", CSF_TimeStep, 13, 0.65),
        FIELD(Split, "_CSF_RemoveGround", CSF_RemoveGround, 13, true),
    };
    return list;
}
#undef FIELD

template <class R>
const QList<Field<R>>& fieldsOf()
{
    return fields(static_cast<const R*>(nullptr));
}

// A value of the default's type that no default and no written value uses.
QVariant sentinelLike(const QVariant& def, int = 0)
{
    switch (def.userType()) {
    case QMetaType::Bool: return false;
    case QMetaType::Int: return -7;
    case QMetaType::UInt: return 99u;
    default: return -2.5;
    }
}

// Distinct written values: whole numbers, so the region-growing read-back
// keeps them.
QVariant writtenLike(const QVariant& def, int i)
{
    switch (def.userType()) {
    case QMetaType::Bool: return false;
    case QMetaType::Int: return 300 + i;
    case QMetaType::UInt: return uint(11 + i);
    default: return 1000.0 + 17 * i;
    }
}

// A record of func whose every field holds value(default, position).
template <class R>
R recordOf(int func, QVariant (*value)(const QVariant&, int))
{
    R r;
    r.func = func;
    int i = 0;
    for (const Field<R>& f : fieldsOf<R>()) f.set(r, value(f.def, i++));
    return r;
}

bool carries(int fieldFunc, int func) { return fieldFunc == kEveryFunction || fieldFunc == func; }


// Writes a record of func and checks the package's keys, values and types.
template <class R>
void checkWritten(int func, const QStringList& expectedKeys, int writtenFunc)
{
    const R r = recordOf<R>(func, writtenLike);
    QVariant out = QVariant(QStringLiteral("replaced"));
    r.toPackage(out);
    QCOMPARE(out.userType(), int(QMetaType::QVariantMap));
    const QVariantMap m = out.toMap();
    QStringList keys = m.keys();
    QStringList expected = expectedKeys;
    keys.sort();
    expected.sort();
    QCOMPARE(keys, expected);
    QCOMPARE(m.value("func").userType(), int(QMetaType::Int));
    QCOMPARE(m.value("func").toInt(), writtenFunc);
    for (const Field<R>& f : fieldsOf<R>()) {
        if (!m.contains(f.key)) continue;
        QVERIFY2(m.value(f.key).userType() == f.def.userType(), qPrintable(f.key));
        QVERIFY2(m.value(f.key) == f.get(r), qPrintable(f.key));
    }
}

// Reads a package into a sentinel record: the fields of the package's
// function take the package's values or the defaults, the others stay.
template <class R>
void checkRead(const QVariant& package, int expectedFunc)
{
    R r = recordOf<R>(12345, sentinelLike);
    r.fromPackage(package);
    QCOMPARE(r.func, expectedFunc);
    const QVariantMap m = package.toMap();
    for (const Field<R>& f : fieldsOf<R>()) {
        QVariant expected = sentinelLike(f.def);
        if (carries(f.func, expectedFunc)) expected = m.contains(f.key) ? m.value(f.key) : f.def;
        expected.convert(f.def.userType());
        QVERIFY2(f.get(r) == expected, qPrintable(QStringLiteral("%1: %2 instead of %3")
                                                      .arg(f.key, f.get(r).toString(), expected.toString())));
    }
}

void dispatch(const QString& kind, const std::function<void()>& mesh, const std::function<void()>& sample,
              const std::function<void()>& split)
{
    if (kind == "mesh") mesh();
    else if (kind == "sample") sample();
    else split();
}
}  // namespace

class TestPackages : public QObject {
    Q_OBJECT
private slots:
    void writesTheKeysOfItsFunction_data();
    void writesTheKeysOfItsFunction();
    void readsDefaultsForMissingKeys_data();
    void readsDefaultsForMissingKeys();
    void regionGrowingReadsWholeNumbers_data();
    void regionGrowingReadsWholeNumbers();
    void csfKeysKeepTheirSpelling_data();
    void csfKeysKeepTheirSpelling();
    void showWindowIsABareBool_data();
    void showWindowIsABareBool();
};

void TestPackages::writesTheKeysOfItsFunction_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("func");
    QTest::addColumn<QStringList>("keys");
    QTest::addColumn<int>("writtenFunc");
    QTest::newRow("mesh alpha") << "mesh" << 0 << QStringList{"func", "fast_normal", "alphaValue"} << 0;
    QTest::newRow("mesh ball pivoting") << "mesh" << 1 << QStringList{"func", "fast_normal", "ball_radius"} << 1;
    QTest::newRow("mesh poisson") << "mesh" << 2
                                  << QStringList{"func", "fast_normal", "poisson_details", "poisson_width",
                                                 "poisson_density_divide"}
                                  << 2;
    QTest::newRow("mesh 3 unknown") << "mesh" << 3 << QStringList{"func", "fast_normal"} << 0;
    QTest::newRow("mesh -1 unknown") << "mesh" << -1 << QStringList{"func", "fast_normal"} << 0;
    QTest::newRow("sample poisson disk") << "sample" << 0
                                         << QStringList{"func", "PoissonDisk_TargetPercents",
                                                        "PoissonDisk_Init_Factor", "PoissonDisk_MakeMeshAlpha"}
                                         << 0;
    QTest::newRow("sample 1 unknown") << "sample" << 1 << QStringList{"func"} << 0;
    QTest::newRow("split dbscan") << "split" << 0
                                  << QStringList{"func", "_dbscan_epsilon", "_dbscan_minpts", "_dbscan_retainNoise"}
                                  << 0;
    QTest::newRow("split kmeans") << "split" << 1
                                  << QStringList{"func", "_KMeans_MaxIteration", "_KMeans_ClusterNum"} << 1;
    QTest::newRow("split kmeans extra")
        << "split" << 2 << QStringList{"func", "_KMeansExtra_MaxIteration", "_KMeansExtra_ClusterNum"} << 2;
    QTest::newRow("split euclidean")
        << "split" << 3
        << QStringList{"func", "_Euclidean_Tolerance", "_Euclidean_MinCluster", "_Euclidean_MaxCluster"} << 3;
    QTest::newRow("split euclidean fast") << "split" << 4
                                          << QStringList{"func", "_Euclidean_DisTh", "_Euclidean_MaxSize"} << 4;
    QTest::newRow("split region growing")
        << "split" << 5
        << QStringList{"func", "_RegionGrowing_Tolerance", "_RegionGrowing_Smooth", "_RegionGrowing_Cure",
                       "_RegionGrowing_MinCluster", "_RegionGrowing_MaxCluster"}
        << 5;
    for (int f = 6; f <= 12; ++f)
        QTest::addRow("split %d without parameters", f) << "split" << f << QStringList{"func"} << f;
    QTest::newRow("split csf") << "split" << 13
                               << QStringList{"func", "_CSF_SloopSmooth", "_CSF_ClassThreshold",
                                              "_CSF_ClothResolution", "_CSF_Interations", "_CSF_Rigidness",
                                              "_CSF_TimeStep", "_CSF_RemoveGround"}
                               << 13;
    QTest::newRow("split 14 unknown") << "split" << 14 << QStringList{"func"} << 0;
    QTest::newRow("split -1 unknown") << "split" << -1 << QStringList{"func"} << 0;
}

void TestPackages::writesTheKeysOfItsFunction()
{
    QFETCH(QString, kind);
    QFETCH(int, func);
    QFETCH(QStringList, keys);
    QFETCH(int, writtenFunc);
    dispatch(
        kind, [&] { checkWritten<MakeMesh>(func, keys, writtenFunc); },
        [&] { checkWritten<Sample>(func, keys, writtenFunc); }, [&] { checkWritten<Split>(func, keys, writtenFunc); });
}

void TestPackages::readsDefaultsForMissingKeys_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QVariant>("package");
    QTest::addColumn<int>("func");
    const QVariant nothing;
    QTest::newRow("mesh from invalid") << "mesh" << nothing << 0;
    QTest::newRow("mesh from int") << "mesh" << QVariant(42) << 0;
    QTest::newRow("mesh from list") << "mesh" << QVariant(QVariantList{2, true}) << 0;
    QTest::newRow("mesh from empty map") << "mesh" << QVariant(QVariantMap()) << 0;
    QTest::newRow("mesh ball pivoting") << "mesh" << QVariant(QVariantMap{{"func", 1}}) << 1;
    QTest::newRow("mesh poisson, one key given")
        << "mesh" << QVariant(QVariantMap{{"func", 2}, {"poisson_width", 77u}, {"fast_normal", false}}) << 2;
    QTest::newRow("mesh 7 reads only fast normal") << "mesh" << QVariant(QVariantMap{{"func", 7}}) << 7;
    QTest::newRow("mesh extra keys ignored")
        << "mesh" << QVariant(QVariantMap{{"func", 0}, {"ball_radius", 5.0}, {"other", 1}}) << 0;
    QTest::newRow("mesh func as text") << "mesh" << QVariant(QVariantMap{{"func", "2"}}) << 2;
    QTest::newRow("mesh wrong value type")
        << "mesh" << QVariant(QVariantMap{{"func", 0}, {"alphaValue", "not a number"}}) << 0;
    QTest::newRow("sample from invalid") << "sample" << nothing << 0;
    QTest::newRow("sample poisson disk") << "sample" << QVariant(QVariantMap{{"func", 0}}) << 0;
    QTest::newRow("sample 1 reads nothing more")
        << "sample" << QVariant(QVariantMap{{"func", 1}, {"PoissonDisk_Init_Factor", 9.0}}) << 1;
    QTest::newRow("split from invalid") << "split" << nothing << 0;
    for (int f = 0; f <= 14; ++f) QTest::addRow("split %d, no keys", f) << "split" << QVariant(QVariantMap{{"func", f}}) << f;
    QTest::newRow("split 7 ignores keys of others")
        << "split" << QVariant(QVariantMap{{"func", 7}, {"_dbscan_minpts", 3}}) << 7;
}

void TestPackages::readsDefaultsForMissingKeys()
{
    QFETCH(QString, kind);
    QFETCH(QVariant, package);
    QFETCH(int, func);
    dispatch(
        kind, [&] { checkRead<MakeMesh>(package, func); }, [&] { checkRead<Sample>(package, func); },
        [&] { checkRead<Split>(package, func); });
}

void TestPackages::regionGrowingReadsWholeNumbers_data()
{
    QTest::addColumn<double>("smooth");
    QTest::addColumn<double>("cure");
    QTest::addColumn<double>("smoothBack");
    QTest::addColumn<double>("cureBack");
    QTest::newRow("fractions dropped") << 10.7 << 1.5 << 10.0 << 1.0;
    QTest::newRow("just below one") << 0.999 << 2.999 << 0.0 << 2.0;
    QTest::newRow("negative towards zero") << -3.7 << -0.5 << -3.0 << 0.0;
    QTest::newRow("whole numbers kept") << 42.0 << 3.0 << 42.0 << 3.0;
}

void TestPackages::regionGrowingReadsWholeNumbers()
{
    QFETCH(double, smooth);
    QFETCH(double, cure);
    QFETCH(double, smoothBack);
    QFETCH(double, cureBack);
    Split r;
    r.func = 5;
    r.RegionGrowing_Smooth = smooth;
    r.RegionGrowing_Cure = cure;
    QVariant package;
    r.toPackage(package);
    const QVariantMap m = package.toMap();
    // Written exactly, as doubles: only reading drops the fraction.
    QCOMPARE(m.value("_RegionGrowing_Smooth").userType(), int(QMetaType::Double));
    QCOMPARE(m.value("_RegionGrowing_Smooth").toDouble(), smooth);
    Split back;
    back.fromPackage(m);
    QCOMPARE(back.RegionGrowing_Smooth, smoothBack);
    QCOMPARE(back.RegionGrowing_Cure, cureBack);
}

void TestPackages::csfKeysKeepTheirSpelling_data()
{
    QTest::addColumn<QString>("iterationsKey");
    QTest::addColumn<QString>("slopeKey");
    QTest::addColumn<int>("iterations");
    QTest::addColumn<bool>("slopeSmooth");
    QTest::newRow("stored spelling is read") << "_CSF_Interations" << "_CSF_SloopSmooth" << 77 << false;
    QTest::newRow("correct spelling is not") << "_CSF_Iterations" << "_CSF_SlopeSmooth" << 500 << true;
}

void TestPackages::csfKeysKeepTheirSpelling()
{
    QFETCH(QString, iterationsKey);
    QFETCH(QString, slopeKey);
    QFETCH(int, iterations);
    QFETCH(bool, slopeSmooth);
    Split r;
    r.CSF_Interations = 1;
    r.CSF_SloopSmooth = false;
    r.fromPackage(QVariantMap{{"func", 13}, {iterationsKey, 77}, {slopeKey, false}});
    QCOMPARE(r.CSF_Interations, iterations);
    QCOMPARE(r.CSF_SloopSmooth, slopeSmooth);
}

void TestPackages::showWindowIsABareBool_data()
{
    QTest::addColumn<bool>("show");
    QTest::newRow("show") << true;
    QTest::newRow("hide") << false;
}

void TestPackages::showWindowIsABareBool()
{
    QFETCH(bool, show);
    stPtCloud_uiCmdPackage_showWindow r;
    r.show = show;
    QVariant out;
    r.toPackage(out);
    QCOMPARE(out.userType(), int(QMetaType::Bool));
    QCOMPARE(out.toBool(), show);
    stPtCloud_uiCmdPackage_showWindow back;
    back.show = !show;
    back.fromPackage(out);
    QCOMPARE(back.show, show);
    // A map is not a flag: it reads as false.
    back.show = true;
    back.fromPackage(QVariantMap{{"show", true}});
    QCOMPARE(back.show, false);
}

QTEST_GUILESS_MAIN(TestPackages)
#include "tst_processing_packages.moc"
