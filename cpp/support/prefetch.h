/// Hints about memory that is read once and in order.
#pragma once

#include <xmmintrin.h>

#include <cstdint>

namespace Nimbrel {

/// Fetches the two cache lines that begin `distance` bytes behind `here`, without keeping them: a
/// long array that passes by once must not push the state it works on out of the cache. The address
/// may lie past the array's end, since a prefetch never faults.
inline void prefetch_passing(const void* here, std::uintptr_t distance) {
    constexpr std::uintptr_t cache_line = 64;
    const std::uintptr_t ahead = reinterpret_cast<std::uintptr_t>(here) + distance;
    // Computed as numbers, because pointer arithmetic ends one past the array.
    // NOLINTBEGIN(performance-no-int-to-ptr)
    _mm_prefetch(reinterpret_cast<const char*>(ahead), _MM_HINT_NTA);
    _mm_prefetch(reinterpret_cast<const char*>(ahead + cache_line), _MM_HINT_NTA);
    // NOLINTEND(performance-no-int-to-ptr)
}

}  // namespace Nimbrel
