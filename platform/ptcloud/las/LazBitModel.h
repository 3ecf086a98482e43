#pragma once

#include <cstdint>

namespace ptCloud {

// Adaptive probability of a binary event for LazDecoder/LazEncoder: counts
// of zeros, rescaled more and more rarely (every 4, 5, 6 ... up to 64 bits).
class LazBitModel {
public:
    static constexpr int kLengthShift = 13;

    uint32_t bit0Prob = 1u << (kLengthShift - 1);

    // Counts one coded bit; re-estimates the probability when due.
    void count(int bit) {
        if (bit == 0) ++m_bit0Count;
        if (--m_untilUpdate == 0) update();
    }

private:
    void update() {
        const uint32_t maxCount = 1u << kLengthShift;
        if ((m_bitCount += m_updateCycle) > maxCount) {
            m_bitCount = (m_bitCount + 1) >> 1;
            m_bit0Count = (m_bit0Count + 1) >> 1;
            if (m_bit0Count == m_bitCount) ++m_bitCount;
        }
        const uint32_t scale = 0x80000000u / m_bitCount;
        bit0Prob = (m_bit0Count * scale) >> (31 - kLengthShift);
        m_updateCycle = (5 * m_updateCycle) >> 2;
        if (m_updateCycle > 64) m_updateCycle = 64;
        m_untilUpdate = m_updateCycle;
    }

    uint32_t m_bit0Count = 1, m_bitCount = 2, m_updateCycle = 4, m_untilUpdate = 4;
};

}  // namespace ptCloud
