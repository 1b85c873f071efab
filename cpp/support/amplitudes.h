/// One or two amplitudes in a vector register, so that kernels read as algebra.
///
/// Both types have the same members and the same arithmetic per amplitude: each sum and product is
/// rounded by itself, and a fused multiply-add happens only in `fused`. A kernel that is written on
/// a type parameter gives the same bits with either.
#pragma once

#include <immintrin.h>

#include "support/complex.h"

namespace Nimbrel {

/// One amplitude, real part in lane 0.
struct OneAmplitude {
    static constexpr unsigned long count = 1;
    __m128d lanes;

    static OneAmplitude load(const complex_t* from) { return {_mm_loadu_pd(&from->re)}; }
    void store(complex_t* to) const { _mm_storeu_pd(&to->re, lanes); }

    /// The first amplitude of a constant that is made for two.
    static OneAmplitude of(__m256d both) { return {_mm256_castpd256_pd128(both)}; }

    OneAmplitude swapped() const { return {_mm_permute_pd(lanes, 1)}; }
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
    /// a * b + c with one rounding.
    static OneAmplitude fused(OneAmplitude a, OneAmplitude b, OneAmplitude c) {
        return {_mm_fmadd_pd(a.lanes, b.lanes, c.lanes)};
    }
    /// Real parts subtracted, imaginary parts added.
    static OneAmplitude subtract_add(OneAmplitude a, OneAmplitude b) {
        return {_mm_addsub_pd(a.lanes, b.lanes)};
    }
};

/// Two amplitudes of neighbouring slots, the lower one in the lower half.
struct TwoAmplitudes {
    static constexpr unsigned long count = 2;
    __m256d lanes;

    static TwoAmplitudes load(const complex_t* from) { return {_mm256_loadu_pd(&from->re)}; }
    void store(complex_t* to) const { _mm256_storeu_pd(&to->re, lanes); }

    static TwoAmplitudes of(__m256d both) { return {both}; }
    static TwoAmplitudes join(OneAmplitude low, OneAmplitude high) {
        return {_mm256_set_m128d(high.lanes, low.lanes)};
    }
    OneAmplitude low() const { return {_mm256_castpd256_pd128(lanes)}; }
    OneAmplitude high() const { return {_mm256_extractf128_pd(lanes, 1)}; }

    TwoAmplitudes swapped() const { return {_mm256_permute_pd(lanes, 5)}; }
    /// The two amplitudes with their places exchanged.
    TwoAmplitudes exchanged() const { return {_mm256_permute2f128_pd(lanes, lanes, 1)}; }
    bool is_zero_bits() const {
        const __m256i bits = _mm256_castpd_si256(lanes);
        return _mm256_testz_si256(bits, bits) != 0;
    }
    /// Whether one of the two may be zero in all its bits; a false answer is certain.
    bool may_have_zero_bits() const {
        const __m256d equal = _mm256_cmp_pd(lanes, _mm256_setzero_pd(), _CMP_EQ_OQ);
        const int zeros = _mm256_movemask_pd(equal);
        return (zeros & (zeros >> 1) & 0b0101) != 0;
    }

    /// Whether every lane is finite and not zero. May miss lanes near either end of the range.
    bool has_plain_lanes() const {
        // Zero for a finite number and no number at all for any other.
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

/// One number in both lanes of both amplitudes.
inline __m256d in_all_lanes(double number) { return _mm256_set1_pd(number); }

/// The same two lanes for both amplitudes.
inline __m256d in_both(double lane0, double lane1) {
    return _mm256_setr_pd(lane0, lane1, lane0, lane1);
}

/// A complex factor, each of its parts in all lanes.
struct ComplexFactor {
    __m256d re;
    __m256d im;

    explicit ComplexFactor(complex_t factor)
        : re(in_all_lanes(factor.re)), im(in_all_lanes(factor.im)) {}

    /// (x.re re - x.im im, x.re im + x.im re): two products, one subtraction and one addition, each
    /// rounded.
    template <typename Amplitudes>
    Amplitudes times(Amplitudes x) const {
        return Amplitudes::subtract_add(x * Amplitudes::of(re), x.swapped() * Amplitudes::of(im));
    }
};

}  // namespace Nimbrel
