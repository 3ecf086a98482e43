#pragma once

#include <QString>

#include "PtCloudTypes.h"

namespace ptCloud {

class ILongLiveActionProgress;

// Cut: removes from a block file every point inside ("Inner") or outside
// ("Outter") an axis-aligned box or a sphere given in the file's relative
// frame, and writes what is left to another path.
//
// The file is streamed one block at a time, so memory holds one block
// (at most 50 000 points) whatever the dataset's size, and the cost is one
// read and one write of the file. Blocks are decided by their boxes first:
// - Inner: a block whose box misses the shape is copied as it is; one that
//   meets it is cut point by point. When no block meets the shape nothing is
//   written at all.
// - Outter: a block whose box misses the shape lies wholly outside and is
//   dropped without a per-point test; one that meets it is cut point by
//   point. Something is written whenever the file has a block, even when no
//   point goes.
// A block left without points is dropped. A cut with no shape changes
// nothing. The target is written atomically (a temporary file renamed into
// place), so a failed or stopped cut leaves no target behind.
class PtCloud_PointsCut {
public:
    enum ESide { Side_Inner, Side_Outter };
    enum EShape { Shape_None, Shape_Box, Shape_Sphere };
    enum EResult { Result_Unchanged, Result_Written, Result_Failed, Result_Stopped };

    explicit PtCloud_PointsCut(ESide side);
    static PtCloud_PointsCut byBox(const pcBoundingBoxf& box, ESide side);
    static PtCloud_PointsCut bySphere(const pcBoundingSpheref& sphere, ESide side);

    // Reads source, writes the kept points to target. progress (may be null)
    // gets 0..100 by blocks and may stop the cut between two blocks.
    EResult run(const QString& source, const QString& target, ILongLiveActionProgress* progress,
                QString* error) const;

private:
    bool meets(const pcBoundingBoxf& blockBox) const;

    ESide m_side;
    EShape m_shape = Shape_None;
    pcBoundingBoxf m_box;
    pcBoundingSpheref m_sphere;
};

}  // namespace ptCloud
