/// The phase of a product of Pauli strings, summed over words of bits.
///
/// Plain values, callable from any thread.
#pragma once

#include <immintrin.h>

#include <bit>
#include <cstddef>

/// Four words in one vector register. AVX has 256-bit loads, xor and and for floating-point lanes
/// only.
struct FourWords {
    static constexpr std::size_t count = 4;
    __m256d bits;

    static FourWords zero() { return {_mm256_setzero_pd()}; }
    static FourWords load(const unsigned long* from) {
        return {_mm256_loadu_pd(reinterpret_cast<const double*>(from))};
    }
    void store(unsigned long* to) const { _mm256_storeu_pd(reinterpret_cast<double*>(to), bits); }
    friend FourWords operator^(FourWords a, FourWords b) { return {_mm256_xor_pd(a.bits, b.bits)}; }
    friend FourWords operator&(FourWords a, FourWords b) { return {_mm256_and_pd(a.bits, b.bits)}; }
};

/// One word, with the members of `FourWords`.
struct OneWord {
    static constexpr std::size_t count = 1;
    unsigned long bits;

    static OneWord zero() { return {0}; }
    static OneWord load(const unsigned long* from) { return {*from}; }
    void store(unsigned long* to) const { *to = bits; }
    friend OneWord operator^(OneWord a, OneWord b) { return {a.bits ^ b.bits}; }
    friend OneWord operator&(OneWord a, OneWord b) { return {a.bits & b.bits}; }
};

/// The exponents of i that the qubits of a product contribute, summed modulo 4.
///
/// Each bit position has a sum of two bits, `ones` and `twos`, over all words. So the population
/// count is needed once for each row and not once for each word.
///
/// Two letters that commute contribute 0. XZ, ZY and YX contribute 3; ZX, YZ and XY contribute 1.
template <typename Words>
struct PhaseSum {
    Words ones = Words::zero();
    Words twos = Words::zero();

    void add(Words left_x, Words left_z, Words right_x, Words right_z) {
        const Words x_before_z = left_x & right_z;
        const Words odd = x_before_z ^ (left_z & right_x);
        const Words three = x_before_z ^ (left_x ^ right_x) ^ (left_z ^ right_z);
        twos = twos ^ ((three ^ ones) & odd);
        ones = ones ^ odd;
    }
    void add(PhaseSum other) {
        twos = twos ^ other.twos ^ (ones & other.ones);
        ones = ones ^ other.ones;
    }
};

/// Adds the sums of the four words to one sum: first the two halves, then the two words left.
inline PhaseSum<OneWord> folded(const PhaseSum<FourWords>& sum) {
    const __m128d low_ones = _mm256_castpd256_pd128(sum.ones.bits);
    const __m128d high_ones = _mm256_extractf128_pd(sum.ones.bits, 1);
    const __m128d carries = _mm_and_pd(low_ones, high_ones);
    const __m128i ones = _mm_castpd_si128(_mm_xor_pd(low_ones, high_ones));
    const __m128i twos =
        _mm_castpd_si128(_mm_xor_pd(carries, _mm_xor_pd(_mm256_castpd256_pd128(sum.twos.bits),
                                                        _mm256_extractf128_pd(sum.twos.bits, 1))));
    const auto word = [](long bits) { return OneWord{static_cast<unsigned long>(bits)}; };
    PhaseSum<OneWord> total{word(_mm_cvtsi128_si64(ones)), word(_mm_cvtsi128_si64(twos))};
    total.add({word(_mm_extract_epi64(ones, 1)), word(_mm_extract_epi64(twos, 1))});
    return total;
}

/// The exponent of i that the words of a sum contribute, modulo 4.
inline unsigned exponent_of(const PhaseSum<OneWord>& sum) {
    return static_cast<unsigned>(std::popcount(sum.ones.bits) + 2 * std::popcount(sum.twos.bits)) &
           3U;
}
