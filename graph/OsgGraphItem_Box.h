#pragma once

#include <osg/BoundingBox>
#include <osg/Geode>
#include <osg/ShapeDrawable>
#include <osg/ref_ptr>

#include "PtCloudTypes.h"

// The cut tool's box: axis aligned, translucent yellow, blended. A box whose
// corners are swapped on an axis still has a positive size on it.
class OsgGraphItem_Box : public osg::Geode {
public:
    explicit OsgGraphItem_Box(const osg::BoundingBox& box);
    explicit OsgGraphItem_Box(const ptCloud::pcBoundingBoxf& box);

    void setBox(const osg::BoundingBox& box);
    void setBox(const ptCloud::pcBoundingBoxf& box);
    const osg::Box* box() const;

protected:
    ~OsgGraphItem_Box() override;

private:
    osg::ref_ptr<osg::Box> m_box;
    osg::ref_ptr<osg::ShapeDrawable> m_drawable;
};
