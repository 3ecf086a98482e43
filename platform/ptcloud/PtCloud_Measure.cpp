#include "PtCloud_Measure.h"

#include <cmath>

namespace ptCloud {

namespace {

pcVec3f flat(const pcVec3f& p) { return {p.x, p.y, 0.f}; }

double side(const pcVec3f& p, const pcVec3f& q)
{
    const double dx = double(q.x) - double(p.x), dy = double(q.y) - double(p.y), dz = double(q.z) - double(p.z);
    return std::sqrt(dx * dx + dy * dy + dz * dz);
}

double heron(double a, double b, double c)
{
    const double s = (a + b + c) * 0.5;
    return std::sqrt(s * (s - a) * (s - b) * (s - c));
}

}  // namespace

double PtCloud_Measure::length(const pcVec3f& a, const pcVec3f& b) { return double((b - a).length()); }

double PtCloud_Measure::planeLength(const pcVec3f& a, const pcVec3f& b) { return length(flat(a), flat(b)); }

double PtCloud_Measure::area(const pcVec3f& a, const pcVec3f& b, const pcVec3f& c)
{
    const double ab = side(a, b), bc = side(b, c), ca = side(c, a);
    if (ab + bc <= ca || ab + ca <= bc || bc + ca <= ab) return 0.0;
    return heron(ab, bc, ca);
}

double PtCloud_Measure::planeArea(const pcVec3f& a, const pcVec3f& b, const pcVec3f& c)
{
    const double ab = planeLength(a, b), bc = planeLength(b, c), ca = planeLength(c, a);
    if (!(ab < bc + ca && bc < ab + ca && ca < ab + bc)) return 0.0;
    return heron(ab, bc, ca);
}

}  // namespace ptCloud
