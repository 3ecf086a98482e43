#include "CliDataSetSummary.h"

#include <QJsonArray>
#include <cmath>
#include <limits>

#include "CliBlockScan.h"

using namespace ptCloud;

namespace {

const double kGridSteps[] = {1e-3, 1e-4, 1e-5, 1e-6, 1e-7, 1e-8, 1e-9};
const int kGridStepCount = int(sizeof(kGridSteps) / sizeof(kGridSteps[0]));

QJsonArray triple(const std::array<double, 3>& v) { return QJsonArray{v[0], v[1], v[2]}; }

QString joined(const std::array<double, 3>& v)
{
    return QStringLiteral("%1 %2 %3").arg(v[0], 0, 'f', 4).arg(v[1], 0, 'f', 4).arg(v[2], 0, 'f', 4);
}

}  // namespace

bool CliDataSetSummary::compute(const QString& pointsFile, bool findGrid, ILongLiveActionProgress* progress,
                                QString* error)
{
    m_points = 0;
    m_classes.fill(0);
    m_gridIndex.fill(0);
    m_labelMin = std::numeric_limits<qint32>::max();
    m_labelMax = std::numeric_limits<qint32>::min();
    m_min.fill(std::numeric_limits<double>::max());
    m_max.fill(-std::numeric_limits<double>::max());
    m_minQ.fill(std::numeric_limits<qint64>::max());
    m_maxQ.fill(std::numeric_limits<qint64>::min());
    // Long double keeps the sum of millions of UTM-sized coordinates exact to
    // well below a millimetre; relative sums are added to the origin once a
    // block. Exact positions are summed as whole quanta, exactly.
    long double sum[3] = {0, 0, 0};
    auto visit = [&](const stPtCloud_PointArray& block, QString*) {
        const double origin[3] = {block.origin.x, block.origin.y, block.origin.z};
        const double quantum[3] = {block.quantum.x, block.quantum.y, block.quantum.z};
        const bool exact = block.quanta.size() == size_t(block.count);
        long double blockSum[3] = {0, 0, 0};
        for (int i = 0; i < block.count; ++i) {
            const pcVec3f& p = block.positions[size_t(i)];
            const float rel[3] = {p.x, p.y, p.z};
            const pcVec3q& q = exact ? block.quanta[size_t(i)] : pcVec3q();
            const qint64 whole[3] = {q.x, q.y, q.z};
            for (int a = 0; a < 3; ++a) {
                const double v = origin[a] + (exact ? double(whole[a]) * quantum[a] : double(rel[a]));
                m_min[size_t(a)] = std::min(m_min[size_t(a)], v);
                m_max[size_t(a)] = std::max(m_max[size_t(a)], v);
                if (exact) {
                    m_minQ[size_t(a)] = std::min(m_minQ[size_t(a)], whole[a]);
                    m_maxQ[size_t(a)] = std::max(m_maxQ[size_t(a)], whole[a]);
                    blockSum[a] += whole[a];
                } else {
                    blockSum[a] += rel[a];
                }
                if (findGrid) addGridSample(a, v, rel[a]);
            }
        }
        for (int a = 0; a < 3; ++a)
            sum[a] += (exact ? blockSum[a] * quantum[a] : blockSum[a]) + (long double)origin[a] * block.count;
        if (const uint8_t* cls = block.columnData<uint8_t>(DSC_Classification))
            for (int i = 0; i < block.count; ++i) ++m_classes[cls[i]];
        if (const qint32* labels = block.columnData<qint32>(DSC_Label)) {
            const auto range = std::minmax_element(labels, labels + block.count);
            if (block.count > 0) {
                m_labelMin = std::min(m_labelMin, *range.first);
                m_labelMax = std::max(m_labelMax, *range.second);
            }
        }
        m_points += quint64(block.count);
        return true;
    };
    if (!CliBlockScan::run(pointsFile, progress, &m_header, visit, error)) return false;
    m_hasClasses = m_header.columns.contains(DSC_Classification);
    m_hasLabels = m_header.columns.contains(DSC_Label);
    for (int a = 0; a < 3; ++a) m_mean[size_t(a)] = m_points ? double(sum[a] / m_points) : 0.0;
    return true;
}

void CliDataSetSummary::addGridSample(int axis, double absolute, float relative)
{
    // The stored float is within half an ulp of the value read; allow one ulp
    // (plus the double's own rounding) before calling a point off the grid.
    const double tolerance = std::max(std::fabs(double(relative)) * std::ldexp(1.0, -23),
                                      std::fabs(absolute) * std::ldexp(1.0, -50));
    int& k = m_gridIndex[size_t(axis)];
    while (k < kGridStepCount - 1) {
        const double step = kGridSteps[k];
        if (step * 0.5 <= tolerance) break;  // finer than the storage can tell: every value fits
        const double q = absolute / step;
        if (std::fabs(q - std::round(q)) * step <= tolerance) break;
        ++k;
    }
}

double CliDataSetSummary::gridStep(int axis) const { return kGridSteps[m_gridIndex[size_t(axis)]]; }

QJsonObject CliDataSetSummary::toJson() const
{
    QJsonObject o;
    o.insert("points", double(m_points));
    o.insert("blocks", double(m_header.blockCount));
    o.insert("origin", QJsonArray{m_header.origin.x, m_header.origin.y, m_header.origin.z});
    if (m_header.storesQuanta())
        o.insert("quantum", QJsonArray{m_header.quantum.x, m_header.quantum.y, m_header.quantum.z});
    if (!m_header.drawnNote().isEmpty()) o.insert("drawn", m_header.drawnNote());
    if (m_points > 0) {
        o.insert("bounds", QJsonArray{m_min[0], m_min[1], m_min[2], m_max[0], m_max[1], m_max[2]});
        o.insert("mean", triple(m_mean));
    } else {
        o.insert("bounds", QJsonValue::Null);
        o.insert("mean", QJsonValue::Null);
    }
    QJsonArray columns;
    for (EDataSetColumn c : m_header.columns) columns << columnName(c);
    o.insert("columns", columns);
    if (m_hasClasses) {
        QJsonObject classes;
        for (size_t c = 0; c < m_classes.size(); ++c)
            if (m_classes[c]) classes.insert(QString::number(c), double(m_classes[c]));
        o.insert("classification", classes);
    }
    return o;
}

QStringList CliDataSetSummary::toText() const
{
    QStringList columns;
    for (EDataSetColumn c : m_header.columns) columns << columnName(c);
    QStringList lines;
    lines << QStringLiteral("points:  %1 in %2 blocks").arg(m_points).arg(m_header.blockCount);
    lines << QStringLiteral("origin:  %1").arg(joined({m_header.origin.x, m_header.origin.y, m_header.origin.z}));
    if (!m_header.drawnNote().isEmpty()) lines << QStringLiteral("note:    %1").arg(m_header.drawnNote());
    if (m_points > 0) {
        lines << QStringLiteral("min:     %1").arg(joined(m_min));
        lines << QStringLiteral("max:     %1").arg(joined(m_max));
        lines << QStringLiteral("mean:    %1").arg(joined(m_mean));
    }
    lines << QStringLiteral("columns: %1").arg(columns.join(QStringLiteral(", ")));
    if (m_hasClasses) {
        QStringList classes;
        for (size_t c = 0; c < m_classes.size(); ++c)
            if (m_classes[c]) classes << QStringLiteral("%1: %2").arg(c).arg(m_classes[c]);
        lines << QStringLiteral("classes: %1").arg(classes.join(QStringLiteral(", ")));
    }
    return lines;
}
