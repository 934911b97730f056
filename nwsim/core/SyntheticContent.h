#pragma once
// Synthetic object content: any size, no disk. Every 8-byte word is a bijective mix of the
// seed and the word's index, so a lost, doubled or reordered block never compares equal.

#include <cstddef>
#include <cstdint>

namespace nwsim {

// One round of a 64-bit finaliser; a bijection on 64-bit values.
inline uint64_t Mix64(uint64_t value) {
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9ull;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBull;
    return value ^ (value >> 31);
}

class SyntheticContent {
public:
    explicit SyntheticContent(uint64_t seed) : m_key(Mix64(seed ^ 0x6E7773696D2D7631ull)) {}

    // The word that covers bytes [8 * index, 8 * index + 8), stored little-endian.
    uint64_t Word(uint64_t index) const { return Mix64(m_key + index * 0x9E3779B97F4A7C15ull); }

    // Writes the bytes [offset, offset + count) of the content into out.
    void Fill(uint64_t offset, void* out, size_t count) const;

private:
    uint64_t m_key;
};

}  // namespace nwsim
