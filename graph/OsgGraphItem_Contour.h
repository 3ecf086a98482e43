#pragma once

#include <osg/Geode>

namespace ptCloud {
class PtCloud_ContourFile;
}

// Contour lines, each coloured by its level over the range of the file's
// levels (the height ramp).
class OsgGraphItem_Contour : public osg::Geode {
public:
    // Not owned; read through a handle of the item's own on its path.
    explicit OsgGraphItem_Contour(ptCloud::PtCloud_ContourFile* file);

    void setVisible(bool visible);
    bool isVisible() const;
    // Reads the file again. False, drawing nothing, when it cannot be read.
    bool rebuild();

protected:
    ~OsgGraphItem_Contour() override;

private:
    ptCloud::PtCloud_ContourFile* m_file;
};
