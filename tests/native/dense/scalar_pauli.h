/// The native truth of the Pauli products, on one block or on two: plain doubles, one slot at a
/// time.
#pragma once

#include <array>
#include <bit>
#include <cmath>
#include <utility>

#include "dense/scalar_gates.h"

namespace Nimbrel::Testing {

/// The amplitudes of a block and its number in the register.
struct ScalarBlock {
    complex_t* data;
    unsigned long number;
};

/// A Pauli product on a block, or on a block and its buddy (`there.data` not null).
struct ScalarProduct {
    ScalarBlock here;
    ScalarBlock there;
    unsigned long block_qubits;
    unsigned long x_mask;
    unsigned long z_mask;

    unsigned long terms() const { return 1UL << block_qubits; }
    unsigned long low_x() const { return x_mask & (terms() - 1); }

    /// v with the sign of slot i of a block.
    complex_t with_sign(const ScalarBlock& block, unsigned long i, complex_t v) const {
        const unsigned long index = (block.number << block_qubits) | i;
        const bool negative = std::popcount(index & z_mask) % 2 != 0;
        return negative ? complex_t{-v.re, -v.im} : v;
    }

    /// v times -i to the power of the number of Y factors plus `more`.
    complex_t with_phase(complex_t v, int more) const {
        struct Constants {
            complex_t straight, crossed;
        };
        constexpr std::array<Constants, 4> constants{
            {{{1, 1}, {0, 0}}, {{0, 0}, {1, -1}}, {{-1, -1}, {0, 0}}, {{0, 0}, {-1, 1}}}};
        const int power = (std::popcount(x_mask & z_mask) + more) % 4;
        const auto& [a, b] = constants[static_cast<std::size_t>(power)];
        return {std::fma(v.re, a.re, v.im * b.re), std::fma(v.im, a.im, v.re * b.im)};
    }

    /// Calls visit(i, j) for each slot or pair; slot i exchanges with slot j.
    template <typename Visit>
    void for_each_pair(Visit&& visit) const {
        const unsigned long once = there.data == nullptr ? lowest_bit_of(low_x()) : 0;
        for (unsigned long i = 0; i < terms(); ++i) {
            if ((i & once) == 0) visit(i, i ^ low_x());
        }
    }

    bool is_diagonal() const { return there.data == nullptr && low_x() == 0; }
    const ScalarBlock& partner() const { return there.data != nullptr ? there : here; }
};

inline void scalar_ppr(const ScalarProduct& product, Condition cond, double sine, double cosine) {
    const auto turned = [&](const ScalarBlock& block, unsigned long i, complex_t own,
                            complex_t other) -> complex_t {
        const complex_t part =
            product.with_phase(product.with_sign(block, i, {sine * other.re, sine * other.im}), 1);
        return {part.re + cosine * own.re, part.im + cosine * own.im};
    };
    product.for_each_pair([&](unsigned long i, unsigned long j) {
        if (!cond.holds(i)) return;
        complex_t& at_j = product.partner().data[j];
        const complex_t u = product.here.data[i];
        const complex_t w = at_j;
        product.here.data[i] = turned(product.here, i, u, w);
        if (!product.is_diagonal()) at_j = turned(product.partner(), j, w, u);
    });
}

inline void scalar_ppm(const ScalarProduct& product, unsigned long measured) {
    const double s = measured != 0 ? -1.0 : 1.0;
    const auto projected = [&](const ScalarBlock& block, unsigned long i, complex_t own,
                               complex_t other) -> complex_t {
        const complex_t part = product.with_phase(product.with_sign(block, i, other), 0);
        return {std::fma(s, part.re, own.re), std::fma(s, part.im, own.im)};
    };
    product.for_each_pair([&](unsigned long i, unsigned long j) {
        complex_t& at_j = product.partner().data[j];
        const complex_t u = product.here.data[i];
        const complex_t w = at_j;
        product.here.data[i] = projected(product.here, i, u, w);
        if (!product.is_diagonal()) at_j = projected(product.partner(), j, w, u);
    });
}

inline double scalar_pps(const ScalarProduct& product) {
    complex_t lanes{0.0, 0.0};
    const auto add = [&](const ScalarBlock& block, unsigned long i, complex_t own,
                         complex_t other) {
        const complex_t part = product.with_phase(product.with_sign(block, i, other), 0);
        const complex_t v{own.re + part.re, own.im + part.im};
        lanes = {std::fma(v.re, v.re, lanes.re), std::fma(v.im, v.im, lanes.im)};
    };
    product.for_each_pair([&](unsigned long i, unsigned long j) {
        const complex_t u = product.here.data[i];
        const complex_t w = product.partner().data[j];
        add(product.here, i, u, w);
        if (!product.is_diagonal()) add(product.partner(), j, w, u);
    });
    return 0.25 * lanes.re + 0.25 * lanes.im;
}

/// An exchange over any set of bits, where all bits of `condition` are set.
inline void scalar_x_multi(complex_t* data, complex_t* buddy, unsigned long n, unsigned long target,
                           unsigned long condition) {
    const unsigned long flips = target & (n - 1);
    if (flips == 0) return;
    for (unsigned long i = 0; i < n; ++i) {
        if (buddy == nullptr && (i & lowest_bit_of(flips)) != 0) continue;
        if ((i & condition) != condition) continue;
        std::swap(data[i], buddy != nullptr ? buddy[i ^ flips] : data[i ^ flips]);
    }
}

}  // namespace Nimbrel::Testing
