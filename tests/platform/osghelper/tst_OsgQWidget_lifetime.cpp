// A view destroyed before it ever drew must not spoil the next one.

#include <QSignalSpy>
#include <QtTest>

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Program>

#include "OsgQWidget.h"

class TestOsgQWidgetLifetime : public QObject {
    Q_OBJECT
private slots:
    void viewAfterAnUnshownOneDraws();
};

void TestOsgQWidgetLifetime::viewAfterAnUnshownOneDraws()
{
    delete new osgHelper::OsgQWidget(nullptr, false);

    osgHelper::OsgQWidget view(nullptr, false);
    view.resize(200, 200);
    // A program compiles on the first frame: that is where a broken cached
    // GL state for the reused context id used to crash.
    auto* program = new osg::Program;
    program->addShader(new osg::Shader(osg::Shader::VERTEX,
                                       "#version 330 core\nuniform mat4 osg_ModelViewProjectionMatrix;"
                                       " layout(location = 0) in vec4 osg_Vertex;"
                                       " void main() { gl_Position = osg_ModelViewProjectionMatrix * osg_Vertex; }"));
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT,
                                       "#version 330 core\nout vec4 fragColor; void main() { fragColor = vec4(1); }"));
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    vertices->push_back(osg::Vec3(0, 0, 0));
    geometry->setVertexArray(vertices);
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_POINTS, 0, 1));
    geode->addDrawable(geometry);
    geode->getOrCreateStateSet()->setAttributeAndModes(program);
    view.getRoot()->addChild(geode);
    QSignalSpy swapped(&view, &QOpenGLWidget::frameSwapped);
    view.show();
    view.requestRedraw();
    QVERIFY(swapped.count() > 0 || swapped.wait(10000));
}

QTEST_MAIN(TestOsgQWidgetLifetime)
#include "tst_OsgQWidget_lifetime.moc"
