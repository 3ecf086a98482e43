#pragma once

#include <cstdint>
#include <cstring>

#include "LazIntegerModel.h"
#include "LazSymbolModel.h"

namespace ptCloud {

// The 29-byte wave packet of formats 4, 5, 9 and 10: descriptor index,
// waveform offset (same, following the last packet, a 32-bit step or in
// full), packet size, return point location and the x/y/z steps.
class LazWaveCodec {
public:
    static constexpr int kBytes = 29;

    LazWaveCodec()
        : m_index(256), m_offsetCode{LazSymbolModel(4), LazSymbolModel(4), LazSymbolModel(4), LazSymbolModel(4)},
          m_offsetDiff(32), m_size(32), m_returnPoint(32), m_xyz(32, 3) {}

    // Decoding fills cur from last; encoding codes cur.
    template <class Coder> void code(Coder& c, const uint8_t* last, uint8_t* cur) {
        cur[0] = uint8_t(c.symbol(m_index, cur[0]));
        const uint64_t lastOffset = get<uint64_t>(last + 1);
        const uint32_t lastSize = get<uint32_t>(last + 9);
        uint64_t offset = get<uint64_t>(cur + 1);
        uint32_t code = 0;
        if constexpr (Coder::kEncodes) {
            const int64_t d = int64_t(offset - lastOffset);
            code = offset == lastOffset ? 0 : offset == lastOffset + lastSize ? 1 : d == int64_t(int32_t(d)) ? 2 : 3;
        }
        m_lastCode = c.symbol(m_offsetCode[m_lastCode], code);
        if (m_lastCode == 0) {
            offset = lastOffset;
        } else if (m_lastCode == 1) {
            offset = lastOffset + lastSize;
        } else if (m_lastCode == 2) {
            m_lastDiff = m_offsetDiff.code(c, m_lastDiff, int32_t(offset - lastOffset), 0);
            offset = lastOffset + uint64_t(int64_t(m_lastDiff));
        } else {
            offset = c.int64(offset);
        }
        put(cur + 1, offset);
        put(cur + 9, m_size.code(c, get<int32_t>(last + 9), get<int32_t>(cur + 9), 0));
        put(cur + 13, m_returnPoint.code(c, get<int32_t>(last + 13), get<int32_t>(cur + 13), 0));
        for (int a = 0; a < 3; ++a)
            put(cur + 17 + 4 * a, m_xyz.code(c, get<int32_t>(last + 17 + 4 * a), get<int32_t>(cur + 17 + 4 * a), a));
    }

private:
    template <class T> static T get(const uint8_t* p) {
        T v;
        std::memcpy(&v, p, sizeof v);
        return v;
    }
    template <class T> static void put(uint8_t* p, T v) { std::memcpy(p, &v, sizeof v); }

    LazSymbolModel m_index;
    LazSymbolModel m_offsetCode[4];
    LazIntegerModel m_offsetDiff, m_size, m_returnPoint, m_xyz;
    uint32_t m_lastCode = 0;
    int32_t m_lastDiff = 0;
};

}  // namespace ptCloud
