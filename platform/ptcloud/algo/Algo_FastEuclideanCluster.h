#pragma once
// Fast Euclidean clustering: point-wise label propagation. The points are
// visited in the k-d tree's order; each looks at the points after it and
// joins sets (lock-free union-find, both cores) with its maxSize nearest of
// them within the distance threshold; the clusters are the final sets.
// Every close pair is thus looked at once, from its earlier point. With
// maxSize at least the most points any point has within the threshold this
// is exactly the connected components Euclidean cluster extraction finds at
// the same tolerance without size limits; a smaller maxSize caps the work
// per point in dense areas and may then split clusters that only touch
// through a few points. There are no size limits. Labels are 0..m-1 in the
// order of each cluster's first point.
//
// Cost: a k-d tree (O(n log n), ~24 bytes a point, built on both cores),
// then per leaf of the tree one walk gathering its surroundings and, per
// point, a scan of that short list: O(n log n + n * g) time with g the
// points within about the threshold plus a leaf's extent, on both cores;
// memory ~30 bytes a point.

#include <QString>
#include <vector>

#include "PtCloudTypes.h"

namespace ptCloud {

class ILongLiveActionProgress;

class Algo_FastEuclideanCluster {
public:
    struct Params {
        double distanceThreshold = 0.2;  // largest gap inside a cluster, metres, > 0 (dialog 0.0001..100)
        int maxSize = 50;                // most neighbours a point looks at, >= 1 (dialog 5..10000)
    };

    // False with "cancelled" when stopped, or a reason for bad parameters;
    // labels is then left empty.
    static bool run(const std::vector<pcVec3f>& points, const Params& params, std::vector<int>& labels,
                    ILongLiveActionProgress* progress, QString* error);
};

}  // namespace ptCloud
