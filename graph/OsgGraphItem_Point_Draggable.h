#pragma once

#include <osg/Geode>
#include <osg/ShapeDrawable>
#include <osg/Vec3f>
#include <osg/ref_ptr>

// An end of the section line that the user drags: a red sphere of radius 1.
// The section tool builds a new one for a new position.
class OsgGraphItem_Point_Draggable : public osg::Geode {
public:
    explicit OsgGraphItem_Point_Draggable(const osg::Vec3f& position);

    osg::Vec3f position() const;

protected:
    ~OsgGraphItem_Point_Draggable() override;

private:
    osg::Vec3f m_position;
    osg::ref_ptr<osg::Sphere> m_sphere;
    osg::ref_ptr<osg::ShapeDrawable> m_drawable;
};
