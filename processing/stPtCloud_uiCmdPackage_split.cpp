#include "stPtCloud_uiCmdPackage_split.h"

#include <QVariantMap>
#include <cmath>
#include <limits>

namespace {
// Region-growing smoothness and curvature have always been read back as
// whole numbers (10.7 gives 10.0) and readers rely on it. QVariant::toInt()
// rounds, so the fraction is dropped here explicitly.
double wholeNumber(const QVariant& value)
{
    const double v = std::trunc(value.toDouble());
    return qBound(double(std::numeric_limits<qint32>::min()), v, double(std::numeric_limits<qint32>::max()));
}
}  // namespace

void stPtCloud_uiCmdPackage_split::toPackage(QVariant& out) const
{
    QVariantMap m;
    switch (func) {
    case 0:
        m.insert("func", func);
        m.insert("_dbscan_epsilon", dbscan_epsilon);
        m.insert("_dbscan_minpts", dbscan_minpts);
        m.insert("_dbscan_retainNoise", dbscan_retainNoise);
        break;
    case 1:
        m.insert("func", func);
        m.insert("_KMeans_MaxIteration", KMeans_MaxIteration);
        m.insert("_KMeans_ClusterNum", KMeans_ClusterNum);
        break;
    case 2:
        m.insert("func", func);
        m.insert("_KMeansExtra_MaxIteration", KMeansExtra_MaxIteration);
        m.insert("_KMeansExtra_ClusterNum", KMeansExtra_ClusterNum);
        break;
    case 3:
        m.insert("func", func);
        m.insert("_Euclidean_Tolerance", Euclidean_Tolerance);
        m.insert("_Euclidean_MinCluster", Euclidean_MinCluster);
        m.insert("_Euclidean_MaxCluster", Euclidean_MaxCluster);
        break;
    case 4:
        m.insert("func", func);
        m.insert("_Euclidean_DisTh", Euclidean_DisTh);
        m.insert("_Euclidean_MaxSize", Euclidean_MaxSize);
        break;
    case 5:
        m.insert("func", func);
        m.insert("_RegionGrowing_Tolerance", RegionGrowing_Tolerance);
        m.insert("_RegionGrowing_Smooth", RegionGrowing_Smooth);
        m.insert("_RegionGrowing_Cure", RegionGrowing_Cure);
        m.insert("_RegionGrowing_MinCluster", RegionGrowing_MinCluster);
        m.insert("_RegionGrowing_MaxCluster", RegionGrowing_MaxCluster);
        break;
    case 6: case 7: case 8: case 9: case 10: case 11: case 12:
        m.insert("func", func);
        break;
    case 13:
        m.insert("func", func);
        m.insert("_CSF_SloopSmooth", CSF_SloopSmooth);
        m.insert("_CSF_ClassThreshold", CSF_ClassThreshold);
        m.insert("_CSF_ClothResolution", CSF_ClothResolution);
        m.insert("_CSF_Interations", CSF_Interations);
        m.insert("_CSF_Rigidness", CSF_Rigidness);
        m.insert("_CSF_TimeStep", CSF_TimeStep);
        m.insert("_CSF_RemoveGround", CSF_RemoveGround);
        break;
    default:
        break;
    }
    if (!m.contains("func")) m.insert("func", 0);
    out = QVariant(m);
}

void stPtCloud_uiCmdPackage_split::fromPackage(const QVariant& in)
{
    const QVariantMap m = in.toMap();
    func = m.value("func", 0).toInt();
    switch (func) {
    case 0:
        dbscan_epsilon = m.value("_dbscan_epsilon", 200.0).toDouble();
        dbscan_minpts = m.value("_dbscan_minpts", 45).toInt();
        dbscan_retainNoise = m.value("_dbscan_retainNoise", true).toBool();
        break;
    case 1:
        KMeans_MaxIteration = m.value("_KMeans_MaxIteration", 10).toInt();
        KMeans_ClusterNum = m.value("_KMeans_ClusterNum", 100).toInt();
        break;
    case 2:
        KMeansExtra_MaxIteration = m.value("_KMeansExtra_MaxIteration", 10).toInt();
        KMeansExtra_ClusterNum = m.value("_KMeansExtra_ClusterNum", 100).toInt();
        break;
    case 3:
        Euclidean_Tolerance = m.value("_Euclidean_Tolerance", 100.0).toDouble();
        Euclidean_MinCluster = m.value("_Euclidean_MinCluster", 20).toInt();
        Euclidean_MaxCluster = m.value("_Euclidean_MaxCluster", 1000000).toInt();
        break;
    case 4:
        Euclidean_DisTh = m.value("_Euclidean_DisTh", 200.0).toDouble();
        Euclidean_MaxSize = m.value("_Euclidean_MaxSize", 50).toInt();
        break;
    case 5:
        RegionGrowing_Tolerance = m.value("_RegionGrowing_Tolerance", 20).toInt();
        RegionGrowing_Smooth = wholeNumber(m.value("_RegionGrowing_Smooth", 10.0));
        RegionGrowing_Cure = wholeNumber(m.value("_RegionGrowing_Cure", 1.0));
        RegionGrowing_MinCluster = m.value("_RegionGrowing_MinCluster", 50).toInt();
        RegionGrowing_MaxCluster = m.value("_RegionGrowing_MaxCluster", 1000000).toInt();
        break;
    case 13:
        CSF_SloopSmooth = m.value("_CSF_SloopSmooth", true).toBool();
        CSF_ClassThreshold = m.value("_CSF_ClassThreshold", 500.0).toDouble();
        CSF_ClothResolution = m.value("_CSF_ClothResolution", 500.0).toDouble();
        CSF_Interations = m.value("_CSF_Interations", 500).toInt();
        CSF_Rigidness = m.value("_CSF_Rigidness", 3).toInt();
        CSF_TimeStep = m.value("_CSF_TimeStep", 0.65).toDouble();
        CSF_RemoveGround = m.value("_CSF_RemoveGround", true).toBool();
        break;
    default:
        break;
    }
}
