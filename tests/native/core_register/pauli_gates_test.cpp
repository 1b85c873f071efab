#include <gtest/gtest.h>

#include "core_register/gate_support.h"
#include "support/random.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

class PauliGates : public GateLayouts {};
INSTANTIATE_TEST_SUITE_P(Layouts, PauliGates, testing::ValuesIn(all_layouts));

TEST_P(PauliGates, ARotationInOnePassIsThatOfTheMatrix) {
    for (unsigned long x = 0; x < 16; ++x) {
        for (unsigned long z = 0; z < 16; ++z) {
            load(qpu, start);
            qpu.ppr(37.0, x, z, 0, 0, 0);
            const State expected = (x | z) == 0 ? start : rotate_about(start, 37.0, x, z);
            EXPECT_NEAR_STATE(state_of(qpu), expected);
        }
    }
}

TEST_P(PauliGates, ARotationByGatesIsTheSame) {
    for (unsigned long x = 0; x < 16; ++x) {
        for (unsigned long z = 0; z < 16; ++z) {
            if ((x | z) == 0) continue;
            load(qpu, start);
            qpu.ppr_as_gates(37.0, x | 0b10000, z, 0);
            EXPECT_NEAR_STATE(state_of(qpu), rotate_about(start, 37.0, x, z));
        }
    }
}

TEST_P(PauliGates, AQuarterTurnAboutXIsANotWithAPhase) {
    qpu.ppr(90.0, 0b1000, 0, 0, 0, 0);
    const Complex minus_i{0.0, -1.0};
    EXPECT_NEAR_STATE(state_of(qpu), apply_matrix(start, {0, minus_i, minus_i, 0}, 0b1000));
}

TEST_P(PauliGates, ARotationUnderControls) {
    qpu.ppr(37.0, 0b0010, 0b1000, 0b0101, 0b0100, 0);
    State expected = rotate_about(start, 37.0, 0b0010, 0b1000);
    for (unsigned long i = 0; i < 16; ++i) {
        if ((i & 0b0101) != 0b0001) expected[i] = start[i];
    }
    EXPECT_NEAR_STATE(state_of(qpu), expected);
}

// Unlike for other gates, a control above the register is kept: no term meets it.
TEST_P(PauliGates, ARotationUnderAControlAboveTheRegister) {
    qpu.ppr(37.0, 0b0001, 0, 0b10000, 0, 0);
    EXPECT_STATE(state_of(qpu), start);
    qpu.ppr(37.0, 0b0001, 0, 0b10000, 0b10000, 0);
    EXPECT_NEAR_STATE(state_of(qpu), rotate_about(start, 37.0, 0b0001, 0));
}

TEST_P(PauliGates, TheEmptyRotationByGatesTurnsQubitZero) {
    qpu.ppr_as_gates(37.0, 0, 0, 0);
    EXPECT_NEAR_STATE(state_of(qpu), rotate_about(start, 37.0, 0, 1));
}

TEST_P(PauliGates, ARotationByGatesClearsItsQubitsAndNoMore) {
    qpu.classical_qubits = ~0UL;
    qpu.ppr_as_gates(37.0, 0b10001, 0b0010, 0);
    EXPECT_EQ(qpu.classical_qubits, ~0b10011UL);
    EXPECT_EQ(qpu.op_count, 5UL) << "two turned bases, two parities, one rotation";
    qpu.ppr_as_gates(37.0, 0b0100, 0b0100, -1);
    EXPECT_EQ(qpu.classical_qubits, ~0b10011UL);
}

TEST_P(PauliGates, AMeasurementByGatesFindsTheSameState) {
    for (unsigned int seed = 0; seed < 6; ++seed) {
        for (const auto& [x, z] : sample_products) {
            load(qpu, start);
            set_random_seed(seed);
            const unsigned long outcome = qpu.ppm_as_gates(1, x, z, 0);
            EXPECT_NEAR(qpu.pps(x, z), outcome == 0 ? 1.0 : 0.0, 1e-12);
            const State measured = state_of(qpu);
            load(qpu, start);
            // Repeat the one-pass form until it draws the same outcome.
            for (unsigned int again = 0; qpu.ppm(1, x, z, 0, 0) != outcome; ++again) {
                ASSERT_LT(again, 200U);
                load(qpu, start);
            }
            EXPECT_NEAR_STATE(measured, state_of(qpu));
        }
    }
}

TEST_P(PauliGates, ASignTurnsTheReportOfAMeasurementByGates) {
    load(qpu, basis(16, 0b1000));
    EXPECT_EQ(qpu.ppm_as_gates(1, 0, 0b1000, 0), 1UL);
    EXPECT_EQ(qpu.classical_qubits, 0b1000UL);
    EXPECT_EQ(qpu.ppm_as_gates(-1, 0, 0b1000, 0), 0UL);
    EXPECT_EQ(qpu.ppm_as_gates(-1, 0, 0b1001, 0), 0UL);
    EXPECT_EQ(qpu.ppm_as_gates(-1, 0, 0b0011, 0), 1UL);
    EXPECT_NEAR_STATE(state_of(qpu), basis(16, 0b1000));
    EXPECT_TRUE(qpu.read_flags.empty());
}

TEST_P(PauliGates, AMeasurementByGatesOfNothingDrawsNothing) {
    set_random_seed(5);
    EXPECT_EQ(qpu.ppm_as_gates(-1, 0, 0, 0), 0UL);
    EXPECT_EQ(qpu.ppm_as_gates(-1, 0b10000, 0, 0), 0UL);
    EXPECT_EQ(qpu.ppm_as_gates(-1, 0b1000, 0, -1), 0UL);
    EXPECT_STATE(state_of(qpu), start);
    EXPECT_EQ(qpu.op_count, 0UL);
    const double after = random_zero_to_one();
    set_random_seed(5);
    EXPECT_EQ(after, random_zero_to_one());
}

}  // namespace
