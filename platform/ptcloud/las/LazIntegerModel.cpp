#include "LazIntegerModel.h"

namespace ptCloud {

LazIntegerModel::LazIntegerModel(int bits, int contexts) {
    if (bits > 0 && bits < 32) {
        m_corrBits = uint32_t(bits);
        m_range = 1u << bits;
        m_corrMin = -int32_t(m_range / 2);
        m_corrMax = int32_t(m_corrMin + int64_t(m_range) - 1);
    } else {
        m_corrBits = 32;
        m_range = 0;
        m_corrMin = INT32_MIN;
        m_corrMax = INT32_MAX;
    }
    m_bits.reserve(size_t(contexts));
    for (int i = 0; i < contexts; ++i) m_bits.emplace_back(int(m_corrBits) + 1);
    m_correctors.resize(m_corrBits + 1);
}

LazSymbolModel& LazIntegerModel::corrector(uint32_t k) {
    std::unique_ptr<LazSymbolModel>& m = m_correctors[k];
    if (!m) m.reset(new LazSymbolModel(1 << (k <= kBitsHigh ? k : kBitsHigh)));
    return *m;
}

}  // namespace ptCloud
