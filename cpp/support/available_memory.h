/// How much memory the process may still have: asked before a step that takes a large piece of it,
/// because the system gives out more than there is and then kills the process that touches it.
///
/// Called on the caller's thread. Reads the system's files and keeps nothing.
#pragma once

#include <optional>
#include <string>

namespace Nimbrel {

/// Smaller steps are not looked at. From this size on the C library maps every block by itself, so
/// what was freed before a look has gone back to the system.
inline constexpr unsigned long large_step = 32UL << 20;

/// Bytes that the process may still have: free physical memory, or what is left of the smallest
/// limit of its control groups (versions 1 and 2) if that is less. Cache that the system can drop
/// counts as free, swap does not. What cannot be read limits nothing.
///
/// `root` stands before every path that is read.
unsigned long available_memory(const std::string& root);

/// What `find_shortage` asks, `available_memory` of this system. Tests put another answer here.
extern unsigned long (*ask_available_memory)();

/// A step that needs more than the process may still have.
struct MemoryShortage {
    unsigned long needed;
    unsigned long available;

    /// " It needs 9.3 GB, and the process may have 2.1 GB more.", to follow a sentence that tells
    /// what was refused.
    std::string text() const;
};

/// The shortage that a step of `bytes` would meet. Requires: what the step replaces is freed
/// already, or stays until the step is done.
std::optional<MemoryShortage> find_shortage(unsigned long bytes);

}  // namespace Nimbrel
