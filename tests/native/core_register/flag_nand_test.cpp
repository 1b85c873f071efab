#include <gtest/gtest.h>

#include "core_register/core_register.h"

namespace {

using Nimbrel::QPU;

class FlagNand : public testing::Test {
  protected:
    /// Flags 2 and 3 hold 0 and 1; their word is stored, that of flag 100 is not.
    FlagNand() {
        qpu.set_read_flag(2, 0);
        qpu.set_read_flag(3, 1);
    }

    long nand(long a, long b) {
        qpu.flag_nand(a, b, 0, 7);
        return qpu.get_read_flag(7);
    }

    QPU qpu{0, nullptr};
};

TEST_F(FlagNand, TruthTable) {
    EXPECT_EQ(nand(2, 2), 1);
    EXPECT_EQ(nand(2, 3), 1);
    EXPECT_EQ(nand(3, 2), 1);
    EXPECT_EQ(nand(3, 3), 0);
}

TEST_F(FlagNand, ConstantsAreFalseTrueAndFalse) {
    EXPECT_EQ(nand(0, 1), 1);
    EXPECT_EQ(nand(1, 1), 0);
    EXPECT_EQ(nand(-1, 1), 1);
    EXPECT_EQ(nand(1, -1), 1);
}

TEST_F(FlagNand, NegativeOperandsAreInverted) {
    EXPECT_EQ(nand(-2, -2), 0);
    EXPECT_EQ(nand(-2, 3), 0);
    EXPECT_EQ(nand(-3, 1), 1);
}

TEST_F(FlagNand, NeverStoredOperandsAreFalseWithoutInversion) {
    EXPECT_EQ(nand(-100, 1), 1);
    EXPECT_EQ(nand(1, -100), 1);
    EXPECT_EQ(nand(100, 100), 1);
}

TEST_F(FlagNand, ANegativeDestinationStoresAndUninverted) {
    qpu.flag_nand(1, 1, 0, 7);
    EXPECT_EQ(qpu.get_read_flag(7), 0);
    qpu.flag_nand(1, 1, 0, -7);
    EXPECT_EQ(qpu.get_read_flag(7), 1);
    qpu.flag_nand(1, 0, 0, -7);
    EXPECT_EQ(qpu.get_read_flag(7), 0);
}

TEST_F(FlagNand, ConstantsTakeNothing) {
    const auto before = qpu.read_flags;
    for (const long dest : {0L, 1L, -1L}) qpu.flag_nand(0, 0, 0, dest);
    EXPECT_EQ(qpu.read_flags, before);
}

TEST_F(FlagNand, AFailedConditionStoresNothing) {
    for (const long condition : {-1L, 2L, -3L, 100L, -100L}) qpu.flag_nand(0, 0, condition, 7);
    EXPECT_EQ(qpu.get_read_flag(7), 0);
    qpu.flag_nand(0, 0, 3, 7);
    EXPECT_EQ(qpu.get_read_flag(7), 1);
}

TEST_F(FlagNand, TheDestinationIsReducedAndTheTableGrows) {
    qpu.flag_nand(0, 0, 0, 100'000'000 + 640);
    EXPECT_EQ(qpu.read_flags.size(), 11U);
    EXPECT_EQ(qpu.get_read_flag(640), 1);
}

}  // namespace
