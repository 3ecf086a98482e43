#include "LazEncoder.h"

#include <cstddef>

namespace ptCloud {

namespace {
const uint32_t kMinLength = 1u << 24;
}

LazEncoder::LazEncoder() { m_out.reserve(1 << 16); }

void LazEncoder::carry() {
    for (size_t i = m_out.size(); i-- > 0;) {
        if (m_out[i] != 0xFF) {
            ++m_out[i];
            return;
        }
        m_out[i] = 0;
    }
}

uint32_t LazEncoder::symbol(LazSymbolModel& m, uint32_t sym) {
    if (sym == m.lastSymbol) {
        const uint32_t x = m.distribution[sym] * (m_length >> LazSymbolModel::kLengthShift);
        add(x);
        m_length -= x;
    } else {
        const uint32_t x = m.distribution[sym] * (m_length >>= LazSymbolModel::kLengthShift);
        add(x);
        m_length = m.distribution[sym + 1] * m_length - x;
    }
    if (m_length < kMinLength) renormalise();
    m.count(sym);
    return sym;
}

int LazEncoder::bit(LazBitModel& m, int b) {
    const uint32_t x = m.bit0Prob * (m_length >> LazBitModel::kLengthShift);
    if (b == 0) {
        m_length = x;
    } else {
        add(x);
        m_length -= x;
    }
    if (m_length < kMinLength) renormalise();
    m.count(b);
    return b;
}

void LazEncoder::shortValue(uint32_t value) {
    add(value * (m_length >>= 16));
    renormalise();
}

uint32_t LazEncoder::bits(int n, uint32_t value) {
    const uint32_t all = value;
    if (n > 19) {
        shortValue(value & 0xFFFF);
        value >>= 16;
        n -= 16;
    }
    add(value * (m_length >>= n));
    if (m_length < kMinLength) renormalise();
    return all;
}

uint32_t LazEncoder::int32(uint32_t value) {
    shortValue(value & 0xFFFF);
    shortValue(value >> 16);
    return value;
}

uint64_t LazEncoder::int64(uint64_t value) {
    int32(uint32_t(value));
    int32(uint32_t(value >> 32));
    return value;
}

void LazEncoder::finish() {
    // Pins the final value inside the interval with as few bytes as it
    // takes; the zeros after it cover the decoder's read-ahead.
    bool anotherByte = true;
    if (m_length > 2 * kMinLength) {
        add(kMinLength);
        m_length = kMinLength >> 1;
    } else {
        add(kMinLength >> 1);
        m_length = kMinLength >> 9;
        anotherByte = false;
    }
    renormalise();
    m_out.push_back(0);
    m_out.push_back(0);
    if (anotherByte) m_out.push_back(0);
}

}  // namespace ptCloud
