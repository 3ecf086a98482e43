#include "ToolViewLink.h"

#include <QMouseEvent>

#include "OsgGraphItem_PcDataSet.h"
#include "OsgTackballManipulate.h"
#include "PtCloudDataSet.h"
#include "PtCloudScene.h"
#include "OsgQWidget.h"

using namespace ptCloud;

ToolViewLink::ToolViewLink(PtCloudScene* scene, osgHelper::OsgQWidget* view)
    : m_scene(scene),
      m_view(view),
      m_dataSet(scene ? scene->currentDataSet() : nullptr),
      m_root(view->getRoot()),
      m_manipulator(view->getManipulate()),
      m_trackedAtOpening(view->getManipulate() ? view->getManipulate()->getTrackNode() : nullptr)
{
}

PtCloudScene* ToolViewLink::scene() const
{
    return m_scene && m_dataSet && m_scene->currentDataSet() == m_dataSet ? m_scene.data() : nullptr;
}

PtCloudDataSet* ToolViewLink::dataSet() const { return scene() ? m_dataSet.data() : nullptr; }

OsgGraphItem_PcDataSet* ToolViewLink::pointsItem() const { return scene() ? scene()->pointsItem() : nullptr; }

PtCloud_LocalFrame ToolViewLink::frame() const
{
    const PtCloudDataSet* ds = dataSet();
    return ds ? ds->getLocalFrame() : PtCloud_LocalFrame();
}

bool ToolViewLink::pointsReady() const
{
    const OsgGraphItem_PcDataSet* item = pointsItem();
    return item && item->isReady();
}

bool ToolViewLink::pick(const QMouseEvent* event, Pick* out) const
{
    OsgGraphItem_PcDataSet* item = pointsItem();
    if (!m_view || !item) return false;
    // The view picks in device pixels with y counted from the bottom.
    const double scale = m_view->getPixelScale();
    const double x = event->pos().x() * scale, y = (m_view->geometry().height() - event->pos().y()) * scale;
    int block = -1, index = -1;
    out->attributes.clear();
    return item->pickNearest(x, y, &block, &index, &out->position, &out->attributes) && block >= 0 && index >= 0;
}

void ToolViewLink::show(osg::Node* overlay)
{
    if (!overlay) return;
    osg::ref_ptr<osg::Group> root;
    if (m_root.lock(root)) root->addChild(overlay);
    requestRedraw();
}

void ToolViewLink::hide(osg::Node* overlay)
{
    osg::ref_ptr<osg::Group> root;
    if (m_root.lock(root)) root->removeChild(overlay);
    requestRedraw();
}

void ToolViewLink::track(osg::Node* node)
{
    osg::ref_ptr<osgHelper::OsgTackballManipulate> manipulator;
    if (m_manipulator.lock(manipulator)) manipulator->setTrackNode(node);
}

void ToolViewLink::restoreTrack()
{
    osg::ref_ptr<osgHelper::OsgTackballManipulate> manipulator;
    if (!m_manipulator.lock(manipulator)) return;
    osg::ref_ptr<osg::Node> saved;
    m_trackedAtOpening.lock(saved);
    if (manipulator->getTrackNode() != saved.get()) manipulator->setTrackNode(saved.get());
}

void ToolViewLink::requestRedraw()
{
    if (m_view) m_view->requestRedraw();
}
