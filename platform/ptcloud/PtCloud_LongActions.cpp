#include "PtCloud_LongActions.h"

#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QVariantList>

#include "Algo_ClothFilter.h"
#include "Algo_Contours.h"
#include "Algo_Dbscan.h"
#include "Algo_DemGrid.h"
#include "Algo_EuclideanCluster.h"
#include "Algo_FastEuclideanCluster.h"
#include "Algo_HeightMap.h"
#include "Algo_KMeans.h"
#include "Algo_Mesh.h"
#include "Algo_PatchworkGround.h"
#include "Algo_PoissonDiskSample.h"
#include "Algo_RegionGrowing.h"
#include "ILongLiveActionProgress.h"
#include "PtCloud_BlockFileWriter.h"
#include "PtCloud_ContourFile.h"
#include "PtCloud_DataSetBuilder.h"
#include "PtCloud_DataSetFile.h"
#include "PtCloud_ProgressRange.h"
#include "PtCloud_ProjectFiles.h"

namespace ptCloud {

namespace {
const int kGround = 2, kNonGround = 1;

// Result of a step, with the code the action reports when it fails.
struct Outcome {
    EEPtCloudActResult code = PCAR_Success;
    QString why;
    bool ok() const { return code == PCAR_Success; }
};

Outcome failed(const QString& why, ILongLiveActionProgress* progress)
{
    const bool stopped = progress && progress->isStopRequested();
    if (progress && !stopped) progress->setProgressText(why);
    return {stopped ? PCAR_Cancelled : PCAR_ExecuteFailed, why};
}

// Writes points (with the source's columns, plus labels when given) to a new
// block file at path, partitioned into blocks and ordered like any dataset.
Outcome writePoints(const QString& path, const stPtCloud_DataSetHeader& source, EDataSetType type,
                    EColoringMode coloring, const stPtCloud_PointArray& points, ILongLiveActionProgress* progress)
{
    stPtCloud_DataSetHeader header;
    header.type = type;
    header.sort = DSS_Morton;
    header.coloringMode = coloring;
    header.origin = source.origin;
    header.quantum = source.quantum;
    header.columns = points.columnList();
    PtCloud_DataSetBuilder::Options options;
    // Named like the target's temporary, so that what a killed run spilled is found and removed.
    options.tempDir = PtCloud_ProjectFiles::temporaryFor(path + QStringLiteral(".spill"));
    // The points are in memory already: the builder spills early rather than hold a second copy.
    options.memoryBudgetBytes = 256ll << 20;
    QDir().mkpath(options.tempDir);
    const pcBoundingBoxf bounds = points.computeBounds();
    QString err;
    bool written = false;
    {
        PtCloud_DataSetBuilder builder(path, header, bounds.valid() ? bounds : pcBoundingBoxf(0, 0, 0, 1, 1, 1), options);
        written = builder.addPoints(points, &err) && builder.finish(progress, &err);
    }
    QDir(options.tempDir).removeRecursively();
    if (!written) return failed(err, progress);
    return {};
}

// A mesh content: one block holding every vertex, its normals and the triangles.
Outcome writeMesh(const QString& path, const pcVec3d& origin, std::vector<pcVec3f> vertices,
                  std::vector<unsigned int> triangles, std::vector<pcVec3f> normals, ILongLiveActionProgress* progress)
{
    stPtCloud_DataSetHeader header;
    header.type = DST_Mesh;
    header.coloringMode = CM_Height;
    header.origin = origin;
    header.columns = {DSC_Location};
    if (!normals.empty()) header.columns << DSC_Normal;
    stPtCloud_PointArray block;
    block.origin = origin;
    block.count = int(vertices.size());
    block.positions = std::move(vertices);
    block.normals = std::move(normals);
    block.triangles = std::move(triangles);
    block.coloringMode = CM_Height;
    QDir().mkpath(QFileInfo(path).absolutePath());
    PtCloud_BlockFileWriter writer(path);
    QString err;
    if (!writer.begin(header, &err) || !writer.writeBlock(0, block, &err) || !writer.commit(&err))
        return failed(err, progress);
    return {};
}

// Sets every point's Classification (adding the column) and Label to its class.
void labelClasses(stPtCloud_PointArray& points, const std::vector<int>& classes)
{
    if (!points.hasColumn(DSC_Classification)) points.addColumn(DSC_Classification);
    if (!points.hasColumn(DSC_Label)) points.addColumn(DSC_Label);
    quint8* cls = points.columnData<quint8>(DSC_Classification);
    qint32* label = points.columnData<qint32>(DSC_Label);
    for (size_t i = 0; i < classes.size(); ++i) {
        cls[i] = quint8(classes[i]);
        label[i] = classes[i];
    }
}

bool listOf(const QVariant& params, int size, QVariantList* out)
{
    *out = params.toList();
    return out->size() == size;
}
}  // namespace

PtCloud_LongActions::PtCloud_LongActions(const QString& pointsFile, ILongLiveActionProgress* progress)
    : m_points(pointsFile), m_progress(progress)
{
}

EEPtCloudActResult PtCloud_LongActions::loadSource(stPtCloud_PointArray* all, stPtCloud_DataSetHeader* header)
{
    PtCloud_DataSetFile file(m_points);
    if (m_points.isEmpty() || !file.openFile()) {
        if (m_progress) m_progress->setProgressText(m_points.isEmpty() ? QStringLiteral("no such dataset") : file.lastError());
        return PCAR_InvalidDataSet;
    }
    *header = file.getHeader();
    QMap<int, std::tuple<unsigned int, pcBoundingBoxf>> blocks;
    file.getBlocks(blocks);
    all->origin = header->origin;
    all->coloringMode = header->coloringMode;
    for (EDataSetColumn c : header->columns)
        if (c != DSC_Location) all->addColumn(c);
    PtCloud_ProgressRange loading(m_progress, 0, 10);
    loading.setProgressText(QStringLiteral("reading the points"));
    int done = 0;
    for (auto it = blocks.cbegin(); it != blocks.cend(); ++it) {
        if (loading.isStopRequested()) return PCAR_Cancelled;
        const stPtCloud_PointArray* block = file.readBlock(it.key());
        if (!block) {
            loading.setProgressText(file.lastError());
            return PCAR_InvalidDataSet;
        }
        all->appendPoints(*block, 0, block->count);
        loading.setProgress(100 * ++done / std::max(1, blocks.size()));
    }
    return PCAR_Success;
}

EEPtCloudActResult PtCloud_LongActions::doMesh(const stControlParam_DataSet_Do& p)
{
    if (p.func == 3) return doDem(p);
    if (p.func < 0 || p.func > 2) return PCAR_CannotExecute;
    // The mesh dialog's lists: (fast normal, alpha), (fast normal, radius),
    // (fast normal, depth, width, density divide).
    static const int kSizes[3] = {2, 2, 4};
    const QVariantList list = p.params.toList();
    if (list.size() != kSizes[p.func] || p.targetName.isEmpty()) return PCAR_InvalidParameter;
    Algo_Mesh::Params params;
    params.method = Algo_Mesh::Method(p.func);
    params.fastNormal = list[0].toBool();
    if (p.func == 0) params.alpha = list[1].toDouble();
    if (p.func == 1) params.ballRadius = list[1].toDouble();
    if (p.func == 2) {
        params.depth = list[1].toUInt();
        params.width = list[2].toDouble();
        params.densityDivide = list[3].toDouble();
    }
    stPtCloud_PointArray all;
    stPtCloud_DataSetHeader header;
    QString why;
    if (const EEPtCloudActResult r = loadSource(&all, &header); r != PCAR_Success) return r;
    std::vector<pcVec3f> vertices, normals;
    std::vector<unsigned int> triangles;
    PtCloud_ProgressRange running(m_progress, 10, 90);
    running.setProgressText(QStringLiteral("meshing"));
    if (!Algo_Mesh::run(all.positions, params, vertices, triangles, &normals, &running, &why))
        return failed(why, m_progress).code;
    const Outcome o = writeMesh(p.targetName, header.origin, std::move(vertices), std::move(triangles),
                                std::move(normals), m_progress);
    if (!o.ok()) return o.code;
    if (m_progress) m_progress->setProgress(100);
    return PCAR_Success;
}

EEPtCloudActResult PtCloud_LongActions::doDem(const stControlParam_DataSet_Do& p)
{
    QVariantList list;
    if (!listOf(p.params, 6, &list)) return PCAR_InvalidParameter;
    const QString meshPath = list[0].toString(), heightMapPath = list[1].toString();
    const int pixels = list[2].toInt();
    const QString contourPath = list[3].toString();
    const int levels = list[4].toInt();
    const QString classifyPath = list[5].toString();
    if (meshPath.isEmpty() || heightMapPath.isEmpty() || contourPath.isEmpty() || classifyPath.isEmpty() ||
        pixels < 2 || levels < 1)
        return PCAR_InvalidParameter;

    stPtCloud_PointArray all;
    stPtCloud_DataSetHeader header;
    if (const EEPtCloudActResult r = loadSource(&all, &header); r != PCAR_Success) return r;
    // The products are written beside those they replace and take their
    // places together once all are written: a stopped or failed run leaves
    // the previous DEM whole.
    const QString heightMapWorld = Algo_HeightMap::worldFilePath(heightMapPath);
    QStringList written;
    for (const QString& path : {meshPath, heightMapPath, heightMapWorld, contourPath, classifyPath})
        written << PtCloud_ProjectFiles::temporaryFor(path);
    const EEPtCloudActResult result = makeDem(all, header, written, pixels, levels);
    QString why;
    for (const QString& path : written)
        if (result != PCAR_Success || !PtCloud_ProjectFiles::publish(path, &why)) QFile::remove(path);
    if (result != PCAR_Success) return result;
    if (!why.isEmpty()) return failed(why, m_progress).code;
    if (m_progress) m_progress->setProgress(100);
    return PCAR_Success;
}

EEPtCloudActResult PtCloud_LongActions::makeDem(stPtCloud_PointArray& all, const stPtCloud_DataSetHeader& header,
                                                const QStringList& paths, int pixels, int levels)
{
    const QString &meshPath = paths[0], &heightMapPath = paths[1], &contourPath = paths[3], &classifyPath = paths[4];
    QString why;

    // Ground first: the cloth as fine as the points are dense.
    std::vector<int> classes;
    PtCloud_ProgressRange classify(m_progress, 10, 55);
    classify.setProgressText(QStringLiteral("classifying ground"));
    const Algo_ClothFilter::Params cloth = Algo_ClothFilter::Params::forSpacing(Algo_DemGrid::meanSpacing(all.positions));
    if (!Algo_ClothFilter::run(all.positions, cloth, &classes, &classify, &why)) return failed(why, m_progress).code;

    Algo_DemGrid::Grid grid;
    PtCloud_ProgressRange gridding(m_progress, 55, 70);
    gridding.setProgressText(QStringLiteral("interpolating the ground surface"));
    if (!Algo_DemGrid::build(all.positions, classes, kGround, Algo_DemGrid::Params(), &grid, &gridding, &why))
        return failed(why, m_progress).code;

    std::vector<pcVec3f> vertices;
    std::vector<unsigned int> triangles;
    Algo_DemGrid::triangulate(grid, &vertices, &triangles);
    Outcome o = writeMesh(meshPath, header.origin, std::move(vertices), std::move(triangles), {}, m_progress);
    if (!o.ok()) return o.code;

    PtCloud_ProgressRange shading(m_progress, 70, 80);
    shading.setProgressText(QStringLiteral("drawing the height map"));
    Algo_HeightMap::Params hm;
    hm.longerSide = pixels;
    QImage image;
    if (!Algo_HeightMap::render(grid, hm, &image, &shading, &why) ||
        !Algo_HeightMap::save(image, Algo_HeightMap::placement(grid, pixels), header.origin, heightMapPath, &why))
        return failed(why, m_progress).code;

    PtCloud_ProgressRange tracing(m_progress, 80, 90);
    tracing.setProgressText(QStringLiteral("tracing contours"));
    Algo_Contours::Params cp;
    cp.levels = levels;
    std::vector<PtCloud_ContourFile::Polyline> lines;
    if (!Algo_Contours::trace(grid, cp, header.origin.z, &lines, &tracing, &why) ||
        !PtCloud_ContourFile::write(contourPath, header.origin, lines, &why))
        return failed(why, m_progress).code;

    PtCloud_ProgressRange writing(m_progress, 90, 100);
    writing.setProgressText(QStringLiteral("writing the classification"));
    labelClasses(all, classes);
    return writePoints(classifyPath, header, DST_Classify, CM_Classification, all, &writing).code;
}

EEPtCloudActResult PtCloud_LongActions::doSplit(const stControlParam_DataSet_Do& p)
{
    if (p.func < 100 || p.func > 107) return PCAR_CannotExecute;
    stPtCloud_PointArray all;
    stPtCloud_DataSetHeader header;
    QString why;
    if (const EEPtCloudActResult r = loadSource(&all, &header); r != PCAR_Success) return r;

    std::vector<int> labels;
    bool classes = false;       // labels are ground / non-ground classes
    bool removeGround = false;  // keep the non-ground points only
    PtCloud_ProgressRange running(m_progress, 10, 85);
    const QVariantList list = p.params.toList();
    if (!runSplit(p.func, list, all, &labels, &classes, &removeGround, &running, &why)) {
        if (why.isEmpty()) return PCAR_InvalidParameter;
        return failed(why, m_progress).code;
    }

    // Points labelled -1 (noise dropped, clusters out of range) leave the
    // result, and so do the ground points when asked.
    std::vector<char> keep(labels.size(), 1);
    std::vector<int> keptLabels;
    keptLabels.reserve(labels.size());
    for (size_t i = 0; i < labels.size(); ++i) {
        keep[i] = labels[i] >= 0 && !(removeGround && labels[i] == kGround);
        if (keep[i]) keptLabels.push_back(labels[i]);
    }
    all.keepPoints(keep);
    if (classes) {
        labelClasses(all, keptLabels);
    } else {
        all.addColumn(DSC_Label);
        std::copy(keptLabels.begin(), keptLabels.end(), all.columnData<qint32>(DSC_Label));
    }
    PtCloud_ProgressRange writing(m_progress, 85, 100);
    writing.setProgressText(QStringLiteral("writing the result"));
    const Outcome o = writePoints(p.targetName, header, DST_Split, classes ? CM_Classification : CM_Cluster, all, &writing);
    if (!o.ok()) return o.code;
    if (m_progress) m_progress->setProgress(100);
    return PCAR_Success;
}

bool PtCloud_LongActions::runSplit(int func, const QVariantList& list, const stPtCloud_PointArray& all,
                                   std::vector<int>* labels, bool* classes, bool* removeGround,
                                   ILongLiveActionProgress* progress, QString* why)
{
    // The split dialog's positional lists, page by page.
    static const int kSizes[8] = {3, 2, 2, 3, 2, 5, 0, 7};
    if (list.size() != kSizes[func - 100]) return false;
    switch (func) {
    case 100: {
        Algo_Dbscan::Params c;
        c.epsilon = list[0].toDouble();
        c.minPts = list[1].toInt();
        c.retainNoise = list[2].toBool();
        progress->setProgressText(QStringLiteral("DBSCAN clustering"));
        return Algo_Dbscan::run(all.positions, c, *labels, progress, why);
    }
    case 101:
    case 102: {
        Algo_KMeans::Params c;
        c.maxIteration = list[0].toInt();
        c.clusterNumber = list[1].toInt();
        progress->setProgressText(QStringLiteral("k-means clustering"));
        if (func == 101) return Algo_KMeans::run(all.positions, c, *labels, progress, why);
        std::vector<float> intensity;
        if (const quint16* v = all.columnData<quint16>(DSC_Intensity)) intensity.assign(v, v + all.count);
        return Algo_KMeans::runExtra(all.positions, all.colors, intensity, c, *labels, progress, why);
    }
    case 103: {
        Algo_EuclideanCluster::Params c;
        c.tolerance = list[0].toDouble();
        c.minCluster = list[1].toInt();
        c.maxCluster = list[2].toInt();
        progress->setProgressText(QStringLiteral("Euclidean clustering"));
        return Algo_EuclideanCluster::run(all.positions, c, *labels, progress, why);
    }
    case 104: {
        Algo_FastEuclideanCluster::Params c;
        c.distanceThreshold = list[0].toDouble();
        c.maxSize = list[1].toInt();
        progress->setProgressText(QStringLiteral("fast Euclidean clustering"));
        return Algo_FastEuclideanCluster::run(all.positions, c, *labels, progress, why);
    }
    case 105: {
        Algo_RegionGrowing::Params c;
        c.neighbours = list[0].toInt();
        c.smoothDegrees = list[1].toDouble();
        c.curvature = list[2].toDouble();
        c.minCluster = list[3].toInt();
        c.maxCluster = list[4].toInt();
        progress->setProgressText(QStringLiteral("region growing"));
        return Algo_RegionGrowing::run(all.positions, c, *labels, progress, why);
    }
    case 106:
        *classes = true;
        progress->setProgressText(QStringLiteral("ground segmentation"));
        return Algo_PatchworkGround::run(all.positions, Algo_PatchworkGround::Params(), labels, progress, why);
    case 107: {
        Algo_ClothFilter::Params c;
        c.slopeSmooth = list[0].toBool();
        c.classThreshold = list[1].toDouble();
        c.clothResolution = list[2].toDouble();
        c.iterations = list[3].toInt();
        c.rigidness = list[4].toInt();
        c.timeStep = list[5].toDouble();
        *removeGround = list[6].toBool();
        *classes = true;
        progress->setProgressText(QStringLiteral("cloth simulation"));
        return Algo_ClothFilter::run(all.positions, c, labels, progress, why);
    }
    }
    return false;
}

EEPtCloudActResult PtCloud_LongActions::doSample(const stControlParam_DataSet_Do& p)
{
    if (p.func != 200) return PCAR_CannotExecute;
    QVariantList list;
    if (!listOf(p.params, 3, &list)) return PCAR_InvalidParameter;
    Algo_PoissonDiskSample::Params params;
    params.targetShare = list[0].toDouble();
    params.initFactor = list[1].toDouble();
    params.meshAlpha = list[2].toDouble();

    stPtCloud_PointArray all;
    stPtCloud_DataSetHeader header;
    QString why;
    if (const EEPtCloudActResult r = loadSource(&all, &header); r != PCAR_Success) return r;
    std::vector<unsigned int> kept;
    PtCloud_ProgressRange running(m_progress, 10, 85);
    running.setProgressText(QStringLiteral("Poisson-disk sampling"));
    if (!Algo_PoissonDiskSample::run(all.positions, params, kept, &running, &why)) return failed(why, m_progress).code;
    std::vector<char> keep(size_t(all.count), 0);
    for (unsigned int i : kept) keep[i] = 1;
    all.keepPoints(keep);
    PtCloud_ProgressRange writing(m_progress, 85, 100);
    writing.setProgressText(QStringLiteral("writing the thinned points"));
    const Outcome o = writePoints(p.targetName, header, header.type, header.coloringMode, all, &writing);
    if (!o.ok()) return o.code;
    if (m_progress) m_progress->setProgress(100);
    return PCAR_Success;
}

}  // namespace ptCloud
