/// The amplitude types on AVX registers of x86-64, for `support/vectors.h`. Any thread.
#pragma once

#include <immintrin.h>

#include "support/complex.h"

namespace Nimbrel {

struct TwoAmplitudes;

/// The widest type. Kernels build their constants at this width once; a narrower type takes the
/// low part of a constant with `of`.
using WidestAmplitudes = TwoAmplitudes;

/// One amplitude, real part in lane 0.
struct OneAmplitude {
    static constexpr unsigned long count = 1;
    __m128d lanes;

    static OneAmplitude load(const complex_t* from) { return {_mm_loadu_pd(&from->re)}; }
    void store(complex_t* to) const { _mm_storeu_pd(&to->re, lanes); }

    static OneAmplitude zero() { return {_mm_setzero_pd()}; }
    /// The same number in every lane.
    static OneAmplitude broadcast(double number) { return {_mm_set1_pd(number)}; }
    static OneAmplitude of(WidestAmplitudes constant);

    /// Real and imaginary part exchanged.
    OneAmplitude swapped() const { return {_mm_permute_pd(lanes, 1)}; }
    double lane_sum() const { return _mm_cvtsd_f64(_mm_add_sd(lanes, swapped().lanes)); }
    bool is_zero_bits() const {
        const __m128i bits = _mm_castpd_si128(lanes);
        return _mm_testz_si128(bits, bits) != 0;
    }

    friend OneAmplitude operator+(OneAmplitude a, OneAmplitude b) {
        return {_mm_add_pd(a.lanes, b.lanes)};
    }
    friend OneAmplitude operator-(OneAmplitude a, OneAmplitude b) {
        return {_mm_sub_pd(a.lanes, b.lanes)};
    }
    friend OneAmplitude operator*(OneAmplitude a, OneAmplitude b) {
        return {_mm_mul_pd(a.lanes, b.lanes)};
    }
    friend OneAmplitude operator^(OneAmplitude a, OneAmplitude b) {
        return {_mm_xor_pd(a.lanes, b.lanes)};
    }
    friend OneAmplitude operator|(OneAmplitude a, OneAmplitude b) {
        return {_mm_or_pd(a.lanes, b.lanes)};
    }
    friend OneAmplitude operator&(OneAmplitude a, OneAmplitude b) {
        return {_mm_and_pd(a.lanes, b.lanes)};
    }
    /// a * b + c with one rounding.
    static OneAmplitude fused(OneAmplitude a, OneAmplitude b, OneAmplitude c) {
        return {_mm_fmadd_pd(a.lanes, b.lanes, c.lanes)};
    }
    /// Real parts subtracted, imaginary parts added.
    static OneAmplitude subtract_add(OneAmplitude a, OneAmplitude b) {
        return {_mm_addsub_pd(a.lanes, b.lanes)};
    }
    /// Per lane: `set` where the sign bit of `mask` is set, else `clear`.
    static OneAmplitude select(OneAmplitude mask, OneAmplitude set, OneAmplitude clear) {
        return {_mm_blendv_pd(clear.lanes, set.lanes, mask.lanes)};
    }
};

/// Two amplitudes of neighbouring slots, the lower slot in the lower half.
struct TwoAmplitudes {
    static constexpr unsigned long count = 2;
    __m256d lanes;

    static TwoAmplitudes load(const complex_t* from) { return {_mm256_loadu_pd(&from->re)}; }
    void store(complex_t* to) const { _mm256_storeu_pd(&to->re, lanes); }

    static TwoAmplitudes broadcast(double number) { return {_mm256_set1_pd(number)}; }
    /// The same two lanes for every amplitude.
    static TwoAmplitudes broadcast(double lane0, double lane1) {
        return {_mm256_setr_pd(lane0, lane1, lane0, lane1)};
    }
    static TwoAmplitudes of(WidestAmplitudes constant) { return constant; }

    static TwoAmplitudes join(OneAmplitude low, OneAmplitude high) {
        return {_mm256_set_m128d(high.lanes, low.lanes)};
    }
    OneAmplitude low() const { return {_mm256_castpd256_pd128(lanes)}; }
    OneAmplitude high() const { return {_mm256_extractf128_pd(lanes, 1)}; }

    /// The low halves of two registers, and the high ones.
    static TwoAmplitudes join_low(TwoAmplitudes a, TwoAmplitudes b) {
        return {_mm256_permute2f128_pd(a.lanes, b.lanes, 0x20)};
    }
    static TwoAmplitudes join_high(TwoAmplitudes a, TwoAmplitudes b) {
        return {_mm256_permute2f128_pd(a.lanes, b.lanes, 0x31)};
    }

    /// Real and imaginary part exchanged in each amplitude.
    TwoAmplitudes swapped() const { return {_mm256_permute_pd(lanes, 5)}; }
    bool is_zero_bits() const {
        const __m256i bits = _mm256_castpd_si256(lanes);
        return _mm256_testz_si256(bits, bits) != 0;
    }
    /// Whether an amplitude may have all bits zero. False is certain.
    bool may_have_zero_bits() const {
        const __m256d equal = _mm256_cmp_pd(lanes, _mm256_setzero_pd(), _CMP_EQ_OQ);
        const int zeros = _mm256_movemask_pd(equal);
        return (zeros & (zeros >> 1) & 0b0101) != 0;
    }
    /// Whether every lane is finite and not zero. May answer false for very small and very large
    /// numbers.
    bool has_plain_lanes() const {
        // 0 for a finite number, NaN for an infinity or a NaN.
        const __m256d nothing = _mm256_sub_pd(lanes, lanes);
        return _mm256_movemask_pd(_mm256_cmp_pd(lanes, nothing, _CMP_NEQ_OQ)) == 0b1111;
    }

    friend TwoAmplitudes operator+(TwoAmplitudes a, TwoAmplitudes b) {
        return {_mm256_add_pd(a.lanes, b.lanes)};
    }
    friend TwoAmplitudes operator-(TwoAmplitudes a, TwoAmplitudes b) {
        return {_mm256_sub_pd(a.lanes, b.lanes)};
    }
    friend TwoAmplitudes operator*(TwoAmplitudes a, TwoAmplitudes b) {
        return {_mm256_mul_pd(a.lanes, b.lanes)};
    }
    friend TwoAmplitudes operator^(TwoAmplitudes a, TwoAmplitudes b) {
        return {_mm256_xor_pd(a.lanes, b.lanes)};
    }
    friend TwoAmplitudes operator|(TwoAmplitudes a, TwoAmplitudes b) {
        return {_mm256_or_pd(a.lanes, b.lanes)};
    }
    static TwoAmplitudes fused(TwoAmplitudes a, TwoAmplitudes b, TwoAmplitudes c) {
        return {_mm256_fmadd_pd(a.lanes, b.lanes, c.lanes)};
    }
    static TwoAmplitudes subtract_add(TwoAmplitudes a, TwoAmplitudes b) {
        return {_mm256_addsub_pd(a.lanes, b.lanes)};
    }
};

inline OneAmplitude OneAmplitude::of(WidestAmplitudes constant) { return constant.low(); }

/// A 64-bit word in every lane, for masks over the lanes of one amplitude.
struct WordLanes {
    __m128i lanes;

    static WordLanes broadcast(unsigned long word) {
        return {_mm_set1_epi64x(static_cast<long>(word))};
    }
    friend WordLanes operator&(WordLanes a, WordLanes b) {
        return {_mm_and_si128(a.lanes, b.lanes)};
    }
    /// All bits of a lane where the words are equal, no bit where they differ.
    static OneAmplitude equal(WordLanes a, WordLanes b) {
        return {_mm_castsi128_pd(_mm_cmpeq_epi64(a.lanes, b.lanes))};
    }
};

}  // namespace Nimbrel
