#include "OsgGraphItem_PcDataSet.h"

#include "MessageLogger.h"
#include "MipMapThread.h"
#include "OsgTackballManipulate.h"
#include "PcBlockTile.h"
#include "PointShader.h"
#include "PtCloud_DataSetFile.h"

#include <osg/Camera>
#include <osg/Polytope>
#include <osgUtil/IntersectionVisitor>
#include <osgUtil/PolytopeIntersector>
#include <osgViewer/Viewer>

#include <QSet>

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>
#include <vector>

namespace {

// Blocks read on load for the colour stretches and classes: at most this
// many, spread evenly over the file; each gives at most kSamplesPerBlock
// points, evenly spread in the block's order.
constexpr int kSampleBlocks = 16;
constexpr int kSamplesPerBlock = 4096;
constexpr double kStretchLow = 0.02;
constexpr double kStretchHigh = 0.98;

// Half the side of the square of device pixels a pick looks in.
constexpr double kPickTolerance = 4.0;

// Window coordinates: a square of device pixels around (x, y), y up.
osg::ref_ptr<osgUtil::PolytopeIntersector> makePicker(double x, double y)
{
    osg::ref_ptr<osgUtil::PolytopeIntersector> picker = new osgUtil::PolytopeIntersector(
        osgUtil::Intersector::WINDOW, x - kPickTolerance, y - kPickTolerance, x + kPickTolerance, y + kPickTolerance);
    picker->setPrimitiveMask(osgUtil::PolytopeIntersector::POINT_PRIMITIVES |
                             osgUtil::PolytopeIntersector::TRIANGLE_PRIMITIVES);
    return picker;
}

// No point of the box is nearer the eye than this.
double distanceToBox(const osg::Vec3d& eye, const osg::BoundingBox& box)
{
    const osg::Vec3d inside(std::clamp(eye.x(), double(box.xMin()), double(box.xMax())),
                            std::clamp(eye.y(), double(box.yMin()), double(box.yMax())),
                            std::clamp(eye.z(), double(box.zMin()), double(box.zMax())));
    return (inside - eye).length();
}

}  // namespace

OsgGraphItem_PcDataSet::OsgGraphItem_PcDataSet(osgViewer::Viewer* viewer,
                                               osgHelper::OsgTackballManipulate* manipulator)
    : m_viewer(viewer), m_manipulator(manipulator)
{
    // One program for every block of the item: the block geometries inherit
    // it, so the loader thread never touches shared state objects.
    applyPointShader(this);
    if (m_manipulator) m_manipulator->addMonitor(this);
}

OsgGraphItem_PcDataSet::~OsgGraphItem_PcDataSet() { teardown(); }

void OsgGraphItem_PcDataSet::setVisible(bool visible)
{
    if (visible == m_shown) return;
    m_shown = visible;
    setNodeMask(visible ? ~0u : 0u);
    if (visible) onCameraChanged();
}

bool OsgGraphItem_PcDataSet::isVisible() const { return m_shown; }

bool OsgGraphItem_PcDataSet::load(ptCloud::PtCloud_DataSetFile* file, const QString& dataSetName)
{
    teardown();
    if (!file) return false;
    m_file = file;
    m_dataSetName = dataSetName;

    auto loaderReader = std::make_unique<ptCloud::PtCloud_DataSetFile>(file->getFilepath());
    auto pickReader = std::make_unique<ptCloud::PtCloud_DataSetFile>(file->getFilepath());
    if (!loaderReader->openFile() || !pickReader->openFile()) {
        MessageLogger::debug() << "Cannot load dataset" << dataSetName << ":"
                               << (loaderReader->isOpened() ? pickReader : loaderReader)->lastError();
        return false;
    }
    QMap<int, std::tuple<unsigned int, ptCloud::pcBoundingBoxf>> blocks;
    loaderReader->getBlocks(blocks);
    for (auto it = blocks.cbegin(); it != blocks.cend(); ++it) {
        const unsigned int count = std::get<0>(it.value());
        const ptCloud::pcBoundingBoxf& box = std::get<1>(it.value());
        m_tiles.push_back(std::make_unique<PcBlockTile>(it.key(), box, count));
        m_blocks.insert(it.key(), BlockEntry{nullptr, m_tiles.back().get()});
        m_pointCount += count;
        m_bounds.expandBy(box);
    }
    m_blockCount = int(m_blocks.size());
    m_loaderReader = std::move(loaderReader);
    m_pickReader = std::move(pickReader);
    sampleColumns();

    MessageLogger::debug() << "\n**************\n"
                           << "Loaded dataset,"
                           << "mmBox number :" << m_blockCount << "points number :" << m_pointCount
                           << "\n**************\n";
    m_loaded = true;
    return true;
}

void OsgGraphItem_PcDataSet::teardown()
{
    if (m_loader) {
        m_loader->stop();
        m_loader.reset();
    }
    for (const BlockEntry& entry : qAsConst(m_blocks))
        if (entry.geometry) removeDrawable(entry.geometry.get());
    m_blocks.clear();
    m_tiles.clear();
    m_blockOfGeometry.clear();
    m_loaderReader.reset();
    m_pickReader.reset();
    m_pointCount = 0;
    m_blockCount = 0;
    m_bounds = ptCloud::pcBoundingBoxf();
    m_sceneChanged = false;
}

void OsgGraphItem_PcDataSet::reload()
{
    teardown();
    if (m_loaded) load(m_file, m_dataSetName);
    onCameraChanged();
}

void OsgGraphItem_PcDataSet::onCameraChanged()
{
    if (m_blocks.isEmpty() || !m_shown) return;

    osg::Vec3d eye;
    if (m_viewer && m_viewer->getCameraManipulator()) eye = m_viewer->getCameraManipulator()->getMatrix().getTrans();

    if (!m_loader) {
        m_loader = std::make_unique<MipMapThread>(m_loaderReader.get(), &m_coloring);
        m_loader->start(QThread::HighestPriority);
    }

    m_loader->lock();
    harvestLocked();
    QList<PcBlockTile*> requests;
    for (const BlockEntry& entry : qAsConst(m_blocks)) {
        const int wanted = entry.tile->computeLevel(eye);
        if (wanted != 0 && wanted != entry.tile->loadedLevel()) requests.append(entry.tile);
    }
    m_loader->replaceRequestsLocked(requests);
    m_loader->unlock();
}

void OsgGraphItem_PcDataSet::updateFrame()
{
    if (!m_loader || !m_shown) return;
    if (!m_loader->tryLock()) return;
    harvestLocked();
    m_loader->unlock();
}

void OsgGraphItem_PcDataSet::harvestLocked()
{
    const QList<MipMapThread::Result> results = m_loader->takeResultsLocked();
    for (const MipMapThread::Result& result : results) {
        PcBlockTile* tile = result.first;
        auto it = m_blocks.find(tile->blockId());
        if (it == m_blocks.end() || it->tile != tile) continue;
        if (it->geometry) {
            removeDrawable(it->geometry.get());
            m_blockOfGeometry.remove(it->geometry.get());
        }
        it->geometry = result.second;
        tile->setLoadedLevel(tile->wantedLevel());
        addDrawable(it->geometry.get());
        m_blockOfGeometry.insert(it->geometry.get(), it.key());
        m_sceneChanged = true;
        m_changedAtFrame = frameNumber();
    }
}

unsigned int OsgGraphItem_PcDataSet::frameNumber() const
{
    const osg::FrameStamp* stamp = m_viewer ? m_viewer->getFrameStamp() : nullptr;
    return stamp ? stamp->getFrameNumber() : 0;
}

bool OsgGraphItem_PcDataSet::hasPendingWork() const
{
    if (!m_shown) return false;
    // The frame that is drawn after the change shows it.
    if (m_sceneChanged && frameNumber() <= m_changedAtFrame) return true;
    return isBuilding();
}

bool OsgGraphItem_PcDataSet::isBuilding() const { return m_shown && m_loader && m_loader->hasRequests(); }

bool OsgGraphItem_PcDataSet::isReady() const
{
    if (!m_loaded) return false;
    for (const BlockEntry& entry : m_blocks)
        if (entry.geometry) return true;
    return false;
}

bool OsgGraphItem_PcDataSet::pickNearest(double x, double y, int* blockId, int* pointIndex, osg::Vec3f* position,
                                         QMap<ptCloud::EDataSetColumn, QVariant>* attributes)
{
    *blockId = -1;
    *pointIndex = -1;
    if (attributes) attributes->clear();
    const osg::Camera* camera = m_viewer ? m_viewer->getCamera() : nullptr;
    if (!m_shown || !camera || !camera->getViewport() || m_blockOfGeometry.isEmpty()) return false;

    // The blocks whose boxes meet the pick volume are searched one by one,
    // the nearest first; the search ends at a block farther from the eye
    // than the best point found so far.
    const osg::Matrixd toWindow =
        camera->getViewMatrix() * camera->getProjectionMatrix() * camera->getViewport()->computeWindowMatrix();
    osg::Polytope volume = makePicker(x, y)->getPolytope();
    volume.transformProvidingInverse(toWindow);
    const osg::Vec3d eye = camera->getInverseViewMatrix().getTrans();
    std::vector<std::pair<double, osg::Geometry*>> candidates;
    for (const BlockEntry& entry : qAsConst(m_blocks)) {
        if (entry.geometry && volume.contains(entry.geometry->getBoundingBox()))
            candidates.emplace_back(distanceToBox(eye, entry.geometry->getBoundingBox()), entry.geometry.get());
    }
    std::sort(candidates.begin(), candidates.end(),
              [](const auto& a, const auto& b) { return a.first < b.first; });

    osg::ref_ptr<osg::Camera> probe = new osg::Camera;
    probe->setReferenceFrame(osg::Transform::ABSOLUTE_RF);
    probe->setViewMatrix(camera->getViewMatrix());
    probe->setProjectionMatrix(camera->getProjectionMatrix());
    probe->setViewport(new osg::Viewport(*camera->getViewport()));
    float nearest = std::numeric_limits<float>::max();
    for (const auto& candidate : candidates) {
        if (candidate.first >= double(nearest)) break;
        osg::ref_ptr<osgUtil::PolytopeIntersector> picker = makePicker(x, y);
        osgUtil::IntersectionVisitor visitor(picker.get());
        probe->addChild(candidate.second);
        probe->accept(visitor);
        probe->removeChild(candidate.second);
        for (const osgUtil::PolytopeIntersector::Intersection& hit : picker->getIntersections()) {
            int block = -1, index = -1;
            osg::Vec3f at;
            if (!hitPoint(hit.drawable.get(), hit.primitiveIndex, hit.localIntersectionPoint, &block, &index, &at))
                continue;
            const float distance = float((osg::Vec3d(at) - eye).length());
            if (distance < nearest) {
                nearest = distance;
                *blockId = block;
                *pointIndex = index;
                if (position) *position = at;
            }
        }
    }
    if (*blockId < 0) return false;

    if (attributes && m_pickReader) {
        const ptCloud::stPtCloud_PointArray* points = m_pickReader->readBlock(*blockId);
        if (points) points->getPeace(unsigned(*pointIndex), *attributes);
    }
    return true;
}

bool OsgGraphItem_PcDataSet::hitPoint(const osg::Drawable* drawable, unsigned int primitiveIndex,
                                      const osg::Vec3d& near, int* blockId, int* pointIndex,
                                      osg::Vec3f* position) const
{
    const auto found = m_blockOfGeometry.constFind(drawable);
    if (found == m_blockOfGeometry.cend()) return false;
    const osg::Geometry* geometry = drawable->asGeometry();
    const auto* vertices = dynamic_cast<const osg::Vec3Array*>(geometry->getVertexArray());
    if (!vertices || geometry->getNumPrimitiveSets() == 0) return false;
    const PcBlockTile* tile = m_blocks.value(found.value()).tile;

    const auto* triangles = dynamic_cast<const osg::DrawElementsUInt*>(geometry->getPrimitiveSet(0));
    unsigned int vertex = primitiveIndex;
    int stride = PcBlockTile::pointStride(tile->loadedLevel(), tile->pointCount());
    if (triangles) {
        // A mesh is drawn whole: the hit is the triangle corner nearest the
        // hit point.
        stride = 1;
        const size_t first = size_t(primitiveIndex) * 3;
        if (first + 2 >= triangles->size()) return false;
        vertex = (*triangles)[first];
        for (size_t k = 1; k < 3; ++k) {
            const unsigned int v = (*triangles)[first + k];
            if (v < vertices->size() && ((*vertices)[v] - near).length2() < ((*vertices)[vertex] - near).length2())
                vertex = v;
        }
    }
    if (vertex >= vertices->size()) return false;
    *blockId = found.value();
    *pointIndex = int(vertex) * stride;
    *position = (*vertices)[vertex];
    return true;
}

osg::BoundingBox OsgGraphItem_PcDataSet::dataBounds() const
{
    if (!m_bounds.valid()) return osg::BoundingBox();
    return osg::BoundingBox(m_bounds.min.x, m_bounds.min.y, m_bounds.min.z, m_bounds.max.x, m_bounds.max.y,
                            m_bounds.max.z);
}

QString OsgGraphItem_PcDataSet::dataSetName() const { return m_dataSetName; }

ptCloud::PtCloud_DataSetFile* OsgGraphItem_PcDataSet::file() const { return m_file; }

quint32 OsgGraphItem_PcDataSet::pointCount() const { return m_pointCount; }

int OsgGraphItem_PcDataSet::blockCount() const { return m_blockCount; }

quint64 OsgGraphItem_PcDataSet::drawnPointCount() const
{
    quint64 drawn = 0;
    if (!m_shown) return 0;
    for (const BlockEntry& entry : m_blocks)
        if (entry.geometry && entry.geometry->getVertexArray())
            drawn += entry.geometry->getVertexArray()->getNumElements();
    return drawn;
}

const osg::Geometry* OsgGraphItem_PcDataSet::blockGeometry(int blockId) const
{
    const auto it = m_blocks.constFind(blockId);
    return it == m_blocks.cend() ? nullptr : it->geometry.get();
}

void OsgGraphItem_PcDataSet::sampleColumns()
{
    std::vector<float> heights, intensities;
    QSet<int> classes;
    const QList<int> ids = m_blocks.keys();
    const int step = std::max(1, int(ids.size()) / kSampleBlocks);
    for (int k = 0; k < ids.size(); k += step) {
        const ptCloud::stPtCloud_PointArray* block = m_pickReader->readBlock(ids[k]);
        if (!block || block->count <= 0) continue;
        const size_t count = size_t(block->count);
        const size_t stride = std::max<size_t>(1, count / kSamplesPerBlock);
        const quint8* codes = block->columnData<quint8>(ptCloud::DSC_Classification);
        const quint16* values = block->columnData<quint16>(ptCloud::DSC_Intensity);
        for (size_t i = 0; i < count && i < block->positions.size(); i += stride) {
            heights.push_back(block->positions[i].z);
            if (values) {
                quint16 v;
                std::memcpy(&v, reinterpret_cast<const uint8_t*>(values) + i * sizeof(quint16), sizeof v);
                intensities.push_back(float(v));
            }
            if (codes) classes.insert(codes[i]);
        }
    }
    PointColors::stretch(heights, kStretchLow, kStretchHigh, &m_heightLow, &m_heightHigh);
    PointColors::stretch(intensities, kStretchLow, kStretchHigh, &m_intensityLow, &m_intensityHigh);
    m_classes = classes.values();
    std::sort(m_classes.begin(), m_classes.end());
    applyColoring();
}

void OsgGraphItem_PcDataSet::applyColoring()
{
    ptCloud::EColoringMode mode = m_loaderReader ? m_loaderReader->getHeader().coloringMode : ptCloud::CM_Height;
    if (mode == ptCloud::CM_Classification && m_classes.size() <= 1) mode = ptCloud::CM_Height;
    if (m_chosenMode && coloringModes().contains(*m_chosenMode)) mode = *m_chosenMode;
    m_coloring = PointColoring{mode, 0.f, 0.f};
    if (mode == ptCloud::CM_Height) {
        m_coloring.low = m_heightLow;
        m_coloring.high = m_heightHigh;
    } else if (mode == ptCloud::CM_Intensity) {
        m_coloring.low = m_intensityLow;
        m_coloring.high = m_intensityHigh;
    }
}

const PointColoring& OsgGraphItem_PcDataSet::coloring() const { return m_coloring; }

void OsgGraphItem_PcDataSet::setColoringMode(ptCloud::EColoringMode mode)
{
    if (!coloringModes().contains(mode)) return;
    m_chosenMode = mode;
    if (mode != m_coloring.mode) reload();
}

QList<ptCloud::EColoringMode> OsgGraphItem_PcDataSet::coloringModes() const
{
    QList<ptCloud::EColoringMode> modes;
    if (!m_loaderReader) return {ptCloud::CM_Height};
    const QList<ptCloud::EDataSetColumn>& columns = m_loaderReader->getHeader().columns;
    const std::pair<ptCloud::EColoringMode, ptCloud::EDataSetColumn> needs[] = {
        {ptCloud::CM_RGB, ptCloud::DSC_Color},
        {ptCloud::CM_Classification, ptCloud::DSC_Classification},
        {ptCloud::CM_Height, ptCloud::DSC_Location},
        {ptCloud::CM_Intensity, ptCloud::DSC_Intensity},
        {ptCloud::CM_ReturnNumber, ptCloud::DSC_ReturnNumber},
        {ptCloud::CM_PointSource, ptCloud::DSC_PointSourceId},
        {ptCloud::CM_Cluster, ptCloud::DSC_Label},
    };
    for (const auto& need : needs)
        if (need.first == ptCloud::CM_Height || columns.contains(need.second)) modes.append(need.first);
    return modes;
}

QList<int> OsgGraphItem_PcDataSet::sampledClasses() const { return m_classes; }

ptCloud::pcVec3d OsgGraphItem_PcDataSet::origin() const
{
    return m_loaderReader ? m_loaderReader->getHeader().origin : ptCloud::pcVec3d();
}
