#include "PcBlockTile.h"

#include "BlockGeometry.h"
#include "IDataSetReader.h"

PcBlockTile::PcBlockTile(int blockId, const ptCloud::pcBoundingBoxf& box, unsigned int pointCount)
    : m_blockId(blockId), m_box(box), m_pointCount(pointCount)
{
}

int PcBlockTile::blockId() const { return m_blockId; }

const ptCloud::pcBoundingBoxf& PcBlockTile::box() const { return m_box; }

unsigned int PcBlockTile::pointCount() const { return m_pointCount; }

int PcBlockTile::computeLevel(const osg::Vec3d& eye)
{
    const ptCloud::pcVec3f centre = (m_box.min + m_box.max) * 0.5f;
    const float r = m_box.radius();
    const float d = (centre - ptCloud::pcVec3f(float(eye.x()), float(eye.y()), float(eye.z()))).length();
    int level = 3;
    if (d < 50.f * r) level = 2;
    if (d < 20.f * r) level = 1;
    m_wantedLevel.store(level);
    return level;
}

osg::ref_ptr<osg::Geometry> PcBlockTile::build(ptCloud::IDataSetReader* reader, int* builtLevel,
                                               const PointColoring* coloring) const
{
    const int level = m_wantedLevel.load();
    if (builtLevel) *builtLevel = level;
    if (level == 0 || level == m_loadedLevel.load() || !reader) return nullptr;
    const ptCloud::stPtCloud_PointArray* block = reader->readBlock(m_blockId);
    if (!block || block->count <= 0) return nullptr;
    PointColoring own;
    own.mode = block->coloringMode;
    return BlockGeometry::make(*block, coloring ? *coloring : own, pointStride(level, unsigned(block->count)),
                               reader->getHeader().bounds);
}

int PcBlockTile::wantedLevel() const { return m_wantedLevel.load(); }

int PcBlockTile::loadedLevel() const { return m_loadedLevel.load(); }

void PcBlockTile::setLoadedLevel(int level) { m_loadedLevel.store(level); }

int PcBlockTile::strideOfLevel(int level)
{
    switch (level) {
    case 2: return 3;
    case 3: return 10;
    default: return 0;
    }
}

int PcBlockTile::pointStride(int level, unsigned int pointCount)
{
    const int stride = strideOfLevel(level);
    return (pointCount > kNeverThinned && stride != 0) ? stride : 1;
}
