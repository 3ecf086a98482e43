#include "EventRecorder.h"

bool EventRecorder::handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter&)
{
    if (ea.getEventType() == osgGA::GUIEventAdapter::PUSH)
        presses.push_back({ea.getX(), ea.getY(), ea.getXnormalized(), ea.getYnormalized(), ea.getButton()});
    return false;
}
