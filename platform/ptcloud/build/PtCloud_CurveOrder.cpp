#include "PtCloud_CurveOrder.h"

#include <algorithm>
#include <cstring>

#include "PtCloud_KeySort.h"

namespace ptCloud {

namespace {

// The tree's levels are sorted this many at a time, from the top, and only
// where a subtree is still too large for a block: a bucket of a few blocks
// needs one pass.
constexpr int kLevelsAPass = 11;

int bitsFor(quint64 v)
{
    int n = 0;
    while (v >> n) ++n;
    return n;
}

}  // namespace

void PtCloud_CurveOrder::reset(const pcBoundingBoxf& box, size_t n, size_t targetPoints)
{
    m_target = std::max<size_t>(targetPoints, 1);
    m_indexBits = std::max(bitsFor(n > 0 ? n - 1 : 0), 1);
    m_indexMask = (quint64(1) << m_indexBits) - 1;
    const int budget = 64 - m_indexBits;

    // Which axis each curve bit halves, from the top: the longest side of the
    // cell so far (x before y before z on a tie, so flat data keeps its
    // cells square).
    const float lo[3] = {box.min.x, box.min.y, box.min.z};
    const double extent[3] = {box.valid() ? double(box.max.x) - box.min.x : 0.0,
                              box.valid() ? double(box.max.y) - box.min.y : 0.0,
                              box.valid() ? double(box.max.z) - box.min.z : 0.0};
    double side[3] = {extent[0], extent[1], extent[2]};
    int axisBits[3] = {0, 0, 0};
    int axisOf[64];
    m_curveBits = 0;
    while (m_curveBits < budget) {
        int a = -1;
        for (int c = 0; c < 3; ++c)
            if (extent[c] > 0 && axisBits[c] < kAxisBits && (a < 0 || side[c] > side[a])) a = c;
        if (a < 0) break;
        axisOf[m_curveBits++] = a;
        side[a] *= 0.5;
        ++axisBits[a];
    }
    for (int a = 0; a < 3; ++a) {
        m_min[a] = lo[a];
        m_cells[a] = float(1u << axisBits[a]);
        m_scale[a] = axisBits[a] > 0 ? float(double(1u << axisBits[a]) / extent[a]) : 0.f;
    }
    // The k-th bit from the top is the next lower bit of its axis's cell
    // number; it lands just above the index.
    std::memset(m_spread, 0, sizeof m_spread);
    int next[3] = {axisBits[0] - 1, axisBits[1] - 1, axisBits[2] - 1};
    for (int k = 0; k < m_curveBits; ++k) {
        const int a = axisOf[k];
        const int cellBit = next[a]--;
        const quint64 keyBit = quint64(1) << (m_indexBits + m_curveBits - 1 - k);
        for (int v = 0; v < 256; ++v)
            if ((v >> (cellBit & 7)) & 1) m_spread[a][cellBit >> 3][v] |= keyBit;
    }
    m_keys.resize(n);
    m_blocks.clear();
}

void PtCloud_CurveOrder::sort()
{
    const size_t n = m_keys.size();
    m_scratch.resize(n);
    m_blocks.clear();
    cut(0, n, m_curveBits - 1, m_curveBits);
}

void PtCloud_CurveOrder::sortRange(size_t first, size_t end, int lowBit, int endBit)
{
    sortKeysByBits(m_keys.data() + first, m_scratch.data(), end - first, m_indexBits + lowBit, endBit - lowBit,
              kLevelsAPass, m_counts);
}

// [first, end) is one subtree: its keys agree on every curve bit above `bit`
// and are sorted by the bits from `sorted` up.
void PtCloud_CurveOrder::cut(size_t first, size_t end, int bit, int sorted)
{
    if (end - first <= m_target) {
        if (end > first) m_blocks.push_back({first, end - first});
        return;
    }
    if (bit < 0) {
        for (; first < end; first += m_target) m_blocks.push_back({first, std::min(m_target, end - first)});
        return;
    }
    if (bit < sorted) {
        sorted = std::max(bit + 1 - kLevelsAPass, 0);
        sortRange(first, end, sorted, bit + 1);
    }
    const quint64 mask = quint64(1) << (m_indexBits + bit);
    const auto begin = m_keys.begin();
    const size_t mid = size_t(std::partition_point(begin + std::ptrdiff_t(first), begin + std::ptrdiff_t(end),
                                                   [mask](quint64 key) { return (key & mask) == 0; }) -
                              begin);
    cut(first, mid, bit - 1, sorted);
    cut(mid, end, bit - 1, sorted);
}

void PtCloud_CurveOrder::release()
{
    std::vector<quint64>().swap(m_keys);
    std::vector<quint64>().swap(m_scratch);
    std::vector<quint32>().swap(m_counts);
    m_blocks.clear();
}

}  // namespace ptCloud
