#pragma once

#include <QString>
#include <vector>

#include "Algo_DemGrid.h"
#include "PtCloud_ContourFile.h"

namespace ptCloud {

class ILongLiveActionProgress;

// Contour lines of a DEM grid by marching squares: each level crosses the
// cell edges whose ends lie on either side of it, the crossings of a cell are
// joined into segments (a cell whose corners alternate is split by its mean
// height), and segments sharing an edge crossing are chained into
// polylines, closed where the chain returns to its start and open where it
// leaves the grid.
//
// Cost: m nodes, L levels: O(L * m) time, O(m + s) memory for the s
// segments of one level; the output holds every crossing once.
class Algo_Contours {
public:
    struct Params {
        // Number of levels, evenly spaced strictly between the lowest and the
        // highest node (the extremes themselves only touch the surface),
        // 1..10000, default 50.
        int levels = 50;
    };

    // Level k of count (k = 1..count) between lo and hi.
    static double level(double lo, double hi, int k, int count);

    // Traces the contours of grid. Points are in the grid's frame with z at
    // the level; each line's `level` is absolute: its height plus originZ.
    // Lines come level by level, lowest first. On failure or stop
    // ("cancelled") lines is left as it was.
    static bool trace(const Algo_DemGrid::Grid& grid, const Params& params, double originZ,
                      std::vector<PtCloud_ContourFile::Polyline>* lines, ILongLiveActionProgress* progress,
                      QString* error);
};

}  // namespace ptCloud
