#pragma once

#include "OsgTackballManipulate_monitor.h"

#include <osg/Matrixd>

#include <functional>
#include <vector>

namespace osgHelper {
class OsgTackballManipulate;
}

// Remembers the view matrix at every call, and runs an optional action from
// inside the call (to remove monitors or move the camera there).
class RecordingMonitor : public osgHelper::OsgTackballManipulate_monitor {
public:
    explicit RecordingMonitor(osgHelper::OsgTackballManipulate* manipulator);

    void onCameraChanged() override;

    std::vector<osg::Matrixd> views;
    std::function<void()> action;

private:
    osgHelper::OsgTackballManipulate* m_manipulator;
};
