/// The order in which kernels visit the slots of a block. For the kernels and their tests only.
///
/// A run is a range of slots that differ only below the lowest bit that the gate fixes, which is
/// its target or a control. The condition holds for all slots of a run or for none. The walks go
/// from run to run in ascending order, and load two amplitudes at a time where a run has two.
///
/// Eight slots, target bit 1 (t = 2), no controls. Pairs (x, y):
///
///     slot   0  1  2  3  4  5  6  7
///            x--|--y        x--|--y        (0,2) (1,3) (4,6) (5,7)
///               x-----y        x-----y
///
/// With a control on bit 0 the walk visits only (1,3) and (5,7), in runs of one slot.
///
/// A pair operation takes x and y in registers and returns whether they have to be stored. Each
/// walk gets a source of its operation and makes it with `source.operation()` in its own frame, so
/// that its constants stay in registers: the stores might alias an operation of the caller. A walk
/// returns whether any pair was stored.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <type_traits>
#include <utility>

#include "dense/blocks/kernels/slot_condition.h"
#include "support/amplitudes.h"
#include "support/bits.h"

namespace Nimbrel {

/// Calls `visit(first)` for each run of slots below `n`, ascending, in which the bits of `fixed`
/// have the values of `pattern`. A run has `lowest_bit(fixed)` slots, or `n` when `fixed` is 0.
/// Requires: `n` a power of two above `fixed`, `pattern` inside `fixed`.
template <typename Visit>
inline void for_each_run(unsigned long n, unsigned long fixed, unsigned long pattern,
                         Visit&& visit) {
    const unsigned long lowest = fixed == 0 ? n : lowest_bit(fixed);
    const unsigned long others = without_lowest_bit(fixed);
    const unsigned long stretch = others == 0 ? n : lowest_bit(others);
    // Below the second lowest fixed bit the runs lie at equal distances. Above it the outer loop
    // counts through the free bits: the set bits of `held` carry the addition over the fixed bits.
    // There is one call of `visit`, so that the compiler inlines it and its captures are registers.
    const unsigned long held = others | (stretch - 1);
    for (unsigned long free_bits = 0; free_bits < n; free_bits = ((free_bits | held) + 1) & ~held) {
        const unsigned long first = free_bits | pattern;
        for (unsigned long i = first; i < first + stretch; i += 2 * lowest) visit(i);
    }
}

// The innermost steps are inlined by attribute: the compiler would leave the larger operations as
// calls, which makes a real matrix 2.5 times slower.

template <typename Amplitudes, typename PairOp>
[[gnu::always_inline]] inline bool apply_to_pair(complex_t* at_x, complex_t* at_y,
                                                 const PairOp& op) {
    Amplitudes x = Amplitudes::load(at_x);
    Amplitudes y = Amplitudes::load(at_y);
    if (!op(x, y)) return false;
    x.store(at_x);
    y.store(at_y);
    return true;
}

/// Two pairs of adjacent slots: the four amplitudes are sorted into one register of x and one of
/// y, and back.
template <typename PairOp>
[[gnu::always_inline]] inline bool apply_to_neighbours(complex_t* first, const PairOp& op) {
    const TwoAmplitudes pair0 = TwoAmplitudes::load(first);
    const TwoAmplitudes pair1 = TwoAmplitudes::load(first + 2);
    TwoAmplitudes x = TwoAmplitudes::join_low(pair0, pair1);
    TwoAmplitudes y = TwoAmplitudes::join_high(pair0, pair1);
    if (!op(x, y)) return false;
    TwoAmplitudes::join_low(x, y).store(first);
    TwoAmplitudes::join_high(x, y).store(first + 2);
    return true;
}

/// `length` pairs, an even number: x from `at_x` on and y from `at_y` on.
template <typename PairOp>
[[gnu::always_inline]] inline bool walk_even_run(complex_t* at_x, complex_t* at_y,
                                                 unsigned long length, const PairOp& op) {
    bool changed = false;
#pragma GCC unroll 4
    for (unsigned long i = 0; i < length; i += 2) {
        changed |= apply_to_pair<TwoAmplitudes>(at_x + i, at_y + i, op);
    }
    return changed;
}

/// The same for a power of two, which may be 1.
template <typename PairOp>
[[gnu::always_inline]] inline bool walk_pair_run(complex_t* at_x, complex_t* at_y,
                                                 unsigned long length, const PairOp& op) {
    if (length == 1) return apply_to_pair<OneAmplitude>(at_x, at_y, op);
    return walk_even_run(at_x, at_y, length, op);
}

/// The pairs at a fixed distance whose x meets a condition, in runs between the bits of `fixed`.
/// When bit 0 is fixed every second slot qualifies, and one loop visits all of them up to the next
/// fixed bit.
template <typename Source>
inline bool walk_fixed(complex_t* at_x, complex_t* at_y, unsigned long n, unsigned long fixed,
                       unsigned long pattern, const Source& source) {
    const unsigned long every_other = fixed & 1;
    const unsigned long rest = fixed & ~1UL;
    const unsigned long length = rest == 0 ? n : lowest_bit(rest);
    const auto op = source.operation();
    bool changed = false;
    for_each_run(n, rest, pattern & ~1UL, [&](unsigned long first) {
        if (every_other == 0) {
            changed |= walk_pair_run(at_x + first, at_y + first, length, op);
            return;
        }
#pragma GCC unroll 2
        for (unsigned long i = first + (pattern & 1); i < first + length; i += 2) {
            changed |= apply_to_pair<OneAmplitude>(at_x + i, at_y + i, op);
        }
    });
    return changed;
}

/// Pairs of adjacent slots, t = 1. Requires: no control on bit 0.
template <typename Source>
bool walk_neighbours(complex_t* data, unsigned long n, SlotCondition controls,
                     const Source& source) {
    const unsigned long length = controls.mask == 0 ? n : lowest_bit(controls.mask);
    const auto op = source.operation();
    bool changed = false;
    for_each_run(n, controls.mask, controls.pattern, [&](unsigned long first) {
        if (length == 2) {
            changed |= apply_to_pair<OneAmplitude>(data + first, data + first + 1, op);
            return;
        }
#pragma GCC unroll 2
        for (unsigned long i = 0; i < length; i += 4) {
            changed |= apply_to_neighbours(data + first + i, op);
        }
    });
    return changed;
}

/// Strides from this one on share the code of their runs: a call is short beside a run, and
/// another copy of the loop for every stride and gate took two thirds of the kernels' compile time.
inline constexpr unsigned long shared_run_stride = 64;

template <typename Source>
[[gnu::noinline]] bool walk_shared_run(complex_t* at_x, complex_t* at_y, unsigned long length,
                                       const Source& source) {
    const auto op = source.operation();
    return walk_even_run(at_x, at_y, length, op);
}

/// All pairs of a target bit above bit 0, without controls. `Stride` is `unsigned long` or a
/// `std::integral_constant` of it.
template <typename Stride, typename Source>
bool walk_all_pairs(complex_t* data, unsigned long n, Stride stride, const Source& source) {
    const unsigned long t = stride;
    bool changed = false;
    if (t >= shared_run_stride) {
        for (unsigned long base = 0; base < n; base += 2 * t) {
            changed |= walk_shared_run(data + base, data + base + t, t, source);
        }
        return changed;
    }
    const auto op = source.operation();
    for (unsigned long base = 0; base < n; base += 2 * t) {
        changed |= walk_even_run(data + base, data + base + t, t, op);
    }
    return changed;
}

/// A stride that is not a power of two. The condition is tested at the first slot of each run; a
/// pair that would reach past the block is left out.
template <typename Source>
bool walk_odd_stride(complex_t* data, unsigned long n, unsigned long t, SlotCondition controls,
                     const Source& source) {
    const unsigned long run = controls.mask == 0 ? 1 : std::min(lowest_bit(controls.mask), t);
    const auto op = source.operation();
    bool changed = false;
    for (unsigned long base = 0; base < n && t < n; base += 2 * t) {
        for (unsigned long first = base; first < base + t; first += run) {
            if (!controls.holds(first)) continue;
            for (unsigned long i = first; i < first + run && i + t < n; ++i) {
                changed |= apply_to_pair<OneAmplitude>(data + i, data + i + t, op);
            }
        }
    }
    return changed;
}

/// The pairs of a target bit under controls. Requires: no control on the target.
template <typename Source>
bool walk_some_pairs(complex_t* data, unsigned long n, unsigned long t, SlotCondition controls,
                     const Source& source) {
    if (t == 1) return walk_neighbours(data, n, controls, source);
    return walk_fixed(data, data + t, n, controls.mask | t, controls.pattern, source);
}

/// Slot i of `lower` with slot i of `upper`.
template <typename Source>
bool walk_two_blocks(complex_t* lower, complex_t* upper, unsigned long n, SlotCondition controls,
                     const Source& source) {
    if (!controls.can_hold(n)) return false;
    return walk_fixed(lower, upper, n, controls.mask & (n - 1), controls.pattern, source);
}

/// Number of single-bit strides that are constants of compiled code, from 2^0 up.
inline constexpr std::size_t constant_strides = 31;

template <typename Body, unsigned long Stride>
auto constant_arm(Body& body) {
    return body(std::integral_constant<unsigned long, Stride>{});
}

template <typename Body, std::size_t... Bits>
constexpr auto make_arms(std::index_sequence<Bits...> /*bits*/) {
    return std::array{&constant_arm<Body, 1UL << Bits>...};
}

/// Returns `body(stride)` with the stride as a compile-time constant, so that addresses fold and
/// loops unroll, or as a run-time value from 2^31 up. Requires: a power of two.
template <typename Body>
auto with_constant_stride(unsigned long stride, Body&& body) {
    using Arms = std::remove_reference_t<Body>;
    static constexpr auto arms = make_arms<Arms>(std::make_index_sequence<constant_strides>{});
    const auto bit = static_cast<std::size_t>(std::countr_zero(stride));
    if (bit < constant_strides) return arms[bit](body);
    return body(stride);
}

/// The pairs of a target inside the block: x has the target bit clear and y has it set. Without
/// controls the stride is a compile-time constant. With controls it is not, because the lengths of
/// the runs decide the speed.
template <typename Source>
[[gnu::always_inline]] inline bool walk_target(complex_t* data, unsigned long n, unsigned long t,
                                               SlotCondition controls, const Source& source) {
    if (!std::has_single_bit(t)) return walk_odd_stride(data, n, t, controls, source);
    // A control on the target itself is tested on x, where the target bit is 0.
    if (!controls.can_hold(n) || (controls.pattern & t) != 0 || t >= n) return false;
    controls.mask &= ~t & (n - 1);
    if (controls.mask != 0) return walk_some_pairs(data, n, t, controls, source);
    if (t == 1) return walk_neighbours(data, n, controls, source);
    return with_constant_stride(
        t, [=, &source](auto stride) { return walk_all_pairs(data, n, stride, source); });
}

}  // namespace Nimbrel
