#include "clifford/tableau/string_product.h"

#include <iterator>

#include "clifford/tableau/phase_sum.h"
#include "support/bits.h"

namespace {

/// Multiplies some words of two strings.
struct Factors {
    unsigned long* left;
    const unsigned long* right;
    std::size_t z_part;  ///< words from the x part to the z part
    bool x = false;      ///< whether the words of the product that have been made hold a bit
    bool z = false;

    template <typename Words>
    void multiply(std::size_t at, PhaseSum<Words>& sum) {
        const Words left_x = Words::load(left + at);
        const Words left_z = Words::load(left + z_part + at);
        const Words right_x = Words::load(right + at);
        const Words right_z = Words::load(right + z_part + at);
        sum.add(left_x, left_z, right_x, right_z);
        const Words new_x = left_x ^ right_x;
        const Words new_z = left_z ^ right_z;
        new_x.store(left + at);
        new_z.store(left + z_part + at);
        x |= !new_x.is_zero();
        z |= !new_z.is_zero();
    }
};

StringProduct multiply_narrow(const StringShape& shape, unsigned long* left,
                              StringBlocks left_blocks, const unsigned long* right,
                              StringBlocks right_blocks) {
    PhaseSum<OneWord> sum;
    PhaseSum<FourWords> wide;
    Nimbrel::for_each_bit(0UL + (right_blocks.x | right_blocks.z), [&](unsigned long bit) {
        const auto block = static_cast<unsigned>(Nimbrel::bit_number(bit));
        Factors factors{left, right, shape.words};
        std::size_t word = shape.first_word(block);
        const std::size_t end = shape.end_word(block);
        for (; word + FourWords::count <= end; word += FourWords::count)
            factors.multiply(word, wide);
        for (; word < end; ++word) factors.multiply(word, sum);
        const auto keep = static_cast<unsigned>(~bit);
        left_blocks.x = static_cast<unsigned short>((left_blocks.x & keep) | (factors.x ? bit : 0));
        left_blocks.z = static_cast<unsigned short>((left_blocks.z & keep) | (factors.z ? bit : 0));
    });
    if (shape.words >= FourWords::count) sum.add(folded(wide));
    return {exponent_of(sum), left_blocks};
}

/// `multiply_narrow` for strings of one block, with a compiled number of words. Counts each word,
/// which does not wait for the word before as a `PhaseSum` does.
template <unsigned Words>
StringProduct multiply_few(const StringShape& /*shape*/, unsigned long* left,
                           StringBlocks /*left_blocks*/, const unsigned long* right,
                           StringBlocks /*right_blocks*/) {
    unsigned ones = 0;
    unsigned long twos = 0;
    unsigned long x = 0;
    unsigned long z = 0;
    for (unsigned word = 0; word < Words; ++word) {
        unsigned long& left_x = left[word];
        unsigned long& left_z = left[Words + word];
        const unsigned long x_before_z = left_x & right[Words + word];
        const unsigned long odd = x_before_z ^ (left_z & right[word]);
        left_x ^= right[word];
        left_z ^= right[Words + word];
        ones += static_cast<unsigned>(std::popcount(odd));
        twos ^= (x_before_z ^ left_x ^ left_z) & odd;
        x |= left_x;
        z |= left_z;
    }
    return {(ones + 2 * static_cast<unsigned>(std::popcount(twos))) & 3,
            {static_cast<unsigned short>(x != 0), static_cast<unsigned short>(z != 0)}};
}

}  // namespace

StringShape::StringShape(unsigned words_of_part) : words(words_of_part), log_block_words(3) {
    while (words > first_word(max_blocks)) ++log_block_words;
}

MultiplyStrings narrow_product(const StringShape& shape) {
    static constexpr MultiplyStrings of_few_words[] = {
        multiply_narrow, multiply_few<1>, multiply_few<2>, multiply_few<3>, multiply_few<4>,
        multiply_few<5>, multiply_few<6>, multiply_few<7>, multiply_few<8>};
    return shape.words < std::size(of_few_words) ? of_few_words[shape.words] : multiply_narrow;
}
