#pragma once

#include <QString>
#include <vector>

#include "PtCloudTypes.h"

namespace ptCloud {

class ILongLiveActionProgress;

// Digital elevation model on a regular grid: each node's height comes from
// the ground points around it by inverse-distance weighting. The weighted
// points fit a local plane rather than being averaged, so sloping ground
// keeps its true height at the grid's border and planes come out exact;
// where the points do not pin a plane down (in a line) their weighted mean
// is used. Nodes with fewer than three ground points near them (under
// buildings, in gaps of the scan) are filled from the nodes around them,
// outside in, and then relaxed so the patch meets its border smoothly.
//
// Cost: n points and m nodes (m is about n / 4 with the density defaults):
// O(n + m) memory (16 bytes a ground point for the plan index, 8 bytes a
// node) and O(n + m * k) time with k points near each node, on every core,
// plus up to O(h * w) for holes of h nodes and w nodes across.
class Algo_DemGrid {
public:
    struct Params {
        // Spacing of the grid nodes, metres, >= 0; 0 picks twice the mean
        // spacing of the ground points (about four of them to a cell),
        // default 0.
        double cellSize = 0.0;
        // Ground points within this many cells of a node take part in its
        // height, cells, 0.5..10, default 1.5; a node with fewer than three
        // that near is a hole.
        double searchCells = 1.5;
    };

    // The grid: node (c, r) stands at plan position (x0 + c * cell,
    // y0 + r * cell) in the points' frame; rows run from south (r = 0) to
    // north.
    struct Grid {
        double x0 = 0.0, y0 = 0.0, cell = 1.0;
        int cols = 0, rows = 0;
        std::vector<float> z;  // cols * rows heights, row by row

        float at(int c, int r) const { return z[size_t(r) * size_t(cols) + size_t(c)]; }
        double xMax() const { return x0 + (cols - 1) * cell; }
        double yMax() const { return y0 + (rows - 1) * cell; }
        // Height at a plan position, bilinear between nodes; positions
        // outside the grid take the nearest border value.
        float sample(double x, double y) const;
        // Lowest and highest node.
        void range(float* lo, float* hi) const;
    };

    // Mean plan distance between neighbouring points: the square root of
    // the area the points cover (counted on a coarse raster) per point.
    // 0 for fewer than two points or points on one spot.
    static double meanSpacing(const std::vector<pcVec3f>& points);

    // Builds the grid over the plan extent of all points from those labelled
    // groundLabel (all points when labels is empty). Fails without ground
    // points, with a cell size that would need more than maxNodes nodes, or
    // on stop ("cancelled"); grid is then left as it was.
    static bool build(const std::vector<pcVec3f>& points, const std::vector<int>& labels, int groundLabel,
                      const Params& params, Grid* grid, ILongLiveActionProgress* progress, QString* error);

    // Two triangles a cell, counter-clockwise seen from above; vertex
    // c + r * cols is node (c, r). Replaces both outputs.
    static void triangulate(const Grid& grid, std::vector<pcVec3f>* vertices, std::vector<unsigned int>* triangles);

    // Most nodes of a grid over n points: at least a million, or four a
    // point, so a tiny cell size over a wide cloud is refused instead of
    // exhausting memory.
    static size_t maxNodes(size_t pointCount);
};

}  // namespace ptCloud
