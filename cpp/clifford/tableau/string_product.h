/// Products of Pauli strings that are stored as words of bits, with 256-bit or 512-bit vectors.
///
/// Both vector widths give the same bits. Not thread-safe.
#pragma once

#include <cstddef>

/// The blocks of a string in which a bit may be 1: bit b of each mask stands for block b. A block
/// whose bit is 0 has only zeros in that part of the string.
struct StringBlocks {
    unsigned short x = 0;
    unsigned short z = 0;
};

/// The size of a string of W words a part: W words with the x bits, then W words with the z bits.
/// Letters are those of `Stabilizer`.
struct StringShape {
    /// Number of blocks that a mask of `StringBlocks` can tell apart.
    static constexpr unsigned max_blocks = 16;

    explicit StringShape(unsigned words_of_part);

    unsigned block_of(std::size_t word) const {
        return static_cast<unsigned>(word >> log_block_words);
    }
    unsigned first_word(unsigned block) const { return block << log_block_words; }
    unsigned end_word(unsigned block) const {
        const unsigned end = (block + 1) << log_block_words;
        return end < words ? end : words;
    }

    unsigned words;            ///< words of each part
    unsigned log_block_words;  ///< 3 or more, so that a block fills the widest vector
};

/// What a product leaves beside the letters of its left factor.
struct StringProduct {
    unsigned exponent;    ///< of i: the phase that the letters contribute, 0 to 3
    StringBlocks blocks;  ///< of the new left factor; exact
};

/// Replaces the letters of `left` by those of the product `left` times `right`.
using MultiplyStrings = StringProduct (*)(const StringShape& shape, unsigned long* left,
                                          StringBlocks left_blocks, const unsigned long* right,
                                          StringBlocks right_blocks);

/// The product with 256-bit vectors, for strings of this shape.
MultiplyStrings narrow_product(const StringShape& shape);

/// Requires: the processor has AVX-512.
StringProduct multiply_wide(const StringShape& shape, unsigned long* left, StringBlocks left_blocks,
                            const unsigned long* right, StringBlocks right_blocks);

/// The faster of the two on this processor for strings of this shape.
MultiplyStrings fastest_product(const StringShape& shape);

/// For tests: whether `fastest_product` may choose 512-bit vectors. Has no effect where the
/// processor does not have them, and on tableaus that exist.
void use_wide_strings(bool wide);
