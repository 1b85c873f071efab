/// The truth of the dense gates on the whole state of a register, for comparison within rounding.
#pragma once

#include <bit>
#include <complex>
#include <numbers>
#include <utility>

#include "core_register/state_support.h"
#include "dense/scalar_gates.h"
#include "dense/scalar_pauli.h"

namespace Nimbrel::Testing {

using Complex = std::complex<double>;

inline Complex value_of(const complex_t& term) { return {term.re, term.im}; }
inline complex_t term_of(const Complex& value) { return {value.real(), value.imag()}; }

/// A row-major 2x2 matrix applied to one qubit.
inline State apply_matrix(State state, const Complex (&matrix)[4], unsigned long target) {
    const complex_t entries[] = {term_of(matrix[0]), term_of(matrix[1]), term_of(matrix[2]),
                                 term_of(matrix[3])};
    scalar_pairs(state.data(), state.size(), target, {},
                 [&](complex_t& x, complex_t& y) { scalar_complex2x2(x, y, entries); });
    return state;
}

/// A Pauli product on the whole state: X where only `x` has a bit, Z where only `z` has one, Y
/// where both have one.
inline ScalarProduct product_on(State& state, unsigned long x, unsigned long z) {
    const auto qubits = static_cast<unsigned long>(std::countr_zero(state.size()));
    return {{state.data(), 0}, {nullptr, 0}, qubits, x, z};
}

/// 1 + P, or 1 - P for a measured 1. Not normalised.
inline State project(State state, unsigned long x, unsigned long z, unsigned long measured) {
    scalar_ppm(product_on(state, x, z), measured);
    return state;
}

/// cos(angle) - i sin(angle) P.
inline State rotate_about(State state, double angle, unsigned long x, unsigned long z) {
    const double radians = angle * std::numbers::pi / 180.0;
    scalar_ppr(product_on(state, x, z), {}, std::sin(radians), std::cos(radians));
    return state;
}

/// X and Z masks of Pauli products on four qubits.
inline constexpr std::pair<unsigned long, unsigned long> sample_products[] = {
    {0b1001, 0b0011}, {0, 0b1010}, {0b0110, 0}, {0b1111, 0b1111}, {0b1000, 0b1000}, {0, 1}};

/// A register of four qubits with a random state, once for each division into blocks and threads.
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
