#pragma once

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Vec3f>
#include <osg/ref_ptr>

// A measured line in yellow with its components in violet: the vertical
// drop from the higher end and the level run at the lower end's height.
// Ends of equal height take the first as the higher one.
class OsgGraphItem_Line_WithPlane : public osg::Geode {
public:
    OsgGraphItem_Line_WithPlane(const osg::Vec3f& first, const osg::Vec3f& second);

    // Vertices first, second; GL_LINES.
    const osg::Geometry* lineGeometry() const;
    // Vertices H, D, L, D (H the higher end, L the other, D under H at L's
    // height); GL_LINES.
    const osg::Geometry* componentGeometry() const;

protected:
    ~OsgGraphItem_Line_WithPlane() override;

private:
    osg::ref_ptr<osg::Geometry> m_line;
    osg::ref_ptr<osg::Geometry> m_components;
};
