#include "LazPoint10Decoder.h"

#include <cstring>

namespace ptCloud {

namespace {

// Context of a (number of returns, return number) pair for the x/y medians
// and the intensity; and how far the return is from the last one.
const uint8_t kReturnMap[8][8] = {
    {15, 14, 13, 12, 11, 10, 9, 8},   {14, 0, 1, 3, 6, 10, 10, 9},     {13, 1, 2, 4, 7, 11, 11, 10},
    {12, 3, 4, 5, 8, 12, 12, 11},     {11, 6, 7, 8, 9, 13, 13, 12},    {10, 10, 11, 12, 13, 14, 14, 13},
    {9, 10, 11, 12, 13, 14, 15, 14},  {8, 9, 10, 11, 12, 13, 14, 15}};

int returnLevel(int n, int r) { return n > r ? n - r : r - n; }

template <class T> T get(const uint8_t* p) {
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
template <class T> void put(uint8_t* p, T v) { std::memcpy(p, &v, sizeof v); }

}  // namespace

LazPoint10Decoder::LazPoint10Decoder(const uint8_t* first) { std::memcpy(m_last, first, sizeof m_last); }

LazSymbolModel& LazPoint10Decoder::lazy(std::unique_ptr<LazSymbolModel>* table, int i) {
    if (!table[i]) table[i].reset(new LazSymbolModel(256));
    return *table[i];
}

void LazPoint10Decoder::decode(LazDecoder& d, uint8_t* out) {
    uint8_t* last = m_last;
    const uint32_t changed = d.symbol(m_changed);
    if (changed & 32) last[14] = uint8_t(d.symbol(lazy(m_bitByte, last[14])));
    const int r = last[14] & 7, n = (last[14] >> 3) & 7;
    const int m = kReturnMap[n][r], l = returnLevel(n, r);
    if (changed) {
        if (changed & 16) {
            m_lastIntensity[m] = uint16_t(m_intensity.code(d, m_lastIntensity[m], 0, m < 3 ? m : 3));
            put<uint16_t>(last + 12, m_lastIntensity[m]);
        } else {
            put<uint16_t>(last + 12, m_lastIntensity[m]);
        }
        if (changed & 8) last[15] = uint8_t(d.symbol(lazy(m_class, last[15])));
        if (changed & 4) last[16] = uint8_t(d.symbol(m_scanAngle[(last[14] >> 6) & 1]) + last[16]);
        if (changed & 2) last[17] = uint8_t(d.symbol(lazy(m_user, last[17])));
        if (changed & 1) put<uint16_t>(last + 18, uint16_t(m_sourceId.code(d, get<uint16_t>(last + 18), 0, 0)));
    }
    int32_t diff = m_dx.code(d, m_xMedian[m].get(), 0, n == 1);
    put<int32_t>(last, int32_t(uint32_t(get<int32_t>(last)) + uint32_t(diff)));
    m_xMedian[m].add(diff);
    uint32_t k = m_dx.k();
    diff = m_dy.code(d, m_yMedian[m].get(), 0, (n == 1) + int(k < 20 ? k & ~1u : 20));
    put<int32_t>(last + 4, int32_t(uint32_t(get<int32_t>(last + 4)) + uint32_t(diff)));
    m_yMedian[m].add(diff);
    k = (m_dx.k() + m_dy.k()) / 2;
    m_lastHeight[l] = m_z.code(d, m_lastHeight[l], 0, (n == 1) + int(k < 18 ? k & ~1u : 18));
    put<int32_t>(last + 8, m_lastHeight[l]);
    std::memcpy(out, last, sizeof m_last);
}

}  // namespace ptCloud
