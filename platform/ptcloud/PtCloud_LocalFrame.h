#pragma once

#include <QString>

#include "PtCloudTypes.h"

namespace ptCloud {

// The frame a block file's positions live in: single-precision offsets from
// an origin kept in double precision. Everything a user reads or types is
// absolute; everything drawn, picked or stored in a block is relative. This
// is the one place where the two meet.
class PtCloud_LocalFrame {
public:
    PtCloud_LocalFrame() = default;
    explicit PtCloud_LocalFrame(const pcVec3d& origin) : m_origin(origin) {}
    // The frame of a block file, read from its header; false (and the
    // identity frame) when the file cannot be opened.
    static bool ofPointFile(const QString& path, PtCloud_LocalFrame* frame, QString* error = nullptr);

    const pcVec3d& origin() const { return m_origin; }
    pcVec3d toAbsolute(const pcVec3f& relative) const;
    pcVec3f toRelative(const pcVec3d& absolute) const;
    // An axis-aligned box given by its absolute centre and its size.
    pcBoundingBoxf boxToRelative(const pcVec3d& centre, const pcVec3d& size) const;
    pcBoundingSpheref sphereToRelative(const pcVec3d& centre, double radius) const;

private:
    pcVec3d m_origin;
};

}  // namespace ptCloud
