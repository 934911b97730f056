#include "SyntheticContent.h"

#include <cstring>

namespace nwsim {

namespace {

inline void StoreLittleEndian(uint64_t word, unsigned char* out) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    for (int i = 0; i < 8; ++i) {
        out[i] = static_cast<unsigned char>(word >> (8 * i));
    }
#else
    std::memcpy(out, &word, sizeof(word));  // every Windows target is little-endian
#endif
}

}  // namespace

void SyntheticContent::Fill(uint64_t offset, void* out, size_t count) const {
    unsigned char* cursor = static_cast<unsigned char*>(out);
    uint64_t index = offset / 8;
    size_t skip = static_cast<size_t>(offset % 8);
    unsigned char word[8];
    if (skip != 0 && count != 0) {
        StoreLittleEndian(Word(index), word);
        const size_t take = (8 - skip < count) ? 8 - skip : count;
        std::memcpy(cursor, word + skip, take);
        cursor += take;
        count -= take;
        ++index;
    }
    while (count >= 8) {
        StoreLittleEndian(Word(index), cursor);
        cursor += 8;
        count -= 8;
        ++index;
    }
    if (count != 0) {
        StoreLittleEndian(Word(index), word);
        std::memcpy(cursor, word, count);
    }
}

}  // namespace nwsim
