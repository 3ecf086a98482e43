#pragma once

namespace osgHelper {

// Something that follows the view's camera, such as a dataset item choosing
// the level of detail of its blocks. The manipulator calls onCameraChanged()
// on the GUI thread once for every change of the view matrix, after the
// change has been made; a monitor may remove itself (or others) from inside
// the call.
class OsgTackballManipulate_monitor {
public:
    virtual ~OsgTackballManipulate_monitor() = default;
    virtual void onCameraChanged() = 0;
};

}  // namespace osgHelper
