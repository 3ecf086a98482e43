#pragma once

#include <QtGlobal>
#include <cstddef>
#include <vector>

#include "PtCloudTypes.h"

namespace ptCloud {

// Cuts a set of points into blocks: the leaves of a k-d tree that halves the
// longest side of a cell at every level, each holding at most the target
// number of points, in the order of a curve through the tree.
//
// Each point's key interleaves the bits of its cell number along the three
// axes, one bit at a time from the top, always from the axis whose cell is
// longest at that depth; below the curve bits sits the point's index. Read
// from the top, the curve bits are the tree's cuts, so after a stable sort
// every subtree is one run of the order: a block is the largest subtree
// holding at most the target number of points (cut by arrival order only
// where the tree runs out of levels: 2^16 cells an axis, a spot of identical
// points). The sort goes only as deep as it needs: the top 11 levels over the
// whole set, 11 more within each subtree still too large for a block; inside
// a block the points keep no useful order. Same points in the same order,
// same result.
//
// Cost: one pass over the positions, a counting pass and one scatter pass of
// one 8-byte key a point (two for a much denser spot), a binary search per
// cut. Memory: bytesPerPoint a point.
class PtCloud_CurveOrder {
public:
    struct Range {
        size_t first;
        size_t count;
    };

    // Prepares the keys of n points inside box (points outside count as on
    // its faces) for blocks of at most targetPoints (>= 1).
    void reset(const pcBoundingBoxf& box, size_t n, size_t targetPoints);

    // The key of point i; every point from 0 to n - 1 is set once before sort().
    void setPoint(size_t i, const pcVec3f& p)
    {
        const quint32 x = cellOf(p.x, 0), y = cellOf(p.y, 1), z = cellOf(p.z, 2);
        m_keys[i] = m_spread[0][0][x & 0xff] | m_spread[0][1][x >> 8] | m_spread[1][0][y & 0xff] |
                    m_spread[1][1][y >> 8] | m_spread[2][0][z & 0xff] | m_spread[2][1][z >> 8] | quint64(i);
    }

    // Sorts the keys and finds the blocks.
    void sort();

    // The blocks, in curve order, each a run of the order.
    const std::vector<Range>& blocks() const { return m_blocks; }
    // The index of the k-th point of the order.
    size_t pointAt(size_t k) const { return size_t(m_keys[k] & m_indexMask); }

    // Bytes a point takes while ordered.
    static constexpr qint64 bytesPerPoint() { return 2 * sizeof(quint64); }

    // Frees the keys.
    void release();

private:
    static constexpr int kAxisBits = 16;  // cells along an axis: 2^16 at most

    quint32 cellOf(float v, int a) const
    {
        const float t = (v - m_min[a]) * m_scale[a];
        return t > 0.f ? (t < m_cells[a] ? quint32(t) : quint32(m_cells[a]) - 1) : 0;
    }

    void cut(size_t first, size_t end, int bit, int sorted);
    void sortRange(size_t first, size_t end, int lowBit, int endBit);

    float m_min[3] = {0.f, 0.f, 0.f};
    float m_scale[3] = {0.f, 0.f, 0.f};
    float m_cells[3] = {1.f, 1.f, 1.f};
    // The key bits of each axis's cell number, its low and its high byte.
    quint64 m_spread[3][2][256] = {};
    int m_indexBits = 1;
    int m_curveBits = 0;
    quint64 m_indexMask = 1;
    size_t m_target = 1;
    std::vector<quint64> m_keys, m_scratch;
    std::vector<quint32> m_counts;
    std::vector<Range> m_blocks;
};

}  // namespace ptCloud
