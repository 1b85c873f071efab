#include <gtest/gtest.h>

#include <numbers>

#include "core_register/gate_support.h"
#include "support/random.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

constexpr unsigned long reversed(unsigned long index, int qubits) {
    unsigned long result = 0;
    for (int q = 0; q < qubits; ++q) result |= (index >> q & 1) << (qubits - 1 - q);
    return result;
}

/// The discrete Fourier transform over the highest `qubits` of a four-qubit register.
State transformed(const State& state, int qubits) {
    const unsigned long low = 16UL >> qubits;
    const unsigned long size = 1UL << qubits;
    State result(state.size());
    for (unsigned long rest = 0; rest < low; ++rest) {
        for (unsigned long k = 0; k < size; ++k) {
            Complex sum = 0.0;
            for (unsigned long j = 0; j < size; ++j) {
                const double turns = static_cast<double>(j * k) / static_cast<double>(size);
                sum += value_of(state[j * low | rest]) *
                       std::polar(1.0, 2.0 * std::numbers::pi * turns);
            }
            result[k * low | rest] = term_of(sum / std::sqrt(static_cast<double>(size)));
        }
    }
    return result;
}

class Fourier : public GateLayouts {};
INSTANTIATE_TEST_SUITE_P(Layouts, Fourier, testing::ValuesIn(all_layouts));

TEST_P(Fourier, TopDownIsTheTransformWithItsQubitsReversed) {
    qpu.QFT(0b1111, false, true, false);
    const State expected = transformed(start, 4);
    State in_order(16);
    for (unsigned long i = 0; i < 16; ++i) in_order[reversed(i, 4)] = expected[i];
    EXPECT_NEAR_STATE(state_of(qpu), in_order);
}

// From the lowest qubit up it is the transform with the qubits in reverse order.
TEST_P(Fourier, BottomUpIsTheSameOnReversedQubits) {
    qpu.QFT(0b1111, false, false, true);
    State backwards(16);
    for (unsigned long i = 0; i < 16; ++i) backwards[reversed(i, 4)] = start[i];
    EXPECT_NEAR_STATE(state_of(qpu), transformed(backwards, 4));
}

TEST_P(Fourier, QubitsOutsideTheMaskDoNotHalveTheAngle) {
    qpu.QFT(0b1001, false, true, false);
    const State by_mask = state_of(qpu);
    load(qpu, start);
    qpu.cswap(0b0101, 0, 0, 0);
    qpu.QFT(0b1100, false, true, false);
    qpu.cswap(0b0101, 0, 0, 0);
    EXPECT_NEAR_STATE(by_mask, state_of(qpu));
}

TEST_P(Fourier, CountsAndClearsItsQubits) {
    qpu.classical_qubits = ~0UL;
    EXPECT_EQ(qpu.QFT(0b10111, false, true, false), 0UL);
    EXPECT_EQ(qpu.op_count, 6UL);
    EXPECT_EQ(qpu.classical_qubits, ~0b00111UL);
}

TEST_P(Fourier, ATransformedBasisStateMeasuresAsItsFrequency) {
    // A wave of frequency 5 transforms to term 5. The measured qubits have its bits in reverse
    // order.
    State wave(16);
    for (unsigned long j = 0; j < 16; ++j) {
        const double turns = -static_cast<double>(j * 5) / 16.0;
        wave[j] = term_of(0.25 * std::polar(1.0, 2.0 * std::numbers::pi * turns));
    }
    load(qpu, wave);
    set_random_seed(static_cast<unsigned int>(seed_of_this_test()));
    EXPECT_EQ(qpu.QFT(0b1111, true, true, false), reversed(5, 4));
    EXPECT_EQ(qpu.classical_qubits & 0b1111, 0b1111UL);
    EXPECT_NEAR(std::abs(value_of(qpu.get_value(reversed(5, 4)))), 1.0, 1e-12);
}

TEST_P(Fourier, OfNoQubitsDoesNothing) {
    EXPECT_EQ(qpu.QFT(0, true, false, false), 0UL);
    EXPECT_STATE(state_of(qpu), start);
    EXPECT_EQ(qpu.op_count, 0UL);
}

}  // namespace
