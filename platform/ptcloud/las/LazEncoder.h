#pragma once

#include <cstdint>
#include <vector>

#include "LazBitModel.h"
#include "LazSymbolModel.h"

namespace ptCloud {

// Arithmetic encoder matching LazDecoder, writing into memory. Every coding
// call returns the value it coded, so one routine written against the
// decoder's calls serves both directions.
class LazEncoder {
public:
    static constexpr bool kEncodes = true;

    LazEncoder();
    uint32_t symbol(LazSymbolModel& m, uint32_t sym);
    int bit(LazBitModel& m, int b);
    uint32_t bits(int n, uint32_t value);
    uint32_t int32(uint32_t value);
    uint64_t int64(uint64_t value);
    // Flushes the state; the bytes are then complete.
    void finish();
    const std::vector<uint8_t>& bytes() const { return m_out; }

private:
    void shortValue(uint32_t value);
    void add(uint32_t x) {
        const uint32_t before = m_base;
        m_base += x;
        if (m_base < before) carry();
    }
    void carry();
    void renormalise() {
        do {
            m_out.push_back(uint8_t(m_base >> 24));
            m_base <<= 8;
        } while ((m_length <<= 8) < (1u << 24));
    }

    std::vector<uint8_t> m_out;
    uint32_t m_base = 0, m_length = 0xFFFFFFFFu;
};

}  // namespace ptCloud
