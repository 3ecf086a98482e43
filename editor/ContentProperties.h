#pragma once

#include <QCoreApplication>
#include <QList>
#include <QPair>
#include <QString>

#include "PtCloudScene.h"

class QImage;
namespace ptCloud {
class PtCloudDataSet;
class VolumeCalcAreaList;
}  // namespace ptCloud

// What the dataset viewer's property pages say about a content: labelled
// values a surveyor wants (counts, absolute bounds with three decimals,
// columns, sizes). Point files are read through a reader of their own, so
// the content's handle is left as it is.
class ContentProperties {
    Q_DECLARE_TR_FUNCTIONS(ContentProperties)
public:
    using Rows = QList<QPair<QString, QString>>;

    static Rows ofDataSet(const ptCloud::PtCloudDataSet* dataSet);
    // A points, mesh, split, cut, DEM mesh or DEM classify file. The counts
    // that need every block (triangles, clusters, ground points) are read
    // for the kinds that have them.
    static Rows ofPointFile(PtCloudScene::EContentKind kind, const QString& name, const QString& path);
    static Rows ofHeightMap(const QImage* image, const QString& path);
    static Rows ofContour(const QString& path);
    static Rows ofEarthVolume(ptCloud::VolumeCalcAreaList* areas);

    // Two columns, labels left, values right.
    static QString toHtml(const Rows& rows);
    // Absolute coordinates as the viewer shows them: "x, y, z", three decimals.
    static QString coordinates(double x, double y, double z);
    // The spacing of a regular grid of this many nodes over a plan extent;
    // an estimate when nodes are missing (holes filled by nothing).
    static double gridSpacing(double width, double height, quint64 nodes);
};
