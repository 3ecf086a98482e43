#pragma once
// Region growing on normals and curvature. Normals and curvature come from
// a plane fit to each point and its k nearest neighbours
// (Algo_NormalEstimation). Regions start from the flattest point not yet in
// a region (lowest curvature, then lowest index) and grow through each
// member's k nearest neighbours: a neighbour joins when its normal is within
// `smooth` degrees of the normal of the region's seed (normals taken
// unoriented), so a region's normals never stray further than that from
// its seed and two faces whose normals differ by more never merge; a joined
// point grows the region further only when its curvature is below `cure`,
// so edges and clutter join a region but do not carry it on. Regions with
// fewer than minCluster or more than maxCluster points are not kept (-1);
// the kept ones are numbered 0..m-1 in the order of their first point.
//
// Cost: a k-d tree (O(n log n), ~24 bytes a point), one k-NN search and plane
// fit per point on both cores, a sort by curvature, then the growth: one
// visit of every point's neighbours on one core, from a table kept during
// the normal pass (4 k bytes a point) when that stays under 256 MB, else
// from a second search per point. O(n k log n) time; memory ~60 bytes a
// point plus the table.

#include <QString>
#include <vector>

#include "PtCloudTypes.h"

namespace ptCloud {

class ILongLiveActionProgress;

class Algo_RegionGrowing {
public:
    struct Params {
        int neighbours = 20;         // tolerance: neighbours k a point fits its normal to and grows
                                     // through, >= 1 (dialog 1..10000); the fit takes at least 3 points
        double smoothDegrees = 10.0; // largest angle between a member's normal and its seed's,
                                     // degrees, 0..180 (dialog 0..99.99)
        double curvature = 1.0;      // cure: members with a curvature below it grow the region;
                                     // curvature is 0..1/3, so 1 lets every member grow, >= 0
        int minCluster = 50;         // smallest region kept, points, >= 1 (dialog 5..10000)
        int maxCluster = 1000000;    // largest region kept, points, >= minCluster (dialog 10..10000000)
    };

    // False with "cancelled" when stopped, or a reason for bad parameters;
    // labels is then left empty.
    static bool run(const std::vector<pcVec3f>& points, const Params& params, std::vector<int>& labels,
                    ILongLiveActionProgress* progress, QString* error);
};

}  // namespace ptCloud
