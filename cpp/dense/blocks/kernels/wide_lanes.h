/// The 512-bit vector layer: four amplitudes in a register. For the sources that are compiled for
/// AVX-512 only, any thread.
///
/// All of it has internal linkage. The linker keeps one copy of an inline function that several
/// sources define, and a copy from these sources would need AVX-512 wherever it is called.
///
/// Each sum and product is rounded by itself, as in the narrow layer. A subtraction of a product is
/// an addition of the product with the negated factor, which has the same bits.
#pragma once

#include <immintrin.h>

#include "support/complex.h"

#define NIMBREL_INLINE [[gnu::always_inline]] inline

namespace Nimbrel {
namespace {  // NOLINT: internal linkage is the point, see above

using Lanes = __m512d;
using Mask = __mmask8;

constexpr unsigned long count = 4;  // amplitudes in a register
constexpr Mask all_lanes = 0xFF;

NIMBREL_INLINE Lanes load(const complex_t* from) { return _mm512_loadu_pd(&from->re); }
NIMBREL_INLINE void store(complex_t* to, Lanes lanes) { _mm512_storeu_pd(&to->re, lanes); }
NIMBREL_INLINE Lanes swapped(Lanes lanes) { return _mm512_permute_pd(lanes, 0x55); }
NIMBREL_INLINE Lanes all(double number) { return _mm512_set1_pd(number); }
NIMBREL_INLINE Lanes alternating(double lane0, double lane1) {
    return _mm512_setr_pd(lane0, lane1, lane0, lane1, lane0, lane1, lane0, lane1);
}
/// The two numbers of an aligned pair, in every amplitude's two lanes.
NIMBREL_INLINE Lanes load_repeated(const double* pair) {
    return _mm512_broadcast_f64x2(_mm_load_pd(pair));
}
NIMBREL_INLINE Lanes sum(Lanes a, Lanes b) { return _mm512_add_pd(a, b); }
NIMBREL_INLINE Lanes difference(Lanes a, Lanes b) { return _mm512_sub_pd(a, b); }
NIMBREL_INLINE Lanes product(Lanes a, Lanes b) { return _mm512_mul_pd(a, b); }
/// a * b + c with one rounding.
NIMBREL_INLINE Lanes fused(Lanes a, Lanes b, Lanes c) { return _mm512_fmadd_pd(a, b, c); }
/// Flips the signs of the lanes in which `signs` is negative.
NIMBREL_INLINE Lanes signed_by(Lanes signs, Lanes lanes) { return _mm512_xor_pd(lanes, signs); }
/// `set` in the lanes of the mask, `clear` in the others.
NIMBREL_INLINE Lanes select(Mask mask, Lanes set, Lanes clear) {
    return _mm512_mask_blend_pd(mask, clear, set);
}

/// Amplitude i of the result is amplitude i ^ Flip.
template <unsigned Flip>
NIMBREL_INLINE Lanes exchanged(Lanes lanes) {
    if constexpr (Flip == 1) return _mm512_shuffle_f64x2(lanes, lanes, 0xB1);
    if constexpr (Flip == 2) return _mm512_shuffle_f64x2(lanes, lanes, 0x4E);
    if constexpr (Flip == 3) return _mm512_shuffle_f64x2(lanes, lanes, 0x1B);
    return lanes;
}

/// Sorts eight adjacent amplitudes, in a and b, into those without and those with the bit of a
/// target of 1 or 2.
template <unsigned long Target>
NIMBREL_INLINE void split_pairs(Lanes a, Lanes b, Lanes& x, Lanes& y) {
    x = _mm512_shuffle_f64x2(a, b, Target == 1 ? 0x88 : 0x44);
    y = _mm512_shuffle_f64x2(a, b, Target == 1 ? 0xDD : 0xEE);
}

/// The reverse.
template <unsigned long Target>
NIMBREL_INLINE void join_pairs(Lanes x, Lanes y, Lanes& a, Lanes& b) {
    if constexpr (Target == 1) {
        a = _mm512_permutex2var_pd(x, _mm512_setr_epi64(0, 1, 8, 9, 2, 3, 10, 11), y);
        b = _mm512_permutex2var_pd(x, _mm512_setr_epi64(4, 5, 12, 13, 6, 7, 14, 15), y);
    } else {
        split_pairs<Target>(x, y, a, b);
    }
}

/// One number for each amplitude, in both of its lanes.
NIMBREL_INLINE Lanes for_each_amplitude(const double (&numbers)[count]) {
    return _mm512_setr_pd(numbers[0], numbers[0], numbers[1], numbers[1], numbers[2], numbers[2],
                          numbers[3], numbers[3]);
}

/// The lanes of amplitudes that have a bit set in either register.
NIMBREL_INLINE Mask nonzero_amplitudes(Lanes x, Lanes y) {
    const __m512i bits = _mm512_castpd_si512(_mm512_or_pd(x, y));
    const unsigned nonzero = _mm512_test_epi64_mask(bits, bits);
    if (nonzero == all_lanes) [[likely]]
        return all_lanes;
    return static_cast<Mask>(nonzero | (nonzero >> 1 & 0x55U) | (nonzero << 1 & 0xAAU));
}

NIMBREL_INLINE Lanes joined_bits(Lanes a, Lanes b) { return _mm512_or_pd(a, b); }
NIMBREL_INLINE bool is_zero_bits(Lanes lanes) {
    const __m512i bits = _mm512_castpd_si512(lanes);
    return _mm512_test_epi64_mask(bits, bits) == 0;
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
    NIMBREL_INLINE ComplexFactor(Lanes real, Lanes imaginary) : re(real), im(imaginary) {}
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

/// The lanes of the amplitudes whose slot qualifies under the low bits of a condition.
/// `slots` are the slots of a register's four amplitudes, modulo 8.
struct RegisterSlots {
    unsigned char slots[count];
};

[[maybe_unused]] Mask qualifying_lanes(RegisterSlots at, unsigned long mask,
                                       unsigned long pattern) {
    unsigned lanes = 0;
    for (unsigned i = 0; i < count; ++i) {
        if ((at.slots[i] & mask) == pattern) lanes |= 3U << 2 * i;
    }
    return static_cast<Mask>(lanes);
}

[[maybe_unused]] unsigned long lowest_of(unsigned long mask) { return mask & (0UL - mask); }

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

}  // namespace
}  // namespace Nimbrel
