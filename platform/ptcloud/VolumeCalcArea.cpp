#include "VolumeCalcArea.h"

#include <QJsonArray>

#include "VolumeCalcAreaList.h"

namespace ptCloud {

VolumeCalcArea::VolumeCalcArea(VolumeCalcAreaList* owner, const QString& name) : m_owner(owner), m_name(name) {}

void VolumeCalcArea::changed()
{
    if (m_owner) m_owner->areaChanged();
}

void VolumeCalcArea::setBoundary(const std::vector<pcVec3f>& boundary)
{
    m_boundary = boundary;
    changed();
}

void VolumeCalcArea::addBoundaryPoint(const pcVec3f& p)
{
    m_boundary.push_back(p);
    changed();
}

void VolumeCalcArea::clearBoundary()
{
    m_boundary.clear();
    changed();
}

void VolumeCalcArea::setGroundHeightMode(GroundHeightMode mode)
{
    m_groundMode = mode;
    changed();
}

void VolumeCalcArea::setFixedGroundHeight(double h)
{
    m_fixedGround = qBound(-99999.0, h, 99999.0);
    changed();
}

void VolumeCalcArea::setSkyLimit(double h)
{
    m_skyLimit = qBound(-99999.0, h, 99999.0);
    changed();
}

void VolumeCalcArea::setGridSize(double s)
{
    m_gridSize = qBound(0.001, s, 99999.0);
    changed();
}

QJsonObject VolumeCalcArea::toJson() const
{
    QJsonArray boundary;
    for (const pcVec3f& p : m_boundary) boundary.append(QJsonArray{p.x, p.y, p.z});
    QJsonObject o;
    o.insert("boundary", boundary);
    o.insert("groundMode", int(m_groundMode));
    o.insert("fixedGround", m_fixedGround);
    o.insert("skyLimit", m_skyLimit);
    o.insert("gridSize", m_gridSize);
    o.insert("digGrid", m_digGrid);
    o.insert("fillGrid", m_fillGrid);
    o.insert("digDtm", m_digDtm);
    o.insert("fillDtm", m_fillDtm);
    o.insert("boundaryAvg", double(m_boundaryAvg));
    o.insert("pointCount", m_pointCount);
    return o;
}

void VolumeCalcArea::fromJson(const QJsonObject& o)
{
    m_boundary.clear();
    for (const QJsonValue& v : o.value("boundary").toArray()) {
        const QJsonArray a = v.toArray();
        m_boundary.emplace_back(float(a.at(0).toDouble()), float(a.at(1).toDouble()), float(a.at(2).toDouble()));
    }
    m_groundMode = o.value("groundMode").toInt() == GroundFixed ? GroundFixed : GroundBoundaryAvg;
    m_fixedGround = o.value("fixedGround").toDouble(0.0);
    m_skyLimit = o.value("skyLimit").toDouble(99999.0);
    m_gridSize = o.value("gridSize").toDouble(0.001);
    m_digGrid = o.value("digGrid").toDouble();
    m_fillGrid = o.value("fillGrid").toDouble();
    m_digDtm = o.value("digDtm").toDouble();
    m_fillDtm = o.value("fillDtm").toDouble();
    m_boundaryAvg = float(o.value("boundaryAvg").toDouble());
    m_pointCount = o.value("pointCount").toInt();
}

}  // namespace ptCloud
