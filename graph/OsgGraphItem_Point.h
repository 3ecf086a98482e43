#pragma once

#include <QString>

#include <osg/Geode>
#include <osg/ShapeDrawable>
#include <osg/Vec3f>
#include <osg/ref_ptr>
#include <osgText/Text>

// A picked point: a red sphere of radius 1 and, when the label is not empty,
// a white label 5 above it that keeps its size on screen and faces the viewer.
class OsgGraphItem_Point : public osg::Geode {
public:
    OsgGraphItem_Point(const osg::Vec3f& position, const QString& label);

    void setPosition(const osg::Vec3f& position);
    osg::Vec3f position() const;
    // Null while the label is empty.
    const osgText::Text* labelText() const;

protected:
    ~OsgGraphItem_Point() override;

private:
    void placeLabel();

    osg::Vec3f m_position;
    QString m_label;
    osg::ref_ptr<osg::Sphere> m_sphere;
    osg::ref_ptr<osg::ShapeDrawable> m_drawable;
    osg::ref_ptr<osgText::Text> m_text;
};
