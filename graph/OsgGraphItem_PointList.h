#pragma once

#include <osg/Array>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/ref_ptr>

// Points with a colour each, such as the boundary of a volume area. The
// owner fills vertices() and colors() (one colour per vertex) and calls
// rebuild() to show them.
class OsgGraphItem_PointList : public osg::Geode {
public:
    OsgGraphItem_PointList();

    osg::Vec3Array* vertices();
    osg::Vec4Array* colors();
    // Replaces the drawn geometry by one over the arrays as they are now.
    void rebuild();
    // Null before the first rebuild.
    const osg::Geometry* geometry() const;

protected:
    ~OsgGraphItem_PointList() override;

private:
    osg::ref_ptr<osg::Vec3Array> m_vertices;
    osg::ref_ptr<osg::Vec4Array> m_colors;
    osg::ref_ptr<osg::Geometry> m_geometry;
};
