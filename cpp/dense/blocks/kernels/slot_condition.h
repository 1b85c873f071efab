/// The quantum condition of a gate on the slots of a block. Any thread.
#pragma once

namespace Nimbrel {

/// The controls of a gate inside a block: a slot qualifies when slot & mask == pattern. A control
/// has its bit set in both, a negated control in the mask only. The default has no controls.
struct SlotCondition {
    unsigned long mask = 0;
    unsigned long pattern = 0;

    bool holds(unsigned long slot) const { return (slot & mask) == pattern; }

    /// Whether any slot below `n`, a power of two, can qualify. None does when the pattern has a
    /// bit outside the mask or a bit that no slot has.
    bool can_hold(unsigned long n) const { return (pattern & ~(mask & (n - 1))) == 0; }
};

}  // namespace Nimbrel
