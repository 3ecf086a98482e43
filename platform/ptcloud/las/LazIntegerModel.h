#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "LazBitModel.h"
#include "LazSymbolModel.h"

namespace ptCloud {

// Codes an integer as its correction from a prediction, in one of several
// contexts: first the correction's bit length k (per context), then the
// value within that length (high bits modelled, the rest raw). Corrections
// wrap modulo 2^bits. k() is the last bit length, which callers use as a
// context for the next field.
class LazIntegerModel {
public:
    explicit LazIntegerModel(int bits = 16, int contexts = 1);

    // Decoding: returns the value predicted by pred in that context.
    // Encoding: codes value and returns it.
    template <class Coder> int32_t code(Coder& c, int32_t pred, int32_t value, int context) {
        if constexpr (Coder::kEncodes) {
            int64_t corr = int64_t(value) - pred;
            if (m_range) {
                if (corr < m_corrMin) corr += m_range;
                else if (corr > m_corrMax) corr -= m_range;
            } else {
                corr = int32_t(uint32_t(value) - uint32_t(pred));
            }
            writeCorrector(c, int32_t(corr), context);
            return value;
        } else {
            int64_t real = int64_t(pred) + readCorrector(c, context);
            if (m_range) {
                if (real < 0) real += m_range;
                else if (real >= int64_t(m_range)) real -= m_range;
            }
            return int32_t(uint32_t(uint64_t(real)));
        }
    }
    uint32_t k() const { return m_k; }

private:
    LazSymbolModel& corrector(uint32_t k);
    template <class Coder> int32_t readCorrector(Coder& c, int context) {
        m_k = c.symbol(m_bits[size_t(context)]);
        if (m_k == 0) return c.bit(m_corrector0);
        if (m_k >= 32) return m_corrMin;
        int64_t v;
        if (m_k <= kBitsHigh) {
            v = c.symbol(corrector(m_k));
        } else {
            const int extra = int(m_k) - kBitsHigh;
            v = c.symbol(corrector(m_k));
            v = (v << extra) | c.bits(extra);
        }
        if (v >= (int64_t(1) << (m_k - 1))) return int32_t(v + 1);
        return int32_t(v - ((int64_t(1) << m_k) - 1));
    }
    template <class Coder> void writeCorrector(Coder& c, int32_t corr, int context) {
        uint32_t mag = corr <= 0 ? uint32_t(0) - uint32_t(corr) : uint32_t(corr) - 1;
        m_k = 0;
        while (mag) {
            mag >>= 1;
            ++m_k;
        }
        c.symbol(m_bits[size_t(context)], m_k);
        if (m_k == 0) {
            c.bit(m_corrector0, corr);
            return;
        }
        if (m_k >= 32) return;
        int64_t v = corr < 0 ? int64_t(corr) + ((int64_t(1) << m_k) - 1) : int64_t(corr) - 1;
        if (m_k <= kBitsHigh) {
            c.symbol(corrector(m_k), uint32_t(v));
        } else {
            const int extra = int(m_k) - kBitsHigh;
            c.symbol(corrector(m_k), uint32_t(v >> extra));
            c.bits(extra, uint32_t(v & ((int64_t(1) << extra) - 1)));
        }
    }

    static constexpr uint32_t kBitsHigh = 8;
    uint32_t m_corrBits, m_range;
    int32_t m_corrMin, m_corrMax;
    uint32_t m_k = 0;
    std::vector<LazSymbolModel> m_bits;
    LazBitModel m_corrector0;
    std::vector<std::unique_ptr<LazSymbolModel>> m_correctors;  // made on first use
};

}  // namespace ptCloud
