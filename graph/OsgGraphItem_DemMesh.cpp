#include "OsgGraphItem_DemMesh.h"

#include "BlockGeometry.h"
#include "MessageLogger.h"
#include "PointShader.h"
#include "PtCloud_DataSetFile.h"

OsgGraphItem_DemMesh::OsgGraphItem_DemMesh(ptCloud::PtCloud_DataSetFile* file) : m_file(file)
{
    applyPointShader(this);
    rebuild();
}

OsgGraphItem_DemMesh::~OsgGraphItem_DemMesh() = default;

void OsgGraphItem_DemMesh::setVisible(bool visible) { setNodeMask(visible ? ~0u : 0u); }

bool OsgGraphItem_DemMesh::isVisible() const { return getNodeMask() != 0u; }

bool OsgGraphItem_DemMesh::rebuild()
{
    removeDrawables(0, getNumDrawables());
    if (!m_file) return false;
    ptCloud::PtCloud_DataSetFile reader(m_file->getFilepath());
    if (!reader.openFile()) {
        MessageLogger::debug() << "Cannot draw the DEM mesh:" << reader.lastError();
        return false;
    }
    QMap<int, std::tuple<unsigned int, ptCloud::pcBoundingBoxf>> blocks;
    reader.getBlocks(blocks);
    for (auto it = blocks.cbegin(); it != blocks.cend(); ++it) {
        const ptCloud::stPtCloud_PointArray* block = reader.readBlock(it.key());
        if (!block) {
            MessageLogger::debug() << "Cannot draw the DEM mesh:" << reader.lastError();
            return false;
        }
        osg::ref_ptr<osg::Geometry> geometry =
            BlockGeometry::make(*block, PointColoring(), 1, reader.getHeader().bounds);
        if (geometry) addDrawable(geometry.get());
    }
    return true;
}
