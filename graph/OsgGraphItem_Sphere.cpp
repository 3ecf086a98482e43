#include "OsgGraphItem_Sphere.h"

#include "MarkerColors.h"
#include "MarkerParts.h"

OsgGraphItem_Sphere::OsgGraphItem_Sphere()
    : m_sphere(new osg::Sphere(osg::Vec3(0.f, 0.f, 0.f), 1.0f)),
      m_drawable(MarkerParts::addShape(this, m_sphere.get(), MarkerColors::translucentYellow()))
{
    MarkerParts::makeTranslucent(this);
}

OsgGraphItem_Sphere::OsgGraphItem_Sphere(const ptCloud::pcBoundingSpheref& sphere) : OsgGraphItem_Sphere()
{
    setSphere(sphere);
}

OsgGraphItem_Sphere::~OsgGraphItem_Sphere()
{
    m_drawable = nullptr;
    m_sphere = nullptr;
}

void OsgGraphItem_Sphere::setSphere(const osg::Vec4f& sphere)
{
    m_sphere->setCenter(osg::Vec3(sphere.x(), sphere.y(), sphere.z()));
    m_sphere->setRadius(sphere.w());
    MarkerParts::reshape(this, m_drawable.get());
}

void OsgGraphItem_Sphere::setSphere(const ptCloud::pcBoundingSpheref& sphere)
{
    setSphere(osg::Vec4f(sphere.center.x, sphere.center.y, sphere.center.z, sphere.radius));
}

const osg::Sphere* OsgGraphItem_Sphere::sphere() const { return m_sphere.get(); }
