#pragma once

#include <osg/Geode>

namespace ptCloud {
class PtCloud_DataSetFile;
}

// The triangulated DEM surface, coloured by height over the file's z range.
// DEM meshes are small enough to be read whole on the GUI thread.
class OsgGraphItem_DemMesh : public osg::Geode {
public:
    // Not owned; read through a reader of the item's own on its path.
    explicit OsgGraphItem_DemMesh(ptCloud::PtCloud_DataSetFile* file);

    void setVisible(bool visible);
    bool isVisible() const;
    // Reads the file again (after it was rewritten). False, drawing nothing,
    // when it cannot be read.
    bool rebuild();

protected:
    ~OsgGraphItem_DemMesh() override;

private:
    ptCloud::PtCloud_DataSetFile* m_file;
};
