#include "OsgTackballManipulate.h"

#include "OsgTackballManipulate_monitor.h"

#include <osg/Camera>

#include <algorithm>
#include <cmath>

namespace osgHelper {

namespace {

// Distance from the centre of bound at which the whole sphere fits in the
// camera's field of view; without a perspective camera, the trackball's
// usual three and a half radii.
double fitDistance(const osg::BoundingSphere& bound, const osg::Camera* camera)
{
    double fovy = 0.0, aspect = 0.0, zNear = 0.0, zFar = 0.0;
    if (camera && camera->getProjectionMatrixAsPerspective(fovy, aspect, zNear, zFar) && fovy > 0.0 &&
        aspect > 0.0) {
        const double halfHeight = osg::DegreesToRadians(fovy) * 0.5;
        const double halfWidth = std::atan(std::tan(halfHeight) * aspect);
        return bound.radius() / std::sin(std::min(halfHeight, halfWidth));
    }
    return 3.5 * bound.radius();
}

}  // namespace

OsgTackballManipulate::OsgTackballManipulate()
{
    // The wheel turned away from the user moves the camera closer, as in
    // most 3D programs; OSG's own default goes the other way.
    setWheelZoomFactor(-getWheelZoomFactor());
}

OsgTackballManipulate::~OsgTackballManipulate() = default;

void OsgTackballManipulate::addMonitor(OsgTackballManipulate_monitor* monitor)
{
    if (monitor && std::find(m_monitors.begin(), m_monitors.end(), monitor) == m_monitors.end())
        m_monitors.push_back(monitor);
}

void OsgTackballManipulate::removeMonitor(OsgTackballManipulate_monitor* monitor)
{
    m_monitors.erase(std::remove(m_monitors.begin(), m_monitors.end(), monitor), m_monitors.end());
}

osg::Node* OsgTackballManipulate::getTrackNode() const
{
    osg::ref_ptr<osg::Node> node;
    m_trackNode.lock(node);
    return node.get();
}

void OsgTackballManipulate::setTrackNode(osg::Node* node)
{
    m_trackNode = node;
    followTrackNode();
    notifyIfCameraChanged();
}

void OsgTackballManipulate::setHomeBound(const osg::BoundingSphere& bound) { m_homeBound = bound; }

const osg::BoundingSphere& OsgTackballManipulate::getHomeBound() const { return m_homeBound; }

osg::Quat OsgTackballManipulate::standardRotation(EStandardView view)
{
    const osg::Quat level(osg::PI_2, osg::X_AXIS);
    switch (view) {
    case View_Top: return osg::Quat();
    case View_Front: return level;
    case View_Back: return level * osg::Quat(osg::PI, osg::Z_AXIS);
    case View_Left: return level * osg::Quat(-osg::PI_2, osg::Z_AXIS);
    case View_Right: return level * osg::Quat(osg::PI_2, osg::Z_AXIS);
    case View_Isometric: {
        // Tilted from the top until the view direction makes equal angles
        // with the three axes, then turned to look north-east.
        const double tilt = std::acos(1.0 / std::sqrt(3.0));
        return osg::Quat(tilt, osg::X_AXIS) * osg::Quat(-osg::PI_4, osg::Z_AXIS);
    }
    }
    return osg::Quat();
}

void OsgTackballManipulate::enterView(const osg::Quat& rotation, double tanHalfFovY, double aspect,
                                      const osg::Vec4d& area)
{
    stopMotion();
    const osg::BoundingSphere bound = viewBound();
    const double tanHalfX = tanHalfFovY * aspect;
    const double halfWidth = std::max(1e-3, (area[2] - area[0]) * 0.5);
    const double halfHeight = std::max(1e-3, (area[3] - area[1]) * 0.5);
    // The part's half extents seen from the eye, as half angles of a cone
    // that the sphere must fit in.
    const double halfAngle = std::min(std::atan(halfWidth * tanHalfX), std::atan(halfHeight * tanHalfFovY));
    _rotation = rotation;
    _distance = bound.radius() / std::sin(halfAngle);
    // Moving the orbit centre against the part's offset brings the sphere's
    // centre to the part's centre, in perspective and orthographic alike.
    const double offsetX = (area[0] + area[2]) * 0.5 * tanHalfX * _distance;
    const double offsetY = (area[1] + area[3]) * 0.5 * tanHalfFovY * _distance;
    _center = bound.center() - rotation * osg::Vec3d(offsetX, offsetY, 0.0);
    notifyIfCameraChanged();
}

void OsgTackballManipulate::stopMotion()
{
    _thrown = false;
    if (_animationData.valid()) _animationData->_isAnimating = false;
    flushMouseEventStack();
}

void OsgTackballManipulate::notifyIfCameraChanged()
{
    // A monitor that moves the camera gets its change reported by the loop
    // below once the current round is over, not by a nested call.
    if (m_notifying) return;
    m_notifying = true;
    while (!m_notifiedOnce || getInverseMatrix() != m_notifiedView) {
        m_notifiedOnce = true;
        m_notifiedView = getInverseMatrix();
        // Monitors may add or remove monitors while being told: walk a copy
        // and skip those removed in the meantime. When one moves the camera,
        // the round ends and a new one tells everybody about the new view,
        // so that nobody hears of the same view twice.
        const std::vector<OsgTackballManipulate_monitor*> round = m_monitors;
        for (OsgTackballManipulate_monitor* monitor : round) {
            if (getInverseMatrix() != m_notifiedView) break;
            if (std::find(m_monitors.begin(), m_monitors.end(), monitor) != m_monitors.end())
                monitor->onCameraChanged();
        }
    }
    m_notifying = false;
}

bool OsgTackballManipulate::handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& us)
{
    followTrackNode();
    const bool handled = osgGA::TrackballManipulator::handle(ea, us);
    notifyIfCameraChanged();
    return handled;
}

void OsgTackballManipulate::computeHomePosition(const osg::Camera* camera, bool /*useBoundingBox*/)
{
    // The home bound is a sphere; a box would frame the same scene no better.
    const osg::BoundingSphere bound = viewBound();
    const osg::Vec3d centre = bound.center();
    const double distance = fitDistance(bound, camera);
    setHomePosition(centre + osg::Vec3d(0.0, -distance, 0.0), centre, osg::Vec3d(0.0, 0.0, 1.0),
                    getAutoComputeHomePosition());
}

void OsgTackballManipulate::followTrackNode()
{
    osg::ref_ptr<osg::Node> node;
    if (!m_trackNode.lock(node)) return;
    const osg::BoundingSphere& bound = node->getBound();
    if (!bound.valid()) return;
    osg::Vec3d centre = bound.center();
    // The bound is in the coordinates of the node's parent: bring it to the
    // world through the transforms above the node (the node itself excluded).
    const osg::NodePathList paths = node->getParentalNodePaths();
    if (!paths.empty() && paths.front().size() > 1) {
        const osg::NodePath above(paths.front().begin(), paths.front().end() - 1);
        centre = centre * osg::computeLocalToWorld(above);
    }
    if (centre != _center) setCenter(centre);
}

osg::BoundingSphere OsgTackballManipulate::viewBound() const
{
    osg::BoundingSphere bound = m_homeBound;
    if (!bound.valid() && getNode()) bound = getNode()->getBound();
    if (!bound.valid()) return osg::BoundingSphere(osg::Vec3d(), 1.0);
    // A single point has a zero radius; give the view something to frame.
    if (bound.radius() <= 0.0) bound.radius() = 1.0;
    return bound;
}

}  // namespace osgHelper
