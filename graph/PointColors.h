#pragma once

#include <osg/Array>
#include <osg/Vec4ub>
#include <osg/ref_ptr>

#include <QString>

#include <vector>

#include "PtCloudEnums.h"
#include "PtCloudTypes.h"

namespace ptCloud {
class stPtCloud_PointArray;
}

// How an item colours its points. For the height and intensity ramps, low
// and high are the values at the ramp's ends (z in the dataset's relative
// frame, raw intensity); when high is not above low, heights span the
// dataset's z range and intensities the bit depth the block's largest value
// suggests.
struct PointColoring {
    ptCloud::EColoringMode mode = ptCloud::CM_Height;
    float low = 0.f;
    float high = 0.f;
};

// The palettes that colour point blocks by a colouring mode.
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
    // Returns 1 to 5 in well separated colours; later returns share the
    // fifth one, 0 (no return number recorded) is grey.
    static osg::Vec4ub returnNumber(unsigned int number);
    // The ASPRS name of a standard class ("Ground", "Building", ...);
    // "Reserved" or "User defined" for the others.
    static QString className(unsigned int classCode);

    // The values at fractions lowFraction and highFraction of the sorted
    // samples (the 2 % and 98 % of a stretch); equal when the samples are.
    // samples is reordered. False when there are none.
    static bool stretch(std::vector<float>& samples, double lowFraction, double highFraction, float* low,
                        float* high);

    // Colours of the points 0, stride, 2 * stride, ... of the block (stride
    // at least 1). heightRange: the dataset's bounds, whose z extent spans
    // the height ramp unless the colouring gives its ends. A mode whose
    // column is missing falls back to the height ramp.
    static osg::ref_ptr<osg::Vec4ubArray> blockColors(const ptCloud::stPtCloud_PointArray& block,
                                                      const PointColoring& coloring, int stride,
                                                      const ptCloud::pcBoundingBoxf& heightRange);
};
