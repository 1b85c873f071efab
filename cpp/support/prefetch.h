/// Prefetch hints for memory that is read once and in order.
#pragma once

#include <cstdint>

namespace Nimbrel {

/// Prefetches the two cache lines that begin `distance` bytes after `here`, non-temporally: a long
/// array that is read once must not evict the state from the cache. The address may lie past the
/// array's end, because a prefetch never faults.
inline void prefetch_passing(const void* here, std::uintptr_t distance) {
    constexpr std::uintptr_t cache_line = 64;
    constexpr int for_reading = 0;
    constexpr int no_locality = 0;
    const std::uintptr_t ahead = reinterpret_cast<std::uintptr_t>(here) + distance;
    // Computed as numbers, because pointer arithmetic must stay inside the array.
    // NOLINTBEGIN(performance-no-int-to-ptr)
    __builtin_prefetch(reinterpret_cast<const char*>(ahead), for_reading, no_locality);
    __builtin_prefetch(reinterpret_cast<const char*>(ahead + cache_line), for_reading, no_locality);
    // NOLINTEND(performance-no-int-to-ptr)
}

}  // namespace Nimbrel
