/// Truncation of a double to an integer, defined for every input. Callable from any thread.
#pragma once

#include <limits>

namespace Nimbrel {

/// Truncates toward zero. NaN and out-of-range values become the most negative number, as in the
/// processor's conversion. A cast is undefined for those inputs, and so is the conversion intrinsic
/// if the compiler knows its argument.
inline long truncate_to_i64(double value) {
    const bool in_range = value >= -0x1p63 && value < 0x1p63;
    return in_range ? static_cast<long>(value) : std::numeric_limits<long>::min();
}

/// The same for 32 bits. Differs from the low half of the 64-bit result for large values.
inline int truncate_to_i32(double value) {
    const bool in_range = value > -0x1p31 - 1.0 && value < 0x1p31;
    return in_range ? static_cast<int>(value) : std::numeric_limits<int>::min();
}

/// Truncates toward zero to an unsigned number. From 2^63 on it converts the value minus 2^63 and
/// flips the top bit of the result.
inline unsigned long truncate_to_u64(double value) {
    constexpr double two_to_63 = 0x1p63;
    if (value >= two_to_63) {
        const auto low_part = static_cast<unsigned long>(truncate_to_i64(value - two_to_63));
        return low_part ^ (1UL << 63);
    }
    return static_cast<unsigned long>(truncate_to_i64(value));
}

}  // namespace Nimbrel
