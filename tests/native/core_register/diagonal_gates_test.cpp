#include <gtest/gtest.h>

#include <numbers>

#include "core_register/gate_support.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

class DiagonalGates : public GateLayouts {
  protected:
    /// The state with `factor` on every term that meets the condition.
    static State times(State state, Complex factor, unsigned long conds, unsigned long negs) {
        scalar_phase(state.data(), state.size(), {conds, negs}, factor.imag(), factor.real());
        return state;
    }

    static Complex turn(double angle) { return std::polar(1.0, angle * std::numbers::pi / 180.0); }
};
INSTANTIATE_TEST_SUITE_P(Layouts, DiagonalGates, testing::ValuesIn(all_layouts));

TEST_P(DiagonalGates, ThePhaseGoesToTermsWithTargetAndControls) {
    qpu.phase(50.0, 0b0010, 0b1001, 0b1000, 0);
    EXPECT_NEAR_STATE(state_of(qpu), times(start, turn(50.0), 0b1011, 0b1000));
}

TEST_P(DiagonalGates, WithoutATargetTheLowestControlIsOne) {
    qpu.phase(50.0, 0, 0b1010, 0, 0);
    EXPECT_NEAR_STATE(state_of(qpu), times(start, turn(50.0), 0b1010, 0));
    load(qpu, start);
    qpu.cz(0, 0b1010, 0b0010, 0);
    EXPECT_STATE(state_of(qpu), times(start, -1.0, 0b1010, 0b0010));
    load(qpu, start);
    qpu.cz(0b10000, 0b0100, 0, 0);
    EXPECT_STATE(state_of(qpu), times(start, -1.0, 0b0100, 0));
}

TEST_P(DiagonalGates, EachTargetTurnsThePhase) {
    qpu.phase(50.0, 0b1001, 0b0100, 0, 0);
    const State after_one_target = times(start, turn(50.0), 0b0101, 0);
    EXPECT_NEAR_STATE(state_of(qpu), times(after_one_target, turn(50.0), 0b1100, 0));
}

TEST_P(DiagonalGates, ANegatedTargetActsOnItsZero) {
    qpu.phase(50.0, 0b1000, 0, 0b1000, 0);
    EXPECT_NEAR_STATE(state_of(qpu), times(start, turn(50.0), 0b1000, 0b1000));
    load(qpu, start);
    qpu.cz(0b0001, 0b1000, 0b0001, 0);
    EXPECT_STATE(state_of(qpu), times(start, -1.0, 0b1001, 0b0001));
}

TEST_P(DiagonalGates, FullAndHalfTurnsAreExact) {
    qpu.phase(0.0, 0b1001, 0, 0, 0);
    EXPECT_STATE(state_of(qpu), start);
    qpu.phase(180.0, 0b0001, 0b1000, 0, 0);
    EXPECT_STATE(state_of(qpu), times(start, -1.0, 0b1001, 0));
}

// If some of several targets are negated, the pattern has bits outside the mask of one target. Any
// terms may be selected then, but only phases change, and no memory outside the blocks.
TEST_P(DiagonalGates, SeveralTargetsOfWhichSomeAreNegated) {
    for (unsigned long negs = 0; negs < 16; ++negs) {
        load(qpu, start);
        qpu.phase(50.0, 0b1111, 0, negs, 0);
        const State state = state_of(qpu);
        for (unsigned long i = 0; i < state.size(); ++i) {
            EXPECT_NEAR(std::abs(value_of(state[i])), std::abs(value_of(start[i])), 1e-12);
        }
        EXPECT_NEAR(qpu.peek_total_probability(), 1.0, 1e-12);
    }
}

}  // namespace
