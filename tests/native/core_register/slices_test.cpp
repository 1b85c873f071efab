#include <gtest/gtest.h>

#include "core_register/state_support.h"
#include "dense/scalar_gates.h"
#include "support/random.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

constexpr const char* entangled_text = " entangled with the overall state of the circuit.";

class PullSlices : public RegisterLayouts {
  protected:
    /// The pulled amplitudes; what the pull appends goes to `message`.
    State pull(unsigned long mask) {
        State dest(1UL << __builtin_popcountl(mask), complex_t{-9.0, -9.0});
        message.clear();
        qpu.pull_state_specific_sv(message, dest.data(), mask, dest.size());
        return dest;
    }

    std::string message;
};
INSTANTIATE_TEST_SUITE_P(Layouts, PullSlices, testing::ValuesIn(all_layouts));

TEST_P(PullSlices, NoQubitsMeansTheWholeState) {
    const State state{{1, 2}, {3, 4}, {5, 6}, {7, 8}, {9, 10}, {11, 12}, {13, 14}, {15, 16}};
    load(qpu, state);
    State dest(8);
    qpu.pull_state_specific_sv(message, dest.data(), 0, 8);
    EXPECT_STATE(dest, state);
    EXPECT_STATE(pull(0b111), state);
    EXPECT_EQ(message, "") << "all qubits together cannot be entangled with others";
}

TEST_P(PullSlices, QubitsThatStandAloneGiveTheirHeaviestSlice) {
    // Qubits 0 and 2 in (1, 2, 3, 4) / 2, qubit 1 with weights 1 and 2.
    load(qpu, {{0.5, 0}, {1, 0}, {1, 0}, {2, 0}, {1.5, 0}, {2, 0}, {3, 0}, {4, 0}});
    EXPECT_STATE(pull(0b101), (State{{1, 0}, {2, 0}, {3, 0}, {4, 0}}));
    EXPECT_EQ(message, "");
    EXPECT_STATE(pull(0b010), (State{{2, 0}, {4, 0}})) << "the heaviest, and not normalised";
    EXPECT_EQ(message, "");
}

TEST_P(PullSlices, ABellPairGivesItsEarlierSliceAndAMessage) {
    State bell(8, complex_t{0.0, 0.0});
    bell[0].re = bell[5].re = 0.5;
    load(qpu, bell);
    message = "Qubit 0 is";
    State dest(2);
    qpu.pull_state_specific_sv(message, dest.data(), 0b001, 2);
    EXPECT_STATE(dest, (State{{0.5, 0.0}, {0.0, 0.0}}));
    EXPECT_EQ(message, std::string("Qubit 0 is") + entangled_text);
    EXPECT_STATE(pull(0b101), (State{{0.5, 0.0}, {0.0, 0.0}, {0.0, 0.0}, {0.5, 0.0}}));
    EXPECT_EQ(message, "") << "the pair as a whole stands alone";
}

TEST_P(PullSlices, AmongEqualTotalsTheSliceOfMoreTermsWins) {
    // Slices of qubit 0 over qubit 1: (0.5, 0) and (0.3, 0.4), of equal totals.
    load(qpu, {{0.5, 0}, {0, 0}, {0.3, 0}, {0, 0.4}, {0, 0}, {0, 0}, {0, 0}, {0, 0}});
    ASSERT_EQ(0.3 * 0.3 + 0.4 * 0.4, 0.25);
    EXPECT_STATE(pull(0b001), (State{{0.3, 0.0}, {0.0, 0.4}}));
    EXPECT_EQ(message, entangled_text);
}

TEST_P(PullSlices, PhasesAreNotCompared) {
    load(qpu, {{0.5, 0}, {0.5, 0}, {0.5, 0}, {-0.5, 0}, {0, 0}, {0, 0}, {0, 0}, {0, 0}});
    EXPECT_STATE(pull(0b001), (State{{0.5, 0.0}, {0.5, 0.0}}));
    EXPECT_EQ(message, "");
}

TEST_P(PullSlices, SmallDifferencesCount) {
    // Shares of 1/2 against shares that differ from it by 0.00002 and by 0.000005.
    const auto state_with = [](double difference) {
        State state(8, complex_t{0.0, 0.0});
        state[0].re = state[1].re = 1.0;
        state[2].re = std::sqrt(0.5 + difference);
        state[3].re = std::sqrt(0.5 - difference);
        return state;
    };
    load(qpu, state_with(0.00002));
    pull(0b001);
    EXPECT_EQ(message, entangled_text);
    load(qpu, state_with(0.000005));
    pull(0b001);
    EXPECT_EQ(message, "");
}

TEST_P(PullSlices, FollowsTheTermsThroughExchangedBlocks) {
    load(qpu, basis(8, 1));
    qpu.op_not(0b110, 0, 0, 0);
    EXPECT_STATE(pull(0b110), (State{{0, 0}, {0, 0}, {0, 0}, {1, 0}}));
    EXPECT_STATE(state_of(qpu), basis(8, 7));
}

TEST_P(PullSlices, AnEmptyStateGivesZeroes) {
    qpu.set_zero();
    EXPECT_STATE(pull(0b101), State(4, complex_t{0.0, 0.0}));
    EXPECT_EQ(message, "");
}

TEST_P(PullSlices, QubitsOutsideTheRegisterAddNoTerms) {
    load(qpu, {{1, 0}, {2, 0}, {3, 0}, {4, 0}, {5, 0}, {6, 0}, {7, 0}, {8, 0}});
    State dest(3, complex_t{-9.0, -9.0});
    qpu.pull_state_specific_sv(message, dest.data(), 0b1'0000'0001, 2);
    EXPECT_STATE(dest, (State{{7, 0}, {8, 0}, {-9, -9}}));
    // Without a qubit of the register each slice is one term. The last term is not examined.
    qpu.pull_state_specific_sv(message, dest.data(), 0b1'0000'0000, 1);
    EXPECT_STATE(dest, (State{{7, 0}, {8, 0}, {-9, -9}}));
}

class PushFactor : public RegisterLayouts {
  protected:
    void push(const State& source, unsigned long mask) {
        qpu.push_state_sv(source.data(), mask, source.size());
    }
};
INSTANTIATE_TEST_SUITE_P(Layouts, PushFactor, testing::ValuesIn(all_layouts));

TEST_P(PushFactor, PutsASourceIntoEachQubitOfZero) {
    for (unsigned long mask = 1; mask < 8; mask <<= 1) {
        load(qpu, basis(8, 0));
        qpu.classical_qubits = 0;
        push({{0.6, 0.1}, {-0.2, 0.8}}, mask);
        State expected(8, complex_t{0.0, 0.0});
        expected[0] = {0.6, 0.1};
        expected[mask] = {-0.2, 0.8};
        EXPECT_STATE(state_of(qpu), expected);
        EXPECT_EQ(qpu.classical_qubits, mask) << "left marked by the write, though not classical";
    }
}

/// Seeded, so that the measurement in a push can be repeated.
TEST_P(PushFactor, MultipliesIntoTheOtherQubits) {
    const State before{{0.1, 0.2},  {0.3, -0.4}, {-0.5, 0.6}, {0.7, 0.1},
                       {0.2, -0.3}, {0.4, 0.5},  {-0.6, 0.7}, {0.1, -0.2}};
    const State source{{0.1, 0.7}, {0.3, -0.2}, {0.9, 1.1}, {-0.4, 0.6}};
    for (const unsigned long mask : {0b001UL, 0b010UL, 0b100UL, 0b011UL, 0b110UL}) {
        for (unsigned int seed = 0; seed < 6; ++seed) {
            load(qpu, before);
            set_random_seed(seed);
            qpu.write(0, mask, 0, 0);
            const State cleared = state_of(qpu);

            load(qpu, before);
            set_random_seed(seed);
            push(source, mask);

            const auto lowest = static_cast<unsigned long>(__builtin_ctzl(mask));
            State expected(8);
            for (unsigned long i = 0; i < 8; ++i) {
                expected[i] = scalar_product(cleared[i & ~mask], source[(i & mask) >> lowest]);
            }
            EXPECT_STATE(state_of(qpu), expected) << "mask " << mask;
        }
    }
}

TEST_P(PushFactor, SkipsTermsThatAreZeroInEveryBit) {
    State before = basis(8, 0);
    before[4] = {-0.0, 0.0};  // not zero in every bit
    load(qpu, before);
    push({{2.0, 0.0}, {-3.0, 0.0}}, 0b001);
    State expected(8, complex_t{0.0, 0.0});
    expected[0].re = 2.0;
    expected[1].re = -3.0;
    expected[1].im = 0.0 * -3.0 + 1.0 * 0.0;
    expected[4].re = -0.0 * 2.0 - 0.0 * 0.0;
    expected[5].re = -0.0 * -3.0 - 0.0 * 0.0;
    expected[4].im = -0.0 * 0.0 + 0.0 * 2.0;
    expected[5].im = -0.0 * 0.0 + 0.0 * -3.0;
    EXPECT_STATE(state_of(qpu), expected);
}

TEST_P(PushFactor, AllQubitsTakeTheSourceAsItIs) {
    const State source{{1, 2}, {3, 4}, {5, 6}, {7, 8}, {9, 10}, {11, 12}, {13, 14}, {15, 16}};
    load(qpu, State(8, complex_t{0.25, 0.25}));
    push(source, 0b111);
    EXPECT_STATE(state_of(qpu), source) << "neither measured nor normalised";
    EXPECT_EQ(qpu.classical_qubits, 7UL);
}

TEST_P(PushFactor, FindsTheTermsInExchangedBlocks) {
    load(qpu, basis(8, 0b010));
    qpu.op_not(0b100, 0, 0, 0);
    push({{0.6, 0.0}, {0.0, 0.8}}, 0b100);
    State expected(8, complex_t{0.0, 0.0});
    expected[0b010].re = 0.6;
    expected[0b110].im = 0.8;
    EXPECT_STATE(state_of(qpu), expected);
}

TEST_P(PushFactor, MarksTheBlocksThatItFills) {
    push({{0.0, 0.0}, {0.0, 0.0}}, 0b100);
    for (const unsigned long term : {0UL, 4UL}) {
        EXPECT_FALSE(qpu.blocks[term >> qpu.num_block_qubits]->all_zero) << "whatever was written";
    }
    EXPECT_STATE(state_of(qpu), State(8, complex_t{0.0, 0.0}));
}

TEST_P(PushFactor, AMaskWithAGapWritesToOtherTermsButInsideTheRegister) {
    load(qpu, basis(8, 0));
    push({{1, 0}, {2, 0}, {3, 0}, {4, 0}}, 0b101);
    // The source's index is shifted to the lowest masked qubit, so its second bit falls on qubit 1.
    State expected(8, complex_t{0.0, 0.0});
    for (unsigned long k = 0; k < 4; ++k) expected[k].re = static_cast<double>(k + 1);
    EXPECT_STATE(state_of(qpu), expected);
}

TEST_P(PushFactor, RefusesQubitsOutsideTheRegisterBeforeAnythingChanges) {
    const State before(8, complex_t{0.25, 0.25});
    load(qpu, before);
    const State source(4, complex_t{1.0, 0.0});
    EXPECT_FAILURE(push(source, 0b1100),
                   "Error: push_state() selector 12 names qubits outside the register of 3 "
                   "qubits.");
    EXPECT_STATE(state_of(qpu), before);
    EXPECT_EQ(qpu.op_count, 0UL);
}

}  // namespace
