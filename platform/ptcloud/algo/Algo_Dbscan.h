#pragma once
// Density-based clustering (DBSCAN). A point with at least minPts points
// (itself included) within epsilon is a core point; core points within
// epsilon of each other share a cluster; a non-core point within epsilon of a
// core point is a border point and joins the cluster of its nearest core
// point (ties: the lower index), so the result does not depend on the order
// of the points; everything else is noise.
//
// Labels are 0..m-1 in the order of each cluster's first point. Noise is -1
// (dropped), or with retainNoise one extra label m after the clusters.
//
// Cost: a k-d tree (O(n log n), ~24 bytes a point), then two passes over
// every pair of points within epsilon (densities; then links and border
// offers), each pair seen once, gathered per leaf of the tree:
// O(n log n + n * q) time with q the points within epsilon, on both cores;
// memory ~50 bytes a point, none per neighbour.

#include <QString>
#include <vector>

#include "PtCloudTypes.h"

namespace ptCloud {

class ILongLiveActionProgress;

class Algo_Dbscan {
public:
    struct Params {
        double epsilon = 0.2;     // neighbourhood radius, metres, > 0 (dialog 0.0001..100)
        int minPts = 45;          // points within epsilon, itself included, that make a
                                  // core point, >= 1 (dialog 5..10000000)
        bool retainNoise = true;  // noise kept under its own last label, else -1
    };

    // False with "cancelled" when stopped, or a reason for bad parameters;
    // labels is then left empty.
    static bool run(const std::vector<pcVec3f>& points, const Params& params, std::vector<int>& labels,
                    ILongLiveActionProgress* progress, QString* error);
};

}  // namespace ptCloud
