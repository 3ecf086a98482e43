#include "OsgGraphItem_Box.h"

#include "MarkerColors.h"
#include "MarkerParts.h"

#include <cmath>

namespace {

osg::BoundingBox toOsg(const ptCloud::pcBoundingBoxf& box)
{
    return osg::BoundingBox(box.min.x, box.min.y, box.min.z, box.max.x, box.max.y, box.max.z);
}

osg::Vec3 halfLengths(const osg::BoundingBox& box)
{
    const osg::Vec3 size = box._max - box._min;
    return osg::Vec3(std::fabs(size.x()), std::fabs(size.y()), std::fabs(size.z())) * 0.5f;
}

}  // namespace

OsgGraphItem_Box::OsgGraphItem_Box(const osg::BoundingBox& box)
    : m_box(new osg::Box),
      m_drawable(MarkerParts::addShape(this, m_box.get(), MarkerColors::translucentYellow()))
{
    MarkerParts::makeTranslucent(this);
    setBox(box);
}

OsgGraphItem_Box::OsgGraphItem_Box(const ptCloud::pcBoundingBoxf& box) : OsgGraphItem_Box(toOsg(box)) {}

OsgGraphItem_Box::~OsgGraphItem_Box()
{
    m_drawable = nullptr;
    m_box = nullptr;
}

void OsgGraphItem_Box::setBox(const osg::BoundingBox& box)
{
    m_box->setCenter((box._min + box._max) * 0.5f);
    m_box->setHalfLengths(halfLengths(box));
    MarkerParts::reshape(this, m_drawable.get());
}

void OsgGraphItem_Box::setBox(const ptCloud::pcBoundingBoxf& box) { setBox(toOsg(box)); }

const osg::Box* OsgGraphItem_Box::box() const { return m_box.get(); }
