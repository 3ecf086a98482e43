#pragma once

#include <QVariant>

// A segmentation or classification command as the host exchanges it.
// Lengths are in thousandths of the metre values the split dialog shows.
// Function values: 0 DbScan, 1 KMeans, 2 KMeans Extra, 3 Euclidean,
// 4 Euclidean Fast, 5 Region Growing, 6 to 12 functions without parameters,
// 13 cloth simulation filter. The gap before 13 is room for new functions
// and must stay, since stored packages carry these numbers.
struct stPtCloud_uiCmdPackage_split {
    qint32 func = 0;
    double dbscan_epsilon = 200.0;
    qint32 dbscan_minpts = 45;
    bool dbscan_retainNoise = true;
    qint32 KMeans_MaxIteration = 10;
    qint32 KMeans_ClusterNum = 100;
    qint32 KMeansExtra_MaxIteration = 10;
    qint32 KMeansExtra_ClusterNum = 100;
    double Euclidean_Tolerance = 100.0;
    qint32 Euclidean_MinCluster = 20;
    qint32 Euclidean_MaxCluster = 1000000;
    double Euclidean_DisTh = 200.0;  // distance threshold of Euclidean Fast
    qint32 Euclidean_MaxSize = 50;
    qint32 RegionGrowing_Tolerance = 20;
    double RegionGrowing_Smooth = 10.0;
    double RegionGrowing_Cure = 1.0;  // curvature
    qint32 RegionGrowing_MinCluster = 50;
    qint32 RegionGrowing_MaxCluster = 1000000;
    bool CSF_SloopSmooth = true;  // slope smoothing
    double CSF_ClassThreshold = 500.0;
    double CSF_ClothResolution = 500.0;
    qint32 CSF_Interations = 500;  // iterations
    qint32 CSF_Rigidness = 3;
    double CSF_TimeStep = 0.65;
    bool CSF_RemoveGround = true;

    stPtCloud_uiCmdPackage_split() = default;
    stPtCloud_uiCmdPackage_split(const stPtCloud_uiCmdPackage_split&) = default;
    stPtCloud_uiCmdPackage_split(stPtCloud_uiCmdPackage_split&&) = default;
    stPtCloud_uiCmdPackage_split& operator=(const stPtCloud_uiCmdPackage_split&) = default;
    stPtCloud_uiCmdPackage_split& operator=(stPtCloud_uiCmdPackage_split&&) = default;

    // Keys carry a leading underscore; the CSF keys keep the spellings
    // "_CSF_SloopSmooth" and "_CSF_Interations" that stored packages use.
    // An unknown function is written as function 0 without parameters.
    void toPackage(QVariant& out) const;
    // Only the keys of the package's function are read; the other fields keep
    // their values. Region-growing smoothness and curvature are read as
    // integers, as readers of older packages expect.
    void fromPackage(const QVariant& in);
};
