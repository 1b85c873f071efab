#include <gtest/gtest.h>

#include <limits>

#include "core_register/core_register.h"

namespace {

using Nimbrel::QPU;

constexpr long capacity = 100'000'000;

class ReadFlags : public testing::Test {
  protected:
    QPU qpu{0, nullptr};
};

TEST_F(ReadFlags, ConstantsNeedNoStorage) {
    EXPECT_EQ(qpu.get_read_flag(0), 0);
    EXPECT_EQ(qpu.get_read_flag(1), 1);
    EXPECT_EQ(qpu.get_read_flag(-1), 0);
    for (const long constant : {0L, 1L, -1L}) qpu.set_read_flag(constant, 1);
    EXPECT_TRUE(qpu.read_flags.empty());
}

TEST_F(ReadFlags, NeverStoredReadsZeroWhateverTheSign) {
    EXPECT_EQ(qpu.get_read_flag(7), 0);
    EXPECT_EQ(qpu.get_read_flag(-7), 0);
    EXPECT_TRUE(qpu.read_flags.empty()) << "reading must not grow the table";
}

TEST_F(ReadFlags, NegativeNumbersInvertBothWays) {
    qpu.set_read_flag(7, 1);
    EXPECT_EQ(qpu.get_read_flag(-7), 0);
    qpu.set_read_flag(-7, 1);
    EXPECT_EQ(qpu.get_read_flag(7), 0);
    EXPECT_EQ(qpu.get_read_flag(-7), 1);
}

TEST_F(ReadFlags, OnlyTheLowBitOfTheValueCounts) {
    qpu.set_read_flag(9, 2);
    EXPECT_EQ(qpu.get_read_flag(9), 0);
    qpu.set_read_flag(9, 3);
    EXPECT_EQ(qpu.get_read_flag(9), 1);
}

TEST_F(ReadFlags, OtherBitsOfTheWordStay) {
    qpu.set_read_flag(2, 1);
    qpu.set_read_flag(63, 1);
    qpu.set_read_flag(3, 1);
    qpu.set_read_flag(2, 0);
    EXPECT_EQ(qpu.read_flags, (std::vector<unsigned long>{(1UL << 63) | 8}));
}

TEST_F(ReadFlags, TheTableGrowsByTheWordsNeeded) {
    qpu.set_read_flag(64 * 5 + 1, 0);
    EXPECT_EQ(qpu.read_flags, std::vector<unsigned long>(6, 0));
}

TEST_F(ReadFlags, NumbersACapacityApartShareABit) {
    qpu.set_read_flag(7, 1);
    EXPECT_EQ(qpu.get_read_flag(capacity + 7), 1);
    EXPECT_EQ(qpu.get_read_flag(-capacity - 7), 0);
    qpu.set_read_flag(2 * capacity,
                      1);  // stored, because only the numbers 0, 1 and -1 are constants
    EXPECT_EQ(qpu.read_flags[0] & 1, 1UL);
    EXPECT_EQ(qpu.get_read_flag(0), 0);
}

TEST_F(ReadFlags, TheMostNegativeNumberHasAPosition) {
    constexpr long lowest = std::numeric_limits<long>::min();
    qpu.set_read_flag(lowest, 0);
    EXPECT_EQ(qpu.get_read_flag(lowest), 0);
    EXPECT_EQ(qpu.get_read_flag(static_cast<long>((1UL << 63) % capacity)), 1);
}

TEST_F(ReadFlags, ConditionsDifferFromReading) {
    EXPECT_TRUE(qpu.flag_condition(0));
    EXPECT_TRUE(qpu.flag_condition(1));
    EXPECT_FALSE(qpu.flag_condition(-1));
    EXPECT_FALSE(qpu.flag_condition(5));
    EXPECT_FALSE(qpu.flag_condition(-5)) << "never stored fails a negative condition too";
    qpu.set_read_flag(64, 0);  // now the word of flag 5 is stored, and flag 5 is 0
    EXPECT_FALSE(qpu.flag_condition(5));
    EXPECT_TRUE(qpu.flag_condition(-5));
    qpu.set_read_flag(5, 1);
    EXPECT_TRUE(qpu.flag_condition(5));
    EXPECT_TRUE(qpu.flag_condition(capacity + 5));
    EXPECT_FALSE(qpu.flag_condition(-5));
}

}  // namespace
