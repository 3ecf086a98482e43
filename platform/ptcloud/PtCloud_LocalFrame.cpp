#include "PtCloud_LocalFrame.h"

#include "PtCloud_DataSetFile.h"

namespace ptCloud {

bool PtCloud_LocalFrame::ofPointFile(const QString& path, PtCloud_LocalFrame* frame, QString* error)
{
    *frame = PtCloud_LocalFrame();
    PtCloud_DataSetFile reader(path);
    if (!reader.openFile()) {
        if (error) *error = reader.lastError();
        return false;
    }
    *frame = PtCloud_LocalFrame(reader.getHeader().origin);
    return true;
}

pcVec3d PtCloud_LocalFrame::toAbsolute(const pcVec3f& relative) const
{
    return {m_origin.x + double(relative.x), m_origin.y + double(relative.y), m_origin.z + double(relative.z)};
}

// The difference is taken in double precision: a survey coordinate of
// 5 000 000 m has no centimetres left in a float.
pcVec3f PtCloud_LocalFrame::toRelative(const pcVec3d& absolute) const
{
    return {float(absolute.x - m_origin.x), float(absolute.y - m_origin.y), float(absolute.z - m_origin.z)};
}

pcBoundingBoxf PtCloud_LocalFrame::boxToRelative(const pcVec3d& centre, const pcVec3d& size) const
{
    const pcVec3f lo = toRelative({centre.x - size.x * 0.5, centre.y - size.y * 0.5, centre.z - size.z * 0.5});
    const pcVec3f hi = toRelative({centre.x + size.x * 0.5, centre.y + size.y * 0.5, centre.z + size.z * 0.5});
    return {lo.x, lo.y, lo.z, hi.x, hi.y, hi.z};
}

pcBoundingSpheref PtCloud_LocalFrame::sphereToRelative(const pcVec3d& centre, double radius) const
{
    const pcVec3f c = toRelative(centre);
    return {c.x, c.y, c.z, float(radius)};
}

}  // namespace ptCloud
