/// Random states and plain reference arithmetic for the gates of a register.
#pragma once

#include <bit>
#include <complex>
#include <cstdint>
#include <numbers>
#include <random>

#include "core_register/state_support.h"

namespace Nimbrel::Testing {

/// A number that is the same in each run of a test and another one in the next test.
inline std::uint32_t seed_of_this_test() {
    const auto* info = testing::UnitTest::GetInstance()->current_test_info();
    std::uint32_t hash = 2166136261U;
    for (const char* name = info->name(); *name != 0 && *name != '/'; ++name) {
        hash = (hash ^ static_cast<unsigned char>(*name)) * 16777619U;
    }
    return hash;
}

/// A normalised state without zeros.
inline State random_state(unsigned long qubits, std::uint32_t seed) {
    std::mt19937 generator(seed);
    std::uniform_real_distribution<double> part(0.1, 1.0);
    State state(1UL << qubits);
    double norm = 0.0;
    for (complex_t& term : state) {
        term = {part(generator), -part(generator)};
        norm += term.re * term.re + term.im * term.im;
    }
    for (complex_t& term : state) term = {term.re / std::sqrt(norm), term.im / std::sqrt(norm)};
    return state;
}

inline testing::AssertionResult states_are_near(const State& actual, const State& expected) {
    for (std::size_t i = 0; i < expected.size(); ++i) {
        if (std::fabs(actual.at(i).re - expected[i].re) < 1e-12 &&
            std::fabs(actual.at(i).im - expected[i].im) < 1e-12) {
            continue;
        }
        return testing::AssertionFailure()
               << "term " << i << " differs: state is" << text_of(actual) << "\nand should be"
               << text_of(expected);
    }
    return testing::AssertionSuccess();
}
#define EXPECT_NEAR_STATE(actual, expected) \
    EXPECT_TRUE(Nimbrel::Testing::states_are_near((actual), (expected)))

using Complex = std::complex<double>;

inline Complex value_of(const complex_t& term) { return {term.re, term.im}; }
inline complex_t term_of(const Complex& value) { return {value.real(), value.imag()}; }

/// A row-major 2x2 matrix applied to one qubit, term by term.
inline State apply_matrix(const State& state, const Complex (&matrix)[4], unsigned long target) {
    State result = state;
    for (unsigned long i = 0; i < state.size(); ++i) {
        if ((i & target) != 0) continue;
        const Complex zero = value_of(state[i]);
        const Complex one = value_of(state[i | target]);
        result[i] = term_of(matrix[0] * zero + matrix[1] * one);
        result[i | target] = term_of(matrix[2] * zero + matrix[3] * one);
    }
    return result;
}

/// A Pauli product applied to a state: X where only `x` has a bit, Z where only `z` has one, Y
/// where both have.
inline State apply_pauli(const State& state, unsigned long x, unsigned long z) {
    State result(state.size());
    const Complex phases[] = {{1, 0}, {0, -1}, {-1, 0}, {0, 1}};
    const Complex phase = phases[std::popcount(x & z) % 4];
    for (unsigned long i = 0; i < state.size(); ++i) {
        const double sign = std::popcount(i & z) % 2 == 0 ? 1.0 : -1.0;
        result[i] = term_of(phase * sign * value_of(state[i ^ x]));
    }
    return result;
}

/// a * first + b * second.
inline State combine(Complex a, const State& first, Complex b, const State& second) {
    State result(first.size());
    for (std::size_t i = 0; i < first.size(); ++i) {
        result[i] = term_of(a * value_of(first[i]) + b * value_of(second[i]));
    }
    return result;
}

/// cos(angle) - i sin(angle) P.
inline State rotate_about(const State& state, double angle, unsigned long x, unsigned long z) {
    const double radians = angle * std::numbers::pi / 180.0;
    return combine(std::cos(radians), state, Complex{0.0, -std::sin(radians)},
                   apply_pauli(state, x, z));
}

/// A register of four qubits with a random state, once in every layout of blocks and threads.
class GateLayouts : public testing::TestWithParam<Layout> {
  protected:
    void SetUp() override {
        shape(qpu, 4, GetParam());
        load(qpu, start);
    }

    const State start = random_state(4, seed_of_this_test());
    QPU qpu{0, nullptr};
};

}  // namespace Nimbrel::Testing
