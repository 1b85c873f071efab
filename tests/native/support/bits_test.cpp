#include "support/bits.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace {

using namespace Nimbrel;

TEST(Bits, WordsForBitsRoundsUpWithoutWrapping) {
    EXPECT_EQ(words_for_bits(0), 0UL);
    EXPECT_EQ(words_for_bits(1), 1UL);
    EXPECT_EQ(words_for_bits(64), 1UL);
    EXPECT_EQ(words_for_bits(65), 2UL);
    EXPECT_EQ(words_for_bits(std::numeric_limits<unsigned long>::max()), 1UL << 58);
}

TEST(Bits, VisitsSetBitsFromTheLowestUp) {
    std::vector<unsigned long> visited;
    for_each_bit(0x8000000000000105UL, [&](unsigned long bit) { visited.push_back(bit); });
    EXPECT_EQ(visited, (std::vector<unsigned long>{1, 4, 0x100, 1UL << 63}));
    for_each_bit(0, [](unsigned long) { FAIL() << "an empty mask has no bit to visit"; });
}

TEST(Bits, ParityCountsTheSetBits) {
    EXPECT_FALSE(odd_parity(0));
    EXPECT_TRUE(odd_parity(1UL << 63));
    EXPECT_FALSE(odd_parity(3));
    EXPECT_TRUE(odd_parity(7));
}

TEST(Bits, MagnitudeOfTheMostNegativeNumber) {
    EXPECT_EQ(magnitude(std::numeric_limits<long>::min()), 1UL << 63);
    EXPECT_EQ(magnitude(-5), 5UL);
    EXPECT_EQ(magnitude(5), 5UL);
}

}  // namespace
