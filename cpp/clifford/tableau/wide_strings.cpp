// Products of Pauli strings with 512-bit vectors.
//
// Compiled for AVX-512, so it shares no inline function with other sources: the linker could keep
// the copy of this one for all of them.
#include <immintrin.h>

#include "clifford/tableau/string_product.h"

#define NIMBREL_INLINE [[gnu::always_inline]] inline

namespace {

using Lanes = __mmask8;

constexpr unsigned lanes_in_vector = 8;
constexpr Lanes all_lanes = 0xFF;

// Tables of `_mm512_ternarylogic_epi64`, whose operands are bits 2, 1 and 0 of the table's index.
constexpr int xor_of_three = 0x96;
constexpr int and_then_xor = 0x6A;  // (a & b) ^ c
constexpr int xor_then_and = 0x28;  // (a ^ b) & c

NIMBREL_INLINE __m512i zeros() { return _mm512_setzero_si512(); }

/// The exponents of i that the qubits contribute: two bits for each bit position, modulo 4.
struct Sums {
    __m512i ones;
    __m512i twos;
};

/// The same rule as in `PhaseSum::add`.
NIMBREL_INLINE void add(Sums& sums, __m512i left_x, __m512i left_z, __m512i right_x,
                        __m512i right_z, __m512i new_x, __m512i new_z) {
    const __m512i x_before_z = _mm512_and_si512(left_x, right_z);
    const __m512i odd = _mm512_ternarylogic_epi64(left_z, right_x, x_before_z, and_then_xor);
    const __m512i three = _mm512_ternarylogic_epi64(x_before_z, new_x, new_z, xor_of_three);
    const __m512i carries = _mm512_ternarylogic_epi64(three, sums.ones, odd, xor_then_and);
    sums.twos = _mm512_xor_si512(sums.twos, carries);
    sums.ones = _mm512_xor_si512(sums.ones, odd);
}

/// The exponent of all positions together. Folds the vectors by halves before it counts.
NIMBREL_INLINE unsigned exponent_of(const Sums& sums) {
    const __m256i low_ones = _mm512_castsi512_si256(sums.ones);
    const __m256i high_ones = _mm512_extracti64x4_epi64(sums.ones, 1);
    const __m256d carries =
        _mm256_and_pd(_mm256_castsi256_pd(low_ones), _mm256_castsi256_pd(high_ones));
    const __m256d ones =
        _mm256_xor_pd(_mm256_castsi256_pd(low_ones), _mm256_castsi256_pd(high_ones));
    const __m256d twos = _mm256_xor_pd(
        carries, _mm256_xor_pd(_mm256_castsi256_pd(_mm512_castsi512_si256(sums.twos)),
                               _mm256_castsi256_pd(_mm512_extracti64x4_epi64(sums.twos, 1))));
    const __m128d a = _mm256_castpd256_pd128(ones);
    const __m128d b = _mm256_extractf128_pd(ones, 1);
    const __m128d both = _mm_xor_pd(a, b);
    const __m128d fours = _mm_xor_pd(
        _mm_and_pd(a, b), _mm_xor_pd(_mm256_castpd256_pd128(twos), _mm256_extractf128_pd(twos, 1)));
    const __m128i one_bits = _mm_castpd_si128(both);
    const __m128i two_bits = _mm_castpd_si128(fours);
    const long long count =
        __builtin_popcountll(static_cast<unsigned long long>(_mm_cvtsi128_si64(one_bits))) +
        __builtin_popcountll(static_cast<unsigned long long>(_mm_extract_epi64(one_bits, 1)));
    const auto twice = static_cast<unsigned long long>(_mm_cvtsi128_si64(two_bits) ^
                                                       _mm_extract_epi64(two_bits, 1));
    return static_cast<unsigned>(count + 2 * __builtin_popcountll(twice)) & 3U;
}

NIMBREL_INLINE __m512i load(const unsigned long* from, Lanes lanes) {
    return _mm512_maskz_loadu_epi64(lanes, from);
}

NIMBREL_INLINE void store(unsigned long* to, __m512i words, Lanes lanes) {
    if (lanes == all_lanes) {
        _mm512_storeu_si512(to, words);
    } else {
        _mm512_mask_storeu_epi64(to, lanes, words);
    }
}

NIMBREL_INLINE bool any(__m512i words) { return _mm512_test_epi64_mask(words, words) != 0; }

}  // namespace

StringProduct multiply_wide(const StringShape& shape, unsigned long* left, StringBlocks left_blocks,
                            const unsigned long* right, StringBlocks right_blocks) {
    const unsigned words = shape.words;
    const unsigned block_words = 1U << shape.log_block_words;
    Sums sums{zeros(), zeros()};
    unsigned x_blocks = left_blocks.x;
    unsigned z_blocks = left_blocks.z;
    for (unsigned rest = 0U + (right_blocks.x | right_blocks.z); rest != 0; rest &= rest - 1) {
        const auto block = static_cast<unsigned>(__builtin_ctz(rest));
        const unsigned begin = block * block_words;
        const unsigned end = begin + block_words < words ? begin + block_words : words;
        __m512i made_x = zeros();
        __m512i made_z = zeros();
        for (unsigned word = begin; word < end; word += lanes_in_vector) {
            const unsigned missing =
                word + lanes_in_vector > end ? word + lanes_in_vector - end : 0;
            const auto lanes = static_cast<Lanes>(all_lanes >> missing);
            const __m512i left_x = load(left + word, lanes);
            const __m512i left_z = load(left + words + word, lanes);
            const __m512i right_x = load(right + word, lanes);
            const __m512i right_z = load(right + words + word, lanes);
            const __m512i new_x = _mm512_xor_si512(left_x, right_x);
            const __m512i new_z = _mm512_xor_si512(left_z, right_z);
            add(sums, left_x, left_z, right_x, right_z, new_x, new_z);
            store(left + word, new_x, lanes);
            store(left + words + word, new_z, lanes);
            made_x = _mm512_or_si512(made_x, new_x);
            made_z = _mm512_or_si512(made_z, new_z);
        }
        const unsigned bit = 1U << block;
        x_blocks = any(made_x) ? x_blocks | bit : x_blocks & ~bit;
        z_blocks = any(made_z) ? z_blocks | bit : z_blocks & ~bit;
    }
    return {exponent_of(sums),
            {static_cast<unsigned short>(x_blocks), static_cast<unsigned short>(z_blocks)}};
}
