#pragma once

#include <osg/Geometry>
#include <osg/ref_ptr>

#include "PointColors.h"
#include "PtCloudEnums.h"
#include "PtCloudTypes.h"

namespace ptCloud {
class stPtCloud_PointArray;
}

// Turns one block of points into drawable geometry. Runs on the loader
// thread: it touches nothing but the block and the new geometry.
class BlockGeometry {
public:
    // A block with triangles is drawn whole as its mesh. Otherwise the points
    // 0, stride, 2 * stride, ... (every point for a stride of 0 or 1), with
    // their colours in the given colouring and their normals where the block has
    // them. Null for a block without points. heightRange: see
    // PointColors::blockColors.
    static osg::ref_ptr<osg::Geometry> make(const ptCloud::stPtCloud_PointArray& block,
                                            const PointColoring& coloring, int stride,
                                            const ptCloud::pcBoundingBoxf& heightRange);
};
