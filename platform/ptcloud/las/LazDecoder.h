#pragma once

#include <cstddef>
#include <cstdint>

#include "LazBitModel.h"
#include "LazSymbolModel.h"

namespace ptCloud {

// Arithmetic decoder of the LAZ streams (a range coder with 32-bit state
// renormalised a byte at a time) over one block of memory. Reading past the
// block yields zeros, so damaged data decodes to garbage but never runs off
// the buffer; overrun() tells how far it went. The value arguments mirror
// LazEncoder's so one coding routine serves both directions.
class LazDecoder {
public:
    static constexpr bool kEncodes = false;

    void start(const uint8_t* data, size_t size);
    uint32_t symbol(LazSymbolModel& m, uint32_t = 0);
    int bit(LazBitModel& m, int = 0);
    uint32_t bits(int n, uint32_t = 0);
    uint32_t int32(uint32_t = 0);
    uint64_t int64(uint64_t = 0);
    // Bytes wanted beyond the end of the block.
    size_t overrun() const { return m_over; }

private:
    uint32_t shortValue();
    uint8_t nextByte() {
        if (m_at < m_end) return *m_at++;
        ++m_over;
        return 0;
    }
    void renormalise() {
        do {
            m_value = (m_value << 8) | nextByte();
        } while ((m_length <<= 8) < (1u << 24));
    }

    const uint8_t* m_at = nullptr;
    const uint8_t* m_end = nullptr;
    size_t m_over = 0;
    uint32_t m_value = 0, m_length = 0;
};

}  // namespace ptCloud
