#include "PtCloud_KeySort.h"

#include <algorithm>
#include <cstring>

namespace ptCloud {

void sortKeysByBits(quint64* keys, quint64* scratch, size_t n, int low, int bits, int maxDigitBits,
                    std::vector<quint32>& counts)
{
    if (bits <= 0 || n < 2) return;
    const int digits = (bits + maxDigitBits - 1) / maxDigitBits;
    const int digitBits = (bits + digits - 1) / digits;
    const size_t radix = size_t(1) << digitBits;
    const quint64 mask = radix - 1;
    counts.assign(size_t(digits) * radix, 0);
    for (size_t i = 0; i < n; ++i)
        for (int d = 0; d < digits; ++d) ++counts[size_t(d) * radix + ((keys[i] >> (low + d * digitBits)) & mask)];
    quint64* from = keys;
    quint64* to = scratch;
    for (int d = 0; d < digits; ++d) {
        quint32* c = counts.data() + size_t(d) * radix;
        if (std::find(c, c + radix, quint32(n)) != c + radix) continue;
        quint32 sum = 0;
        for (size_t v = 0; v < radix; ++v) {
            const quint32 k = c[v];
            c[v] = sum;
            sum += k;
        }
        const int shift = low + d * digitBits;
        for (size_t i = 0; i < n; ++i) to[c[(from[i] >> shift) & mask]++] = from[i];
        std::swap(from, to);
    }
    if (from != keys) std::memcpy(keys, from, n * sizeof(quint64));
}

}  // namespace ptCloud
