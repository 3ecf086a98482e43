#pragma once
// Small pseudo-random generator for stages and generated scenes that must
// give the same output for the same seed on every platform and library
// (the standard distributions are implementation-defined):
// xoshiro256** seeded through splitmix64, so any seed, 0 included, spreads
// over the whole state. Not for cryptography.
//
// Cost: a few integer operations a number, 32 bytes of state.

#include <cstdint>

namespace ptCloud {

class Algo_Random {
public:
    explicit Algo_Random(uint64_t seed = 0) { this->seed(seed); }

    // Restarts the sequence; the same seed gives the same numbers.
    void seed(uint64_t value);
    // 64 random bits.
    uint64_t next();
    // Uniform in [0, 1), from the top 53 bits.
    double uniform() { return double(next() >> 11) * (1.0 / 9007199254740992.0); }
    // Uniform in [lo, hi).
    double uniform(double lo, double hi) { return lo + (hi - lo) * uniform(); }
    // splitmix64 of one key: a fixed, well spread 64-bit value per key, for
    // noise that must not depend on the order in which keys are visited.
    static uint64_t splitMix(uint64_t key);

private:
    uint64_t m_state[4];
};

}  // namespace ptCloud
