/// One amplitude as it stands in memory, in the engine and in the caller's arrays.
#pragma once

#include <bit>
#include <cstddef>

namespace Nimbrel {

/// Two doubles, real part first: the memory of one NumPy complex128. Arrays of it are only as
/// aligned as their owner made them, so the type itself asks for no more than a double does.
struct complex_t {
    double re;
    double im;
};

static_assert(sizeof(complex_t) == 16);
static_assert(offsetof(complex_t, re) == 0);
static_assert(offsetof(complex_t, im) == 8);

/// Whether all 128 bits are 0. A negative zero is not: it must survive where a zero is skipped.
inline bool is_raw_zero(const complex_t& amplitude) {
    return (std::bit_cast<unsigned long>(amplitude.re) |
            std::bit_cast<unsigned long>(amplitude.im)) == 0;
}

}  // namespace Nimbrel
