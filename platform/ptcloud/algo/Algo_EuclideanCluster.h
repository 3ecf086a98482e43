#pragma once
// Euclidean cluster extraction: the connected components of the graph that
// joins every two points closer than the tolerance. Each cluster grows from
// its first unvisited point through one tolerance search per point, the
// classic way; the searches look only among the points not yet taken. The
// k-d tree's top levels cut the cloud into parts that grow on separate
// cores, each blind to the others; fragments of a cluster that crosses a
// cut are then joined through the close pairs across it. Clusters of fewer
// than minCluster or more than maxCluster points are not kept (-1); the kept
// ones are numbered 0..m-1 in the order of their first point, whatever the
// threads' timing.
//
// Cost: a k-d tree (O(n log n), ~24 bytes a point) and one tolerance search
// per point among the untaken points of its part, O(n log n + n * q) time
// with q the points within the tolerance, shared by the cores; joining adds
// one search per point within the tolerance of a cut. Memory ~45 bytes a
// point. Algo_FastEuclideanCluster finds the same clusters on a grid,
// several times faster.

#include <QString>
#include <vector>

#include "PtCloudTypes.h"

namespace ptCloud {

class ILongLiveActionProgress;

class Algo_EuclideanCluster {
public:
    struct Params {
        double tolerance = 0.1;    // largest gap inside a cluster, metres, > 0 (dialog 0.0001..100)
        int minCluster = 20;       // smallest cluster kept, points, >= 1 (dialog 1..10000000)
        int maxCluster = 1000000;  // largest cluster kept, points, >= minCluster (dialog 1..10000000)
    };

    // False with "cancelled" when stopped, or a reason for bad parameters;
    // labels is then left empty.
    static bool run(const std::vector<pcVec3f>& points, const Params& params, std::vector<int>& labels,
                    ILongLiveActionProgress* progress, QString* error);
};

}  // namespace ptCloud
