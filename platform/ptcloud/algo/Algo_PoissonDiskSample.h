#pragma once

#include <QString>
#include <vector>

#include "PtCloudTypes.h"

namespace ptCloud {

class ILongLiveActionProgress;

// Poisson-disk thinning of a point cloud (sample action 200): keeps exactly
// round(targetShare * n) of the points (at least one) such that no two kept
// points are closer than one disk radius r, found for the cloud as a whole.
// The radius is the same everywhere, so the result has an even spacing
// whatever the density of the scan: dense parts are thinned more than sparse
// ones (a patch already sparser than r keeps all its points). No radius that
// follows the local spacing is offered; it would let dense parts keep their
// crowding, which is what thinning is asked to remove.
//
// The points go into a grid of cubic cells of side r / sqrt(3), so a cell
// holds at most one kept point and a point can only conflict with kept points
// of the cells up to two steps away. Cells are processed in 27 phases by
// (x mod 3, y mod 3, z mod 3): two cells of one phase are at least two cells
// (more than r) apart, so they are decided at once on all cores. In a cell the
// candidates are tried in a pseudo-random order drawn from `seed`, and the
// first one with no kept point within r is kept; the result is a maximal
// sample for r, the same on any number of cores.
//
// r is searched for the smallest kept count at or above the target: the
// count goes about as a power of r, measured from the last two rounds,
// usually 4 to 6 rounds from initFactor mean spacings. The result is the
// sample at the smallest radius tried that kept too few (the most even),
// completed with points no closer than the largest radius that kept
// enough, then cut to the exact count: the points over it are taken from
// the last phase, the latest in the pseudo-random order, so they are spread
// evenly. Where no radius keeps enough (all points on one spot), r is 0
// and every point is a candidate.
//
// Cost: per round a radix sort of the points by cell and a visit of every
// cell's neighbours (at most 117 cells), O(n) on all cores; 5 to 8 rounds,
// about half a second of one core per million points each. Memory about 70
// bytes per point.
class Algo_PoissonDiskSample {
public:
    struct Params {
        // Share of the points to keep; 0.01..1.0, default 1.0 (keep all).
        double targetShare = 1.0;
        // First disk radius tried, in mean point spacings (the square root of
        // the plan area per point); 1..100, default 5. Only the number of
        // search rounds depends on it.
        double initFactor = 5.0;
        // Kept for the sample action's parameter list, which carries the
        // alpha of a mesh the disks were once measured on; 0.0001..100 m,
        // default 0.1. Has no effect on the result.
        double meshAlpha = 0.1;
        // Seed of the order in which a cell's points are tried; equal seeds
        // give equal results.
        unsigned int seed = 20240607u;
    };

    // keptIndices: the kept points' indices in increasing order; *radius
    // (when given): the disk radius in metres that no two of them are closer
    // than. False with a one-line reason in *error (outputs untouched),
    // "cancelled" on stop.
    static bool run(const std::vector<pcVec3f>& points, const Params& params, std::vector<unsigned int>& keptIndices,
                    ILongLiveActionProgress* progress, QString* error, double* radius = nullptr);
};

}  // namespace ptCloud
