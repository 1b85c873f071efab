/// The amplitude type of the engine and of the caller's arrays. Plain data, for any thread.
#pragma once

#include <bit>
#include <cstddef>

namespace Nimbrel {

/// Two doubles, real part first, as in a NumPy complex128. The alignment is that of a double,
/// because the caller's arrays may have no more.
struct complex_t {
    double re;
    double im;
};

static_assert(sizeof(complex_t) == 16);
static_assert(offsetof(complex_t, re) == 0);
static_assert(offsetof(complex_t, im) == 8);

/// Whether all 128 bits are 0. False for a negative zero, which must not be skipped like a zero.
inline bool is_raw_zero(const complex_t& amplitude) {
    return (std::bit_cast<unsigned long>(amplitude.re) |
            std::bit_cast<unsigned long>(amplitude.im)) == 0;
}

}  // namespace Nimbrel
