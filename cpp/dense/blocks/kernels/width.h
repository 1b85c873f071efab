/// The choice between the kernels of two vector widths. Both give the same bits.
#pragma once

#include <bit>

#include "dense/blocks/kernels/gates.h"

namespace Nimbrel {

/// Pieces of the state below this size are left to the narrow kernels, which begin sooner.
inline constexpr unsigned long fewest_wide_slots = 128;

/// Whether gates use the 512-bit kernels. True from the start where the processor has them. For
/// the kernels to read.
extern bool wide_kernels_in_use;

/// For tests. Has no effect where the processor has one width only.
/// Requires: no gate is at work.
void use_wide_kernels(bool wide);

/// Whether the wide kernels gain from their width. A Hadamard and a NOT without controls take the
/// time of their loads and stores at either width. For phases on one qubit the narrow kernels have
/// compiled strides.
inline bool gains_from_width(const SlotGate& gate) {
    switch (gate.kind) {
        case GateKind::exchange:
            return gate.controls.mask != 0;
        case GateKind::hadamard:
        case GateKind::compared_exchange:
            return false;
        case GateKind::phase:
        case GateKind::sign_flip:
            return !std::has_single_bit(gate.controls.mask);
        default:
            return true;
    }
}

/// Whether a gate on `n` slots is left to the wide kernels. The narrow ones define what a target of
/// several bits and a pattern outside its mask mean.
inline bool suits_wide_kernels(const SlotGate& gate, unsigned long n) {
    return n >= fewest_wide_slots && gains_from_width(gate) && wide_kernels_in_use &&
           (gate.target & (gate.target - 1)) == 0 && gate.controls.can_hold(n);
}

/// `apply_gate` by the wide kernels. Requires: `suits_wide_kernels`.
bool apply_wide(const SlotGate& gate, complex_t* lower, complex_t* upper, unsigned long n);

}  // namespace Nimbrel
