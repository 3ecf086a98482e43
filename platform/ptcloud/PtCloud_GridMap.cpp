#include "PtCloud_GridMap.h"

namespace ptCloud {

namespace {
// Steps and origins are decimals held in binary: 0.001 / 0.0001 is 10 give or
// take an ulp or two, and origins a thousand kilometres apart come out a few
// millionths of a step off. Anything within a ten-thousandth of a step of a
// whole number is one.
bool whole(double v, std::int64_t* out)
{
    const double r = std::round(v);
    if (!(std::fabs(v - r) <= 1e-4) || std::fabs(r) > 9.0e15) return false;
    *out = std::int64_t(r);
    return true;
}
}  // namespace

PtCloud_GridMap::PtCloud_GridMap(const pcVec3d& fromOrigin, const pcVec3d& fromStep, const pcVec3d& toOrigin,
                                 const pcVec3d& toStep)
{
    const double fo[3] = {fromOrigin.x, fromOrigin.y, fromOrigin.z};
    const double fs[3] = {fromStep.x, fromStep.y, fromStep.z};
    const double to[3] = {toOrigin.x, toOrigin.y, toOrigin.z};
    const double ts[3] = {toStep.x, toStep.y, toStep.z};
    for (int a = 0; a < 3; ++a) {
        m_ratio[a] = fs[a] / ts[a];
        m_delta[a] = (fo[a] - to[a]) / ts[a];
        m_exact[a] = whole(m_ratio[a], &m_factor[a]) && whole(m_delta[a], &m_shift[a]);
    }
}

}  // namespace ptCloud
