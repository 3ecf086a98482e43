#include "LazDecoder.h"

namespace ptCloud {

namespace {
const uint32_t kMinLength = 1u << 24;
}

void LazDecoder::start(const uint8_t* data, size_t size) {
    m_at = data;
    m_end = data + size;
    m_over = 0;
    m_length = 0xFFFFFFFFu;
    m_value = 0;
    for (int i = 0; i < 4; ++i) m_value = (m_value << 8) | nextByte();
}

uint32_t LazDecoder::symbol(LazSymbolModel& m, uint32_t) {
    uint32_t n, sym, x, y = m_length;
    if (!m.table.empty()) {
        const uint32_t dv = m_value / (m_length >>= LazSymbolModel::kLengthShift);
        const uint32_t t = dv >> m.tableShift;
        sym = m.table[t];
        n = m.table[t + 1] + 1;
        while (n > sym + 1) {
            const uint32_t k = (sym + n) >> 1;
            if (m.distribution[k] > dv) n = k;
            else sym = k;
        }
        x = m.distribution[sym] * m_length;
        if (sym != m.lastSymbol) y = m.distribution[sym + 1] * m_length;
    } else {
        x = sym = 0;
        m_length >>= LazSymbolModel::kLengthShift;
        n = m.symbols;
        uint32_t k = n >> 1;
        do {
            const uint32_t z = m_length * m.distribution[k];
            if (z > m_value) {
                n = k;
                y = z;
            } else {
                sym = k;
                x = z;
            }
        } while ((k = (sym + n) >> 1) != sym);
    }
    m_value -= x;
    m_length = y - x;
    if (m_length < kMinLength) renormalise();
    m.count(sym);
    return sym;
}

int LazDecoder::bit(LazBitModel& m, int) {
    const uint32_t x = m.bit0Prob * (m_length >> LazBitModel::kLengthShift);
    const int b = m_value >= x;
    if (b == 0) {
        m_length = x;
    } else {
        m_value -= x;
        m_length -= x;
    }
    if (m_length < kMinLength) renormalise();
    m.count(b);
    return b;
}

uint32_t LazDecoder::shortValue() {
    const uint32_t sym = m_value / (m_length >>= 16);
    m_value -= m_length * sym;
    renormalise();
    return sym & 0xFFFF;
}

uint32_t LazDecoder::bits(int n, uint32_t) {
    if (n > 19) {
        const uint32_t low = shortValue();
        return (bits(n - 16) << 16) | low;
    }
    const uint32_t sym = m_value / (m_length >>= n);
    m_value -= m_length * sym;
    if (m_length < kMinLength) renormalise();
    return sym;
}

uint32_t LazDecoder::int32(uint32_t) {
    const uint32_t low = shortValue();
    return (shortValue() << 16) | low;
}

uint64_t LazDecoder::int64(uint64_t) {
    const uint64_t low = int32();
    return (uint64_t(int32()) << 32) | low;
}

}  // namespace ptCloud
