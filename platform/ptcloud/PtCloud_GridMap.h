#pragma once

#include <cmath>
#include <cstdint>

#include "PtCloudTypes.h"

namespace ptCloud {

// Carries whole-quantum positions from one grid (an origin and a step an
// axis, such as a LAS file's offset and scale) to another. Where the target
// step divides the source step and the origins lie whole target steps apart,
// the map is integer arithmetic and exact; otherwise each position goes to
// the nearest target step.
class PtCloud_GridMap {
public:
    PtCloud_GridMap() = default;
    PtCloud_GridMap(const pcVec3d& fromOrigin, const pcVec3d& fromStep, const pcVec3d& toOrigin,
                    const pcVec3d& toStep);

    // Exact for every position: no rounding anywhere.
    bool isExact() const { return m_exact[0] && m_exact[1] && m_exact[2]; }

    std::int64_t axis(int a, std::int64_t v) const
    {
        return m_exact[a] ? v * m_factor[a] + m_shift[a] : std::llround(double(v) * m_ratio[a] + m_delta[a]);
    }
    pcVec3q map(std::int64_t x, std::int64_t y, std::int64_t z) const
    {
        return pcVec3q(axis(0, x), axis(1, y), axis(2, z));
    }
    pcVec3q map(const pcVec3q& v) const { return map(v.x, v.y, v.z); }

    // The nearest target step of a single-precision position relative to
    // `from` (an origin in absolute coordinates).
    static pcVec3q quantize(const pcVec3f& p, const pcVec3d& from, const pcVec3d& toOrigin, const pcVec3d& toStep)
    {
        return pcVec3q(std::llround((from.x - toOrigin.x + double(p.x)) / toStep.x),
                       std::llround((from.y - toOrigin.y + double(p.y)) / toStep.y),
                       std::llround((from.z - toOrigin.z + double(p.z)) / toStep.z));
    }

private:
    bool m_exact[3] = {true, true, true};
    std::int64_t m_factor[3] = {1, 1, 1};
    std::int64_t m_shift[3] = {0, 0, 0};
    double m_ratio[3] = {1, 1, 1};
    double m_delta[3] = {0, 0, 0};
};

}  // namespace ptCloud
