/// The order in which kernels visit the slots of a block.
///
/// A gate's slots come in runs: slots that differ only below the lowest bit that the gate fixes
/// (its target and its conditions) have the same fate. The walks go from run to run without testing
/// slot by slot, in ascending order, and take two amplitudes at a time wherever a run has two.
///
/// Eight slots, target bit 1 (t = 2), no condition. Pairs (x, y):
///
///     slot   0  1  2  3  4  5  6  7
///            x--|--y        x--|--y        (0,2) (1,3) (4,6) (5,7)
///               x-----y        x-----y
///
/// The same with a condition on bit 0: only (1,3) and (5,7) take part, in runs of one.
#pragma once

#include <algorithm>
#include <array>
#include <type_traits>
#include <utility>

#include "support/amplitudes.h"
#include "support/bits.h"

namespace Nimbrel {

/// A quantum condition on slots: slot & mask == pattern.
struct SlotCondition {
    unsigned long mask;
    unsigned long pattern;

    SlotCondition(unsigned long cond_mask, unsigned long cond_neg_mask)
        : mask(cond_mask), pattern(cond_mask ^ cond_neg_mask) {}

    bool holds(unsigned long slot) const { return (slot & mask) == pattern; }

    /// Whether any slot below `n` can have the pattern: not with a negation outside the mask, nor
    /// with a control that no slot has.
    bool can_hold(unsigned long n) const { return (pattern & ~(mask & (n - 1))) == 0; }
};

/// Calls `visit(first)` for each run of slots below `n`, ascending, in which the bits of `fixed`
/// have the values of `pattern`. A run has `lowest_bit(fixed)` slots, all `n` without fixed bits.
/// Requires: `n` a power of two above `fixed`, `pattern` inside `fixed`.
template <typename Visit>
inline void for_each_run(unsigned long n, unsigned long fixed, unsigned long pattern,
                         Visit&& visit) {
    if (fixed == 0) return visit(0UL);
    const unsigned long lowest = lowest_bit(fixed);
    const unsigned long others = fixed ^ lowest;
    const unsigned long stretch = others == 0 ? n : lowest_bit(others);
    // Between the second lowest fixed bit and the lowest the runs lie at equal distances. Above,
    // counting with the held bits set carries over them, so only the free bits count.
    const unsigned long held = others | (stretch - 1);
    for (unsigned long free_bits = 0; free_bits < n; free_bits = ((free_bits | held) + 1) & ~held) {
        const unsigned long first = free_bits | pattern;
        for (unsigned long i = first; i < first + stretch; i += 2 * lowest) visit(i);
    }
}

// The walks below stand or fall with their innermost steps being inlined, which the compiler does
// not always choose for the larger operations.

template <typename Amplitudes, typename PairOp>
[[gnu::always_inline]] inline void apply_to_pair(complex_t* at_x, complex_t* at_y, PairOp& op) {
    Amplitudes x = Amplitudes::load(at_x);
    Amplitudes y = Amplitudes::load(at_y);
    if (!op(x, y)) return;
    x.store(at_x);
    y.store(at_y);
}

/// Two pairs of direct neighbours, four slots: sorted into a register of x and one of y and back.
template <typename PairOp>
[[gnu::always_inline]] inline void apply_to_neighbours(complex_t* first, PairOp& op) {
    const __m256d pair0 = TwoAmplitudes::load(first).lanes;
    const __m256d pair1 = TwoAmplitudes::load(first + 2).lanes;
    TwoAmplitudes x{_mm256_permute2f128_pd(pair0, pair1, 0x20)};
    TwoAmplitudes y{_mm256_permute2f128_pd(pair0, pair1, 0x31)};
    if (!op(x, y)) return;
    TwoAmplitudes{_mm256_permute2f128_pd(x.lanes, y.lanes, 0x20)}.store(first);
    TwoAmplitudes{_mm256_permute2f128_pd(x.lanes, y.lanes, 0x31)}.store(first + 2);
}

/// `length` pairs, x from `at_x` on and y from `at_y` on.
template <typename PairOp>
[[gnu::always_inline]] inline void walk_pair_run(complex_t* at_x, complex_t* at_y,
                                                 unsigned long length, PairOp& op) {
    if (length == 1) return apply_to_pair<OneAmplitude>(at_x, at_y, op);
#pragma GCC unroll 4
    for (unsigned long i = 0; i < length; i += 2) {
        apply_to_pair<TwoAmplitudes>(at_x + i, at_y + i, op);
    }
}

/// The pairs at `distance` from each other whose x meets `cond`, in runs between the bits of
/// `fixed`. With bit 0 fixed every other slot takes part, and one walk goes over all of them up to
/// the next fixed bit.
template <typename PairOp>
inline void walk_fixed(complex_t* at_x, complex_t* at_y, unsigned long n, unsigned long fixed,
                       unsigned long pattern, PairOp& op) {
    const unsigned long every_other = fixed & 1;
    const unsigned long rest = fixed & ~1UL;
    const unsigned long length = rest == 0 ? n : lowest_bit(rest);
    for_each_run(n, rest, pattern & ~1UL, [&](unsigned long first) {
        if (every_other == 0) return walk_pair_run(at_x + first, at_y + first, length, op);
#pragma GCC unroll 2
        for (unsigned long i = first + (pattern & 1); i < first + length; i += 2) {
            apply_to_pair<OneAmplitude>(at_x + i, at_y + i, op);
        }
    });
}

/// Pairs of direct neighbours, t = 1. `cond` has bit 0 clear.
template <typename PairOp>
void walk_neighbours(complex_t* data, unsigned long n, SlotCondition cond, PairOp& op) {
    const unsigned long length = cond.mask == 0 ? n : lowest_bit(cond.mask);
    for_each_run(n, cond.mask, cond.pattern, [&](unsigned long first) {
        if (length == 2) return apply_to_pair<OneAmplitude>(data + first, data + first + 1, op);
#pragma GCC unroll 2
        for (unsigned long i = 0; i < length; i += 4) apply_to_neighbours(data + first + i, op);
    });
}

/// All pairs of a target bit without a condition. `Stride` is `unsigned long` or a constant of it.
template <typename Stride, typename PairOp>
void walk_all_pairs(complex_t* data, unsigned long n, Stride stride, PairOp& op) {
    const unsigned long t = stride;
    for (unsigned long base = 0; base < n; base += 2 * t) {
#pragma GCC unroll 4
        for (unsigned long i = base; i < base + t; i += 2) {
            apply_to_pair<TwoAmplitudes>(data + i, data + i + t, op);
        }
    }
}

/// A stride that is no single bit, walked as the loops of a stride stand: the condition is tested
/// at the first slot of each run, and a pair that would leave the block is left out.
template <typename PairOp>
void walk_odd_stride(complex_t* data, unsigned long n, unsigned long t, SlotCondition cond,
                     PairOp& op) {
    const unsigned long run = cond.mask == 0 ? 1 : std::min(lowest_bit(cond.mask), t);
    for (unsigned long base = 0; base < n && t < n; base += 2 * t) {
        for (unsigned long first = base; first < base + t; first += run) {
            if (!cond.holds(first)) continue;
            for (unsigned long i = first; i < first + run && i + t < n; ++i) {
                apply_to_pair<OneAmplitude>(data + i, data + i + t, op);
            }
        }
    }
}

/// The pairs of a target bit under a condition, which is tested on x.
template <typename PairOp>
void walk_some_pairs(complex_t* data, unsigned long n, unsigned long t, SlotCondition cond,
                     PairOp& op) {
    if (t == 1 && (cond.mask & 1) == 0) return walk_neighbours(data, n, cond, op);
    walk_fixed(data, data + t, n, cond.mask | t, cond.pattern, op);
}

/// The pairs of two blocks, slot by slot.
template <typename PairOp>
void walk_two_blocks(complex_t* lower, complex_t* upper, unsigned long n, SlotCondition cond,
                     PairOp& op) {
    if (!cond.can_hold(n)) return;
    PairOp in_registers = op;
    walk_fixed(lower, upper, n, cond.mask & (n - 1), cond.pattern, in_registers);
    op = in_registers;
}

/// Arms of compiled code with a constant stride: one for each single bit below this one.
inline constexpr std::size_t constant_strides = 31;

template <typename Body, unsigned long Stride>
void constant_arm(Body& body) {
    body(std::integral_constant<unsigned long, Stride>{});
}

template <typename Body, std::size_t... Bits>
constexpr auto make_arms(std::index_sequence<Bits...> /*bits*/) {
    return std::array{&constant_arm<Body, 1UL << Bits>...};
}

/// Calls `body(stride)` with the stride as a constant of the compiled code, so that the addresses
/// fold and the loops unroll, or as a run-time value from 2^31 up. Requires: a single bit.
template <typename Body>
void with_constant_stride(unsigned long stride, Body&& body) {
    using Arms = std::remove_reference_t<Body>;
    static constexpr auto arms = make_arms<Arms>(std::make_index_sequence<constant_strides>{});
    const auto bit = static_cast<std::size_t>(std::countr_zero(stride));
    if (bit < constant_strides) return arms[bit](body);
    body(stride);
}

/// The pairs of a target inside the block, x with its bit clear and y with it set. Without a
/// condition, the gates that programs are made of, the stride is a constant; with one the runs
/// between the fixed bits are what matters.
template <typename PairOp>
void walk_target(complex_t* data, unsigned long n, unsigned long t, SlotCondition cond,
                 PairOp& op) {
    if (!std::has_single_bit(t)) return walk_odd_stride(data, n, t, cond, op);
    // A control on the target itself asks for its value in x, which is 0.
    if (!cond.can_hold(n) || (cond.pattern & t) != 0 || t >= n) return;
    cond.mask &= ~t & (n - 1);
    PairOp in_registers = op;  // a copy that no pointer knows
    if (cond.mask != 0) {
        walk_some_pairs(data, n, t, cond, in_registers);
    } else if (t == 1) {
        walk_neighbours(data, n, cond, in_registers);
    } else {
        with_constant_stride(t, [&](auto stride) {
            PairOp in_arm = in_registers;
            walk_all_pairs(data, n, stride, in_arm);
            in_registers = in_arm;
        });
    }
    op = in_registers;
}

}  // namespace Nimbrel
