#pragma once

#include <QString>
#include <vector>

#include "PtCloudTypes.h"

namespace ptCloud {

class ILongLiveActionProgress;

// Poisson-disk thinning of a point cloud (sample action 200): keeps
// round(targetShare * n) of the points (at least one) so that no two kept
// points are closer than a disk radius, which makes the result markedly more
// even than a random subset of the same size.
//
// The disk radius follows the local spacing: point i gets r_i = c * s_i, with
// s_i the mean distance to its 6 nearest neighbours (each counted as at most
// meshAlpha), averaged over its 16 nearest neighbours so that it follows the
// density of the scan rather than the chance gaps between single points.
// Dense and sparse parts of a scan are therefore thinned by the same share
// and the result keeps the scan's density pattern, only evener; a single
// global radius would flatten dense parts and leave sparse ones whole.
// meshAlpha plays the part it has in an alpha-shape mesh, where no edge is
// longer than alpha: a point's spacing is judged only from neighbours within
// alpha, so isolated points and sparse fringes (spacing above alpha) get
// smaller disks, are thinned less, and do not drag their surroundings along.
//
// Selection is dart throwing in a fixed pseudo-random order: a point is kept
// when no kept point lies within its disk. The scale c is searched (power-law
// steps inside a shrinking bracket) for the smallest kept count still at or
// above the target, starting from c = initFactor. The surplus, usually a few
// points, is removed by weighted sample elimination (the most crowded kept
// point first). Where the count jumps with c, as on an exact lattice, the
// surplus can be a tenth of the points and elimination does the rest of the
// spacing. Deterministic for a given input.
//
// Cost: a k-d tree and two k-NN queries per point, O(n log n) on all cores,
// then about 5-20 dart-throwing passes of O(n) each on a hash grid (single
// thread) and O(s log n) for a surplus of s. Memory about 120 bytes per point.
class Algo_PoissonDiskSample {
public:
    struct Params {
        // Share of the points to keep; 0.01..1.0, default 1.0 (keep all).
        double targetShare = 1.0;
        // First disk radius tried, in local spacings; 1..100, default 5. Only
        // the number of search passes depends on it.
        double initFactor = 5.0;
        // Longest neighbour distance (m) that counts towards a point's local
        // spacing; 0.0001..100, default 0.1.
        double meshAlpha = 0.1;
    };

    // keptIndices: the kept points' indices in increasing order. False with a
    // one-line reason in *error (keptIndices untouched), "cancelled" on stop.
    static bool run(const std::vector<pcVec3f>& points, const Params& params, std::vector<unsigned int>& keptIndices,
                    ILongLiveActionProgress* progress, QString* error);
};

}  // namespace ptCloud
