/// The memory that the process may still allocate. Operations check it before a large allocation,
/// because the system may grant more memory than exists and kill the process when it is used.
///
/// Called on the caller's thread. Reads files of the system and caches nothing.
#pragma once

#include <optional>
#include <string>

namespace Nimbrel {

/// Smaller allocations are not checked. From this size on the C library maps each block separately,
/// so freed memory has already gone back to the system.
inline constexpr unsigned long large_step = 32UL << 20;

/// Bytes that the process may still allocate: the free physical memory, or the rest of the smallest
/// limit of its control groups (versions 1 and 2) if that is less. Cache that the system can drop
/// counts as free, swap does not. A file that cannot be read sets no limit.
///
/// `root` is prepended to every path.
unsigned long available_memory(const std::string& root);

/// The function that `find_shortage` calls: `available_memory` of this system. Tests replace it.
extern unsigned long (*ask_available_memory)();

/// An allocation that is larger than the available memory.
struct MemoryShortage {
    unsigned long needed;
    unsigned long available;

    /// " It needs 9.3 GB, and the process may have 2.1 GB more.", to be appended to the text of a
    /// refusal.
    std::string text() const;
};

/// The shortage for an allocation of `bytes`, if there is one. Requires: memory that it replaces is
/// freed already, or stays allocated until the new memory is in use.
std::optional<MemoryShortage> find_shortage(unsigned long bytes);

}  // namespace Nimbrel
