#include "OsgGraphItem_LineWithPedal.h"

#include "tk/Geometry.h"
#include "MarkerColors.h"
#include "MarkerParts.h"

#include <QLineF>

namespace {

constexpr int kBandVertices = 5;
constexpr int kPedalVertices = 2;

osg::Vec3f atHeight(const QPointF& p, float z) { return osg::Vec3f(float(p.x()), float(p.y()), z); }

double clamped(double angle)
{
    tk::Geometry::clampAngle(angle);
    return angle;
}

}  // namespace

OsgGraphItem_LineWithPedal::OsgGraphItem_LineWithPedal(const osg::Vec3f& a, const osg::Vec3f& b)
    : m_a(a),
      m_b(b),
      m_lineVertices(new osg::Vec3Array),
      m_bandVertices(new osg::Vec3Array(kBandVertices)),
      m_pedalVertices(new osg::Vec3Array(kPedalVertices))
{
    m_lineVertices->push_back(a);
    m_lineVertices->push_back(b);
    m_line = MarkerParts::addLines(this, m_lineVertices.get(), GL_LINES, MarkerColors::sectionRed());
    m_band = MarkerParts::addLines(this, m_bandVertices.get(), GL_LINE_STRIP, MarkerColors::bandBlue());
    m_pedal = MarkerParts::addLines(this, m_pedalVertices.get(), GL_LINES, MarkerColors::lineYellow());
    setWidth(m_width);
}

OsgGraphItem_LineWithPedal::~OsgGraphItem_LineWithPedal()
{
    m_pedalVertices = nullptr;
    m_pedal = nullptr;
    m_bandVertices = nullptr;
    m_band = nullptr;
    m_lineVertices = nullptr;
    m_line = nullptr;
}

void OsgGraphItem_LineWithPedal::setWidth(float width)
{
    m_width = width;
    const double angle = clamped(tk::Geometry::calc_angle(m_a.x(), m_a.y(), m_b.x(), m_b.y()));
    const double left = clamped(angle + 90.0);
    const double right = clamped(angle - 90.0);
    const QPointF a(m_a.x(), m_a.y());
    const QPointF b(m_b.x(), m_b.y());
    const double half = double(width) * 0.5;
    const float z = m_a.z();

    const osg::Vec3f aLeft = atHeight(tk::Geometry::lineEnd_byStartAngleLength(left, a, half), z);
    const osg::Vec3f aRight = atHeight(tk::Geometry::lineEnd_byStartAngleLength(right, a, half), z);
    const osg::Vec3f bLeft = atHeight(tk::Geometry::lineEnd_byStartAngleLength(left, b, half), z);
    const osg::Vec3f bRight = atHeight(tk::Geometry::lineEnd_byStartAngleLength(right, b, half), z);
    // Fixed-length arrays: at() turns a wrong length into an out-of-range
    // failure instead of a write past the end.
    m_bandVertices->at(0) = aLeft;
    m_bandVertices->at(1) = bLeft;
    m_bandVertices->at(2) = bRight;
    m_bandVertices->at(3) = aRight;
    m_bandVertices->at(4) = aLeft;

    const QPointF middle = QLineF(a, b).center();
    m_pedalVertices->at(0) = atHeight(middle, z);
    m_pedalVertices->at(1) = atHeight(tk::Geometry::lineEnd_byStartAngleLength(right, middle, 2.0 * width), z);

    for (osg::Geometry* geometry : {m_line.get(), m_band.get(), m_pedal.get()}) {
        geometry->getVertexArray()->dirty();
        geometry->dirtyDisplayList();
        geometry->dirtyBound();
    }
}

float OsgGraphItem_LineWithPedal::width() const { return m_width; }

const osg::Vec3Array* OsgGraphItem_LineWithPedal::lineVertices() const { return m_lineVertices.get(); }

const osg::Vec3Array* OsgGraphItem_LineWithPedal::bandVertices() const { return m_bandVertices.get(); }

const osg::Vec3Array* OsgGraphItem_LineWithPedal::pedalVertices() const { return m_pedalVertices.get(); }
