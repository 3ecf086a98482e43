#include "MarkerParts.h"

#include "AppConfig.h"
#include "MarkerColors.h"

#include <QFile>

#include <osg/StateSet>

osg::ref_ptr<osg::ShapeDrawable> MarkerParts::addShape(osg::Geode* item, osg::Shape* shape, const osg::Vec4& colour)
{
    osg::ref_ptr<osg::ShapeDrawable> drawable = new osg::ShapeDrawable(shape);
    drawable->setColor(colour);
    item->addDrawable(drawable.get());
    return drawable;
}

void MarkerParts::reshape(osg::Geode* item, osg::ShapeDrawable* drawable)
{
    drawable->build();
    if (!item->containsDrawable(drawable)) item->addDrawable(drawable);
}

void MarkerParts::makeTranslucent(osg::Node* item)
{
    osg::StateSet* state = item->getOrCreateStateSet();
    state->setMode(GL_BLEND, osg::StateAttribute::ON);
    state->setRenderingHint(osg::StateSet::TRANSPARENT_BIN);
}

osg::ref_ptr<osg::Geometry> MarkerParts::addLines(osg::Geode* item, osg::Vec3Array* vertices, GLenum mode,
                                                  const osg::Vec4& colour)
{
    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setVertexArray(vertices);
    osg::ref_ptr<osg::Vec4Array> colours = new osg::Vec4Array;
    colours->push_back(colour);
    geometry->setColorArray(colours, osg::Array::BIND_OVERALL);
    geometry->addPrimitiveSet(new osg::DrawArrays(mode, 0, GLsizei(vertices->size())));
    item->addDrawable(geometry.get());
    return geometry;
}

osg::ref_ptr<osgText::Text> MarkerParts::makeLabel(const QString& text)
{
    osg::ref_ptr<osgText::Text> label = new osgText::Text;
    const QString font = AppConfig::getInstance().get3DResourceFilepath(QStringLiteral("SimSun.ttf"));
    label->setFont(QFile::encodeName(font).toStdString());
    label->setColor(MarkerColors::labelWhite());
    label->setText(text.toStdWString().c_str());
    label->setCharacterSize(20.0f);
    label->setCharacterSizeMode(osgText::Text::SCREEN_COORDS);
    label->setAutoRotateToScreen(true);
    label->setAlignment(osgText::Text::CENTER_CENTER);
    return label;
}
