#pragma once

#include "OsgTackballManipulate_monitor.h"

#include <osg/Camera>
#include <osg/observer_ptr>

namespace osgHelper {

class OsgTackballManipulate;

// Three coloured axes (x red, y green, z blue) in the bottom-left corner of
// the view, turned with the view's camera so the user keeps their bearings.
// A camera of its own drawn after the scene, with an absolute reference
// frame so that it adds nothing to the scene's bound.
class OsgAxisIndicator : public osg::Camera, public OsgTackballManipulate_monitor {
public:
    explicit OsgAxisIndicator(OsgTackballManipulate* manipulator);

    // Sizes the corner square for a view of the given size in device pixels.
    void placeInView(int viewWidth, int viewHeight, double pixelScale);

    void onCameraChanged() override;

protected:
    ~OsgAxisIndicator() override;

private:
    osg::observer_ptr<OsgTackballManipulate> m_manipulator;
};

}  // namespace osgHelper
