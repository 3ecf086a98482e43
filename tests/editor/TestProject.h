#pragma once

#include <QString>
#include <QTemporaryDir>

#include "PtCloudTypes.h"
#include "Scene.h"

namespace ptCloud {
class stPtCloud_PointArray;
class PtCloud_Controller;
class PtCloudDataSet;
}  // namespace ptCloud

// A project on a temporary folder, opened through the host's scene as the
// studio opens it, with datasets made from LAS files whose contents are
// known: a square grid of points one metre apart on a sloping plane.
class TestProject {
public:
    // Points of a grid: n x n, x and y from the origin in 1 m steps,
    // z = origin.z + 0.1 * x. Colour (when asked) red along x, green along y.
    static bool writeGridLas(const QString& path, int n, const ptCloud::pcVec3d& origin, bool withColor);
    // Any points (positions relative to points.origin), with their colours when they have some.
    static bool writeLas(const QString& path, const ptCloud::stPtCloud_PointArray& points);
    // Keeps the test's settings (skin, folder history) in the folder.
    static void isolateSettings(const QString& folder);

    TestProject();
    bool open();
    QString filePath(const QString& name) const { return m_dir.filePath(name); }
    Scene* scene() { return &m_scene; }
    ptCloud::PtCloud_Controller* controller();
    ptCloud::PtCloudDataSet* dataSet(const QString& name);

    // Writes a grid LAS file, imports it and makes a dataset of it with
    // Location (and Color when asked); false when any step fails.
    bool addGridDataSet(const QString& name, int n, const ptCloud::pcVec3d& origin, bool withColor = false);
    bool addDataSet(const QString& name, const ptCloud::stPtCloud_PointArray& points);
    // A copy of the dataset's points as a named mesh ("mesh"), split
    // ("split") or cut ("cut"): a valid point file the scene can show.
    bool addPointCopy(const QString& dataSet, const QString& kind, const QString& name);
    // The DEM mesh and classify as copies of the points, a two-line contour
    // file and a 32 x 32 height map, written where the dataset wants them,
    // not yet adopted.
    bool writeDemFiles(const QString& dataSet);

private:
    QTemporaryDir m_dir;
    Scene m_scene;
};
