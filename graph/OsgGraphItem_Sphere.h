#pragma once

#include <osg/Geode>
#include <osg/ShapeDrawable>
#include <osg/Vec4f>
#include <osg/ref_ptr>

#include "PtCloudTypes.h"

// The cut tool's sphere: translucent yellow, blended.
class OsgGraphItem_Sphere : public osg::Geode {
public:
    // Centre (0, 0, 0), radius 1.
    OsgGraphItem_Sphere();
    explicit OsgGraphItem_Sphere(const ptCloud::pcBoundingSpheref& sphere);

    // x, y, z: the centre; w: the radius.
    void setSphere(const osg::Vec4f& sphere);
    void setSphere(const ptCloud::pcBoundingSpheref& sphere);
    const osg::Sphere* sphere() const;

protected:
    ~OsgGraphItem_Sphere() override;

private:
    osg::ref_ptr<osg::Sphere> m_sphere;
    osg::ref_ptr<osg::ShapeDrawable> m_drawable;
};
