/// `FailingMemory`, which lets the engine's allocations fail from a chosen one on, and a count of
/// the allocations that are alive. One executable has one such allocator.
#pragma once

namespace Nimbrel::Testing {

/// How many allocations fail once the chosen one is reached.
enum class Shortage { once, lasting };

/// While it exists, allocations fail: allocation number `first`, counted from 0, and with
/// `Shortage::lasting` all after it. One at a time.
class FailingMemory {
  public:
    FailingMemory(long first, Shortage shortage);
    ~FailingMemory();
    FailingMemory(const FailingMemory&) = delete;
    FailingMemory& operator=(const FailingMemory&) = delete;

    /// Whether an allocation has failed.
    static bool has_failed();
};

/// Allocations that have not been freed: `operator new`, and the functions of the C library that
/// the engine calls.
long live_allocations();

}  // namespace Nimbrel::Testing
