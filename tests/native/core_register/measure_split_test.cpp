/// A read of one qubit computes all of its sums in one pass. Compares it with the separate steps.
#include <gtest/gtest.h>

#include <limits>

#include "core_register/gate_support.h"
#include "support/random.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

constexpr double infinity = std::numeric_limits<double>::infinity();

unsigned long read_in_steps(QPU& qpu, unsigned long bit) {
    const unsigned long outcome = qpu.get_random_term_index() & bit;
    qpu.collapse(bit, outcome);
    qpu.normalize();
    return outcome;
}

std::vector<bool> all_zero_flags(const QPU& qpu) {
    std::vector<bool> flags(qpu.num_blocks);
    for (unsigned long i = 0; i < qpu.num_blocks; ++i) flags[i] = qpu.blocks[i]->all_zero;
    return flags;
}

class MeasureSplit : public RegisterLayouts {
  protected:
    static constexpr unsigned long qubits[] = {0b001, 0b010, 0b100};
    static constexpr unsigned long no_block = ~0UL;

    void SetUp() override {
        RegisterLayouts::SetUp();
        shape(stepwise, 3, GetParam());
    }

    /// Reads one qubit of `state` in both ways, each from the seed, and returns the outcome.
    unsigned long read_both(const State& state, unsigned long bit, unsigned int seed,
                            unsigned long dead_block = no_block) {
        prepare(qpu, state, dead_block);
        prepare(stepwise, state, dead_block);
        set_random_seed(seed);
        const unsigned long expected = read_in_steps(stepwise, bit);
        const double next_draw = random_zero_to_one();
        set_random_seed(seed);
        const unsigned long outcome = qpu.read(bit, 0, 0);
        EXPECT_EQ(random_zero_to_one(), next_draw) << "bit " << bit << " seed " << seed;
        EXPECT_EQ(outcome, expected) << "bit " << bit << " seed " << seed;
        // Before the states, because pulling a state may mark a block as all zero.
        EXPECT_EQ(all_zero_flags(qpu), all_zero_flags(stepwise)) << "bit " << bit;
        EXPECT_STATE(state_of(qpu), state_of(stepwise)) << "bit " << bit << " seed " << seed;
        return outcome;
    }

    QPU stepwise{0, nullptr};

  private:
    static void prepare(QPU& to, const State& state, unsigned long dead_block) {
        load(to, state);
        if (dead_block == no_block) return;
        to.blocks[dead_block]->set_zero();
        to.finish();
        ASSERT_TRUE(to.blocks[dead_block]->all_zero);
    }
};

INSTANTIATE_TEST_SUITE_P(Layouts, MeasureSplit, testing::ValuesIn(all_layouts));

/// A random state of no particular norm, with one zero.
State unscaled_state(std::uint32_t seed) {
    State state = random_state(3, seed_of_this_test() + seed);
    for (complex_t& term : state) term = {term.re * 1.7, term.im * 1.7};
    state[seed % state.size()] = {0.0, 0.0};
    return state;
}

TEST_P(MeasureSplit, OfRandomStates) {
    for (const unsigned long bit : qubits) {
        unsigned long outcomes[2] = {0, 0};
        for (unsigned int seed = 0; seed < 40; ++seed) {
            ++outcomes[read_both(unscaled_state(seed), bit, seed) != 0];
        }
        EXPECT_GT(outcomes[0], 0UL) << "bit " << bit;
        EXPECT_GT(outcomes[1], 0UL) << "bit " << bit;
    }
}

TEST_P(MeasureSplit, OfABasisStateIsNotScaled) {
    for (const unsigned long bit : qubits) {
        State state(8, complex_t{0.0, -0.0});
        state[5] = {-0.0, -1.0};
        EXPECT_EQ(read_both(state, bit, 1), 5 & bit);
        EXPECT_TRUE(same_bits({qpu.get_value(5)}, {state[5]}));
    }
}

TEST_P(MeasureSplit, OfNormZero) {
    // The square of the last one is too small for a double.
    for (const complex_t term :
         {complex_t{0.0, 0.0}, complex_t{-0.0, 0.0}, complex_t{1e-200, 0.0}}) {
        for (const unsigned long bit : qubits) {
            EXPECT_EQ(read_both(State(8, term), bit, 2), bit) << term.re;
        }
    }
}

// A draw from an infinite sum ends at the first infinity.
TEST_P(MeasureSplit, WithAnInfinityInBothHalves) {
    for (const unsigned long bit : qubits) {
        for (const double large : {infinity, -infinity, 1e200}) {
            State state = unscaled_state(3);
            state[0].re = large;
            state[bit].im = large;
            EXPECT_EQ(read_both(state, bit, 3), 0UL);
            EXPECT_TRUE(same_bits({qpu.get_value(bit)}, {complex_t{0.0, 0.0}}));
        }
    }
}

// If the sum is NaN, the outcome is 1, and the collapse clears the half with the NaN.
TEST_P(MeasureSplit, WithAnInfinityInTheDiscardedHalfAlone) {
    for (const unsigned long bit : qubits) {
        for (const double large : {infinity, -infinity, 1e200}) {
            State state = unscaled_state(4);
            state[0] = {large, std::nan("")};
            state[7 ^ bit].im = large;
            EXPECT_EQ(read_both(state, bit, 4), bit);
            EXPECT_NEAR(qpu.peek_total_probability(), 1.0, 1e-12);
        }
    }
}

TEST_P(MeasureSplit, WithOneBlockAllZero) {
    for (unsigned long dead = 0; dead < qpu.num_blocks; ++dead) {
        for (const unsigned long bit : qubits) {
            for (unsigned int seed = 0; seed < 10; ++seed) {
                read_both(unscaled_state(seed), bit, seed, dead);
                EXPECT_TRUE(qpu.blocks[dead]->all_zero) << "block " << dead << " bit " << bit;
            }
        }
    }
}

}  // namespace
