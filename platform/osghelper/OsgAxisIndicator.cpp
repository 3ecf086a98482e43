#include "OsgAxisIndicator.h"

#include "OsgTackballManipulate.h"

#include <osg/Geode>
#include <osg/Geometry>
#include <osg/LineWidth>
#include <osg/Program>

#include <algorithm>

namespace osgHelper {

namespace {

// Logical pixels of the corner square.
constexpr double kSidePixels = 96.0;

// The view's state feeds aliased attributes and the matrix uniform (see
// OsgQWidget), so the axes need a program of their own to pick them up.
const char* const kVertexSource =
    "#version 330 core\n"
    "uniform mat4 osg_ModelViewProjectionMatrix;\n"
    "layout(location = 0) in vec4 osg_Vertex;\n"
    "layout(location = 2) in vec4 osg_Color;\n"
    "out vec4 axisColor;\n"
    "void main() { gl_Position = osg_ModelViewProjectionMatrix * osg_Vertex; axisColor = osg_Color; }\n";
const char* const kFragmentSource =
    "#version 330 core\n"
    "in vec4 axisColor;\n"
    "out vec4 fragColor;\n"
    "void main() { fragColor = axisColor; }\n";

osg::ref_ptr<osg::Geode> makeAxes()
{
    osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    osg::ref_ptr<osg::Vec4Array> colours = new osg::Vec4Array;
    const osg::Vec3 ends[3] = {osg::X_AXIS, osg::Y_AXIS, osg::Z_AXIS};
    for (const osg::Vec3& end : ends) {
        const osg::Vec4 colour(end, 1.0f);
        vertices->push_back(osg::Vec3());
        vertices->push_back(end);
        colours->push_back(colour);
        colours->push_back(colour);
    }
    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setVertexArray(vertices);
    geometry->setColorArray(colours, osg::Array::BIND_PER_VERTEX);
    geometry->addPrimitiveSet(new osg::DrawArrays(GL_LINES, 0, GLsizei(vertices->size())));
    osg::ref_ptr<osg::Geode> geode = new osg::Geode;
    geode->addDrawable(geometry);
    return geode;
}

}  // namespace

OsgAxisIndicator::OsgAxisIndicator(OsgTackballManipulate* manipulator) : m_manipulator(manipulator)
{
    setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    setRenderOrder(osg::Camera::POST_RENDER);
    setClearMask(GL_DEPTH_BUFFER_BIT);
    setAllowEventFocus(false);
    setComputeNearFarMode(osg::CullSettings::DO_NOT_COMPUTE_NEAR_FAR);
    setProjectionMatrixAsOrtho(-1.2, 1.2, -1.2, 1.2, -2.0, 2.0);
    addChild(makeAxes());

    osg::ref_ptr<osg::Program> program = new osg::Program;
    program->addShader(new osg::Shader(osg::Shader::VERTEX, kVertexSource));
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT, kFragmentSource));
    getOrCreateStateSet()->setAttributeAndModes(program, osg::StateAttribute::ON);
    placeInView(int(kSidePixels), int(kSidePixels), 1.0);

    if (manipulator) manipulator->addMonitor(this);
    onCameraChanged();
}

OsgAxisIndicator::~OsgAxisIndicator()
{
    osg::ref_ptr<OsgTackballManipulate> manipulator;
    if (m_manipulator.lock(manipulator)) manipulator->removeMonitor(this);
}

void OsgAxisIndicator::placeInView(int viewWidth, int viewHeight, double pixelScale)
{
    const int side = std::min({int(kSidePixels * pixelScale), viewWidth, viewHeight});
    setViewport(0, 0, std::max(side, 1), std::max(side, 1));
    getOrCreateStateSet()->setAttributeAndModes(new osg::LineWidth(float(2.0 * pixelScale)),
                                                osg::StateAttribute::ON);
}

void OsgAxisIndicator::onCameraChanged()
{
    osg::ref_ptr<OsgTackballManipulate> manipulator;
    if (!m_manipulator.lock(manipulator)) return;
    // Only the turn of the view: the axes stay in the middle of their square.
    setViewMatrix(osg::Matrixd::rotate(manipulator->getInverseMatrix().getRotate()));
}

}  // namespace osgHelper
