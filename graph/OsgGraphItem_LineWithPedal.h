#pragma once

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Vec3f>
#include <osg/ref_ptr>

// The section line A-B in red, the band of the section's width around it in
// blue and, at its middle, a yellow tick (the pedal) twice the width long on
// the side the section looks towards (the right of A->B). The band and the
// pedal lie at A's height.
class OsgGraphItem_LineWithPedal : public osg::Geode {
public:
    OsgGraphItem_LineWithPedal(const osg::Vec3f& a, const osg::Vec3f& b);

    // Width 0 collapses the band onto the line and the pedal to a point.
    void setWidth(float width);
    float width() const;

    const osg::Vec3Array* lineVertices() const;
    // A+, B+, B-, A-, A+: the closed band.
    const osg::Vec3Array* bandVertices() const;
    // The middle of A-B and the end of the tick.
    const osg::Vec3Array* pedalVertices() const;

protected:
    ~OsgGraphItem_LineWithPedal() override;

private:
    osg::Vec3f m_a;
    osg::Vec3f m_b;
    float m_width = 0.1f;
    osg::ref_ptr<osg::Geometry> m_line;
    osg::ref_ptr<osg::Vec3Array> m_lineVertices;
    osg::ref_ptr<osg::Geometry> m_band;
    osg::ref_ptr<osg::Vec3Array> m_bandVertices;
    osg::ref_ptr<osg::Geometry> m_pedal;
    osg::ref_ptr<osg::Vec3Array> m_pedalVertices;
};
