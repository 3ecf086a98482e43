#include "ContentProperties.h"

#include <QFileInfo>
#include <QImage>
#include <QLocale>
#include <QSet>
#include <QStringList>
#include <algorithm>
#include <cmath>
#include <set>

#include "PtCloudDataSet.h"
#include "PtCloud_ContourFile.h"
#include "PtCloud_DataSetFile.h"
#include "Toolkits.h"
#include "VolumeCalcAreaList.h"

using namespace ptCloud;

namespace {

QString count(quint64 n) { return QLocale().toString(n); }

QString fileSize(const QString& path)
{
    const QFileInfo info(path);
    return info.exists() ? QLocale().formattedDataSize(info.size()) : ContentProperties::tr("missing");
}

// Triangles, clusters or ground points: what only a full read can tell.
struct BlockTotals {
    quint64 triangles = 0;
    quint64 ground = 0;
    std::set<qint32> labels;
};

bool readTotals(PtCloud_DataSetFile& reader, BlockTotals* totals)
{
    QMap<int, std::tuple<unsigned int, pcBoundingBoxf>> blocks;
    if (!reader.getBlocks(blocks)) return false;
    // ASPRS class 2 is ground.
    constexpr quint8 kGround = 2;
    for (auto it = blocks.cbegin(); it != blocks.cend(); ++it) {
        const stPtCloud_PointArray* block = reader.readBlock(it.key());
        if (!block) return false;
        totals->triangles += block->triangles.size() / 3;
        if (const qint32* label = block->columnData<qint32>(DSC_Label))
            totals->labels.insert(label, label + block->count);
        if (const quint8* cls = block->columnData<quint8>(DSC_Classification))
            totals->ground += quint64(std::count(cls, cls + block->count, kGround));
    }
    return true;
}

}  // namespace

double ContentProperties::gridSpacing(double width, double height, quint64 nodes)
{
    // A full grid of spacing c has (width / c + 1) (height / c + 1) nodes:
    // (nodes - 1) c² - (width + height) c - width height = 0.
    if (nodes < 2) return 0.0;
    const double n = double(nodes - 1), sum = width + height;
    return (sum + std::sqrt(sum * sum + 4.0 * n * width * height)) / (2.0 * n);
}

QString ContentProperties::coordinates(double x, double y, double z)
{
    return QStringLiteral("%1, %2, %3")
        .arg(tk::Toolkits::DoubleToString(x, 3), tk::Toolkits::DoubleToString(y, 3),
             tk::Toolkits::DoubleToString(z, 3));
}

ContentProperties::Rows ContentProperties::ofDataSet(const PtCloudDataSet* dataSet)
{
    Rows rows;
    if (!dataSet) return rows;
    rows << qMakePair(tr("name"), dataSet->getName());
    if (const PtCloud_DataSetFile* points = dataSet->getContent_PointDataSetFile()) {
        PtCloud_DataSetFile reader(points->getFilepath());
        if (reader.openFile()) {
            rows << qMakePair(tr("points"), count(reader.getHeader().pointCount));
            // The file keeps every position exactly; only the view rounds them.
            const QString drawn = reader.getHeader().drawnNote();
            if (!drawn.isEmpty()) rows << qMakePair(tr("note"), drawn);
        }
    }
    const auto named = [](const QMap<QString, PtCloud_DataSetFile*>* map) { return map ? map->size() : 0; };
    rows << qMakePair(tr("meshes"), QString::number(named(dataSet->getContent_Meshs())))
         << qMakePair(tr("splits"), QString::number(named(dataSet->getContent_Splits())))
         << qMakePair(tr("cuts"), QString::number(named(dataSet->getContent_Cuts())));
    QStringList dem;
    if (dataSet->getContent_Dem_Mesh()) dem << tr("mesh");
    if (dataSet->getContent_Dem_HeightMap()) dem << tr("height map");
    if (dataSet->getContent_Dem_Contour()) dem << tr("contour");
    if (dataSet->getContent_Dem_Classify()) dem << tr("classify");
    rows << qMakePair(tr("dem"), dem.isEmpty() ? tr("none") : dem.join(QStringLiteral(", ")))
         << qMakePair(tr("disk size"), QLocale().formattedDataSize(dataSet->diskSize()))
         << qMakePair(tr("undo"), dataSet->getUndoSize_Points() < 0
                                      ? tr("none")
                                      : tr("previous points, %1").arg(
                                            QLocale().formattedDataSize(dataSet->getUndoSize_Points())))
         << qMakePair(tr("folder"), dataSet->getFolder());
    return rows;
}

ContentProperties::Rows ContentProperties::ofPointFile(PtCloudScene::EContentKind kind, const QString& name,
                                                       const QString& path)
{
    Rows rows;
    if (!name.isEmpty()) rows << qMakePair(tr("name"), name);
    PtCloud_DataSetFile reader(path);
    if (!reader.openFile()) {
        rows << qMakePair(tr("error"), reader.lastError());
        return rows;
    }
    const stPtCloud_DataSetHeader& h = reader.getHeader();
    rows << qMakePair(kind == PtCloudScene::Content_DemMesh ? tr("grid nodes") : tr("points"), count(h.pointCount))
         << qMakePair(tr("blocks"), count(h.blockCount));
    if (h.bounds.valid()) {
        rows << qMakePair(tr("min"), coordinates(h.origin.x + h.bounds.min.x, h.origin.y + h.bounds.min.y,
                                                   h.origin.z + h.bounds.min.z))
             << qMakePair(tr("max"), coordinates(h.origin.x + h.bounds.max.x, h.origin.y + h.bounds.max.y,
                                                   h.origin.z + h.bounds.max.z));
    }
    QStringList columns;
    for (EDataSetColumn c : h.columns)
        if (!columnName(c).isEmpty()) columns << columnName(c);
    rows << qMakePair(tr("columns"), columns.join(QStringLiteral(", ")))
         << qMakePair(tr("file size"), fileSize(path));

    const bool mesh = kind == PtCloudScene::Content_Mesh || kind == PtCloudScene::Content_DemMesh;
    const bool split = kind == PtCloudScene::Content_Split;
    const bool classify = kind == PtCloudScene::Content_DemClassify;
    if (!mesh && !split && !classify) return rows;
    BlockTotals totals;
    if (!readTotals(reader, &totals)) {
        rows << qMakePair(tr("error"), reader.lastError());
        return rows;
    }
    if (mesh) rows << qMakePair(tr("triangles"), count(totals.triangles));
    if (kind == PtCloudScene::Content_DemMesh && h.pointCount > 1 && h.bounds.valid())
        rows << qMakePair(tr("grid spacing"),
                          tr("about %1 m").arg(tk::Toolkits::DoubleToString(
                              gridSpacing(double(h.bounds.max.x - h.bounds.min.x),
                                          double(h.bounds.max.y - h.bounds.min.y), h.pointCount),
                              3)));
    if (split) rows << qMakePair(tr("clusters"), count(totals.labels.size()));
    if (classify)
        rows << qMakePair(tr("ground points"), count(totals.ground))
             << qMakePair(tr("other points"), count(h.pointCount - std::min(h.pointCount, totals.ground)));
    return rows;
}

ContentProperties::Rows ContentProperties::ofHeightMap(const QImage* image, const QString& path)
{
    Rows rows;
    if (!image) return rows;
    rows << qMakePair(tr("size"), tr("%1 x %2 pixels").arg(image->width()).arg(image->height()))
         << qMakePair(tr("file"), QFileInfo(path).fileName())
         << qMakePair(tr("file size"), fileSize(path));
    return rows;
}

ContentProperties::Rows ContentProperties::ofContour(const QString& path)
{
    Rows rows;
    PtCloud_ContourFile reader(path);
    if (!reader.openFile()) {
        rows << qMakePair(tr("error"), tr("the contour file can not be read"));
        return rows;
    }
    std::set<double> levels;
    quint64 closed = 0, vertices = 0;
    for (const PtCloud_ContourFile::Polyline& line : reader.lines()) {
        levels.insert(line.level);
        closed += line.closed ? 1 : 0;
        vertices += line.points.size();
    }
    rows << qMakePair(tr("lines"), count(reader.lines().size())) << qMakePair(tr("closed lines"), count(closed))
         << qMakePair(tr("vertices"), count(vertices)) << qMakePair(tr("levels"), count(levels.size()));
    if (!levels.empty()) {
        rows << qMakePair(tr("lowest level"), tk::Toolkits::DoubleToString(*levels.begin(), 3))
             << qMakePair(tr("highest level"), tk::Toolkits::DoubleToString(*levels.rbegin(), 3));
        if (levels.size() > 1)
            rows << qMakePair(tr("interval"),
                              tk::Toolkits::DoubleToString(*std::next(levels.begin()) - *levels.begin(), 3));
    }
    rows << qMakePair(tr("file size"), fileSize(path));
    return rows;
}

ContentProperties::Rows ContentProperties::ofEarthVolume(VolumeCalcAreaList* areas)
{
    Rows rows;
    if (!areas) return rows;
    QMap<QString, VolumeCalcArea*> map;
    areas->getAreas(map);
    rows << qMakePair(tr("areas"), QString::number(map.size()));
    for (auto it = map.cbegin(); it != map.cend(); ++it) {
        const VolumeCalcArea* a = it.value();
        rows << qMakePair(it.key(), tr("grid: dig %1, fill %2 m³; dtm: dig %3, fill %4 m³")
                                        .arg(tk::Toolkits::DoubleToString(a->getDigVolume_grid(), 2),
                                             tk::Toolkits::DoubleToString(a->getFillVolume_grid(), 2),
                                             tk::Toolkits::DoubleToString(a->getDigVolume_dtm(), 2),
                                             tk::Toolkits::DoubleToString(a->getFillVolume_dtm(), 2)));
    }
    return rows;
}

QString ContentProperties::toHtml(const Rows& rows)
{
    QString html = QStringLiteral("<table cellspacing=\"2\">");
    // A folder path has no spaces: a zero-width space after each separator
    // lets a long one wrap inside the narrow panel instead of running off it.
    const QString breakable = QStringLiteral("/") + QChar(0x200B);
    for (const auto& row : rows)
        html += QStringLiteral("<tr><td style=\"padding-right:8px\">%1</td><td>%2</td></tr>")
                    .arg(row.first.toHtmlEscaped(), row.second.toHtmlEscaped().replace(QLatin1Char('/'), breakable));
    return html + QStringLiteral("</table>");
}
