#pragma once

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Vec3f>
#include <osg/ref_ptr>

// A measured triangle in yellow with its components in violet: each corner
// dropped vertically to the height of the lowest corner, and the level runs
// from the lowest corner to the feet of those drops.
class OsgGraphItem_TriangleLine_WithPlane : public osg::Geode {
public:
    OsgGraphItem_TriangleLine_WithPlane(const osg::Vec3f& first, const osg::Vec3f& second, const osg::Vec3f& third);

    // Vertices first, second, third, first; GL_LINE_STRIP.
    const osg::Geometry* triangleGeometry() const;
    // For each corner C other than the lowest (L), with F the point under C
    // at L's height: C, F, L, F; GL_LINES.
    const osg::Geometry* componentGeometry() const;

protected:
    ~OsgGraphItem_TriangleLine_WithPlane() override;

private:
    osg::ref_ptr<osg::Geometry> m_triangle;
    osg::ref_ptr<osg::Geometry> m_components;
};
