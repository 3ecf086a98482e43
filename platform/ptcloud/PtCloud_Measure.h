#pragma once

#include "PtCloudTypes.h"

namespace ptCloud {

// Measure: lengths between two picked points and areas of the triangle of
// three, in space and projected onto the horizontal plane. Points are given
// in a dataset's relative frame, where single precision keeps millimetres.
// Each call is a handful of floating-point operations.
class PtCloud_Measure {
public:
    // |B - A| in single precision; in the plane, both heights set to 0.
    static double length(const pcVec3f& a, const pcVec3f& b);
    static double planeLength(const pcVec3f& a, const pcVec3f& b);
    // Heron's formula on side lengths taken in double precision; 0 when
    // one side is at least the sum of the other two (collinear or repeated
    // points).
    static double area(const pcVec3f& a, const pcVec3f& b, const pcVec3f& c);
    // The triangle with every height set to 0, sides in single precision;
    // 0 unless each side is strictly shorter than the sum of the others
    // (so a triangle in a vertical plane has no plane area).
    static double planeArea(const pcVec3f& a, const pcVec3f& b, const pcVec3f& c);
};

}  // namespace ptCloud
