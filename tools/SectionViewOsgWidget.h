#pragma once

#include <QString>
#include <memory>

#include <osg/Quat>
#include <osg/Vec2d>
#include <osg/ref_ptr>

#include "OsgQWidget.h"

class OsgGraphItem_PointList;
namespace ptCloud {
class PtCloud_DataSetFile;
}

// The profile view: the points of one dataset inside the strip around a
// section line, drawn as they are stored (relative frame, the block colours
// or white) and looked at from the side, across the line, with the line's
// start on the left.
//
// The dataset is read through a handle of the view's own, one block at a
// time and only where a block's plan box meets the strip; a long read shows
// a progress dialog that can cancel it.
class SectionViewOsgWidget : public osgHelper::OsgQWidget {
    Q_OBJECT
public:
    explicit SectionViewOsgWidget(QWidget* parent = nullptr);
    ~SectionViewOsgWidget() override;

    // The point file to read sections from (not opened until a section is shown).
    void setDataSetFile(const QString& path);
    // Shows the points of the strip width wide around start -> end (plan,
    // relative frame, metres). lookAcross: turn the camera to face the line
    // (a new line); otherwise the camera stays where the user left it. False,
    // with the profile left empty and a reason, when the file cannot be read
    // or the user cancelled.
    bool showSection(const osg::Vec2d& start, const osg::Vec2d& end, double width, bool lookAcross,
                     QString* error);
    // Empties the profile.
    void clearSection();
    int sectionPointCount() const;
    // Blocks read point by point for the last section.
    int sectionBlocksRead() const { return m_blocksRead; }

    // The camera orientation (relative to the top view, see
    // OsgTackballManipulate) that looks horizontally across a line whose plan
    // direction is angle degrees counter-clockwise from +x, with the line
    // running left to right on the screen and +z up.
    static osg::Quat faceRotation(double angle);

private:
    std::unique_ptr<ptCloud::PtCloud_DataSetFile> m_reader;
    osg::ref_ptr<OsgGraphItem_PointList> m_profile;
    int m_blocksRead = 0;
};
