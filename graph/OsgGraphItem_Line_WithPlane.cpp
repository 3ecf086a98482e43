#include "OsgGraphItem_Line_WithPlane.h"

#include "MarkerColors.h"
#include "MarkerParts.h"

OsgGraphItem_Line_WithPlane::OsgGraphItem_Line_WithPlane(const osg::Vec3f& first, const osg::Vec3f& second)
{
    const osg::Vec3f ends[] = {first, second};
    osg::ref_ptr<osg::Vec3Array> line = new osg::Vec3Array(2, ends);
    m_line = MarkerParts::addLines(this, line.get(), GL_LINES, MarkerColors::lineYellow());

    const bool secondHigher = second.z() > first.z();
    const osg::Vec3f& high = secondHigher ? second : first;
    const osg::Vec3f& low = secondHigher ? first : second;
    const osg::Vec3f drop(high.x(), high.y(), low.z());
    const osg::Vec3f parts[] = {high, drop, low, drop};
    osg::ref_ptr<osg::Vec3Array> components = new osg::Vec3Array(4, parts);
    m_components = MarkerParts::addLines(this, components.get(), GL_LINES, MarkerColors::componentViolet());
}

OsgGraphItem_Line_WithPlane::~OsgGraphItem_Line_WithPlane()
{
    m_components = nullptr;
    m_line = nullptr;
}

const osg::Geometry* OsgGraphItem_Line_WithPlane::lineGeometry() const { return m_line.get(); }

const osg::Geometry* OsgGraphItem_Line_WithPlane::componentGeometry() const { return m_components.get(); }
