#pragma once

#include <osg/Geometry>
#include <osg/Vec3d>
#include <osg/ref_ptr>

#include <atomic>

#include "PtCloudTypes.h"

struct PointColoring;

namespace ptCloud {
class IDataSetReader;
}

// One block of a dataset as the level-of-detail loader sees it: where it is,
// the level of the geometry shown and the level the camera wants.
//
// Levels: 0 none, 1 every point, 2 every 3rd point, 3 every 10th point.
// Blocks of at most kNeverThinned points are always built whole.
//
// The GUI thread writes the levels; the loader thread reads them while it
// builds, so they are atomic.
class PcBlockTile {
public:
    static constexpr unsigned int kNeverThinned = 1000;

    PcBlockTile(int blockId, const ptCloud::pcBoundingBoxf& box, unsigned int pointCount);

    int blockId() const;
    const ptCloud::pcBoundingBoxf& box() const;
    unsigned int pointCount() const;

    // Level 1 closer than 20 box radii from the box centre, 2 closer than 50,
    // 3 beyond (both comparisons strict, in single precision). Stores the
    // result as the wanted level.
    int computeLevel(const osg::Vec3d& eye);

    // Reads the block and builds its geometry at the wanted level, which it
    // reports in builtLevel, coloured as asked (null: in the block's own
    // mode). Null when there is nothing to build (no wanted level, already
    // loaded at it, no reader) or when the block cannot be read or has no
    // point.
    osg::ref_ptr<osg::Geometry> build(ptCloud::IDataSetReader* reader, int* builtLevel,
                                      const PointColoring* coloring = nullptr) const;

    int wantedLevel() const;
    int loadedLevel() const;
    void setLoadedLevel(int level);

    // 0 for level 1, 3 for level 2, 10 for level 3.
    static int strideOfLevel(int level);
    // Distance in the block between consecutive points drawn at the level:
    // 1 when the block is small enough never to be thinned.
    static int pointStride(int level, unsigned int pointCount);

private:
    int m_blockId;
    ptCloud::pcBoundingBoxf m_box;
    unsigned int m_pointCount;
    std::atomic<int> m_loadedLevel{0};
    std::atomic<int> m_wantedLevel{0};
};
