#pragma once

#include <cstdint>

#include "LazIntegerModel.h"
#include "LazSymbolModel.h"

namespace ptCloud {

// GPS times as the bit patterns of their doubles: four sequences of times
// are tracked, each with its last difference; a time is coded as a multiple
// of that difference plus a correction, as a new difference, as a jump to
// another sequence, or in full. The point-wise variant (v2) also codes
// "unchanged"; the layered one (v3) leaves that to the point's change bits.
class LazGpsCodec {
public:
    LazGpsCodec(bool layered, int64_t first)
        : m_layered(layered), m_multi(layered ? kFull + 3 : kFull + 4), m_zero(layered ? 5 : 6) {
        m_time[0] = first;
    }

    // Decoding: sets value to the next time. Encoding: codes value. False
    // when the data keeps jumping between sequences (damaged input).
    template <class Coder> bool code(Coder& c, int64_t& value) {
        for (int depth = 0; depth < 4; ++depth) {
            const int64_t target = value;
            int& last = m_last;
            if (m_diff[last] == 0) {
                uint32_t m = 0;
                if constexpr (Coder::kEncodes) m = zeroChoice(target);
                m = m_layered ? c.symbol(m_zero, m - 1) + 1 : c.symbol(m_zero, m);
                if (m == 1) {
                    const int32_t d = m_ic.code(c, 0, diff32(target, m_time[last]), 0);
                    m_diff[last] = d;
                    m_time[last] = add(m_time[last], d);
                    m_extreme[last] = 0;
                } else if (m == 2) {
                    full(c, target);
                } else if (m > 2) {
                    last = (last + int(m) - 2) & 3;
                    continue;
                }
            } else {
                uint32_t m = 0;
                if constexpr (Coder::kEncodes) m = multiChoice(target);
                // The layered variant has no "unchanged" symbol: its codes above it shift down by one.
                m = m_layered ? c.symbol(m_multi, m > kUnchanged ? m - 1 : m) : c.symbol(m_multi, m);
                if (m_layered && m >= kUnchanged) ++m;
                const int32_t actual = diff32(target, m_time[last]);
                if (m == 1) {
                    m_time[last] = add(m_time[last], m_ic.code(c, m_diff[last], actual, 1));
                    m_extreme[last] = 0;
                } else if (m < kUnchanged) {
                    int32_t d;
                    if (m == 0) {
                        d = m_ic.code(c, 0, actual, 7);
                        extreme(d);
                    } else if (m < kMulti) {
                        d = m_ic.code(c, times(int32_t(m), m_diff[last]), actual, m < 10 ? 2 : 3);
                    } else if (m == kMulti) {
                        d = m_ic.code(c, times(kMulti, m_diff[last]), actual, 4);
                        extreme(d);
                    } else if (kMulti - int32_t(m) > kMinus) {
                        d = m_ic.code(c, times(kMulti - int32_t(m), m_diff[last]), actual, 5);
                    } else {
                        d = m_ic.code(c, times(kMinus, m_diff[last]), actual, 6);
                        extreme(d);
                    }
                    m_time[last] = add(m_time[last], d);
                } else if (m == kFull) {
                    full(c, target);
                } else if (m > kFull) {
                    last = (last + int(m) - int(kFull)) & 3;
                    continue;
                }
            }
            value = m_time[last];
            return true;
        }
        return false;
    }

private:
    static constexpr int32_t kMulti = 500, kMinus = -10;
    static constexpr uint32_t kUnchanged = 511, kFull = 512;

    static int32_t diff32(int64_t a, int64_t b) { return int32_t(uint32_t(uint64_t(a) - uint64_t(b))); }
    static bool fits(int64_t a, int64_t b) {
        const int64_t d = int64_t(uint64_t(a) - uint64_t(b));
        return d == int64_t(int32_t(d));
    }
    static int64_t add(int64_t t, int32_t d) { return int64_t(uint64_t(t) + uint64_t(int64_t(d))); }
    static int32_t times(int32_t m, int32_t d) { return int32_t(uint32_t(m) * uint32_t(d)); }
    void extreme(int32_t d) {
        if (++m_extreme[m_last] > 3) {
            m_diff[m_last] = d;
            m_extreme[m_last] = 0;
        }
    }
    template <class Coder> void full(Coder& c, int64_t target) {
        const int32_t high = m_ic.code(c, int32_t(uint64_t(m_time[m_last]) >> 32), int32_t(uint64_t(target) >> 32), 8);
        const uint32_t low = c.int32(uint32_t(uint64_t(target)));
        m_next = (m_next + 1) & 3;
        m_time[m_next] = int64_t((uint64_t(uint32_t(high)) << 32) | low);
        m_last = m_next;
        m_diff[m_last] = 0;
        m_extreme[m_last] = 0;
    }
    // The encoder's choices, in the point-wise numbering.
    uint32_t zeroChoice(int64_t t) const {
        if (t == m_time[m_last]) return 0;
        if (fits(t, m_time[m_last])) return 1;
        for (int i = 1; i < 4; ++i)
            if (fits(t, m_time[(m_last + i) & 3])) return uint32_t(i) + 2;
        return 2;
    }
    uint32_t multiChoice(int64_t t) const {
        if (t == m_time[m_last]) return kUnchanged;
        if (!fits(t, m_time[m_last])) {
            for (int i = 1; i < 4; ++i)
                if (fits(t, m_time[(m_last + i) & 3])) return kFull + uint32_t(i);
            return kFull;
        }
        const float f = float(diff32(t, m_time[m_last])) / float(m_diff[m_last]);
        if (f >= float(kMulti)) return kMulti;
        if (f <= float(kMinus)) return uint32_t(kMulti - kMinus);
        const int32_t m = f >= 0 ? int32_t(f + 0.5f) : int32_t(f - 0.5f);
        if (m >= 0) return uint32_t(m);
        return uint32_t(kMulti - m);
    }

    bool m_layered;
    LazSymbolModel m_multi, m_zero;
    LazIntegerModel m_ic{32, 9};
    int m_last = 0, m_next = 0;
    int64_t m_time[4] = {0, 0, 0, 0};
    int32_t m_diff[4] = {0, 0, 0, 0};
    int m_extreme[4] = {0, 0, 0, 0};
};

}  // namespace ptCloud
