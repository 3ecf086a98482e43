#pragma once

#include <QMap>
#include <QPointer>
#include <QVariant>

#include <osg/Group>
#include <osg/Vec3f>
#include <osg/observer_ptr>
#include <osg/ref_ptr>

#include "PtCloudEnums.h"
#include "PtCloud_LocalFrame.h"

class OsgGraphItem_PcDataSet;
class PtCloudScene;
class QMouseEvent;
namespace osgHelper {
class OsgQWidget;
class OsgTackballManipulate;
}  // namespace osgHelper
namespace ptCloud {
class PtCloudDataSet;
}

// What a tool panel reaches of the view and of the dataset shown when it
// opened. A panel is a child of the view and may outlive the scene
// controller, its dataset and its graph items, so nothing here is held by
// a plain pointer: the controller and the dataset through QPointer, the
// view's OSG objects through observer_ptr, and the dataset's points item is
// looked up afresh (a cut or an undo replaces it).
class ToolViewLink {
public:
    ToolViewLink(PtCloudScene* scene, osgHelper::OsgQWidget* view);

    // Null once gone (or once another dataset is shown).
    PtCloudScene* scene() const;
    ptCloud::PtCloudDataSet* dataSet() const;
    OsgGraphItem_PcDataSet* pointsItem() const;
    ptCloud::PtCloud_LocalFrame frame() const;

    // The dataset's points item is there and draws blocks: picks can hit.
    bool pointsReady() const;
    // The point under a press in the view, nearest the eye; false when
    // there is none. position is relative (as drawn); Location in
    // attributes is absolute.
    struct Pick {
        osg::Vec3f position;
        QMap<ptCloud::EDataSetColumn, QVariant> attributes;
    };
    bool pick(const QMouseEvent* event, Pick* out) const;

    // Overlays: added to and removed from the view's root group.
    void show(osg::Node* overlay);
    template <class Item> void drop(osg::ref_ptr<Item>& overlay)
    {
        if (overlay) hide(overlay.get());
        overlay = nullptr;
    }
    // The view orbits this node from now on.
    void track(osg::Node* node);
    // The view orbits what it orbited when the panel opened.
    void restoreTrack();
    void requestRedraw();

private:
    void hide(osg::Node* overlay);

    QPointer<PtCloudScene> m_scene;
    QPointer<osgHelper::OsgQWidget> m_view;
    QPointer<ptCloud::PtCloudDataSet> m_dataSet;
    osg::observer_ptr<osg::Group> m_root;
    osg::observer_ptr<osgHelper::OsgTackballManipulate> m_manipulator;
    osg::observer_ptr<osg::Node> m_trackedAtOpening;
};
