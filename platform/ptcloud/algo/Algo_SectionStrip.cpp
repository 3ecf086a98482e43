#include "Algo_SectionStrip.h"

#include <algorithm>
#include <cmath>

#include "IDataSetReader.h"
#include "ILongLiveActionProgress.h"

namespace ptCloud {

Algo_SectionStrip::Algo_SectionStrip(double startX, double startY, double endX, double endY, double width)
    : m_sx(startX), m_sy(startY), m_dx(0.0), m_dy(0.0), m_length(std::hypot(endX - startX, endY - startY)),
      m_halfWidth(std::max(width, 0.0) * 0.5)
{
    if (m_length > 0.0) {
        m_dx = (endX - startX) / m_length;
        m_dy = (endY - startY) / m_length;
    }
}

bool Algo_SectionStrip::contains(double x, double y) const
{
    if (m_length <= 0.0) return false;
    const double px = x - m_sx, py = y - m_sy;
    const double along = px * m_dx + py * m_dy;
    const double across = py * m_dx - px * m_dy;
    return along >= 0.0 && along <= m_length && std::fabs(across) <= m_halfWidth;
}

bool Algo_SectionStrip::overlaps(const pcBoundingBoxf& box) const
{
    if (m_length <= 0.0 || !box.valid()) return false;
    // Two convex shapes meet unless their shadows on one of the four edge
    // directions (the box's x and y, the strip's along and across) are apart.
    const double cx = 0.5 * (double(box.min.x) + box.max.x) - m_sx;
    const double cy = 0.5 * (double(box.min.y) + box.max.y) - m_sy;
    const double hx = 0.5 * (double(box.max.x) - box.min.x), hy = 0.5 * (double(box.max.y) - box.min.y);
    const double along = cx * m_dx + cy * m_dy, alongReach = hx * std::fabs(m_dx) + hy * std::fabs(m_dy);
    if (along + alongReach < 0.0 || along - alongReach > m_length) return false;
    const double across = cy * m_dx - cx * m_dy, acrossReach = hx * std::fabs(m_dy) + hy * std::fabs(m_dx);
    if (across + acrossReach < -m_halfWidth || across - acrossReach > m_halfWidth) return false;
    // The strip's own reach along x and y from its start.
    const double ex = m_length * m_dx, ey = m_length * m_dy;
    const double wx = m_halfWidth * std::fabs(m_dy), wy = m_halfWidth * std::fabs(m_dx);
    const double minX = std::min(0.0, ex) - wx, maxX = std::max(0.0, ex) + wx;
    const double minY = std::min(0.0, ey) - wy, maxY = std::max(0.0, ey) + wy;
    return cx + hx >= minX && cx - hx <= maxX && cy + hy >= minY && cy - hy <= maxY;
}

bool Algo_SectionStrip::run(IDataSetReader& reader, const Visit& visit, ILongLiveActionProgress* progress,
                            QString* error, int* blocksRead) const
{
    if (blocksRead) *blocksRead = 0;
    QMap<int, std::tuple<unsigned int, pcBoundingBoxf>> blocks;
    if (!reader.getBlocks(blocks)) {
        *error = QStringLiteral("the points are not open");
        return false;
    }
    std::vector<int> touched;
    for (auto it = blocks.cbegin(); it != blocks.cend(); ++it)
        if (std::get<0>(it.value()) > 0 && overlaps(std::get<1>(it.value()))) touched.push_back(it.key());
    std::vector<int> inside;
    for (size_t i = 0; i < touched.size(); ++i) {
        if (progress) {
            if (progress->isStopRequested()) {
                *error = QStringLiteral("cancelled");
                return false;
            }
            progress->setProgress(int(i * 100 / touched.size()));
        }
        const stPtCloud_PointArray* block = reader.readBlock(touched[i]);
        if (!block) {
            *error = QStringLiteral("block %1 cannot be read").arg(touched[i]);
            return false;
        }
        if (blocksRead) ++*blocksRead;
        inside.clear();
        for (int p = 0; p < block->count; ++p)
            if (contains(block->positions[size_t(p)].x, block->positions[size_t(p)].y)) inside.push_back(p);
        if (!inside.empty() && !visit(*block, inside, error)) return false;
    }
    if (progress) progress->setProgress(100);
    return true;
}

}  // namespace ptCloud
