#pragma once
// Fast Euclidean clustering: label propagation between the cells of a
// uniform grid. The cells' side is the distance threshold / sqrt(3), so
// every two points of a cell are within the threshold and a cell carries one
// label; a point's neighbours lie at most two cells away on each axis. Each
// cell then looks at the 62 cells after it in x, y, z order within that
// reach and takes over the label of any that holds a point within the
// threshold of one of its own (lock-free union-find, both cores), skipping
// cells that already carry its label. The clusters are the final labels.
//
// The neighbour cap: each point looks at the points after it, at most
// maxSize of them. In its own cell it looks at the next point (every two
// points of a cell are neighbours, so the chain joins the cell); then, cell
// by cell, nearest cells first, at one point within the threshold in each
// later cell that holds one, while it has looks left. With maxSize at least
// the most points any point has within the threshold no point runs out, and
// the clusters are exactly the connected components Euclidean cluster
// extraction finds at the same tolerance without size limits; a smaller
// cap can only split clusters, and only where a cell has at least maxSize
// occupied cells after it (never when maxSize >= 63). The links never
// depend on the threads' timing; a binding cap makes them depend on the
// input order of a cell's points, which its chain follows. There are no
// size limits. Labels are 0..m-1 in the order of each cluster's first
// point.
//
// Cost: a radix sort of the points by cell (O(n), three passes over
// 16-byte records for most scenes), then per occupied cell a walk of the
// cells around it, with point pairs measured only between cells not yet
// joined and stopping at the first pair within the threshold: O(n + c * 62)
// time for c occupied cells, on both cores. Dense scenes cost little: a
// cell of many points joins wholesale. Memory: ~32 bytes a point while
// sorting, then ~20 bytes a point and ~40 bytes an occupied cell.

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
