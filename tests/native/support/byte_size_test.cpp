#include "support/byte_size.h"

#include <gtest/gtest.h>

namespace {

TEST(ByteSize, WholeBytesBelowOneKilobyte) {
    EXPECT_EQ(human_byte_size(0), "0 bytes");
    EXPECT_EQ(human_byte_size(1), "1 bytes");
    EXPECT_EQ(human_byte_size(1023), "1023 bytes");
}

TEST(ByteSize, EachUnitBeginsAtItsOwnSize) {
    EXPECT_EQ(human_byte_size(1024), "1 KB");
    EXPECT_EQ(human_byte_size(1048575), "1024 KB");
    EXPECT_EQ(human_byte_size(1048576), "1 MB");
    EXPECT_EQ(human_byte_size((1UL << 30) - 1), "1024 MB");
    EXPECT_EQ(human_byte_size(1UL << 30), "1 GB");
    EXPECT_EQ(human_byte_size((1UL << 40) - 1), "1024 GB");
    EXPECT_EQ(human_byte_size(1UL << 40), "1 TB");
}

TEST(ByteSize, SixSignificantDigits) {
    EXPECT_EQ(human_byte_size(1234567), "1.17737 MB");
    EXPECT_EQ(human_byte_size(1536), "1.5 KB");
    EXPECT_EQ(human_byte_size(0xFFFFFFFFFFFFFFFFUL), "1.67772e+07 TB");
}

}  // namespace
