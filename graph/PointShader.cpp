#include "PointShader.h"

#include <osg/Node>
#include <osg/Program>
#include <osg/Shader>

namespace {

// Points are not lit: the normal and position outputs and viewPos are
// declared but unused, and the colour passes straight through.
const char* const kVertexSource =
    "#version 330 core\nuniform mat4 osg_ModelViewProjectionMatrix; layout(location = 0) in vec4 osg_Vertex; "
    "layout(location = 1) in vec3 osg_Normal; layout(location = 2) in vec4 osg_Color; out vec4 color; "
    "out vec3 normal; out vec3 fragPos; void main() { gl_Position = osg_ModelViewProjectionMatrix * osg_Vertex; "
    "color = osg_Color; normal = osg_Normal; fragPos = osg_Vertex.xyz; }";

const char* const kFragmentSource =
    "#version 330 core\nin vec4 color; out vec4 fragColor; uniform vec3 viewPos; in vec3 normal; "
    "in vec3 fragPos; void main() { fragColor = color; }";

}  // namespace

void applyPointShader(osg::Node* node)
{
    if (!node) return;
    osg::ref_ptr<osg::Program> program = new osg::Program;
    program->addShader(new osg::Shader(osg::Shader::VERTEX, kVertexSource));
    program->addShader(new osg::Shader(osg::Shader::FRAGMENT, kFragmentSource));
    node->getOrCreateStateSet()->setAttributeAndModes(program, osg::StateAttribute::ON);
}
