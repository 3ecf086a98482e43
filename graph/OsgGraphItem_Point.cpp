#include "OsgGraphItem_Point.h"

#include "MarkerColors.h"
#include "MarkerParts.h"

namespace {
constexpr float kRadius = 1.0f;
constexpr float kLabelHeight = 5.0f;
}  // namespace

OsgGraphItem_Point::OsgGraphItem_Point(const osg::Vec3f& position, const QString& label)
    : m_position(position),
      m_label(label),
      m_sphere(new osg::Sphere(position, kRadius)),
      m_drawable(MarkerParts::addShape(this, m_sphere.get(), MarkerColors::markerRed()))
{
    placeLabel();
}

OsgGraphItem_Point::~OsgGraphItem_Point()
{
    m_text = nullptr;
    m_drawable = nullptr;
    m_sphere = nullptr;
}

void OsgGraphItem_Point::setPosition(const osg::Vec3f& position)
{
    m_position = position;
    m_sphere->setCenter(position);
    MarkerParts::reshape(this, m_drawable.get());
    placeLabel();
}

osg::Vec3f OsgGraphItem_Point::position() const { return m_position; }

const osgText::Text* OsgGraphItem_Point::labelText() const { return m_text.get(); }

void OsgGraphItem_Point::placeLabel()
{
    if (m_label.isEmpty()) return;
    if (!m_text) {
        m_text = MarkerParts::makeLabel(m_label);
        addDrawable(m_text.get());
    }
    m_text->setPosition(osg::Vec3(m_position.x(), m_position.y(), m_position.z() + kLabelHeight));
}
