#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>
#include <array>

#include "PtCloudEnums.h"
#include "PtCloudTypes.h"
#include "stPtCloud_DataSetHeader.h"

namespace ptCloud {
class ILongLiveActionProgress;
}

// What ptcloud dataset info reports, read from every block of a points file:
// counts, absolute bounds and mean (double precision, from the exact
// positions where the file stores them), columns, the classification
// histogram, and how coarsely the positions are drawn when that loses some. Optionally also the coarsest decimal grid each
// axis lies on, which an export needs to keep the positions it was given.
class CliDataSetSummary {
public:
    bool compute(const QString& pointsFile, bool findGrid, ptCloud::ILongLiveActionProgress* progress,
                 QString* error);

    QJsonObject toJson() const;
    QStringList toText() const;

    quint64 points() const { return m_points; }
    bool hasColor() const { return m_header.columns.contains(ptCloud::DSC_Color); }
    double minimum(int axis) const { return m_min[size_t(axis)]; }
    double maximum(int axis) const { return m_max[size_t(axis)]; }
    // The coarsest of 1e-3 ... 1e-9 that holds every position of the axis,
    // limited by what single-precision storage can tell apart.
    double gridStep(int axis) const;
    // The file's grid (0 when it stores floats), and the positions' range
    // on it: whole quanta from the origin.
    const ptCloud::pcVec3d& quantum() const { return m_header.quantum; }
    const ptCloud::pcVec3d& origin() const { return m_header.origin; }
    qint64 lowestQuantum(int axis) const { return m_minQ[size_t(axis)]; }
    qint64 highestQuantum(int axis) const { return m_maxQ[size_t(axis)]; }
    bool hasLabels() const { return m_hasLabels; }
    // Whether every point carries a label that a one-byte LAS class can hold.
    bool labelsFitClasses() const { return m_hasLabels && m_labelMin >= 0 && m_labelMax <= 255; }

private:
    void addGridSample(int axis, double absolute, float relative);

    quint64 m_points = 0;
    ptCloud::stPtCloud_DataSetHeader m_header;
    std::array<double, 3> m_min{}, m_max{}, m_mean{};
    std::array<qint64, 3> m_minQ{}, m_maxQ{};
    bool m_hasClasses = false;
    bool m_hasLabels = false;
    qint32 m_labelMin = 0, m_labelMax = 0;
    std::array<quint64, 256> m_classes{};
    std::array<int, 3> m_gridIndex{};
};
