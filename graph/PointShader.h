#pragma once

namespace osg {
class Node;
}

// Gives the node the point program: each vertex's colour (alpha included) is
// written as it is, without lighting. The program reads the aliased vertex
// attributes (position 0, normal 1, colour 2) and osg_ModelViewProjectionMatrix,
// which the view's osg::State provides. Each call attaches a program of its
// own; callers apply it once per item, never per block.
void applyPointShader(osg::Node* node);
