#pragma once

#include <osg/Array>
#include <osg/Vec4ub>
#include <osg/ref_ptr>

#include "PtCloudEnums.h"
#include "PtCloudTypes.h"

namespace ptCloud {
class stPtCloud_PointArray;
}

// The palettes that colour point blocks by the block's colouring mode.
class PointColors {
public:
    // ASPRS classes of LAS 1.4 (0 to 18) have fixed colours; reserved and
    // user classes fall back to the cluster palette so they stay apart.
    static osg::Vec4ub classification(unsigned int classCode);
    // Blue (t = 0) through cyan, green and yellow to red (t = 1); t is clamped.
    static osg::Vec4ub heightRamp(float t);
    // Black (t = 0) to white (t = 1), brightened towards the low end where
    // most survey intensities lie; t is clamped.
    static osg::Vec4ub intensityRamp(float t);
    // Consecutive labels step the hue by the golden angle, so neighbouring
    // clusters never look alike; negative labels (noise) are grey.
    static osg::Vec4ub cluster(int label);

    // Colours of the points 0, stride, 2 * stride, ... of the block (stride
    // at least 1) in the given mode (usually the block's own). heightRange:
    // the dataset's bounds, whose z extent spans the height ramp. A mode
    // whose column is missing falls back to the height ramp.
    static osg::ref_ptr<osg::Vec4ubArray> blockColors(const ptCloud::stPtCloud_PointArray& block,
                                                      ptCloud::EColoringMode mode, int stride,
                                                      const ptCloud::pcBoundingBoxf& heightRange);
};
