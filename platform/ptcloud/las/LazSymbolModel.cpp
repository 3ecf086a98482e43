#include "LazSymbolModel.h"

namespace ptCloud {

LazSymbolModel::LazSymbolModel(int n) : symbols(uint32_t(n)), lastSymbol(uint32_t(n - 1)), m_updateCycle(uint32_t(n)) {
    if (symbols > 16) {
        int bits = 3;
        while (symbols > (1u << (bits + 2))) ++bits;
        m_tableSize = 1u << bits;
        tableShift = kLengthShift - bits;
        table.resize(m_tableSize + 2);
    }
    distribution.resize(symbols);
    m_counts.assign(symbols, 1);
    update();
    m_untilUpdate = m_updateCycle = (symbols + 6) >> 1;
}

void LazSymbolModel::update() {
    const uint32_t maxCount = 1u << kLengthShift;
    if ((m_totalCount += m_updateCycle) > maxCount) {
        m_totalCount = 0;
        for (uint32_t& c : m_counts) m_totalCount += (c = (c + 1) >> 1);
    }
    const uint32_t scale = 0x80000000u / m_totalCount;
    uint32_t sum = 0, s = 0;
    for (uint32_t k = 0; k < symbols; ++k) {
        distribution[k] = (scale * sum) >> (31 - kLengthShift);
        sum += m_counts[k];
        if (m_tableSize == 0) continue;
        const uint32_t w = distribution[k] >> tableShift;
        while (s < w) table[++s] = k - 1;
    }
    if (m_tableSize) {
        table[0] = 0;
        while (s <= m_tableSize) table[++s] = symbols - 1;
    }
    m_updateCycle = (5 * m_updateCycle) >> 2;
    const uint32_t maxCycle = (symbols + 6) << 3;
    if (m_updateCycle > maxCycle) m_updateCycle = maxCycle;
    m_untilUpdate = m_updateCycle;
}

}  // namespace ptCloud
