#include "RecordingMonitor.h"

#include "OsgTackballManipulate.h"

RecordingMonitor::RecordingMonitor(osgHelper::OsgTackballManipulate* manipulator) : m_manipulator(manipulator) {}

void RecordingMonitor::onCameraChanged()
{
    views.push_back(m_manipulator->getInverseMatrix());
    if (action) action();
}
