#pragma once

#include <QString>
#include <vector>

#include "PtCloudTypes.h"

namespace ptCloud {

class ILongLiveActionProgress;

// Ground segmentation after Patchwork++ (Lee et al. 2022), for vehicle and
// airborne scans alike.
//
// The plan around a centre is cut by a concentric zone model: four zones of
// rings, each ring cut into sectors, bins growing with the range as the
// points thin out. In each bin, points far below the bin's low points are
// reflected noise (multipath echoes) and are dropped first; the lowest
// remaining points seed a plane, refitted by PCA a few times on the points
// near it. A bin's plane is ground when it is upright enough, not raised
// above its neighbours (its plane, extended over each neighbouring bin,
// stays near that bin's lowest points) and flat; the elevation and flatness
// thresholds adapt to each zone's own bins (median plus three median
// deviations), and a raised bin that is very flat and only a little raised
// (a pavement beside a road) is still ground. Points within the distance
// threshold of an accepted plane are ground.
//
// A vehicle scan is centred on the scanner (the densest spot of the plan)
// with the usual ranges of a car-mounted scanner; an airborne scan is
// centred on the middle of its plan with the zones scaled to its extent,
// each zone cut into as many rings and sectors as keep its bins about the
// bin size across.
// Auto tells them apart by how strongly the points crowd near the densest
// spot.
//
// Cost: n points in b bins (504 for a vehicle scan, about the plan area
// over binSize^2 for an airborne one): O(n log n + b) time (sorting each
// bin's heights) on every core, O(n + b) memory (9 bytes a point beyond the
// output).
class Algo_PatchworkGround {
public:
    enum class Layout { Auto, Vehicle, Airborne };

    struct Params {
        // Which kind of scan, default Auto.
        Layout layout = Layout::Auto;
        // Vehicle layout: the nearest and farthest range binned, metres,
        // 0 <= min < max, defaults 2.7 and 80; points outside are non-ground.
        double minRange = 2.7;
        double maxRange = 80.0;
        // Airborne layout: bins at most about this wide, metres, > 0,
        // default 10.
        double binSize = 10.0;
        // Largest distance of a ground point from its bin's plane, metres,
        // >= 0; 0 picks 0.2 for a vehicle scan and 0.5 for an airborne one
        // (ground within a 10 m bin bends more than a road beside a car),
        // default 0.
        double distanceThreshold = 0.0;
        // Points this far below a bin's low points are reflected noise,
        // metres, > 0, default 1.5.
        double noiseDepth = 1.5;
        // Steepest ground plane, degrees from level, 1..89, default 45.
        double maxSlope = 45.0;
        // The least elevation threshold (a bin raised less than this above
        // its neighbours always passes), metres, > 0, default 0.5.
        double minElevation = 0.5;
        // Plane fits a bin, 1..10, default 3.
        int iterations = 3;
    };

    // Labels each point 2 (ground) or 1 (non-ground). Empty input gives
    // empty labels. On failure or stop ("cancelled") labels is left as it was.
    static bool run(const std::vector<pcVec3f>& points, const Params& params, std::vector<int>* labels,
                    ILongLiveActionProgress* progress, QString* error);
};

}  // namespace ptCloud
