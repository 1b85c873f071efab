#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

#include "core_register/core_register.h"

namespace {

using Nimbrel::QPU;

TEST(FetchReadResult, GathersConsecutiveFlags) {
    QPU qpu(0, nullptr);
    qpu.set_read_flag(10, 1);
    qpu.set_read_flag(12, 1);
    EXPECT_EQ(qpu.fetch_read_result(10, 0), 0UL);
    EXPECT_EQ(qpu.fetch_read_result(10, 3), 5UL);
    EXPECT_EQ(qpu.fetch_read_result(11, 3), 2UL);
}

TEST(FetchReadResult, ConstantsReadByTheFlagRule) {
    QPU qpu(0, nullptr);
    qpu.set_read_flag(2, 1);
    // -2 is the inverse of flag 2, -1 and 0 read 0, 1 reads 1, 2 is stored.
    EXPECT_EQ(qpu.fetch_read_result(-2, 5), 0b11000UL);
}

TEST(FetchReadResult, SixtyFourFlagsFillTheResult) {
    QPU qpu(0, nullptr);
    for (long flag = 100; flag < 164; ++flag) qpu.set_read_flag(flag, 1);
    EXPECT_EQ(qpu.fetch_read_result(100, 64), ~0UL);
    try {
        qpu.fetch_read_result(100, 65);
        ADD_FAILURE() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(),
                     "Error: fetch_read_result() was asked for 65 read flags, but its result "
                     "holds 64 at most.");
    }
}

TEST(FetchReadResult, ARunMayStartAtTheHighestNumber) {
    QPU qpu(0, nullptr);
    EXPECT_EQ(qpu.fetch_read_result(std::numeric_limits<long>::max(), 2), 0UL);
}

}  // namespace
