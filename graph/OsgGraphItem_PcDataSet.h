#pragma once

#include <QHash>
#include <QMap>
#include <QString>
#include <QVariant>

#include <osg/BoundingBox>
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/ref_ptr>

#include <memory>
#include <optional>
#include <vector>

#include "OsgTackballManipulate_monitor.h"
#include "PointColors.h"
#include "PtCloudEnums.h"
#include "PtCloudTypes.h"

namespace osgViewer {
class Viewer;
}
namespace osgHelper {
class OsgTackballManipulate;
}
namespace ptCloud {
class PtCloud_DataSetFile;
}
class MipMapThread;
class PcBlockTile;

// Draws one point data file (a dataset's points, a mesh, a split, a cut or a
// DEM classification) as one geometry per block, each at the level of detail
// its distance from the camera asks for. The blocks are read and built by a
// MipMapThread of the item's own; the finished geometries enter the scene on
// the GUI thread, at camera changes and in updateFrame().
//
// Positions are drawn as the blocks store them, relative to the dataset's
// origin: the view's bounding spheres are single precision.
//
// The view draws on demand: the owner asks for frames while hasPendingWork()
// and after it calls load, reload, teardown or setVisible.
//
// GUI thread only. The owner removes the item from the manipulator's monitors
// (removeMonitor) before dropping it.
class OsgGraphItem_PcDataSet : public osg::Geode, public osgHelper::OsgTackballManipulate_monitor {
public:
    // Registers the item as a monitor of the manipulator. The viewer's camera
    // and camera manipulator give the eye position and the pick matrices.
    OsgGraphItem_PcDataSet(osgViewer::Viewer* viewer, osgHelper::OsgTackballManipulate* manipulator);

    // Hidden: node mask 0, no harvest and no requests; what was loaded stays.
    // Showing again catches up with the camera.
    void setVisible(bool visible);
    bool isVisible() const;

    // Reads the block list (through a reader of the item's own on the file's
    // path; the file is not owned and need not be open) and writes the load
    // record to the debug log. Nothing is drawn before the next camera change.
    // False, with nothing loaded, when the file cannot be opened.
    bool load(ptCloud::PtCloud_DataSetFile* file, const QString& dataSetName);
    // Stops and joins the loader thread, removes every block geometry and
    // closes the readers.
    void teardown();
    // Teardown, then load the same file again if it was loaded (after the
    // file was rewritten), then choose the levels as on a camera change.
    void reload();

    // Per frame: moves finished block geometries into the scene if the
    // loader's mutex is free right now; never waits.
    void updateFrame();
    // Whether frames are still needed: requests in progress, results waiting,
    // or geometries that entered the scene after the last frame was drawn.
    bool hasPendingWork() const;
    // Whether the loader still has blocks to build or finished ones to hand
    // over; false while hidden.
    bool isBuilding() const;
    // Loaded, and at least one block geometry is shown.
    bool isReady() const;

    // The drawn point nearest the eye within a few pixels of (x, y), given in
    // the view's device pixels with y counted from the bottom. Gives its
    // block id and its index in the full block, its position (relative, as
    // drawn) and its columns (Location absolute). False, with -1 and -1, when
    // no point is there.
    bool pickNearest(double x, double y, int* blockId, int* pointIndex, osg::Vec3f* position,
                     QMap<ptCloud::EDataSetColumn, QVariant>* attributes);

    // How the points are coloured. Until a mode is chosen, the file's own,
    // except that a file whose sampled points all share one class is coloured
    // by height: one flat colour shows nothing. Height and intensity ramps
    // span the 2 % to 98 % values of the sample, so that a few outliers do
    // not flatten the rest. The choice outlives reloads.
    const PointColoring& coloring() const;
    // Rebuilds every block in the mode (one the columns allow; others are
    // ignored).
    void setColoringMode(ptCloud::EColoringMode mode);
    // The modes the file's columns allow; height always.
    QList<ptCloud::EColoringMode> coloringModes() const;
    // The class codes in the sample, ascending.
    QList<int> sampledClasses() const;
    // Absolute position of the relative frame's origin; zero before a load.
    ptCloud::pcVec3d origin() const;

    // Union of the block boxes, relative frame; invalid before a load.
    osg::BoundingBox dataBounds() const;
    QString dataSetName() const;
    ptCloud::PtCloud_DataSetFile* file() const;
    quint32 pointCount() const;
    int blockCount() const;
    // Points in the block geometries shown now; 0 while hidden.
    quint64 drawnPointCount() const;
    // The geometry shown for a block; null before its first harvest.
    const osg::Geometry* blockGeometry(int blockId) const;

    void onCameraChanged() override;

protected:
    ~OsgGraphItem_PcDataSet() override;

private:
    struct BlockEntry {
        osg::ref_ptr<osg::Geometry> geometry;
        PcBlockTile* tile = nullptr;
    };

    // With the loader's mutex held.
    void harvestLocked();
    // Reads a few blocks spread over the file for the ramps' stretches and
    // the classes; fixes the colouring.
    void sampleColumns();
    void applyColoring();
    unsigned int frameNumber() const;
    // Block id and index in the full block of one intersector hit; false
    // when the hit is not one of this item's block geometries.
    bool hitPoint(const osg::Drawable* drawable, unsigned int primitiveIndex, const osg::Vec3d& near, int* blockId,
                  int* pointIndex, osg::Vec3f* position) const;

    osgViewer::Viewer* m_viewer;
    osgHelper::OsgTackballManipulate* m_manipulator;
    ptCloud::PtCloud_DataSetFile* m_file = nullptr;
    QString m_dataSetName;
    // The loader thread reads through one, picking on the GUI thread through
    // the other: a reader is never shared between threads.
    std::unique_ptr<ptCloud::PtCloud_DataSetFile> m_loaderReader;
    std::unique_ptr<ptCloud::PtCloud_DataSetFile> m_pickReader;
    QMap<int, BlockEntry> m_blocks;
    std::vector<std::unique_ptr<PcBlockTile>> m_tiles;
    bool m_shown = true;
    std::unique_ptr<MipMapThread> m_loader;
    bool m_loaded = false;
    quint32 m_pointCount = 0;
    int m_blockCount = 0;
    ptCloud::pcBoundingBoxf m_bounds;
    QHash<const osg::Drawable*, int> m_blockOfGeometry;
    // Frame number at the last harvest that changed the scene.
    bool m_sceneChanged = false;
    unsigned int m_changedAtFrame = 0;
    std::optional<ptCloud::EColoringMode> m_chosenMode;
    PointColoring m_coloring;
    float m_heightLow = 0.f, m_heightHigh = 0.f;
    float m_intensityLow = 0.f, m_intensityHigh = 0.f;
    QList<int> m_classes;
};
