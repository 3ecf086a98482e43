#pragma once

#include <osgGA/GUIEventHandler>

#include <vector>

// Keeps the mouse button presses that reach the viewer, to check where the
// widget says they happened.
class EventRecorder : public osgGA::GUIEventHandler {
public:
    struct Press {
        float x, y;                      // device pixels, y up from the bottom row
        float xNormalised, yNormalised;  // -1 .. 1, y up
        int button;
    };

    using osgGA::GUIEventHandler::handle;
    bool handle(const osgGA::GUIEventAdapter& ea, osgGA::GUIActionAdapter& aa) override;

    std::vector<Press> presses;
};
