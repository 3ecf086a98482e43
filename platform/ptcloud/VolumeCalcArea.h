#pragma once

#include <QJsonObject>
#include <QString>
#include <vector>

#include "PtCloudTypes.h"

namespace ptCloud {

class VolumeCalcAreaList;

// One named area of an earth-volume calculation: its boundary, its
// parameters, and the dig and fill volumes of the last calculation.
// Coordinates are in the dataset's relative frame; heights likewise.
class VolumeCalcArea {
public:
    enum GroundHeightMode { GroundBoundaryAvg = 0, GroundFixed = 1 };

    VolumeCalcArea(VolumeCalcAreaList* owner, const QString& name);

    QString name() const { return m_name; }

    // Boundary polygon in plan (x, y; z kept for drawing), at least 3 points to calculate.
    const std::vector<pcVec3f>& boundary() const { return m_boundary; }
    void setBoundary(const std::vector<pcVec3f>& boundary);
    void addBoundaryPoint(const pcVec3f& p);
    void clearBoundary();

    GroundHeightMode groundHeightMode() const { return m_groundMode; }
    void setGroundHeightMode(GroundHeightMode mode);
    double fixedGroundHeight() const { return m_fixedGround; }  // metres, -99999..99999, default 0
    void setFixedGroundHeight(double h);
    double skyLimit() const { return m_skyLimit; }  // max top height, metres, default 99999
    void setSkyLimit(double h);
    double gridSize() const { return m_gridSize; }  // metres, 0.001..99999, default 0.001
    void setGridSize(double s);

    // Results of the last calculation (cubic metres); 0 before any.
    double getDigVolume_grid() const { return m_digGrid; }
    double getFillVolume_grid() const { return m_fillGrid; }
    double getDigVolume_dtm() const { return m_digDtm; }
    double getFillVolume_dtm() const { return m_fillDtm; }
    // Mean height of the ground along the boundary, from the last calculation.
    float getGroundHeightBoundaryAvg() const { return m_boundaryAvg; }
    // Points inside the boundary (grid method) or mesh cells inside it (DTM method), last time.
    int pointCount() const { return m_pointCount; }
    // False when the last calculation of this area failed (too few boundary points, no data).
    bool lastCalcOk() const { return m_ok; }
    QString lastError() const { return m_error; }

    QJsonObject toJson() const;
    void fromJson(const QJsonObject& o);

private:
    friend class VolumeCalcAreaList;
    void changed();

    VolumeCalcAreaList* m_owner;
    QString m_name;
    std::vector<pcVec3f> m_boundary;
    GroundHeightMode m_groundMode = GroundBoundaryAvg;
    double m_fixedGround = 0.0;
    double m_skyLimit = 99999.0;
    double m_gridSize = 0.001;
    double m_digGrid = 0.0, m_fillGrid = 0.0, m_digDtm = 0.0, m_fillDtm = 0.0;
    float m_boundaryAvg = 0.f;
    int m_pointCount = 0;
    bool m_ok = true;
    QString m_error;
};

}  // namespace ptCloud
