#include <gtest/gtest.h>

#include "core_register/core_register.h"

namespace {

using Nimbrel::QPU;

class Reservation : public testing::Test {
  protected:
    Reservation() { resize(4); }

    void resize(unsigned long qubits) {
        qpu.num_qubits = qubits;
        qpu.clear_all_qints();
    }

    /// Returns the result of a reservation and the text that it prints.
    long reserve(unsigned long count, std::string* printed = nullptr) {
        testing::internal::CaptureStdout();
        const long first = qpu.reserve_qubits(count);
        const std::string text = testing::internal::GetCapturedStdout();
        if (printed != nullptr) *printed = text;
        return first;
    }

    QPU qpu{0, nullptr};
};

TEST_F(Reservation, FillsFromTheLowestQubitUntilNoneIsLeft) {
    std::string printed;
    EXPECT_EQ(reserve(2), 0);
    EXPECT_EQ(reserve(2, &printed), 2);
    EXPECT_EQ(printed, "");
    EXPECT_EQ(reserve(2, &printed), 0xFFFFFFFF);
    EXPECT_EQ(printed, "Error: Attempted to allocate 2 qubits, but the QPU has none available.\n");
    EXPECT_EQ(qpu.qint_table, (std::vector<unsigned int>{2, 0, 2, 0}));
}

TEST_F(Reservation, ARegisterWithoutQubitsAnswersWithoutAWord) {
    resize(0);
    std::string printed = "?";
    EXPECT_EQ(reserve(2, &printed), 0xFFFFFFFE);
    EXPECT_EQ(printed, "");
}

TEST_F(Reservation, AFreedRangeCanBeReservedAgain) {
    reserve(2);
    reserve(2);
    qpu.release_qubits(0);
    EXPECT_EQ(reserve(2), 0);
}

TEST_F(Reservation, AGapThatIsTooSmallIsPassedOver) {
    resize(8);
    for (int i = 0; i < 3; ++i) reserve(2);
    qpu.release_qubits(2);
    EXPECT_EQ(reserve(3), 0xFFFFFFFF);
    EXPECT_EQ(reserve(2), 2);
    EXPECT_EQ(reserve(1), 6);
    EXPECT_EQ(reserve(1), 7);
}

TEST_F(Reservation, AGapThatIsTooSmallIsPassedOverTogetherWithTheLongerRangeBehindIt) {
    resize(8);
    EXPECT_EQ(reserve(2), 0);
    EXPECT_EQ(reserve(1), 2);
    EXPECT_EQ(reserve(3), 3);
    qpu.release_qubits(2);
    EXPECT_EQ(reserve(2), 6);
    EXPECT_EQ(qpu.qint_table, (std::vector<unsigned int>{2, 0, 0, 3, 0, 0, 2, 0}));
}

TEST_F(Reservation, TwoFreedNeighboursMakeOneRun) {
    reserve(2);
    reserve(2);
    qpu.release_qubits(0);
    qpu.release_qubits(2);
    EXPECT_EQ(reserve(4), 0);
}

TEST_F(Reservation, AnEmptyRangeTakesNothing) {
    EXPECT_EQ(reserve(0), 0);
    EXPECT_EQ(reserve(4), 0);
    std::string printed;
    EXPECT_EQ(reserve(0, &printed), 0xFFFFFFFF);
    EXPECT_EQ(printed, "Error: Attempted to allocate 0 qubits, but the QPU has none available.\n");
}

TEST_F(Reservation, MoreThanTheRegisterHoldsFails) {
    EXPECT_EQ(reserve(5), 0xFFFFFFFF);
    EXPECT_EQ(reserve(~0UL), 0xFFFFFFFF);
    EXPECT_EQ(qpu.qint_table, std::vector<unsigned int>(4, 0));
}

TEST_F(Reservation, ReleasingOutsideTheRegisterOnlyPrints) {
    reserve(4);
    for (const int outside : {4, 5, -1}) {
        testing::internal::CaptureStdout();
        qpu.release_qubits(outside);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "Error: attempt to free a qint at " +
                                                              std::to_string(outside) +
                                                              " but there are only 4 qubits.\n");
    }
    EXPECT_EQ(qpu.qint_table, (std::vector<unsigned int>{4, 0, 0, 0}));
}

TEST_F(Reservation, ClearingGivesOneFreeEntryForEachQubit) {
    reserve(4);
    resize(6);
    EXPECT_EQ(qpu.qint_table, std::vector<unsigned int>(6, 0));
    resize(2);
    EXPECT_EQ(qpu.qint_table, std::vector<unsigned int>(2, 0));
}

}  // namespace
