#pragma once

#include <QString>
#include <functional>
#include <vector>

#include "PtCloudTypes.h"

namespace ptCloud {

class IDataSetReader;
class ILongLiveActionProgress;
class stPtCloud_PointArray;

// The points of a dataset that lie in a vertical strip along a line drawn in
// plan, as a surveyor takes a profile: the rectangle reaching width / 2 to
// each side of the line and exactly as far as its two ends, at any height.
// Edges count as inside.
//
// Blocks are visited in id order. A block whose plan box misses the strip is
// never read; the others are read one at a time and handed to the caller with
// the indices of their points inside, so memory is one block plus whatever
// the caller keeps.
//
// Cost: one box test per block, then time O(points of the blocks whose box
// meets the strip).
class Algo_SectionStrip {
public:
    // start, end: the line's ends in plan (m, the reader's relative frame);
    // width: the strip's full width (m, >= 0; negative counts as 0). A line
    // of zero length holds no point.
    Algo_SectionStrip(double startX, double startY, double endX, double endY, double width);

    bool contains(double x, double y) const;
    // Whether the box's plan rectangle and the strip share a point.
    bool overlaps(const pcBoundingBoxf& box) const;
    double length() const { return m_length; }

    // Gets one block that holds points inside and their indices (ascending,
    // never empty); returns false, with a reason, to end the walk as failed.
    using Visit = std::function<bool(const stPtCloud_PointArray& block, const std::vector<int>& inside,
                                     QString* error)>;
    // Walks the reader's blocks (it must be open). progress may be null; a
    // stop request ends with the reason "cancelled". blocksRead, when given,
    // gets the number of blocks read point by point.
    bool run(IDataSetReader& reader, const Visit& visit, ILongLiveActionProgress* progress, QString* error,
             int* blocksRead = nullptr) const;

private:
    double m_sx, m_sy;    // start
    double m_dx, m_dy;    // unit direction start -> end (0, 0 for a zero-length line)
    double m_length;
    double m_halfWidth;
};

}  // namespace ptCloud
