#include "OsgGraphItem_Point_Draggable.h"

#include "MarkerColors.h"
#include "MarkerParts.h"

OsgGraphItem_Point_Draggable::OsgGraphItem_Point_Draggable(const osg::Vec3f& position)
    : m_position(position),
      m_sphere(new osg::Sphere(position, 1.0f)),
      m_drawable(MarkerParts::addShape(this, m_sphere.get(), MarkerColors::markerRed()))
{
}

OsgGraphItem_Point_Draggable::~OsgGraphItem_Point_Draggable()
{
    m_drawable = nullptr;
    m_sphere = nullptr;
}

osg::Vec3f OsgGraphItem_Point_Draggable::position() const { return m_position; }
