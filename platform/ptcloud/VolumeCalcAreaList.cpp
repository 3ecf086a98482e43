#include "VolumeCalcAreaList.h"

#include <QFileInfo>
#include <QJsonObject>

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
