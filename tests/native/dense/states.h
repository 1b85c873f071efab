/// State vectors of the dense tests: how they are made, compared and printed.
#pragma once

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "support/complex.h"

namespace Nimbrel::Testing {

using State = std::vector<complex_t>;

/// A seed from the name of the running test, the same for all its parameters.
inline std::uint64_t seed_of_this_test() {
    const auto* info = testing::UnitTest::GetInstance()->current_test_info();
    const std::string name = std::string(info->test_suite_name()) + "." + info->name();
    std::uint64_t hash = 14695981039346656037U;
    for (const char letter : name.substr(0, name.rfind('/'))) {
        hash = (hash ^ static_cast<unsigned char>(letter)) * 1099511628211U;
    }
    return hash;
}

/// The state in which one term is 1.
inline State basis(unsigned long terms, unsigned long index) {
    State state(terms, complex_t{0.0, 0.0});
    state[index].re = 1.0;
    return state;
}

inline State normalised(State state) {
    double norm = 0.0;
    for (const complex_t& term : state) norm += term.re * term.re + term.im * term.im;
    for (complex_t& term : state) term = {term.re / std::sqrt(norm), term.im / std::sqrt(norm)};
    return state;
}

/// A normalised state without zeros.
inline State random_state(unsigned long qubits, std::uint64_t seed) {
    std::mt19937_64 generator(seed);
    std::uniform_real_distribution<double> part(0.1, 1.0);
    State state(1UL << qubits);
    for (complex_t& term : state) term = {part(generator), -part(generator)};
    return normalised(state);
}

inline std::string text_of(const State& state) {
    std::string text;
    for (const complex_t& term : state) {
        text += " (" + std::to_string(term.re) + ", " + std::to_string(term.im) + ")";
    }
    return text;
}

inline testing::AssertionResult same_bits(double actual, double expected) {
    if (std::bit_cast<std::uint64_t>(actual) == std::bit_cast<std::uint64_t>(expected)) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << std::hexfloat << actual << " is not " << expected;
}

/// Compares bit for bit, so the two zeros differ.
inline testing::AssertionResult same_bits(const State& actual, const State& expected) {
    if (actual.size() != expected.size()) return testing::AssertionFailure() << "sizes differ";
    for (std::size_t i = 0; i < actual.size(); ++i) {
        if (std::memcmp(&actual[i], &expected[i], sizeof(complex_t)) == 0) continue;
        return testing::AssertionFailure()
               << "amplitude " << i << " is (" << actual[i].re << ", " << actual[i].im
               << ") and not (" << expected[i].re << ", " << expected[i].im << "), in bits "
               << std::hexfloat << actual[i].re << ", " << actual[i].im << " and " << expected[i].re
               << ", " << expected[i].im;
    }
    return testing::AssertionSuccess();
}
#define EXPECT_STATE(actual, expected) \
    EXPECT_TRUE(Nimbrel::Testing::same_bits((actual), (expected)))

inline testing::AssertionResult states_are_near(const State& actual, const State& expected) {
    if (actual.size() != expected.size()) return testing::AssertionFailure() << "sizes differ";
    for (std::size_t i = 0; i < actual.size(); ++i) {
        if (std::fabs(actual[i].re - expected[i].re) < 1e-12 &&
            std::fabs(actual[i].im - expected[i].im) < 1e-12) {
            continue;
        }
        return testing::AssertionFailure()
               << "amplitude " << i << " is (" << actual[i].re << ", " << actual[i].im
               << ") and not (" << expected[i].re << ", " << expected[i].im << ")";
    }
    return testing::AssertionSuccess();
}
#define EXPECT_NEAR_STATE(actual, expected) \
    EXPECT_TRUE(Nimbrel::Testing::states_are_near((actual), (expected)))

}  // namespace Nimbrel::Testing
