#include "Algo_Random.h"

namespace ptCloud {

namespace {
constexpr uint64_t kGolden = 0x9e3779b97f4a7c15ull;
}

uint64_t Algo_Random::splitMix(uint64_t key) {
    uint64_t z = key + kGolden;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    return z ^ (z >> 31);
}

void Algo_Random::seed(uint64_t value) {
    for (uint64_t& word : m_state) {
        word = splitMix(value);
        value += kGolden;
    }
}

uint64_t Algo_Random::next() {
    auto rotl = [](uint64_t x, int k) { return (x << k) | (x >> (64 - k)); };
    const uint64_t result = rotl(m_state[1] * 5, 7) * 9;
    const uint64_t t = m_state[1] << 17;
    m_state[2] ^= m_state[0];
    m_state[3] ^= m_state[1];
    m_state[1] ^= m_state[2];
    m_state[0] ^= m_state[3];
    m_state[2] ^= t;
    m_state[3] = rotl(m_state[3], 45);
    return result;
}

}  // namespace ptCloud
