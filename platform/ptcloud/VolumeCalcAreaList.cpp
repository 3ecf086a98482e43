#include "VolumeCalcAreaList.h"

#include <QFileInfo>
#include <QJsonObject>

#include "Algo_EarthVolume.h"
#include "PtCloud_DataSetFile.h"
#include "PtCloud_JsonFile.h"

namespace ptCloud {

VolumeCalcAreaList::VolumeCalcAreaList(const QString& filepath) : m_path(filepath) {}

VolumeCalcAreaList::~VolumeCalcAreaList()
{
    // Areas may outlive the list through nothing; cut their way back anyway.
    for (auto& a : m_areas) a->m_owner = nullptr;
}

VolumeCalcArea* VolumeCalcAreaList::addArea(const QString& name)
{
    if (name.isEmpty() || m_areas.contains(name)) return nullptr;
    auto area = std::make_shared<VolumeCalcArea>(this, name);
    m_areas.insert(name, area);
    areaChanged();
    return area.get();
}

void VolumeCalcAreaList::removeArea(const QString& name)
{
    auto it = m_areas.find(name);
    if (it == m_areas.end()) return;
    it.value()->m_owner = nullptr;
    m_areas.erase(it);
    areaChanged();
}

VolumeCalcArea* VolumeCalcAreaList::getArea(const QString& name)
{
    auto it = m_areas.find(name);
    return it == m_areas.end() ? nullptr : it.value().get();
}

void VolumeCalcAreaList::getAreas(QMap<QString, VolumeCalcArea*>& out)
{
    out.clear();
    for (auto it = m_areas.begin(); it != m_areas.end(); ++it) out.insert(it.key(), it.value().get());
}

void VolumeCalcAreaList::getAreas(QMap<QString, const VolumeCalcArea*>& out) const
{
    out.clear();
    for (auto it = m_areas.cbegin(); it != m_areas.cend(); ++it) out.insert(it.key(), it.value().get());
}

bool VolumeCalcAreaList::isEmpty() const { return m_areas.isEmpty(); }

void VolumeCalcAreaList::setDTMFile(PtCloud_DataSetFile* file) { m_dtm = file; }

void VolumeCalcAreaList::setGridFile(PtCloud_DataSetFile* file) { m_grid = file; }

namespace {
// Every vertex (and, for meshes, triangle) of a file's blocks whose plan box
// meets [min, max]; positions moved into the frame whose origin is frame.
bool gatherBlocks(PtCloud_DataSetFile* file, const pcVec3d& frame, float minX, float minY, float maxX, float maxY,
                  std::vector<pcVec3f>& points, std::vector<unsigned int>* triangles, QString* error)
{
    PtCloud_DataSetFile reader(file->getFilepath());
    if (!reader.openFile()) {
        *error = reader.lastError();
        return false;
    }
    const pcVec3d& o = reader.getHeader().origin;
    const pcVec3f shift(float(o.x - frame.x), float(o.y - frame.y), float(o.z - frame.z));
    QMap<int, std::tuple<unsigned int, pcBoundingBoxf>> blocks;
    reader.getBlocks(blocks);
    for (auto it = blocks.cbegin(); it != blocks.cend(); ++it) {
        const pcBoundingBoxf& b = std::get<1>(it.value());
        // A mesh's triangles may span blocks' boxes: take every mesh block.
        if (!triangles && (b.max.x + shift.x < minX || b.min.x + shift.x > maxX || b.max.y + shift.y < minY ||
                           b.min.y + shift.y > maxY))
            continue;
        const stPtCloud_PointArray* block = reader.readBlock(it.key());
        if (!block) {
            *error = reader.lastError();
            return false;
        }
        const unsigned int base = unsigned(points.size());
        for (const pcVec3f& p : block->positions) points.push_back(p + shift);
        if (triangles)
            for (unsigned int i : block->triangles) triangles->push_back(base + i);
    }
    return true;
}
// Points whose plan position lies inside the outline (even-odd rule).
int countInside(const std::vector<pcVec3f>& points, const std::vector<pcVec3f>& outline)
{
    int inside = 0;
    const size_t n = outline.size();
    for (const pcVec3f& p : points) {
        bool in = false;
        for (size_t i = 0, j = n - 1; i < n; j = i++) {
            const pcVec3f& a = outline[i];
            const pcVec3f& b = outline[j];
            if ((a.y > p.y) != (b.y > p.y) && p.x < (b.x - a.x) * (p.y - a.y) / (b.y - a.y) + a.x) in = !in;
        }
        inside += in ? 1 : 0;
    }
    return inside;
}
}  // namespace

bool VolumeCalcAreaList::doCalc(EVolumeCalcFunction function)
{
    m_error.clear();
    PtCloud_DataSetFile* source = function == VCF_DTM ? m_dtm : m_grid;
    if (!source || !source->isValid()) {
        m_error = function == VCF_DTM ? QStringLiteral("no DEM mesh to calculate against")
                                      : QStringLiteral("no points to calculate from");
        return false;
    }
    // Boundaries are in the frame of the points; the DEM mesh may have its own origin.
    pcVec3d frame;
    if (m_grid) {
        PtCloud_DataSetFile points(m_grid->getFilepath());
        if (points.openFile()) frame = points.getHeader().origin;
    }
    float minX = 3e38f, minY = 3e38f, maxX = -3e38f, maxY = -3e38f;
    for (const auto& area : qAsConst(m_areas))
        for (const pcVec3f& p : area->m_boundary) {
            minX = std::min(minX, p.x), minY = std::min(minY, p.y);
            maxX = std::max(maxX, p.x), maxY = std::max(maxY, p.y);
        }
    std::vector<pcVec3f> points;
    std::vector<unsigned int> triangles;
    if (!gatherBlocks(source, frame, minX, minY, maxX, maxY, points, function == VCF_DTM ? &triangles : nullptr,
                      &m_error))
        return false;

    int computed = 0;
    for (const auto& area : qAsConst(m_areas)) {
        if (area->m_boundary.size() < 3) {
            area->m_ok = false;
            area->m_error = QStringLiteral("the boundary needs at least three points");
            continue;
        }
        Algo_EarthVolume::Params params;
        params.groundMode = area->m_groundMode == VolumeCalcArea::GroundFixed ? Algo_EarthVolume::GroundMode::Fixed
                                                                              : Algo_EarthVolume::GroundMode::BoundaryAverage;
        params.groundHeight = area->m_fixedGround;
        params.maxTopHeight = area->m_skyLimit;
        params.gridSize = area->m_gridSize;
        Algo_EarthVolume::Result r;
        QString err;
        const bool ok = function == VCF_DTM
                            ? Algo_EarthVolume::computeDtm(points, triangles, area->m_boundary, params, r, nullptr, &err)
                            : Algo_EarthVolume::computeGrid(points, area->m_boundary, params, r, nullptr, &err);
        area->m_ok = ok;
        area->m_error = err;
        if (!ok) continue;
        ++computed;
        if (function == VCF_DTM) {
            area->m_digDtm = r.digVolume;
            area->m_fillDtm = r.fillVolume;
        } else {
            area->m_digGrid = r.digVolume;
            area->m_fillGrid = r.fillVolume;
        }
        area->m_boundaryAvg = float(r.hasBoundaryAverage ? r.boundaryAverage : r.groundHeight);
        area->m_pointCount = function == VCF_DTM ? int(r.insideCells) : countInside(points, area->m_boundary);
    }
    areaChanged();
    if (computed == 0 && m_error.isEmpty()) m_error = QStringLiteral("no area could be calculated");
    return computed > 0;
}

bool VolumeCalcAreaList::load(QString* error)
{
    m_areas.clear();
    if (!QFileInfo::exists(m_path)) return true;
    QJsonObject o;
    if (!PtCloud_JsonFile::read(m_path, &o, error)) return false;
    const QJsonObject areas = o.value("areas").toObject();
    for (auto it = areas.begin(); it != areas.end(); ++it) {
        auto area = std::make_shared<VolumeCalcArea>(this, it.key());
        area->fromJson(it.value().toObject());
        m_areas.insert(it.key(), area);
    }
    return true;
}

bool VolumeCalcAreaList::save(QString* error) const
{
    QJsonObject areas;
    for (auto it = m_areas.cbegin(); it != m_areas.cend(); ++it) areas.insert(it.key(), it.value()->toJson());
    QJsonObject o;
    o.insert("format", "ptcloud-earthvolume");
    o.insert("version", 1);
    o.insert("areas", areas);
    return PtCloud_JsonFile::write(m_path, o, error);
}

void VolumeCalcAreaList::areaChanged()
{
    QString err;
    if (!save(&err)) qWarning("earth volume: %s", qPrintable(err));
}

}  // namespace ptCloud
