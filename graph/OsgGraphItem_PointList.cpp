#include "OsgGraphItem_PointList.h"

#include "PointShader.h"

OsgGraphItem_PointList::OsgGraphItem_PointList() : m_vertices(new osg::Vec3Array), m_colors(new osg::Vec4Array)
{
    applyPointShader(this);
}

OsgGraphItem_PointList::~OsgGraphItem_PointList()
{
    m_geometry = nullptr;
    m_colors = nullptr;
    m_vertices = nullptr;
}

osg::Vec3Array* OsgGraphItem_PointList::vertices() { return m_vertices.get(); }

osg::Vec4Array* OsgGraphItem_PointList::colors() { return m_colors.get(); }

void OsgGraphItem_PointList::rebuild()
{
    if (m_geometry) {
        removeDrawable(m_geometry.get());
        m_geometry = nullptr;
    }
    m_geometry = new osg::Geometry;
    m_geometry->setVertexArray(m_vertices.get());
    m_geometry->setColorArray(m_colors.get(), osg::Array::BIND_PER_VERTEX);
    m_geometry->addPrimitiveSet(new osg::DrawArrays(GL_POINTS, 0, GLsizei(m_vertices->size())));
    m_geometry->setUseDisplayList(false);
    m_geometry->setUseVertexBufferObjects(true);
    m_geometry->getOrCreateVertexBufferObject()->setUsage(GL_STATIC_DRAW);
    // The arrays may have changed since they were last sent to the renderer.
    m_vertices->dirty();
    m_colors->dirty();
    addDrawable(m_geometry.get());
}

const osg::Geometry* OsgGraphItem_PointList::geometry() const { return m_geometry.get(); }
