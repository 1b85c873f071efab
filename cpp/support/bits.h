/// Names for the bit tricks on masks that every area uses; pure functions, callable from any
/// thread.
#pragma once

#include <bit>

namespace Nimbrel {

/// Qubits that one mask word covers; masks above it carry an offset.
inline constexpr unsigned long bits_per_word = 64;

/// Number of words that hold `num_bits` bits, without the wrap that rounding up by addition would
/// have.
constexpr unsigned long words_for_bits(unsigned long num_bits) {
    return num_bits / bits_per_word + (num_bits % bits_per_word != 0 ? 1 : 0);
}

/// Word of a bit vector that a bit position falls into.
constexpr unsigned long word_of(unsigned long position) { return position / bits_per_word; }

/// Position's own bit inside its word.
constexpr unsigned long bit_of(unsigned long position) { return 1UL << (position % bits_per_word); }

/// Number of the lowest set bit of a mask. Requires: the mask is not 0.
constexpr unsigned long bit_number(unsigned long mask) {
    return static_cast<unsigned long>(std::countr_zero(mask));
}

/// Lowest set bit of a mask, 0 for an empty one.
constexpr unsigned long lowest_bit(unsigned long mask) { return mask & (0UL - mask); }

/// The mask without its lowest set bit.
constexpr unsigned long without_lowest_bit(unsigned long mask) { return mask & (mask - 1); }

/// Calls `visit(bit)` for each set bit of the mask, from the lowest up.
template <typename Visit>
constexpr void for_each_bit(unsigned long mask, Visit&& visit) {
    for (; mask != 0; mask = without_lowest_bit(mask)) visit(lowest_bit(mask));
}

/// Absolute value as an unsigned number, so that the most negative one has one too.
constexpr unsigned long magnitude(long value) {
    const auto bits = static_cast<unsigned long>(value);
    return value < 0 ? 0UL - bits : bits;
}

}  // namespace Nimbrel
