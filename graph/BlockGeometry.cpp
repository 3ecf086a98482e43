#include "BlockGeometry.h"

#include "PointColors.h"
#include "stPtCloud_PointArray.h"

#include <algorithm>

osg::ref_ptr<osg::Geometry> BlockGeometry::make(const ptCloud::stPtCloud_PointArray& block,
                                                const PointColoring& coloring, int stride,
                                                const ptCloud::pcBoundingBoxf& heightRange)
{
    const size_t count = size_t(std::max(block.count, 0));
    if (count == 0 || block.positions.size() != count) return nullptr;
    const bool mesh = !block.triangles.empty();
    const size_t step = mesh ? 1 : size_t(std::max(stride, 1));

    osg::ref_ptr<osg::Vec3Array> vertices = new osg::Vec3Array;
    vertices->reserve((count + step - 1) / step);
    for (size_t i = 0; i < count; i += step) {
        const ptCloud::pcVec3f& p = block.positions[i];
        vertices->push_back(osg::Vec3(p.x, p.y, p.z));
    }

    osg::ref_ptr<osg::Geometry> geometry = new osg::Geometry;
    geometry->setUseDisplayList(false);
    geometry->setUseVertexBufferObjects(true);
    geometry->setVertexArray(vertices);

    // Bytes rather than floats: a quarter of the memory and of what each
    // frame streams to the renderer; the shader sees them as 0..1.
    osg::ref_ptr<osg::Vec4ubArray> colours = PointColors::blockColors(block, coloring, int(step), heightRange);
    colours->setNormalize(true);
    geometry->setColorArray(colours, osg::Array::BIND_PER_VERTEX);

    if (block.normals.size() == count) {
        osg::ref_ptr<osg::Vec3Array> normals = new osg::Vec3Array;
        normals->reserve(vertices->size());
        for (size_t i = 0; i < count; i += step) {
            const ptCloud::pcVec3f& n = block.normals[i];
            normals->push_back(osg::Vec3(n.x, n.y, n.z));
        }
        geometry->setNormalArray(normals, osg::Array::BIND_PER_VERTEX);
    }

    if (mesh) {
        geometry->addPrimitiveSet(new osg::DrawElementsUInt(GL_TRIANGLES, block.triangles.begin(), block.triangles.end()));
    } else {
        geometry->addPrimitiveSet(new osg::DrawArrays(GL_POINTS, 0, GLsizei(vertices->size())));
    }
    geometry->getOrCreateVertexBufferObject()->setUsage(GL_STATIC_DRAW);
    return geometry;
}
