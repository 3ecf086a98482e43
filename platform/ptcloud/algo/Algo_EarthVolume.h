#pragma once

#include <QString>
#include <QtGlobal>
#include <vector>

#include "PtCloudTypes.h"

namespace ptCloud {

class ILongLiveActionProgress;

// Dig and fill volumes of the surface inside a closed plan boundary against a
// ground height, as a surveyor measures a stockpile or a pit.
//
// Both methods put a square grid over the boundary (cells aligned to
// multiples of the grid size) and count a cell when its centre lies inside
// the boundary (even-odd rule, so a self-crossing outline counts the parts it
// encloses an odd number of times). Each cell gets one surface height:
// - Grid: the mean height of the points in the cell. The mean, not the
//   highest point, because on a sloped cell the points straddle the cell's
//   centre and their mean is the height there, while the highest point sits
//   half a slope-step too high on every sloped cell of a pile.
// - DTM: the height of the DEM mesh at the cell centre (the highest where
//   triangles overlap), so the grid size only sets the sampling of the mesh.
// Samples above maxTopHeight are ignored. Cells left without a height (no
// points, or outside the mesh) are filled from their neighbours ring by ring
// inward, each taking the mean of the already known cells around it.
// dig = sum over inside cells of (h - ground) * cell area where h > ground,
// fill = sum of (ground - h) * cell area where h < ground.
//
// The boundary average is the mean height of the samples (points for Grid,
// cell-centre heights of the mesh for DTM) within one grid size of the outline,
// on either side; it is the ground height in GroundMode::BoundaryAverage.
//
// Cost: time O(n + T_cells + C + B * E) and memory 12 bytes per grid cell,
// with n points (or the cells covered by the mesh triangles T_cells), C grid
// cells over the boundary's box, B samples near the outline and E outline
// edges. C is capped at maxCells so that a tiny grid size fails fast instead of
// exhausting memory.
class Algo_EarthVolume {
public:
    enum class GroundMode { BoundaryAverage, Fixed };

    struct Params {
        // Where the ground height comes from; default BoundaryAverage.
        GroundMode groundMode = GroundMode::BoundaryAverage;
        // Ground height for GroundMode::Fixed, m, in the frame of the points;
        // -99999..99999, default 0.
        double groundHeight = 0.0;
        // Sky limit, m, same frame: samples above it are ignored;
        // -99999..99999, default 99999 (no limit).
        double maxTopHeight = 99999.0;
        // Side of a grid cell, m; 0.001..99999, default 0.001.
        double gridSize = 0.001;
    };

    struct Result {
        double digVolume = 0.0;   // m³ of surface above the ground height
        double fillVolume = 0.0;  // m³ of space below the ground height
        double groundHeight = 0.0;     // m, the height the volumes refer to
        bool hasBoundaryAverage = false;
        double boundaryAverage = 0.0;  // m, valid when hasBoundaryAverage
        qint64 insideCells = 0;        // cells whose centre is inside
        qint64 filledCells = 0;        // inside cells whose height was interpolated
    };

    // Largest grid (cells over the boundary's box plus a one-cell margin).
    static constexpr qint64 maxCells = qint64(1) << 24;

    // Grid method. points: any superset of the points inside the boundary,
    // relative frame; boundary: the outline's vertices in order (z ignored),
    // closed implicitly. False with a one-line reason in *error, or "cancelled".
    static bool computeGrid(const std::vector<pcVec3f>& points, const std::vector<pcVec3f>& boundary,
                            const Params& params, Result& result, ILongLiveActionProgress* progress,
                            QString* error);

    // DTM method on a triangle mesh (vertices in the frame of the boundary,
    // three indices per triangle).
    static bool computeDtm(const std::vector<pcVec3f>& vertices, const std::vector<unsigned int>& triangles,
                           const std::vector<pcVec3f>& boundary, const Params& params, Result& result,
                           ILongLiveActionProgress* progress, QString* error);
};

}  // namespace ptCloud
