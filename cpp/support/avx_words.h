/// Words of bits in AVX registers of x86-64, for `support/vectors.h`. Any thread.
///
/// AVX has 256-bit loads, xor and and for floating-point lanes only.
#pragma once

#include <immintrin.h>

#include <cstddef>

namespace Nimbrel {

/// Two words in one vector register.
struct TwoWords {
    __m128d bits;

    friend TwoWords operator^(TwoWords a, TwoWords b) { return {_mm_xor_pd(a.bits, b.bits)}; }
    friend TwoWords operator&(TwoWords a, TwoWords b) { return {_mm_and_pd(a.bits, b.bits)}; }
    unsigned long low() const {
        return static_cast<unsigned long>(_mm_cvtsi128_si64(_mm_castpd_si128(bits)));
    }
    unsigned long high() const {
        return static_cast<unsigned long>(_mm_extract_epi64(_mm_castpd_si128(bits), 1));
    }
};

/// Four words in one vector register.
struct FourWords {
    static constexpr std::size_t count = 4;
    __m256d bits;

    static FourWords zero() { return {_mm256_setzero_pd()}; }
    static FourWords load(const unsigned long* from) {
        return {_mm256_loadu_pd(reinterpret_cast<const double*>(from))};
    }
    void store(unsigned long* to) const { _mm256_storeu_pd(reinterpret_cast<double*>(to), bits); }
    bool is_zero() const {
        const __m256i words = _mm256_castpd_si256(bits);
        return _mm256_testz_si256(words, words) != 0;
    }
    TwoWords low() const { return {_mm256_castpd256_pd128(bits)}; }
    TwoWords high() const { return {_mm256_extractf128_pd(bits, 1)}; }

    friend FourWords operator^(FourWords a, FourWords b) { return {_mm256_xor_pd(a.bits, b.bits)}; }
    friend FourWords operator&(FourWords a, FourWords b) { return {_mm256_and_pd(a.bits, b.bits)}; }
    /// The bits that are 1 in a and 0 in b.
    friend FourWords operator-(FourWords a, FourWords b) {
        return {_mm256_andnot_pd(b.bits, a.bits)};
    }
};

}  // namespace Nimbrel
