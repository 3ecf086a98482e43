#pragma once

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/ShapeDrawable>
#include <osg/Vec4>
#include <osg/ref_ptr>
#include <osgText/Text>

#include <QString>

// The pieces the marker items are made of, built the same way in every item.
class MarkerParts {
public:
    // A drawable of the shape in one colour, added to the item.
    static osg::ref_ptr<osg::ShapeDrawable> addShape(osg::Geode* item, osg::Shape* shape, const osg::Vec4& colour);
    // Rebuilds the drawable after its shape changed and makes sure the item
    // still holds it.
    static void reshape(osg::Geode* item, osg::ShapeDrawable* drawable);
    // Blending on, drawn after the opaque scene.
    static void makeTranslucent(osg::Node* item);
    // A geometry of the vertices drawn as one primitive (GL_LINES,
    // GL_LINE_STRIP, ...) in one colour, through a vertex buffer, added to
    // the item.
    static osg::ref_ptr<osg::Geometry> addLines(osg::Geode* item, osg::Vec3Array* vertices, GLenum mode,
                                                const osg::Vec4& colour);
    // A white label of 20 screen pixels, centred on its position and turned
    // to face the viewer, in the 3D resource font.
    static osg::ref_ptr<osgText::Text> makeLabel(const QString& text);
};
