#pragma once

#include <QString>
#include <vector>

#include "PtCloudTypes.h"

namespace ptCloud {

class ILongLiveActionProgress;

// Surface mesh of a point cloud (mesh actions 0, 1 and 2) through Open3D,
// after normal estimation: a plane fit to the k nearest neighbours of each
// point, then either turned to face up (+z; "fast normal", right for terrain
// and façades seen from one side) or oriented consistently over the whole
// cloud (Hoppe's tangent-plane propagation, right for closed objects).
// - Alpha shape: the boundary of the Delaunay tetrahedra whose circumsphere
//   is smaller than alpha. A scanned surface (a thin shell) comes out as a
//   double-sided skin; a solid-looking cloud as its closed outline. With alpha
//   below the point spacing there are few or no triangles.
// - Ball pivoting: a ball of the given radius, then of twice that radius for
//   the gaps the first left, rolled over the points; a triangle wherever it
//   rests on three. Needs the normals consistent where the surface is seen.
// - Screened Poisson reconstruction: the watertight indicator surface of the
//   oriented points, on an octree of the given depth (a positive width asks
//   for cells of about that size instead, the depth staying the upper bound).
//   Poisson closes every hole, so vertices far from the data may also be
//   dropped by their sampling density: the densest 1/densityDivide stay.
//
// Every method's mesh stays on the data: a triangle any point of which may
// lie farther than twice the mean point spacing (the mean distance from an
// input point to its nearest neighbour) from every input point is dropped,
// judged by its corners' distances to the data plus longest edge / sqrt(3).
// Alpha shapes and ball pivoting, whose corners are input points, lose only
// triangles larger than that; Poisson loses the skin it spreads over holes
// and beyond the edges of the data.
//
// Vertices of the alpha shape and ball pivoting are input points (returned
// with their exact input coordinates and estimated normals); Poisson makes
// new vertices with interpolated normals. Unused vertices are dropped.
//
// Open3D's calls cannot be interrupted: they run on a worker thread while the
// caller polls for stop every 50 ms; on stop the caller returns "cancelled"
// at once and the worker, which owns what it touches, finishes in the
// background and drops its result. One such call runs at a time.
//
// Poisson runs on one thread: Open3D's threaded solve sums in a varying order
// and would not give the same mesh twice.
//
// Cost (n points): normals O(n k log n) on all cores;
// consistent orientation adds a Delaunay tetrahedralisation, O(n log n) but
// slow (about 9 s of CPU per 200 000 points here) and about 3 KB per point;
// alpha shapes the same tetrahedralisation; ball pivoting O(n log n) with the
// neighbours within 2 * radius; Poisson O(n + 4^depth) time and memory for
// surfaces; the trim a k-d tree of the points (about 24 bytes a point) and a
// nearest-point search per point and per Poisson vertex, on all cores. One double-precision copy of the points (24 bytes per point) is
// made for Open3D.
class Algo_Mesh {
public:
    enum class Method { AlphaShape = 0, BallPivoting = 1, Poisson = 2 };

    struct Params {
        // Mesh action code: 0 alpha shape, 1 ball pivoting, 2 Poisson.
        Method method = Method::AlphaShape;
        // Normals turned up (+z) instead of oriented consistently; default true.
        bool fastNormal = true;
        // Alpha shape: largest circumradius of a kept tetrahedron, m;
        // 0.0001..100, default 1.0.
        double alpha = 1.0;
        // Ball pivoting: the first ball radius, m (the second is twice it);
        // 0.0001..100, default 0.6.
        double ballRadius = 0.6;
        // Poisson: octree depth, 1..16, default 8 (1 is run as 2, the
        // smallest tree Open3D accepts).
        unsigned int depth = 8;
        // Poisson: target width of the finest octree cells, m; 0..1000,
        // default 0.12; 0 uses depth alone.
        double width = 0.12;
        // Poisson: keep the densest 1/densityDivide of the vertices;
        // 1..100, default 1 (keep all).
        double densityDivide = 1.0;
        // Neighbours of the plane fit for each normal; 3..200, default 30.
        int normalNeighbours = 30;
        // Neighbours linked in the consistent orientation graph; 3..100,
        // default 10.
        int orientNeighbours = 10;
    };

    // points: relative frame. On success vertices, triangles (three indices
    // each) and, when given, normals (one per vertex) are replaced; on
    // failure they are untouched and *error holds a one-line reason, or
    // "cancelled" after a stop.
    static bool run(const std::vector<pcVec3f>& points, const Params& params, std::vector<pcVec3f>& vertices,
                    std::vector<unsigned int>& triangles, std::vector<pcVec3f>* normals,
                    ILongLiveActionProgress* progress, QString* error);
};

}  // namespace ptCloud
