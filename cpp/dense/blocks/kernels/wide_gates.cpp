// Compiled for AVX-512. Each sum and product is rounded by itself, as in the other kernels. A
// subtraction of a product is an addition of the product with the negated factor, which has the
// same bits.
#include "dense/blocks/kernels/wide_gates.h"

#include <immintrin.h>

namespace Nimbrel {
namespace {

using Lanes = __m512d;
using Mask = __mmask8;

constexpr unsigned long count = 4;  // amplitudes in a register
constexpr Mask all_lanes = 0xFF;

#define NIMBREL_INLINE [[gnu::always_inline]] inline

NIMBREL_INLINE Lanes load(const complex_t* from) { return _mm512_loadu_pd(&from->re); }
NIMBREL_INLINE void store(complex_t* to, Lanes lanes) { _mm512_storeu_pd(&to->re, lanes); }
NIMBREL_INLINE Lanes swapped(Lanes lanes) { return _mm512_permute_pd(lanes, 0x55); }
NIMBREL_INLINE Lanes all(double number) { return _mm512_set1_pd(number); }
NIMBREL_INLINE Lanes alternating(double lane0, double lane1) {
    return _mm512_setr_pd(lane0, lane1, lane0, lane1, lane0, lane1, lane0, lane1);
}
NIMBREL_INLINE Lanes sum(Lanes a, Lanes b) { return _mm512_add_pd(a, b); }
NIMBREL_INLINE Lanes product(Lanes a, Lanes b) { return _mm512_mul_pd(a, b); }

/// The lanes of amplitudes that have a bit set in either register.
NIMBREL_INLINE Mask nonzero_amplitudes(Lanes x, Lanes y) {
    const __m512i bits = _mm512_castpd_si512(_mm512_or_pd(x, y));
    const unsigned nonzero = _mm512_test_epi64_mask(bits, bits);
    if (nonzero == all_lanes) [[likely]]
        return all_lanes;
    return static_cast<Mask>(nonzero | (nonzero >> 1 & 0x55U) | (nonzero << 1 & 0xAAU));
}

/// The lanes that are a zero, an infinity or not a number.
NIMBREL_INLINE Mask special_lanes(Lanes lanes) {
    constexpr int quiet_nan = 0x01, zero = 0x02, minus_zero = 0x04, infinity = 0x08,
                  minus_infinity = 0x10, signaling_nan = 0x80;
    return _mm512_fpclass_pd_mask(
        lanes, quiet_nan | zero | minus_zero | infinity | minus_infinity | signaling_nan);
}

struct ComplexFactor {
    Lanes re;
    Lanes im;  // negated in the lanes of real parts

    NIMBREL_INLINE explicit ComplexFactor(complex_t m)
        : re(all(m.re)), im(alternating(-m.im, m.im)) {}
    NIMBREL_INLINE Lanes times(Lanes x) const {
        return sum(product(x, re), product(swapped(x), im));
    }
};

/// The lanes of amplitudes that have no bit set in either register.
NIMBREL_INLINE Mask zero_amplitudes(Lanes x, Lanes y) {
    const Lanes bits = _mm512_or_pd(x, y);
    const __m512i of_amplitude = _mm512_castpd_si512(_mm512_or_pd(bits, swapped(bits)));
    return _mm512_testn_epi64_mask(of_amplitude, of_amplitude);
}

// The pair operations: `apply` replaces x and y. With `keeps_zeros`, a pair that is zero in all
// bits has to stay as it is. `attempt` computes x and y as if there were none, and returns lanes in
// which that may be wrong.

struct Exchange {
    static constexpr bool keeps_zeros = false;
    NIMBREL_INLINE void apply(Lanes& x, Lanes& y) const {
        const Lanes old_x = x;
        x = y;
        y = old_x;
    }
    NIMBREL_INLINE Mask attempt(Lanes& x, Lanes& y) const {
        apply(x, y);
        return 0;
    }
};

struct ComplexMatrix {
    static constexpr bool keeps_zeros = true;
    ComplexFactor m00, m01, m10, m11;
    NIMBREL_INLINE explicit ComplexMatrix(const complex_t* m)
        : m00(m[0]), m01(m[1]), m10(m[2]), m11(m[3]) {}
    NIMBREL_INLINE void apply(Lanes& x, Lanes& y) const {
        const Lanes old_x = x;
        x = sum(m00.times(old_x), m01.times(y));
        y = sum(m10.times(old_x), m11.times(y));
    }
    NIMBREL_INLINE Mask attempt(Lanes& x, Lanes& y) const {
        const Mask zero = zero_amplitudes(x, y);
        apply(x, y);
        return zero;
    }
};

struct RealMatrix {
    static constexpr bool keeps_zeros = true;
    Lanes m00, m01, m10, m11;
    NIMBREL_INLINE explicit RealMatrix(const complex_t* m)
        : m00(all(m[0].re)), m01(all(m[1].re)), m10(all(m[2].re)), m11(all(m[3].re)) {}
    NIMBREL_INLINE void apply(Lanes& x, Lanes& y) const {
        const Lanes old_x = x;
        x = _mm512_fmadd_pd(m00, old_x, product(m01, y));
        y = _mm512_fmadd_pd(old_x, m10, product(m11, y));
    }
    NIMBREL_INLINE Mask attempt(Lanes& x, Lanes& y) const {
        const Mask zero = zero_amplitudes(x, y);
        apply(x, y);
        return zero;
    }
};

/// One row of a matrix. Rare and out of line, so that its constants take no registers elsewhere.
[[gnu::noinline, gnu::cold]] Lanes row_in_full(const complex_t* row, Lanes x, Lanes y) {
    return sum(ComplexFactor(row[0]).times(x), ComplexFactor(row[1]).times(y));
}

/// A matrix with zeros in it, without the products by these zeros. Such a product adds a zero,
/// which matters where the sum is a zero, and it is not a number for an infinity.
template <typename Shape>
struct ShortMatrix {
    static constexpr bool keeps_zeros = true;
    Shape shape;
    const complex_t* entries;
    NIMBREL_INLINE explicit ShortMatrix(const complex_t* m) : shape(m), entries(m) {}
    NIMBREL_INLINE Mask attempt(Lanes& x, Lanes& y) const {
        const Lanes old_x = x;
        x = shape.row_x(old_x, y);
        y = shape.row_y(old_x, y);
        // One test for both: a special lane in either shows in the product. A pair of zeros gives
        // zeros.
        return special_lanes(product(x, y));
    }
    NIMBREL_INLINE void apply(Lanes& x, Lanes& y) const {
        const Lanes old_x = x;
        const Lanes old_y = y;
        if (attempt(x, y) == 0) [[likely]]
            return;
        x = row_in_full(entries, old_x, old_y);
        y = row_in_full(entries + 2, old_x, old_y);
    }
};

struct Diagonal {
    ComplexFactor m00, m11;
    NIMBREL_INLINE explicit Diagonal(const complex_t* m) : m00(m[0]), m11(m[3]) {}
    NIMBREL_INLINE Lanes row_x(Lanes x, Lanes /*y*/) const { return m00.times(x); }
    NIMBREL_INLINE Lanes row_y(Lanes /*x*/, Lanes y) const { return m11.times(y); }
};

struct Crossed {
    Lanes m00, m11, m01, m10;
    NIMBREL_INLINE explicit Crossed(const complex_t* m)
        : m00(all(m[0].re)),
          m11(all(m[3].re)),
          m01(alternating(-m[1].im, m[1].im)),
          m10(alternating(-m[2].im, m[2].im)) {}
    NIMBREL_INLINE Lanes row_x(Lanes x, Lanes y) const {
        return sum(product(x, m00), product(swapped(y), m01));
    }
    NIMBREL_INLINE Lanes row_y(Lanes x, Lanes y) const {
        return sum(product(swapped(x), m10), product(y, m11));
    }
};

/// One register of x and one of y, of which the lanes of `chosen` qualify. Returns whether any pair
/// may have changed.
template <typename Op>
NIMBREL_INLINE bool apply_op(const Op& op, Lanes& x, Lanes& y, Mask chosen) {
    const Lanes old_x = x;
    const Lanes old_y = y;
    if constexpr (Op::keeps_zeros) {
        chosen = static_cast<Mask>(chosen & nonzero_amplitudes(x, y));
    }
    op.apply(x, y);
    if (chosen != all_lanes) [[unlikely]] {
        x = _mm512_mask_blend_pd(chosen, old_x, x);
        y = _mm512_mask_blend_pd(chosen, old_y, y);
    }
    return chosen != 0;
}

/// The lanes of the amplitudes whose slot qualifies under the low bits of a condition.
/// `slots` are the slots of a register's four amplitudes, modulo 8.
struct RegisterSlots {
    unsigned char slots[count];
};

Mask qualifying_lanes(RegisterSlots at, unsigned long mask, unsigned long pattern) {
    unsigned lanes = 0;
    for (unsigned i = 0; i < count; ++i) {
        if ((at.slots[i] & mask) == pattern) lanes |= 3U << 2 * i;
    }
    return static_cast<Mask>(lanes);
}

unsigned long lowest_of(unsigned long mask) { return mask & (0UL - mask); }

/// Calls `visit(first, end)` for each run of slots between the bits of `fixed`, whose bits have the
/// values of `pattern`.
template <typename Visit>
NIMBREL_INLINE void for_each_run(unsigned long n, unsigned long fixed, unsigned long pattern,
                                 Visit&& visit) {
    const unsigned long length = fixed == 0 ? n : lowest_of(fixed);
    const unsigned long held = fixed | (length - 1);
    for (unsigned long free = 0; free < n; free = ((free | held) + 1) & ~held) {
        visit(free | pattern, length);
    }
}

// Where a step of a walk finds its two registers. A place loads step k from itself and stores it.

/// Registers of four adjacent slots each, with steps at three given distances from the first.
template <unsigned long... Distances>
struct FarPlace {
    complex_t* at_x;
    complex_t* at_y;

    static constexpr unsigned long distances[] = {0, Distances...};

    NIMBREL_INLINE void load_step(unsigned long k, Lanes& x, Lanes& y) const {
        x = load(at_x + distances[k]);
        y = load(at_y + distances[k]);
    }
    NIMBREL_INLINE void store_step(unsigned long k, Lanes x, Lanes y) const {
        store(at_x + distances[k], x);
        store(at_y + distances[k], y);
    }
};

/// Two registers of adjacent slots, sorted into x and y for a target of 1 or 2.
template <unsigned long Target>
struct NearPlace {
    complex_t* data;

    static constexpr int to_x = Target == 1 ? 0x88 : 0x44;
    static constexpr int to_y = Target == 1 ? 0xDD : 0xEE;

    NIMBREL_INLINE void load_step(unsigned long k, Lanes& x, Lanes& y) const {
        const Lanes a = load(data + 2 * count * k);
        const Lanes b = load(data + 2 * count * k + count);
        x = _mm512_shuffle_f64x2(a, b, to_x);
        y = _mm512_shuffle_f64x2(a, b, to_y);
    }
    NIMBREL_INLINE void store_step(unsigned long k, Lanes x, Lanes y) const {
        Lanes a = _mm512_shuffle_f64x2(x, y, to_x);
        Lanes b = _mm512_shuffle_f64x2(x, y, to_y);
        if constexpr (Target == 1) {
            a = _mm512_permutex2var_pd(x, _mm512_setr_epi64(0, 1, 8, 9, 2, 3, 10, 11), y);
            b = _mm512_permutex2var_pd(x, _mm512_setr_epi64(4, 5, 12, 13, 6, 7, 14, 15), y);
        }
        store(data + 2 * count * k, a);
        store(data + 2 * count * k + count, b);
    }
};

template <typename Op, typename Place>
NIMBREL_INLINE bool step(const Op& op, const Place& place, unsigned long k, Mask chosen) {
    Lanes x;
    Lanes y;
    place.load_step(k, x, y);
    const bool changed = apply_op(op, x, y, chosen);
    place.store_step(k, x, y);
    return changed;
}

/// Four steps with one test for all, since a test and a branch at each took a third of the time.
/// Nothing is stored before the test, so that the steps can be done with care instead.
template <typename Op, typename Place>
NIMBREL_INLINE bool four_steps(const Op& op, const Place& place) {
    Lanes x0, x1, x2, x3, y0, y1, y2, y3;
    place.load_step(0, x0, y0);
    place.load_step(1, x1, y1);
    place.load_step(2, x2, y2);
    place.load_step(3, x3, y3);
    const unsigned in_doubt =
        op.attempt(x0, y0) | op.attempt(x1, y1) | op.attempt(x2, y2) | op.attempt(x3, y3);
    if (in_doubt != 0) [[unlikely]] {
        bool changed = false;
        for (unsigned long k = 0; k < 4; ++k) changed |= step(op, place, k, all_lanes);
        return changed;
    }
    place.store_step(0, x0, y0);
    place.store_step(1, x1, y1);
    place.store_step(2, x2, y2);
    place.store_step(3, x3, y3);
    return true;
}

/// Slots that four steps of a walk without controls cover.
constexpr unsigned long four_steps_slots = 8 * count;

/// All pairs of a target below 16, four steps at a time.
template <typename MakePlace, typename Op>
NIMBREL_INLINE bool walk_all(const WidePairs& p, const Op& op, MakePlace&& place_at) {
    bool changed = false;
    for (unsigned long i = 0; i < p.n; i += four_steps_slots) {
        changed |= four_steps(op, place_at(p.lower + i));
    }
    return changed;
}

/// Targets of 4 and more, and pairs of blocks.
template <typename Op>
NIMBREL_INLINE bool walk_far(const WidePairs& p, const Op& op) {
    const unsigned long low = p.mask & (count - 1);
    const Mask chosen = qualifying_lanes({{0, 1, 2, 3}}, low, p.pattern & low);
    complex_t* const at_x = p.lower;
    complex_t* const at_y = p.target != 0 ? p.lower + p.target : p.upper;
    const unsigned long n = p.n;
    const unsigned long fixed = (p.mask & ~low) | p.target;
    const unsigned long pattern = p.pattern & ~low;
    bool changed = false;
    constexpr unsigned long four = 4 * count;
    if (chosen == all_lanes && n >= four && (fixed & (four - 1)) == 0) {
        for_each_run(n, fixed, pattern, [&](unsigned long first, unsigned long length) {
            for (unsigned long i = first; i < first + length; i += four) {
                changed |= four_steps(op, FarPlace<4, 8, 12>{at_x + i, at_y + i});
            }
        });
        return changed;
    }
    for_each_run(n, fixed, pattern, [&](unsigned long first, unsigned long length) {
        for (unsigned long i = first; i < first + length; i += count) {
            changed |= step(op, FarPlace<>{at_x + i, at_y + i}, 0, chosen);
        }
    });
    return changed;
}

/// Targets of 1 and 2.
template <unsigned long Target, typename Op>
NIMBREL_INLINE bool walk_near(const WidePairs& p, const Op& op) {
    constexpr unsigned long group = 2 * count;
    constexpr RegisterSlots x_slots =
        Target == 1 ? RegisterSlots{{0, 2, 4, 6}} : RegisterSlots{{0, 1, 4, 5}};
    const unsigned long low = p.mask & (group - 1);
    const Mask chosen = qualifying_lanes(x_slots, low, p.pattern & low);
    bool changed = false;
    for_each_run(p.n, p.mask & ~low, p.pattern & ~low,
                 [&](unsigned long first, unsigned long length) {
                     for (unsigned long i = first; i < first + length; i += group) {
                         changed |= step(op, NearPlace<Target>{p.lower + i}, 0, chosen);
                     }
                 });
    return changed;
}

template <typename Op>
NIMBREL_INLINE bool walk(const WidePairs& pairs, const Op& op) {
    if (pairs.mask == 0 && pairs.n >= four_steps_slots) {
        switch (pairs.target) {
            case 1:
                return walk_all(pairs, op, [](complex_t* at) { return NearPlace<1>{at}; });
            case 2:
                return walk_all(pairs, op, [](complex_t* at) { return NearPlace<2>{at}; });
            case 4:
                return walk_all(pairs, op,
                                [](complex_t* at) { return FarPlace<8, 16, 24>{at, at + 4}; });
            case 8:
                return walk_all(pairs, op,
                                [](complex_t* at) { return FarPlace<4, 16, 20>{at, at + 8}; });
            default:
                break;
        }
    }
    if (pairs.target == 1) return walk_near<1>(pairs, op);
    if (pairs.target == 2) return walk_near<2>(pairs, op);
    return walk_far(pairs, op);
}

template <typename SlotOp>
NIMBREL_INLINE void walk_slots(const WidePairs& p, const SlotOp& op) {
    const unsigned long low = p.mask & (count - 1);
    const Mask chosen = qualifying_lanes({{0, 1, 2, 3}}, low, p.pattern & low);
    complex_t* const data = p.lower;
    for_each_run(p.n, p.mask & ~low, p.pattern & ~low,
                 [&](unsigned long first, unsigned long length) {
                     for (unsigned long i = first; i < first + length; i += count) {
                         const Lanes x = load(data + i);
                         store(data + i, _mm512_mask_blend_pd(chosen, x, op(x)));
                     }
                 });
}

struct PauliPhase {
    Lanes straight;
    Lanes crossed;

    NIMBREL_INLINE Lanes times(Lanes v) const {
        return _mm512_fmadd_pd(v, straight, product(swapped(v), crossed));
    }
};

PauliPhase power_of_minus_i(unsigned exponent) {
    switch (exponent % 4) {
        case 0:
            return {alternating(1, 1), alternating(0, 0)};
        case 1:
            return {alternating(0, 0), alternating(1, -1)};
        case 2:
            return {alternating(-1, -1), alternating(0, 0)};
        default:
            return {alternating(0, 0), alternating(-1, 1)};
    }
}

bool odd_parity(unsigned long bits) { return (__builtin_popcountl(bits) & 1) != 0; }

/// Negative zeros in the lanes of the slots of a register that are odd under a mask of its slots.
Lanes lane_signs(unsigned long z_mask) {
    alignas(64) double signs[2 * count];
    for (unsigned i = 0; i < count; ++i) {
        signs[2 * i] = signs[2 * i + 1] = odd_parity(i & z_mask) ? -0.0 : 0.0;
    }
    return _mm512_load_pd(signs);
}

/// Amplitude i of the result is amplitude i ^ flip.
template <unsigned Flip>
NIMBREL_INLINE Lanes exchanged(Lanes lanes) {
    if constexpr (Flip == 1) return _mm512_shuffle_f64x2(lanes, lanes, 0xB1);
    if constexpr (Flip == 2) return _mm512_shuffle_f64x2(lanes, lanes, 0x4E);
    if constexpr (Flip == 3) return _mm512_shuffle_f64x2(lanes, lanes, 0x1B);
    return lanes;
}

struct Rotation {
    PauliPhase phase;
    Lanes sine;
    Lanes cosine;
    Lanes signs[2];  // for registers of even and of odd parity
    unsigned long z_mask;

    /// New amplitudes of the register at `slot`; `other` are those that P takes there.
    NIMBREL_INLINE Lanes turned(Lanes own, Lanes other, unsigned long slot, bool odd) const {
        const Lanes sign = signs[odd_parity(slot & z_mask) != odd ? 1 : 0];
        const Lanes part = _mm512_xor_pd(product(other, sine), sign);
        return sum(phase.times(part), product(own, cosine));
    }
};

template <unsigned Flip>
void rotate(const WideProduct& p, const Rotation& rotation, Mask chosen) {
    const unsigned long low = p.mask & (count - 1);
    const unsigned long far = p.x_mask & ~(count - 1);
    complex_t* const here = p.here;
    complex_t* const there = p.there != nullptr ? p.there : p.here;
    const bool alone = p.there == nullptr && far == 0;
    // Inside a block each pair of registers is visited from the one with the lowest flipped bit 0.
    const unsigned long selector = p.there == nullptr ? lowest_of(far) : 0;
    for_each_run(p.n, (p.mask & ~low) | selector, p.pattern & ~low,
                 [&](unsigned long first, unsigned long length) {
                     for (unsigned long i = first; i < first + length; i += count) {
                         const unsigned long j = i ^ far;
                         const Lanes u = load(here + i);
                         const Lanes w = alone ? u : load(there + j);
                         const Lanes new_u = rotation.turned(u, exchanged<Flip>(w), i, p.odd_here);
                         store(here + i, _mm512_mask_blend_pd(chosen, u, new_u));
                         if (alone) continue;
                         const Lanes new_w = rotation.turned(w, exchanged<Flip>(u), j, p.odd_there);
                         store(there + j, _mm512_mask_blend_pd(chosen, w, new_w));
                     }
                 });
}

}  // namespace

void exchange_wide(const WidePairs& pairs) { walk(pairs, Exchange{}); }

bool apply_complex_wide(const WidePairs& pairs, const complex_t* matrix) {
    return walk(pairs, ComplexMatrix(matrix));
}

bool apply_diagonal_wide(const WidePairs& pairs, const complex_t* matrix) {
    return walk(pairs, ShortMatrix<Diagonal>(matrix));
}

bool apply_crossed_wide(const WidePairs& pairs, const complex_t* matrix) {
    return walk(pairs, ShortMatrix<Crossed>(matrix));
}

bool apply_real_wide(const WidePairs& pairs, const complex_t* matrix) {
    return walk(pairs, RealMatrix(matrix));
}

void multiply_wide(const WidePairs& slots, complex_t factor) {
    const ComplexFactor m(factor);
    walk_slots(slots, [m](Lanes x) { return m.times(x); });
}

void flip_signs_wide(const WidePairs& slots) {
    const Lanes signs = all(-0.0);
    walk_slots(slots, [signs](Lanes x) { return _mm512_xor_pd(x, signs); });
}

void rotate_product_wide(const WideProduct& p) {
    const unsigned long low = p.mask & (count - 1);
    const Mask chosen = qualifying_lanes({{0, 1, 2, 3}}, low, p.pattern & low);
    const Lanes even = lane_signs(p.z_mask & (count - 1));
    const Rotation rotation{.phase = power_of_minus_i(p.phase),
                            .sine = all(p.sine),
                            .cosine = all(p.cosine),
                            .signs = {even, _mm512_xor_pd(even, all(-0.0))},
                            .z_mask = p.z_mask};
    switch (p.x_mask & (count - 1)) {
        case 0:
            return rotate<0>(p, rotation, chosen);
        case 1:
            return rotate<1>(p, rotation, chosen);
        case 2:
            return rotate<2>(p, rotation, chosen);
        default:
            return rotate<3>(p, rotation, chosen);
    }
}

}  // namespace Nimbrel
