#pragma once

#include <osg/BoundingSphere>
#include <osg/Matrixd>
#include <osg/Node>
#include <osg/observer_ptr>
#include <osgGA/TrackballManipulator>

#include <vector>

namespace osgHelper {

class OsgTackballManipulate_monitor;

// The view's trackball (left drag rotates, middle drag pans, right drag and
// the wheel zoom, the wheel forward zooming in, space goes home) with three
// additions:
// - monitors, told once for every change of the view matrix, whether it came
//   from an event, a throw, or a programmatic change checked with
//   notifyIfCameraChanged();
// - a tracked node: while set, the view orbits around the centre of the
//   node's bound (followed as the node moves); null restores the free orbit;
// - a home bound: labels drawn with osgText inflate the scene bound, so an
//   owner can say which sphere the home view should frame.
//
// Rotations given to enterView are camera orientations relative to the top
// view: the identity looks down -z with +y up on the screen; a rotation of
// +90 degrees about +x looks along +y with +z up (the home direction).
//
// GUI thread only: the viewer runs single threaded inside the widget.
class OsgTackballManipulate : public osgGA::TrackballManipulator {
public:
    // The views a surveyor names: from above (north up), from the south
    // (Front), the north (Back), the west (Left), the east (Right), and from
    // the south-west above at equal angles to the three axes (Isometric).
    enum EStandardView { View_Top, View_Front, View_Back, View_Left, View_Right, View_Isometric };

    OsgTackballManipulate();

    // The camera orientation of a standard view, as enterView takes it.
    static osg::Quat standardRotation(EStandardView view);

    // Adding a registered monitor again changes nothing. The manipulator does
    // not own monitors: remove them before they die.
    void addMonitor(OsgTackballManipulate_monitor* monitor);
    void removeMonitor(OsgTackballManipulate_monitor* monitor);

    // Null when nothing is tracked or the tracked node has been deleted.
    osg::Node* getTrackNode() const;
    // Centres the view on the node at once; the view keeps its orientation
    // and distance. Null stops tracking and leaves the view where it is.
    void setTrackNode(osg::Node* node);

    // An invalid sphere (the default) means the bound of the scene.
    void setHomeBound(const osg::BoundingSphere& bound);
    const osg::BoundingSphere& getHomeBound() const;

    // Frames the home bound as seen from the given orientation inside a part
    // of the view (the whole view: -1, -1, 1, 1), so that a panel over the rest hides none of it: the bound
    // fits the part and its centre shows at the part's centre. area: x0, y0,
    // x1, y1 in normalized device coordinates (-1..1, y up); tanHalfFovY: the
    // tangent of half the vertical field of view; aspect: width / height.
    // An orthographic view whose half height is the distance times
    // tanHalfFovY frames the same.
    void enterView(const osg::Quat& rotation, double tanHalfFovY, double aspect, const osg::Vec4d& area);

    // Ends a throw or an animation in progress.
    void stopMotion();

    // Calls the monitors if the view matrix differs from the one they were
    // last told about. Changes made by the monitors themselves are reported
    // in further rounds, never from inside a call.
    void notifyIfCameraChanged();

    using osgGA::TrackballManipulator::handle;
    bool handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& us) override;
    void computeHomePosition(const osg::Camera* camera = nullptr, bool useBoundingBox = false) override;

protected:
    ~OsgTackballManipulate() override;

private:
    void followTrackNode();
    osg::BoundingSphere viewBound() const;

    std::vector<OsgTackballManipulate_monitor*> m_monitors;
    osg::observer_ptr<osg::Node> m_trackNode;
    osg::BoundingSphere m_homeBound;
    osg::Matrixd m_notifiedView;
    bool m_notifiedOnce = false;
    bool m_notifying = false;
};

}  // namespace osgHelper
