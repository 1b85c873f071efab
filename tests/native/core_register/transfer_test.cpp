#include <gtest/gtest.h>

#include <limits>

#include "core_register/state_support.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();

class Transfer : public RegisterLayouts {};
INSTANTIATE_TEST_SUITE_P(Layouts, Transfer, testing::ValuesIn(all_layouts));

State counting() {
    State state(8);
    for (unsigned long i = 0; i < 8; ++i) {
        state[i] = {static_cast<double>(i + 1), -static_cast<double>(i)};
    }
    return state;
}

State exchanged(const State& state, unsigned long bit) {
    State result = state;
    for (unsigned long i = 0; i < state.size(); ++i) result[i ^ bit] = state[i];
    return result;
}

TEST_P(Transfer, PushAndPullKeepEveryBit) {
    const State state = counting();
    load(qpu, state);
    EXPECT_STATE(state_of(qpu), state);
}

TEST_P(Transfer, PullGivesTermOrderAfterBlocksWereExchanged) {
    load(qpu, counting());
    qpu.op_not(0b100, 0, 0, 0);
    EXPECT_STATE(state_of(qpu), exchanged(counting(), 0b100));
    qpu.op_not(0b010, 0, 0, 0);
    EXPECT_STATE(state_of(qpu), exchanged(counting(), 0b110));
}

TEST_P(Transfer, PushGoesToTermOrderAfterBlocksWereExchanged) {
    qpu.op_not(0b110, 0, 0, 0);
    load(qpu, counting());
    EXPECT_STATE(state_of(qpu), counting());
}

TEST_P(Transfer, PushOfZeroesEmptiesTheRegister) {
    load(qpu, counting());
    load(qpu, State(8, complex_t{0.0, 0.0}));
    EXPECT_STATE(state_of(qpu), State(8, complex_t{0.0, 0.0}));
    for (unsigned long i = 0; i < qpu.num_blocks; ++i) EXPECT_TRUE(qpu.blocks[i]->all_zero);
}

TEST_P(Transfer, PullWritesNoFurtherThanTheTerms) {
    State dest(9, complex_t{5.0, 6.0});
    qpu.pull_state_sv(dest.data(), dest.size());
    EXPECT_EQ(dest[7].re, 0.0);
    EXPECT_EQ(dest[8].re, 5.0);
}

TEST_P(Transfer, CheckAllowsForTheTolerance) {
    load(qpu, counting());
    State expected = counting();
    EXPECT_TRUE(qpu.check_state(expected.data(), 0.0, true));
    expected[6].im += 0.5;
    EXPECT_TRUE(qpu.check_state(expected.data(), 0.5, false)) << "exactly the tolerance";
    EXPECT_FALSE(qpu.check_state(expected.data(), 0.25, false));
    expected = counting();
    expected[7].re += 0.5;
    EXPECT_FALSE(qpu.check_state(expected.data(), 0.25, true));
}

TEST_P(Transfer, CheckLooksAtTermOrder) {
    load(qpu, counting());
    qpu.op_not(0b101, 0, 0, 0);
    const State expected = exchanged(counting(), 0b101);
    EXPECT_TRUE(qpu.check_state(expected.data(), 0.0, true));
    EXPECT_FALSE(qpu.check_state(counting().data(), 0.0, true));
}

TEST_P(Transfer, WhatIsNotANumberAgreesWithAnything) {
    load(qpu, counting());
    State expected = counting();
    expected[3].re = not_a_number;
    EXPECT_TRUE(qpu.check_state(expected.data(), 0.0, true));
}

TEST_P(Transfer, BiggestTermsComeInOrderTheFirstOfEqualsFirst) {
    load(qpu, {{0.0, 0.1},
               {0.5, 0.0},
               {0.0, 0.0},
               {0.3, 0.4},
               {0.7, 0.0},
               {0.1, 0.0},
               {0.0, 0.0},
               {0.0, -0.5}});
    std::vector<unsigned long> indices(4, 99);
    State amplitudes(4, complex_t{9.0, 9.0});
    qpu.peek_n_biggest_terms(4, indices.data(), amplitudes.data());
    EXPECT_EQ(indices, (std::vector<unsigned long>{4, 1, 3, 7}));
    EXPECT_STATE(amplitudes, (State{{0.7, 0.0}, {0.5, 0.0}, {0.3, 0.4}, {0.0, -0.5}}));
}

TEST_P(Transfer, BiggestTermsLeavesTheRestOfTheListAtZero) {
    load(qpu, basis(8, 6));
    std::vector<unsigned long> indices(10, 99);
    State amplitudes(10, complex_t{9.0, 9.0});
    qpu.peek_n_biggest_terms(9, indices.data(), amplitudes.data());
    EXPECT_EQ(indices, (std::vector<unsigned long>{6, 0, 0, 0, 0, 0, 0, 0, 0, 99}));
    State expected(10, complex_t{0.0, 0.0});
    expected[0].re = 1.0;
    expected[9] = {9.0, 9.0};
    EXPECT_STATE(amplitudes, expected);
}

TEST_P(Transfer, BiggestTermsNamesTermsOfExchangedBlocksByTheirIndex) {
    load(qpu, basis(8, 1));
    qpu.op_not(0b110, 0, 0, 0);
    unsigned long index = 99;
    complex_t amplitude{};
    qpu.peek_n_biggest_terms(1, &index, &amplitude);
    EXPECT_EQ(index, 7UL);
    EXPECT_EQ(amplitude.re, 1.0);
}

TEST_P(Transfer, BiggestTermsOfNoneTouchesNothing) {
    qpu.peek_n_biggest_terms(0, nullptr, nullptr);
    EXPECT_STATE(state_of(qpu), basis(8, 0));
}

TEST_P(Transfer, PeekValueCopiesOneTerm) {
    load(qpu, counting());
    qpu.op_not(0b100, 0, 0, 0);
    for (unsigned long i = 0; i < 8; ++i) {
        complex_t value{-1.0, -1.0};
        qpu.peek_value(i, &value);
        EXPECT_STATE(State{value}, State{counting()[i ^ 4]});
    }
}

TEST_P(Transfer, PeekValueRefusesATermOutsideTheRegister) {
    complex_t value{-1.0, -1.0};
    EXPECT_FAILURE(qpu.peek_value(8, &value),
                   "Error: peek_value() index 8 lies outside the register of 8 terms.");
    EXPECT_FAILURE(qpu.peek_value(~0UL, &value),
                   "Error: peek_value() index 18446744073709551615 lies outside the register of 8 "
                   "terms.");
    EXPECT_EQ(value.re, -1.0);
}

TEST(TransferWithoutRegister, Throws) {
    QPU qpu(0, nullptr);
    complex_t amplitude{};
    unsigned long index = 0;
    std::string message;
    EXPECT_FAILURE(qpu.pull_state_sv(&amplitude, 1), no_register_text);
    EXPECT_FAILURE(qpu.pull_state_specific_sv(message, &amplitude, 1, 1), no_register_text);
    EXPECT_FAILURE(qpu.push_state_sv(&amplitude, 0, 1), no_register_text);
    EXPECT_FAILURE(qpu.push_state_sv(&amplitude, 1, 1), no_register_text);
    EXPECT_FAILURE(qpu.check_state(&amplitude, 0.0, true), no_register_text);
    EXPECT_FAILURE(qpu.peek_n_biggest_terms(1, &index, &amplitude), no_register_text);
    EXPECT_FAILURE(qpu.peek_n_biggest_terms(0, &index, &amplitude), no_register_text);
    EXPECT_FAILURE(qpu.peek_value(0, &amplitude), no_register_text);
}

}  // namespace
