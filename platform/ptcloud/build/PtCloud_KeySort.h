#pragma once

#include <QtGlobal>
#include <cstddef>
#include <vector>

namespace ptCloud {

// Stable sort of n 64-bit keys by their bits [low, low + bits), least
// significant digit first, at most maxDigitBits bits a pass (the passes split
// the bits evenly); a digit the same for every key costs no pass. Keys whose
// sorted bits are equal keep their order. The result ends in keys; scratch
// holds n keys; counts is reused between calls.
// Cost: one counting pass and one scatter pass a digit.
void sortKeysByBits(quint64* keys, quint64* scratch, size_t n, int low, int bits, int maxDigitBits,
                    std::vector<quint32>& counts);

}  // namespace ptCloud
