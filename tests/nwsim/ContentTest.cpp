#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <vector>

#include "SyntheticContent.h"

namespace {

using nwsim::SyntheticContent;

std::vector<unsigned char> Bytes(uint64_t seed, uint64_t offset, size_t count) {
    std::vector<unsigned char> bytes(count);
    SyntheticContent(seed).Fill(offset, bytes.data(), count);
    return bytes;
}

TEST(SyntheticContent, SameSeedAndOffsetGiveSameBytes) {
    EXPECT_EQ(Bytes(42, 0, 4096), Bytes(42, 0, 4096));
    EXPECT_EQ(Bytes(42, 5000000000ull, 100), Bytes(42, 5000000000ull, 100));
}

TEST(SyntheticContent, DifferentSeedsDiffer) {
    EXPECT_NE(Bytes(1, 0, 64), Bytes(2, 0, 64));
}

TEST(SyntheticContent, BytesAreTheLittleEndianWords) {
    const SyntheticContent content(7);
    const std::vector<unsigned char> bytes = Bytes(7, 0, 24);
    for (uint64_t index = 0; index < 3; ++index) {
        const uint64_t word = content.Word(index);
        for (int b = 0; b < 8; ++b) {
            EXPECT_EQ(bytes[index * 8 + b], static_cast<unsigned char>(word >> (8 * b)));
        }
    }
}

TEST(SyntheticContent, AnyOffsetAndLengthMatchesOneLongFill) {
    const std::vector<unsigned char> whole = Bytes(99, 0, 1000);
    for (uint64_t offset : {0u, 1u, 7u, 8u, 9u, 13u, 500u, 993u}) {
        for (size_t count : {0u, 1u, 3u, 8u, 15u, 7u}) {
            if (offset + count > whole.size()) {
                continue;
            }
            const std::vector<unsigned char> part = Bytes(99, offset, count);
            EXPECT_TRUE(std::equal(part.begin(), part.end(), whole.begin() + offset))
                << "offset " << offset << " count " << count;
        }
    }
}

TEST(SyntheticContent, WordsBeyondFourGiBAreReachable) {
    // The word index of byte 5,000,000,000 is 625,000,000; offset arithmetic must not wrap.
    const SyntheticContent content(3);
    const std::vector<unsigned char> bytes = Bytes(3, 5000000000ull - 8, 8);
    const uint64_t word = content.Word(624999999);
    EXPECT_EQ(bytes[0], static_cast<unsigned char>(word));
    EXPECT_NE(content.Word(624999999), content.Word(624999999 - (1ull << 29)));
}

TEST(SyntheticContent, NoTwoWordsOfABlockRangeRepeat) {
    // Distinct indexes give distinct words, so moving any block changes the bytes.
    const SyntheticContent content(12345);
    std::set<uint64_t> seen;
    for (uint64_t index = 0; index < 100000; ++index) {
        EXPECT_TRUE(seen.insert(content.Word(index)).second) << index;
    }
}

}  // namespace
