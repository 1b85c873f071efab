#include <gtest/gtest.h>

#include "core_register/gate_support.h"
#include "support/random.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

class PauliMeasurement : public GateLayouts {};
INSTANTIATE_TEST_SUITE_P(Layouts, PauliMeasurement, testing::ValuesIn(all_layouts));

TEST_P(PauliMeasurement, ProjectsOnTheOutcome) {
    for (unsigned int seed = 0; seed < 8; ++seed) {
        for (const auto& [x, z] : sample_products) {
            load(qpu, start);
            set_random_seed(seed);
            const double draw = random_zero_to_one();
            const unsigned long expected = draw >= qpu.pps(x, z) ? 1 : 0;
            set_random_seed(seed);
            EXPECT_EQ(qpu.ppm(1, x, z, 0, 0), expected);
            EXPECT_NEAR_STATE(state_of(qpu), normalised(project(start, x, z, expected)));
            EXPECT_EQ(qpu.ppm(1, x, z, 0, 0), expected) << "a second measurement agrees";
        }
    }
}

TEST_P(PauliMeasurement, OfAKnownQubit) {
    load(qpu, basis(16, 0b1000));
    EXPECT_EQ(qpu.ppm(1, 0, 0b1000, 0, 5), 1UL);
    EXPECT_EQ(qpu.op_count, 2UL);
    EXPECT_EQ(qpu.classical_qubits, 0b1000UL);
    EXPECT_EQ(qpu.get_read_flag(5), 1);
    EXPECT_EQ(qpu.ppm(1, 0, 0b0001, 0, 5), 0UL);
    EXPECT_EQ(qpu.classical_qubits, 0b1001UL);
    EXPECT_EQ(qpu.get_read_flag(5), 0);
    EXPECT_NEAR_STATE(state_of(qpu), basis(16, 0b1000));
}

TEST_P(PauliMeasurement, ASignTurnsTheReportOnly) {
    load(qpu, basis(16, 0b1000));
    EXPECT_EQ(qpu.ppm(-1, 0, 0b1000, 0, 5), 0UL);
    EXPECT_EQ(qpu.get_read_flag(5), 0);
    EXPECT_EQ(qpu.ppm(-1, 0, 0b0001, 0, 6), 1UL);
    EXPECT_EQ(qpu.get_read_flag(6), 1);
    EXPECT_EQ(qpu.ppm(-2, 0, 0b1000, 0, 0), 1UL) << "only -1 is a sign";
    EXPECT_NEAR_STATE(state_of(qpu), basis(16, 0b1000));
}

TEST_P(PauliMeasurement, ANegativeFlagStoresTheInverseOfTheReport) {
    load(qpu, basis(16, 0b1000));
    EXPECT_EQ(qpu.ppm(1, 0, 0b1000, 0, -5), 1UL);
    EXPECT_EQ(qpu.get_read_flag(5), 0);
    EXPECT_EQ(qpu.ppm(-1, 0, 0b1000, 0, -6), 0UL);
    EXPECT_EQ(qpu.get_read_flag(6), 1);
}

TEST_P(PauliMeasurement, TheConstantsTakeNothing) {
    for (const long flag : {0L, 1L, -1L}) qpu.ppm(1, 0, 0b1000, 0, flag);
    EXPECT_TRUE(qpu.read_flags.empty());
}

TEST_P(PauliMeasurement, OnlyOneQubitBecomesClassical) {
    qpu.classical_qubits = 0b0001;
    qpu.ppm(1, 0b1000, 0b0001, 0, 0);
    EXPECT_EQ(qpu.classical_qubits, 0b0001UL) << "neither set nor cleared";
    qpu.ppm(1, 0b0100, 0b0100, 0, 0);
    EXPECT_EQ(qpu.classical_qubits, 0b0101UL);
}

TEST_P(PauliMeasurement, AFailedConditionReportsNothing) {
    qpu.set_read_flag(7, 1);
    set_random_seed(5);
    EXPECT_EQ(qpu.ppm(-1, 0, 0b1000, -1, 7), 0UL);
    EXPECT_EQ(qpu.get_read_flag(7), 1);
    EXPECT_EQ(qpu.op_count, 0UL);
    EXPECT_STATE(state_of(qpu), start);
    const double after = random_zero_to_one();
    set_random_seed(5);
    EXPECT_EQ(after, random_zero_to_one()) << "no draw was made";
}

// The empty product has probability 0 for +1. So it always measures 1, and the projection makes
// the state zero.
TEST_P(PauliMeasurement, OfTheEmptyProduct) {
    EXPECT_EQ(qpu.ppm(1, 0, 0, 0, 0), 1UL);
    EXPECT_EQ(qpu.peek_total_probability(), 0.0);
    EXPECT_EQ(qpu.op_count, 1UL);
    EXPECT_EQ(qpu.classical_qubits, 0UL);
}

// A letter above the register has no partner block. It changes the phase of the product, as it does
// in one block, and nothing else.
TEST_P(PauliMeasurement, LettersAboveTheRegisterStayInside) {
    QPU one_block(0, nullptr);
    shape(one_block, 4, {0, false});
    for (const auto& [x, z] : {std::pair{0b11000UL, 0UL},
                               {0b10000UL, 0b0001UL},
                               {0b111000UL, 0b101000UL},
                               {0b110000UL, 0b110000UL},
                               {~0UL, 0UL},
                               {0b1001UL, ~0UL}}) {
        load(qpu, start);
        load(one_block, start);
        set_random_seed(9);
        const unsigned long outcome = qpu.ppm(1, x, z, 0, 0);
        set_random_seed(9);
        EXPECT_EQ(one_block.ppm(1, x, z, 0, 0), outcome);
        EXPECT_NEAR_STATE(state_of(qpu), state_of(one_block));
    }
}

}  // namespace
