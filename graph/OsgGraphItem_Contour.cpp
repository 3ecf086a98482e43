#include "OsgGraphItem_Contour.h"

#include "MessageLogger.h"
#include "PointColors.h"
#include "PointShader.h"
#include "PtCloud_ContourFile.h"

#include <osg/Geometry>

#include <algorithm>
#include <limits>

OsgGraphItem_Contour::OsgGraphItem_Contour(ptCloud::PtCloud_ContourFile* file) : m_file(file)
{
    applyPointShader(this);
    rebuild();
}

OsgGraphItem_Contour::~OsgGraphItem_Contour() = default;

void OsgGraphItem_Contour::setVisible(bool visible) { setNodeMask(visible ? ~0u : 0u); }

bool OsgGraphItem_Contour::isVisible() const { return getNodeMask() != 0u; }

bool OsgGraphItem_Contour::rebuild()
{
    removeDrawables(0, getNumDrawables());
    if (!m_file) return false;
    ptCloud::PtCloud_ContourFile contours(m_file->getFilepath());
    if (!contours.openFile()) {
        MessageLogger::debug() << "Cannot draw the contours of" << m_file->getFilepath();
        return false;
    }
    const std::vector<ptCloud::PtCloud_ContourFile::Polyline>& lines = contours.lines();
    if (lines.empty()) return true;

    double lowest = std::numeric_limits<double>::max();
    double highest = std::numeric_limits<double>::lowest();
    for (const auto& line : lines) {
        lowest = std::min(lowest, line.level);
        highest = std::max(highest, line.level);
    }
    const double span = highest - lowest;

    osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec4ubArray> colours = new osg::Vec4ubArray;
    colours->setNormalize(true);
    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    for (const auto& line : lines) {
        if (line.points.size() < 2) continue;
        const osg::Vec4ub colour = PointColors::heightRamp(span > 0.0 ? float((line.level - lowest) / span) : 0.f);
        const GLint first = GLint(vertices->size());
        for (const ptCloud::pcVec3f& p : line.points) {
            vertices->push_back(osg::Vec3(p.x, p.y, p.z));
            colours->push_back(colour);
        }
        geometry->addPrimitiveSet(
            new osg::DrawArrays(line.closed ? GL_LINE_LOOP : GL_LINE_STRIP, first, GLsizei(line.points.size())));
    }
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setVertexArray(vertices);
    geometry->setColorArray(colours, osg::Array::BIND_PER_VERTEX);
    addDrawable(geometry.get());
    return true;
}
