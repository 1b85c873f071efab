#include <gtest/gtest.h>

#include <limits>

#include "core_register/state_support.h"
#include "support/random.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

class Measure : public RegisterLayouts {};
INSTANTIATE_TEST_SUITE_P(Layouts, Measure, testing::ValuesIn(all_layouts));

/// Terms 0, 3, 5 and 6, of probability 1/4 each and of four different phases.
const State quarters{{0.5, 0.0}, {0.0, 0.0},  {0.0, 0.0},  {0.0, 0.5},
                     {0.0, 0.0}, {-0.5, 0.0}, {0.0, -0.5}, {0.0, 0.0}};

double draw_of_seed(unsigned int seed) {
    set_random_seed(seed);
    return random_zero_to_one();
}

TEST_P(Measure, ADrawWalksTheTermsInOrder) {
    load(qpu, quarters);
    for (unsigned int seed = 0; seed < 40; ++seed) {
        const double draw = draw_of_seed(seed);
        const unsigned long expected = draw <= 0.25 ? 0 : draw <= 0.5 ? 3 : draw <= 0.75 ? 5 : 6;
        set_random_seed(seed);
        EXPECT_EQ(qpu.get_random_term_index(), expected) << "draw " << draw;
        EXPECT_STATE(state_of(qpu), quarters);
    }
}

TEST_P(Measure, ADrawIsScaledToTheNorm) {
    State state = quarters;
    for (complex_t& term : state) term = {term.re * 8.0, term.im * 8.0};
    load(qpu, state);
    const double draw = draw_of_seed(3);
    const unsigned long expected = draw <= 0.25 ? 0 : draw <= 0.5 ? 3 : draw <= 0.75 ? 5 : 6;
    set_random_seed(3);
    EXPECT_EQ(qpu.get_random_term_index(), expected);
}

TEST_P(Measure, AReadKeepsTheTermsThatAgreeAndRescalesThem) {
    load(qpu, quarters);
    const double draw = draw_of_seed(11);
    set_random_seed(11);
    const unsigned long outcome = qpu.read(0b001, 0, 0);
    // Terms 3 and 5 have the qubit at 1; half of the norm is left, and 1 / sqrt(0.5) rounds as
    // here.
    EXPECT_EQ(outcome, draw <= 0.25 || draw > 0.75 ? 0UL : 1UL);
    const double kept = 0.5 * (1.0 / std::sqrt(0.5));
    State expected(8, complex_t{0.0, 0.0});
    if (outcome == 1) {
        expected[3].im = kept;
        expected[5].re = -kept;
    } else {
        expected[0].re = kept;
        expected[6].im = -kept;
    }
    // Rescaling gives the other part of a term a signed zero; values are what counts here.
    const State state = state_of(qpu);
    for (unsigned long i = 0; i < 8; ++i) {
        EXPECT_EQ(state[i].re, expected[i].re) << i;
        EXPECT_EQ(state[i].im, expected[i].im) << i;
    }
}

TEST_P(Measure, AReadOfABasisStateLeavesTheAmplitudesBitForBit) {
    State state(8, complex_t{0.0, 0.0});
    state[5] = {-0.0, -1.0};
    load(qpu, state);
    EXPECT_EQ(qpu.read(0b110, 0, 0), 0b100UL);
    EXPECT_STATE(state_of(qpu), state);
    EXPECT_EQ(qpu.read(0b111, 0, 0), 0b101UL);
    EXPECT_STATE(state_of(qpu), state);
}

TEST_P(Measure, AReadOfNothingStillDrawsAndNormalises) {
    State state(8, complex_t{0.0, 0.0});
    state[2].re = 2.0;
    load(qpu, state);
    set_random_seed(8);
    random_zero_to_one();
    const double second_draw = random_zero_to_one();
    set_random_seed(8);
    EXPECT_EQ(qpu.read(0, 0, 5), 0UL);
    EXPECT_EQ(random_zero_to_one(), second_draw);
    EXPECT_TRUE(qpu.read_flags.empty());
    EXPECT_STATE(state_of(qpu), basis(8, 2));
    EXPECT_EQ(qpu.classical_qubits, 0UL);
    EXPECT_EQ(qpu.op_count, 1UL);
}

TEST_P(Measure, QubitsOutsideTheRegisterAreDropped) {
    load(qpu, basis(8, 7));
    EXPECT_EQ(qpu.read(~0UL, 0, 10), 7UL);
    EXPECT_EQ(qpu.fetch_read_result(10, 8), 7UL) << "only the register's qubits take a flag";
    EXPECT_EQ(qpu.classical_qubits, 7UL);
}

TEST_P(Measure, AFailedConditionReadsNothing) {
    load(qpu, quarters);
    set_random_seed(8);
    const double first_draw = random_zero_to_one();
    set_random_seed(8);
    for (const long condition : {-1L, 9L, -9L}) EXPECT_EQ(qpu.read(7, condition, 5), 0UL);
    EXPECT_EQ(random_zero_to_one(), first_draw);
    EXPECT_EQ(qpu.op_count, 0UL);
    EXPECT_EQ(qpu.classical_qubits, 0UL);
    EXPECT_TRUE(qpu.read_flags.empty());
    EXPECT_STATE(state_of(qpu), quarters);
}

TEST_P(Measure, AStateOfNormZeroReadsAsAllOnes) {
    qpu.set_zero();
    EXPECT_EQ(qpu.get_random_term_index(), 7UL);
    EXPECT_EQ(qpu.read(0b101, 0, 10), 0b101UL);
    EXPECT_EQ(qpu.fetch_read_result(10, 2), 0b11UL);
    EXPECT_STATE(state_of(qpu), State(8, complex_t{0.0, 0.0}));
    EXPECT_EQ(qpu.classical_qubits, 0b101UL);
}

TEST_P(Measure, AStateThatIsNotANumberReadsAsAllOnes) {
    load(qpu, State(8, complex_t{std::numeric_limits<double>::quiet_NaN(), 0.0}));
    EXPECT_EQ(qpu.get_random_term_index(), 7UL);
    EXPECT_EQ(qpu.read(0b010, 0, 0), 0b010UL);
}

TEST_P(Measure, CollapseZeroesWhatDiffers) {
    State all(8);
    for (unsigned long i = 0; i < 8; ++i) all[i] = {1.0 + static_cast<double>(i), -0.0};
    for (unsigned long mask = 1; mask < 8; ++mask) {
        for (unsigned long value = 0; value < 8; ++value) {
            if ((value & ~mask) != 0) continue;
            load(qpu, all);
            qpu.collapse(mask | 0x100, value);
            State expected = all;
            for (unsigned long i = 0; i < 8; ++i) {
                if ((i & mask) != value) expected[i] = {0.0, 0.0};
            }
            EXPECT_STATE(state_of(qpu), expected);
        }
    }
}

TEST_P(Measure, CollapseOfNothingChangesNothing) {
    load(qpu, quarters);
    qpu.collapse(0, 0);
    qpu.collapse(0x100, 0);
    EXPECT_STATE(state_of(qpu), quarters);
}

TEST_P(Measure, CollapseMarksTheBlocksThatDie) {
    load(qpu, State(8, complex_t{1.0, 1.0}));
    qpu.collapse(0b100, 0b100);
    for (unsigned long i = 0; i < qpu.num_blocks; ++i) {
        const bool dead = qpu.num_blocks > 1 && i < qpu.num_blocks / 2;
        EXPECT_EQ(qpu.blocks[i]->all_zero, dead) << "block " << i;
    }
}

TEST_P(Measure, ProbabilitySumsTheTermsThatMatch) {
    load(qpu, quarters);
    for (unsigned long mask = 1; mask < 8; ++mask) {
        for (unsigned long value = 0; value < 8; ++value) {
            double expected = 0.0;
            for (const unsigned long i : {0UL, 3UL, 5UL, 6UL}) {
                if (((i ^ value) & mask) == 0) expected += 0.25;
            }
            EXPECT_EQ(qpu.peek_read_probability_sv(value, mask, 0.0), expected)
                << "value " << value << " mask " << mask;
        }
    }
    EXPECT_STATE(state_of(qpu), quarters);
}

TEST_P(Measure, TheLimitStopsEachBlockByItself) {
    const double term = 0.25 * std::sqrt(2.0);
    load(qpu, State(8, complex_t{term, 0.0}));
    const double one = term * term;
    double expected = 0.0;
    for (unsigned long i = 0; i < qpu.num_blocks; ++i) expected += one;
    EXPECT_EQ(qpu.peek_read_probability_sv(0, 0, 0.01), expected);
}

TEST_P(Measure, PostselectKeepsWhatMatches) {
    load(qpu, quarters);
    qpu.postselect_sv(0b1111'0011, 0b0000'0011);
    EXPECT_STATE(state_of(qpu), ([] {
                     State state(8, complex_t{0.0, 0.0});
                     state[3].im = 1.0;
                     return state;
                 }()));
}

TEST_P(Measure, PostselectOfWhatIsNotThereLeavesZero) {
    load(qpu, basis(8, 4));
    EXPECT_FAILURE(qpu.postselect_sv(0b001, 0b001),
                   "Error: qc.postselect() no nonzero terms match desired value.");
    EXPECT_STATE(state_of(qpu), State(8, complex_t{0.0, 0.0}));
}

TEST_P(Measure, ConsecutiveQubitsFillConsecutiveFlags) {
    load(qpu, basis(8, 0b101));
    qpu.read(0b111, 0, 5);
    EXPECT_EQ(qpu.fetch_read_result(5, 3), 0b101UL);
    qpu.read(0b110, 0, 20);
    EXPECT_EQ(qpu.fetch_read_result(20, 2), 0b10UL) << "a qubit outside the mask takes no number";
}

TEST_P(Measure, NegativeFlagsStoreTheInverse) {
    load(qpu, basis(8, 0b101));
    qpu.read(0b111, 0, static_cast<unsigned long>(-5));
    EXPECT_EQ(qpu.get_read_flag(5), 0);
    EXPECT_EQ(qpu.get_read_flag(4), 1);
    EXPECT_EQ(qpu.get_read_flag(3), 0);
    EXPECT_EQ(qpu.get_read_flag(-5), 1);
}

TEST_P(Measure, ARunLosesWhatFallsOnTheConstants) {
    load(qpu, basis(8, 0b111));
    qpu.read(0b011, 0, 1);
    EXPECT_EQ(qpu.read_flags, std::vector<unsigned long>{1UL << 2});
    qpu.read_flags.clear();
    qpu.read(0b111, 0, static_cast<unsigned long>(-2));
    EXPECT_EQ(qpu.read_flags, std::vector<unsigned long>{0}) << "-2 stores a 0; -1 and 0 nothing";
    qpu.read_flags.clear();
    qpu.read(0b111, 0, 0);
    EXPECT_TRUE(qpu.read_flags.empty());
}

TEST(MeasureWithoutRegister, Throws) {
    QPU qpu(0, nullptr);
    EXPECT_FAILURE(qpu.read(1, -1, 0), no_register_text);
    EXPECT_FAILURE(qpu.collapse(0, 0), no_register_text);
    EXPECT_FAILURE(qpu.postselect_sv(0, 1), no_register_text);
    EXPECT_FAILURE(qpu.peek_read_probability_sv(0, 1, 0.0), no_register_text);
    EXPECT_FAILURE(qpu.get_random_term_index(), no_register_text);
}

}  // namespace
