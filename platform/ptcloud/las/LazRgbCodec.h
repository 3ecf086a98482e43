#pragma once

#include <cstdint>
#include <memory>

#include "LazSymbolModel.h"

namespace ptCloud {

// Colour (and near infrared) as bytes: which of the six colour bytes
// changed, the red bytes as differences, green and blue predicted from
// red's change. Shared by the point-wise (v2) and layered (v3) items.
class LazRgbCodec {
public:
    LazRgbCodec()
        : m_used(128), m_diff{LazSymbolModel(256), LazSymbolModel(256), LazSymbolModel(256), LazSymbolModel(256),
                              LazSymbolModel(256), LazSymbolModel(256)} {}

    // Decoding fills cur from last; encoding codes cur.
    template <class Coder> void code(Coder& c, const uint16_t last[3], uint16_t cur[3]) {
        uint32_t sym = 0;
        if constexpr (Coder::kEncodes) {
            for (int ch = 0; ch < 3; ++ch)
                sym |= uint32_t(((last[ch] ^ cur[ch]) & 0x00FF) != 0) << (2 * ch) |
                       uint32_t(((last[ch] ^ cur[ch]) & 0xFF00) != 0) << (2 * ch + 1);
            sym |= uint32_t(cur[0] != cur[1] || cur[0] != cur[2]) << 6;
        }
        sym = c.symbol(m_used, sym);
        int r[2], g[2], b[2];
        for (int h = 0; h < 2; ++h)
            r[h] = sym & (1u << h) ? byteCode(c, m_diff[h], byteOf(last[0], h), byteOf(cur[0], h)) : byteOf(last[0], h);
        if (sym & (1u << 6)) {
            for (int h = 0; h < 2; ++h) {
                int d = r[h] - byteOf(last[0], h);
                g[h] = sym & (4u << h) ? byteCode(c, m_diff[2 + h], clamp(d + byteOf(last[1], h)), byteOf(cur[1], h))
                                       : byteOf(last[1], h);
                d = (d + g[h] - byteOf(last[1], h)) / 2;
                b[h] = sym & (16u << h) ? byteCode(c, m_diff[4 + h], clamp(d + byteOf(last[2], h)), byteOf(cur[2], h))
                                        : byteOf(last[2], h);
            }
        } else {
            for (int h = 0; h < 2; ++h) g[h] = b[h] = r[h];
        }
        cur[0] = uint16_t(r[0] | r[1] << 8);
        cur[1] = uint16_t(g[0] | g[1] << 8);
        cur[2] = uint16_t(b[0] | b[1] << 8);
    }

    template <class Coder> void codeNir(Coder& c, uint16_t last, uint16_t& cur) {
        if (!m_nirUsed) {
            m_nirUsed.reset(new LazSymbolModel(4));
            m_nirDiff[0].reset(new LazSymbolModel(256));
            m_nirDiff[1].reset(new LazSymbolModel(256));
        }
        uint32_t sym = 0;
        if constexpr (Coder::kEncodes) sym = uint32_t(((last ^ cur) & 0xFF) != 0) | uint32_t(((last ^ cur) & 0xFF00) != 0) << 1;
        sym = c.symbol(*m_nirUsed, sym);
        int v[2];
        for (int h = 0; h < 2; ++h)
            v[h] = sym & (1u << h) ? byteCode(c, *m_nirDiff[h], byteOf(last, h), byteOf(cur, h)) : byteOf(last, h);
        cur = uint16_t(v[0] | v[1] << 8);
    }

private:
    static int byteOf(uint16_t v, int high) { return high ? v >> 8 : v & 0xFF; }
    static int clamp(int v) { return v < 0 ? 0 : (v > 255 ? 255 : v); }
    // A byte as its difference from the prediction, modulo 256.
    template <class Coder> static int byteCode(Coder& c, LazSymbolModel& m, int pred, int actual) {
        return (int(c.symbol(m, uint32_t((actual - pred) & 0xFF))) + pred) & 0xFF;
    }

    LazSymbolModel m_used;
    LazSymbolModel m_diff[6];
    std::unique_ptr<LazSymbolModel> m_nirUsed, m_nirDiff[2];
};

}  // namespace ptCloud
