/// The native truth of the dense gates: plain doubles, one slot at a time. The vector kernels are
/// compared with it bit for bit, the register's gates within rounding. `std::fma` is used exactly
/// where the engine's result is defined by a fused operation.
#pragma once

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <utility>

#include "support/complex.h"

namespace Nimbrel::Testing {

/// Controls: a slot qualifies when its bits of `mask` are set, except those in `negation`, which
/// must be clear.
struct Condition {
    unsigned long mask = 0;
    unsigned long negation = 0;

    unsigned long pattern() const { return mask ^ negation; }
    bool holds(unsigned long slot) const { return (slot & mask) == pattern(); }
};

inline unsigned long lowest_bit_of(unsigned long mask) { return mask & (~mask + 1); }

inline bool all_bits_zero(const complex_t& x) {
    return std::bit_cast<std::uint64_t>(x.re) == 0 && std::bit_cast<std::uint64_t>(x.im) == 0;
}

inline bool equal_in_all_bits(const complex_t& x, const complex_t& y) {
    return std::bit_cast<std::uint64_t>(x.re) == std::bit_cast<std::uint64_t>(y.re) &&
           std::bit_cast<std::uint64_t>(x.im) == std::bit_cast<std::uint64_t>(y.im);
}

/// x m: four products, one difference and one sum, each rounded.
inline complex_t scalar_product(const complex_t& x, const complex_t& m) {
    return {x.re * m.re - x.im * m.im, x.re * m.im + x.im * m.re};
}

inline void scalar_not(complex_t& x, complex_t& y) {
    if (!equal_in_all_bits(x, y)) std::swap(x, y);
}

inline void scalar_cnot(complex_t& x, complex_t& y) { std::swap(x, y); }

inline void scalar_hadamard(complex_t& x, complex_t& y) {
    const auto r = std::bit_cast<double>(std::uint64_t{0x3FE6A09E667F3BCC});
    const complex_t sum{x.re + y.re, x.im + y.im};
    const complex_t difference{x.re - y.re, x.im - y.im};
    x = {sum.re * r, sum.im * r};
    y = {difference.re * r, difference.im * r};
}

inline void scalar_complex2x2(complex_t& x, complex_t& y, const complex_t* m) {
    if (all_bits_zero(x) && all_bits_zero(y)) return;
    const auto row = [&](const complex_t& for_x, const complex_t& for_y) -> complex_t {
        const complex_t a = scalar_product(x, for_x);
        const complex_t b = scalar_product(y, for_y);
        return {a.re + b.re, a.im + b.im};
    };
    const complex_t new_x = row(m[0], m[1]);
    const complex_t new_y = row(m[2], m[3]);
    x = new_x;
    y = new_y;
}

inline void scalar_real2x2(complex_t& x, complex_t& y, const double* m) {
    if (all_bits_zero(x) && all_bits_zero(y)) return;
    const complex_t new_x{std::fma(m[0], x.re, m[1] * y.re), std::fma(m[0], x.im, m[1] * y.im)};
    const complex_t new_y{std::fma(x.re, m[2], m[3] * y.re), std::fma(x.im, m[2], m[3] * y.im)};
    x = new_x;
    y = new_y;
}

/// The pairs (j, j + t) of one block of n slots. The condition is tested at the first slot of each
/// run. A pair that would reach past the block is left out.
template <typename Gate>
void scalar_pairs(complex_t* data, unsigned long n, unsigned long t, Condition cond, Gate&& gate) {
    const unsigned long run = cond.mask == 0 ? 1 : std::min(lowest_bit_of(cond.mask), t);
    for (unsigned long base = 0; base < n; base += 2 * t) {
        for (unsigned long a = base; a < base + t && a + t < n; a += run) {
            if (!cond.holds(a)) continue;
            for (unsigned long j = a; j < a + run && j + t < n; ++j) gate(data[j], data[j + t]);
        }
    }
}

/// Slot i of the lower block with slot i of the upper one.
template <typename Gate>
void scalar_pairs(complex_t* lower, complex_t* upper, unsigned long n, Condition cond,
                  Gate&& gate) {
    for (unsigned long i = 0; i < n; ++i) {
        if (cond.holds(i)) gate(lower[i], upper[i]);
    }
}

/// The slots of a diagonal gate. With a single control the walk makes steps of fixed length and
/// tests nothing; a negation outside the mask shifts its start, and it ends with the block.
template <typename Gate>
void scalar_slots(complex_t* data, unsigned long n, Condition cond, Gate&& gate) {
    if (cond.mask == 0) {
        for (unsigned long i = 0; i < n; ++i) gate(data[i]);
        return;
    }
    const unsigned long run = lowest_bit_of(cond.mask);
    const bool single = run == cond.mask;
    for (unsigned long i = cond.pattern(); i < n; i += 2 * run) {
        if (single || cond.holds(i)) {
            for (unsigned long j = i; j - i < run && j < n; ++j) gate(data[j]);
        }
        if (run >= n) break;  // a step beyond the block might wrap
    }
}

inline void scalar_phase(complex_t* data, unsigned long n, Condition cond, double im, double re) {
    scalar_slots(data, n, cond, [&](complex_t& x) { x = scalar_product(x, {re, im}); });
}

inline void scalar_cz(complex_t* data, unsigned long n, Condition cond) {
    scalar_slots(data, n, cond, [](complex_t& x) { x = {-x.re, -x.im}; });
}

}  // namespace Nimbrel::Testing
