#pragma once

#include <QImage>
#include <QString>

#include "Algo_DemGrid.h"

namespace ptCloud {

class ILongLiveActionProgress;

// Height map of a DEM grid: an image over the grid's extent, coloured by
// height along a hypsometric ramp (green lowlands, tan, brown, white tops)
// and shaded by a light from the north-west, so relief reads at a glance.
// Saved as PNG with a world file beside it (same name, suffix .pgw: pixel
// width, two rotation terms of 0, minus the pixel height, then the absolute
// x and y of the centre of the top-left pixel) so GIS tools can place it.
//
// Cost: p pixels: O(p) time on every core, O(p) memory (4 bytes a pixel).
class Algo_HeightMap {
public:
    struct Params {
        // Pixels along the longer side of the grid's extent, 2..16384,
        // default 1920; the shorter side keeps the extent's proportions.
        int longerSide = 1920;
        // Direction the light comes from, degrees clockwise from north,
        // 0..360, default 315.
        double azimuth = 315.0;
        // Height of the light above the horizon, degrees, 0..90, default 45.
        double altitude = 45.0;
    };

    // Where the image lies, in the grid's frame: pixel (i, j) covers
    // [left + i * pixelX, left + (i + 1) * pixelX] east and
    // [top - (j + 1) * pixelY, top - j * pixelY] north.
    struct Placement {
        double left = 0.0, top = 0.0, pixelX = 1.0, pixelY = 1.0;
        int width = 0, height = 0;
    };

    // The image's size and position for a grid; the image covers the grid's
    // extent exactly, its top-left corner at the grid's north-west node.
    static Placement placement(const Algo_DemGrid::Grid& grid, int longerSide);

    // Renders the grid. Fails on a grid with fewer than two nodes, bad
    // parameters or stop ("cancelled"); image is then left as it was.
    static bool render(const Algo_DemGrid::Grid& grid, const Params& params, QImage* image,
                       ILongLiveActionProgress* progress, QString* error);

    // The six lines of the world file for an image of the grid, with origin
    // (the frame's absolute position) added to the coordinates.
    static QString worldFile(const Placement& placement, const pcVec3d& origin);
    // The world file's path beside the image: the suffix becomes .pgw.
    static QString worldFilePath(const QString& imagePath);

    // Writes the image as PNG at imagePath and its world file beside it,
    // each through a temporary file, so a failure leaves the old files.
    static bool save(const QImage& image, const Placement& placement, const pcVec3d& origin,
                     const QString& imagePath, QString* error);
};

}  // namespace ptCloud
