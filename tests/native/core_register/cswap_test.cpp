#include <gtest/gtest.h>

#include "core_register/gate_support.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

class Cswap : public GateLayouts {
  protected:
    /// The start state with term i moved to index `move(i)`.
    template <typename Move>
    State moved(Move&& move) const {
        State result(start.size());
        for (unsigned long i = 0; i < start.size(); ++i) result[move(i)] = start[i];
        return result;
    }

    static unsigned long swapped(unsigned long index, unsigned long a, unsigned long b) {
        const bool differ = ((index & a) != 0) != ((index & b) != 0);
        return differ ? index ^ (a | b) : index;
    }
};
INSTANTIATE_TEST_SUITE_P(Layouts, Cswap, testing::ValuesIn(all_layouts));

TEST_P(Cswap, ExchangesTwoQubits) {
    qpu.cswap(0b1001, 0, 0, 0);
    EXPECT_STATE(state_of(qpu), moved([](unsigned long i) { return swapped(i, 0b1000, 0b0001); }));
    EXPECT_EQ(qpu.op_count, 3UL);
}

TEST_P(Cswap, UnderItsControlsOnly) {
    qpu.cswap(0b1001, 0b0110, 0b0100, 0);
    EXPECT_STATE(state_of(qpu), moved([](unsigned long i) {
                     return (i & 0b0110) == 0b0010 ? swapped(i, 0b1000, 0b0001) : i;
                 }));
}

TEST_P(Cswap, OfThreeTakesTheLowestTwo) {
    qpu.cswap(0b1110, 0, 0, 0);
    EXPECT_STATE(state_of(qpu), moved([](unsigned long i) { return swapped(i, 0b0010, 0b0100); }));
}

TEST_P(Cswap, OfOneIsANot) {
    qpu.cswap(0b0100, 0, 0, 0);
    EXPECT_STATE(state_of(qpu), moved([](unsigned long i) { return i ^ 0b0100; }));
    load(qpu, start);
    qpu.cswap(0b0100, 0b1000, 0, 0);
    EXPECT_STATE(state_of(qpu), moved([](unsigned long i) { return (i & 8) != 0 ? i ^ 4 : i; }));
}

TEST_P(Cswap, OfNoneChangesNothingAndCountsThreeNots) {
    qpu.cswap(0, 0, 0, 0);
    EXPECT_STATE(state_of(qpu), start);
    EXPECT_EQ(qpu.op_count, 3UL);
}

TEST_P(Cswap, WhatIsKnownOfTheQubitsGoesWithThem) {
    qpu.classical_qubits = 0b0110;
    qpu.cswap(0b0011, 0, 0, 0);
    EXPECT_EQ(qpu.classical_qubits, 0b0101UL);
    qpu.cswap(0b0011, 0, 0, 0);
    EXPECT_EQ(qpu.classical_qubits, 0b0110UL);
    qpu.cswap(0b0110, 0, 0, 0);
    EXPECT_EQ(qpu.classical_qubits, 0b0110UL);
    qpu.cswap(0b1001, 0, 0, 0);
    EXPECT_EQ(qpu.classical_qubits, 0b0110UL);
}

TEST_P(Cswap, TargetsAboveTheTwoKeepWhatIsKnownOfThem) {
    qpu.classical_qubits = 0b1001;
    qpu.cswap(0b1011, 0, 0, 0);
    EXPECT_EQ(qpu.classical_qubits, 0b1010UL);
}

TEST_P(Cswap, UnderAControlNothingIsKnownOfAnyTarget) {
    qpu.classical_qubits = 0b1111;
    qpu.cswap(0b1011, 0b0100, 0, 0);
    EXPECT_EQ(qpu.classical_qubits, 0b0100UL);
}

TEST_P(Cswap, OfOneLeavesItsQubitUnknown) {
    qpu.classical_qubits = 0b1111;
    qpu.cswap(0b0100, 0, 0, 0);
    EXPECT_EQ(qpu.classical_qubits, 0b1011UL);
}

}  // namespace
