/// Bit operations on masks. Pure functions, callable from any thread.
#pragma once

#include <bit>

namespace Nimbrel {

/// Number of qubits in one word of a mask; masks of higher qubits have an offset.
inline constexpr unsigned long bits_per_word = 64;

/// Number of words that hold `num_bits` bits. Does not overflow, as an addition of 63 would.
constexpr unsigned long words_for_bits(unsigned long num_bits) {
    return num_bits / bits_per_word + (num_bits % bits_per_word != 0 ? 1 : 0);
}

/// Index of the word that contains a bit position.
constexpr unsigned long word_of(unsigned long position) { return position / bits_per_word; }

/// The bit of a position inside its word.
constexpr unsigned long bit_of(unsigned long position) { return 1UL << (position % bits_per_word); }

/// Number of the lowest set bit of a mask. Requires: the mask is not 0.
constexpr unsigned long bit_number(unsigned long mask) {
    return static_cast<unsigned long>(std::countr_zero(mask));
}

/// Lowest set bit of a mask, 0 for an empty mask.
constexpr unsigned long lowest_bit(unsigned long mask) { return mask & (0UL - mask); }

/// The mask without its lowest set bit.
constexpr unsigned long without_lowest_bit(unsigned long mask) { return mask & (mask - 1); }

/// Whether a mask has an odd number of set bits.
constexpr bool odd_parity(unsigned long mask) { return (std::popcount(mask) & 1) != 0; }

/// Calls `visit(bit)` for each set bit of the mask, from the lowest up.
template <typename Visit>
constexpr void for_each_bit(unsigned long mask, Visit&& visit) {
    for (; mask != 0; mask = without_lowest_bit(mask)) visit(lowest_bit(mask));
}

/// Absolute value as an unsigned number, which the most negative number has too.
constexpr unsigned long magnitude(long value) {
    const auto bits = static_cast<unsigned long>(value);
    return value < 0 ? 0UL - bits : bits;
}

}  // namespace Nimbrel
