#include "support/convert.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

using namespace Nimbrel;

TEST(Convert, TruncatesTowardZero) {
    EXPECT_EQ(truncate_to_u64(0.0), 0UL);
    EXPECT_EQ(truncate_to_u64(7.99), 7UL);
    EXPECT_EQ(truncate_to_u64(-0.5), 0UL);
    EXPECT_EQ(truncate_to_i64(-7.99), -7L);
}

TEST(Convert, ThirtyTwoBitsHaveTheirOwnRange) {
    constexpr int lowest = std::numeric_limits<int>::min();
    EXPECT_EQ(truncate_to_i32(-1.99), -1);
    EXPECT_EQ(truncate_to_i32(2147483647.9), std::numeric_limits<int>::max());
    EXPECT_EQ(truncate_to_i32(-2147483648.9), lowest);
    EXPECT_EQ(truncate_to_i32(2147483648.0), lowest);
    EXPECT_EQ(truncate_to_i32(4294967295.0), lowest) << "not its low half, which is -1";
    EXPECT_EQ(truncate_to_i32(std::nan("")), lowest);
}

TEST(Convert, NegativeNumbersWrapToUnsigned) { EXPECT_EQ(truncate_to_u64(-1.0), ~0UL); }

TEST(Convert, TheUpperHalfKeepsItsTopBit) {
    EXPECT_EQ(truncate_to_u64(0x1p63), 1UL << 63);
    EXPECT_EQ(truncate_to_u64(0x1p63 + 4096.0), (1UL << 63) + 4096);
    EXPECT_EQ(truncate_to_u64(std::nextafter(0x1p64, 0.0)), ~0UL << 11);
    EXPECT_EQ(truncate_to_u64(std::nextafter(0x1p63, 0.0)), ((1UL << 63) - 1024));
}

TEST(Convert, ValuesWithoutAnIntegerHaveOneDefinedResult) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(truncate_to_u64(std::nan("")), 1UL << 63);
    EXPECT_EQ(truncate_to_u64(infinity), 0UL);
    EXPECT_EQ(truncate_to_u64(-infinity), 1UL << 63);
    EXPECT_EQ(truncate_to_i64(1e300), std::numeric_limits<long>::min());
}

}  // namespace
