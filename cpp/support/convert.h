/// Truncation of a double to an integer with one defined result for every input.
#pragma once

#include <limits>

namespace Nimbrel {

/// Truncates toward zero; NaN and values outside the signed range give the most negative number, as
/// the processor's own conversion does. A cast alone would leave those inputs undefined, and so
/// does the conversion intrinsic wherever the compiler knows its argument.
inline long truncate_to_i64(double value) {
    const bool in_range = value >= -0x1p63 && value < 0x1p63;
    return in_range ? static_cast<long>(value) : std::numeric_limits<long>::min();
}

/// The same with 32 bits, which is not the low half of the wider result.
inline int truncate_to_i32(double value) {
    const bool in_range = value > -0x1p31 - 1.0 && value < 0x1p31;
    return in_range ? static_cast<int>(value) : std::numeric_limits<int>::min();
}

/// Truncates toward zero to an unsigned number. Values of 2^63 and more are brought into the signed
/// range first and get their top bit back afterwards.
inline unsigned long truncate_to_u64(double value) {
    constexpr double two_to_63 = 0x1p63;
    if (value >= two_to_63) {
        const auto low_part = static_cast<unsigned long>(truncate_to_i64(value - two_to_63));
        return low_part ^ (1UL << 63);
    }
    return static_cast<unsigned long>(truncate_to_i64(value));
}

}  // namespace Nimbrel
