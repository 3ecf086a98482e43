#pragma once
// k-means clustering (Lloyd's iterations after k-means++ seeding, from a
// fixed seed so that the same input gives the same clusters).
//
// run: on position alone (metres as given).
// runExtra: on position together with the colour and intensity the dataset
// holds, so that clusters follow materials as well as places. Each part is
// scaled to span at most 1 and weighs the same:
//   - position divided by the diagonal of the cloud's bounding box;
//   - colour: red, green and blue in 0..1, each times 1/sqrt(3), so black to
//     white is 1 apart;
//   - intensity: (I - min) / (max - min) over the cloud, so 0..1.
// Missing colour or intensity (an empty vector) leaves that part out; with
// neither it is run() on position.
//
// A cluster number above the point count is clamped to it; fewer clusters
// come out when the points have fewer distinct places (k-means++ never
// seeds on a point that coincides with a centre) or when a cluster loses
// all its points. An iteration is one update of the centres to the means of
// their points followed by a reassignment; iterations stop early once no
// point changes cluster. Labels are 0..m-1 in the order of each cluster's
// first point; every point is labelled.
//
// Cost (n points, k clusters, d = 3 or up to 7 features): seeding updates
// each point's distance to the nearest centre only around the new centre
// (within the largest such distance left), with block sums for the weighted
// draw: about O(n log n + k log n + the points touched); each iteration
// O(n log k) through a k-d tree over the centres (with colour, a few more
// candidates a point), on both cores. Memory ~50 + 4 d bytes a point.

#include <QString>
#include <vector>

#include "PtCloudTypes.h"

namespace ptCloud {

class ILongLiveActionProgress;

class Algo_KMeans {
public:
    struct Params {
        int maxIteration = 10;     // Lloyd iterations at most, >= 1 (dialog 1..100)
        int clusterNumber = 100;   // clusters wanted, >= 1, clamped to the point count
                                   // (dialog 1..10000000)
    };

    // False with "cancelled" when stopped, or a reason for bad parameters;
    // labels is then left empty.
    static bool run(const std::vector<pcVec3f>& points, const Params& params, std::vector<int>& labels,
                    ILongLiveActionProgress* progress, QString* error);
    // colours (RGBA 0..1, alpha ignored) and intensity (any scale) are
    // either empty or one per point.
    static bool runExtra(const std::vector<pcVec3f>& points, const std::vector<pcVec4f>& colours,
                         const std::vector<float>& intensity, const Params& params, std::vector<int>& labels,
                         ILongLiveActionProgress* progress, QString* error);
};

}  // namespace ptCloud
