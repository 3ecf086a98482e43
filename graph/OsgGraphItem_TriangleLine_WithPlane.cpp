#include "OsgGraphItem_TriangleLine_WithPlane.h"

#include "MarkerColors.h"
#include "MarkerParts.h"

OsgGraphItem_TriangleLine_WithPlane::OsgGraphItem_TriangleLine_WithPlane(const osg::Vec3f& first,
                                                                         const osg::Vec3f& second,
                                                                         const osg::Vec3f& third)
{
    const osg::Vec3f outline[] = {first, second, third, first};
    osg::ref_ptr<osg::Vec3Array> triangle = new osg::Vec3Array(4, outline);
    m_triangle = MarkerParts::addLines(this, triangle.get(), GL_LINE_STRIP, MarkerColors::lineYellow());

    // The same strict comparisons as for a line: of equal heights the
    // earlier corner counts as the higher one.
    int lowest = second.z() > first.z() ? 0 : 1;
    const osg::Vec3f corners[] = {first, second, third};
    if (!(third.z() > corners[lowest].z())) lowest = 2;
    const osg::Vec3f& low = corners[lowest];

    osg::ref_ptr<osg::Vec3Array> components = new osg::Vec3Array;
    for (int i = 0; i < 3; ++i) {
        if (i == lowest) continue;
        const osg::Vec3f foot(corners[i].x(), corners[i].y(), low.z());
        components->push_back(corners[i]);
        components->push_back(foot);
        components->push_back(low);
        components->push_back(foot);
    }
    m_components = MarkerParts::addLines(this, components.get(), GL_LINES, MarkerColors::componentViolet());
}

OsgGraphItem_TriangleLine_WithPlane::~OsgGraphItem_TriangleLine_WithPlane()
{
    m_components = nullptr;
    m_triangle = nullptr;
}

const osg::Geometry* OsgGraphItem_TriangleLine_WithPlane::triangleGeometry() const { return m_triangle.get(); }

const osg::Geometry* OsgGraphItem_TriangleLine_WithPlane::componentGeometry() const { return m_components.get(); }
