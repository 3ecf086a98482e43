#include "MarkerColors.h"

osg::Vec4 MarkerColors::markerRed() { return osg::Vec4(1.f, 0.f, 0.f, 1.f); }

osg::Vec4 MarkerColors::translucentYellow() { return osg::Vec4(1.f, 1.f, 0.f, 0.2f); }

osg::Vec4 MarkerColors::lineYellow() { return osg::Vec4(1.f, 253.f / 255.f, 1.f / 3.f, 1.f); }

osg::Vec4 MarkerColors::componentViolet() { return osg::Vec4(126.f / 255.f, 132.f / 255.f, 247.f / 255.f, 1.f); }

osg::Vec4 MarkerColors::sectionRed() { return osg::Vec4(235.f / 255.f, 0.2f, 36.f / 255.f, 1.f); }

osg::Vec4 MarkerColors::bandBlue() { return osg::Vec4(50.f / 255.f, 130.f / 255.f, 246.f / 255.f, 1.f); }

osg::Vec4 MarkerColors::labelWhite() { return osg::Vec4(1.f, 1.f, 1.f, 1.f); }
