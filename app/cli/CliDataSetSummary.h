#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>
#include <array>

#include "PtCloudEnums.h"
#include "PtCloudTypes.h"

namespace ptCloud {
class ILongLiveActionProgress;
}

// What ptcloud dataset info reports, read from every block of a points file:
// counts, absolute bounds and mean (double precision), columns, and the
// classification histogram. Optionally also the coarsest decimal grid each
// axis lies on, which an export needs to keep the positions it was given.
class CliDataSetSummary {
public:
    bool compute(const QString& pointsFile, bool findGrid, ptCloud::ILongLiveActionProgress* progress,
                 QString* error);

    QJsonObject toJson() const;
    QStringList toText() const;

    quint64 points() const { return m_points; }
    bool hasColor() const { return m_columns.contains(ptCloud::DSC_Color); }
    double minimum(int axis) const { return m_min[size_t(axis)]; }
    double maximum(int axis) const { return m_max[size_t(axis)]; }
    // The coarsest of 1e-3 ... 1e-9 that holds every position of the axis,
    // limited by what single-precision storage can tell apart.
    double gridStep(int axis) const;
    bool hasLabels() const { return m_hasLabels; }
    // Whether every point carries a label that a one-byte LAS class can hold.
    bool labelsFitClasses() const { return m_hasLabels && m_labelMin >= 0 && m_labelMax <= 255; }

private:
    void addGridSample(int axis, double absolute, float relative);

    quint64 m_points = 0;
    quint32 m_blocks = 0;
    ptCloud::pcVec3d m_origin;
    QList<ptCloud::EDataSetColumn> m_columns;
    std::array<double, 3> m_min{}, m_max{}, m_mean{};
    bool m_hasClasses = false;
    bool m_hasLabels = false;
    qint32 m_labelMin = 0, m_labelMax = 0;
    std::array<quint64, 256> m_classes{};
    std::array<int, 3> m_gridIndex{};
};
