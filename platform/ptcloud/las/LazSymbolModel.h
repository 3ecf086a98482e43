#pragma once

#include <cstdint>
#include <vector>

namespace ptCloud {

// Adaptive distribution over 2 to 2048 symbols for LazDecoder/LazEncoder:
// symbol counts turned into a cumulative distribution of 15-bit precision,
// recomputed ever more rarely as the counts settle. Models of more than 16
// symbols keep a lookup table that narrows the decoder's search.
class LazSymbolModel {
public:
    static constexpr int kLengthShift = 15;

    explicit LazSymbolModel(int symbols);

    // Counts one coded symbol; recomputes the distribution when due.
    void count(uint32_t symbol) {
        ++m_counts[symbol];
        if (--m_untilUpdate == 0) update();
    }

    uint32_t symbols, lastSymbol;
    std::vector<uint32_t> distribution;
    std::vector<uint32_t> table;  // empty for small models
    int tableShift = 0;

private:
    void update();

    std::vector<uint32_t> m_counts;
    uint32_t m_totalCount = 0, m_updateCycle, m_untilUpdate = 0;
    uint32_t m_tableSize = 0;
};

}  // namespace ptCloud
