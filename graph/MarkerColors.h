#pragma once

#include <osg/Vec4>

// The colours the marker items share, so that a tool's points, lines and
// bands look the same in every tool.
class MarkerColors {
public:
    static osg::Vec4 markerRed();          // picked points
    static osg::Vec4 translucentYellow();  // cut box and sphere, blended
    static osg::Vec4 lineYellow();         // measured lines, section pedal
    static osg::Vec4 componentViolet();    // height and level components
    static osg::Vec4 sectionRed();         // section line
    static osg::Vec4 bandBlue();           // section band
    static osg::Vec4 labelWhite();         // text labels
};
