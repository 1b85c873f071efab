/// A gate as the kernels see it, and the function that applies it to a piece of the state.
///
/// Pure functions of their arguments: they take no lock and know no block. The caller owns the
/// amplitudes for the time of the call.
#pragma once

#include <array>
#include <bit>

#include "dense/blocks/kernels/gate_kind.h"
#include "dense/blocks/kernels/slot_condition.h"
#include "support/complex.h"
#include "support/gate_matrices.h"

namespace Nimbrel {

/// The factor of a Hadamard. One unit in the last place below the double nearest to 1/sqrt(2);
/// results are defined by it.
inline constexpr double one_over_root_two = 0x1.6a09e667f3bccp-1;
static_assert(std::bit_cast<unsigned long>(one_over_root_two) == 0x3FE6A09E667F3BCCUL);

/// A 2x2 matrix with the kind that selects its kernel. The three complex kinds give the same bits
/// wherever more than one fits; the special ones are faster.
struct GateMatrix {
    GateKind kind;
    MatrixEntries entries;

    /// Selects the kind by the zeros in the matrix.
    static GateMatrix complex(const complex_t* m);
    static GateMatrix real(const double* m);
};

/// One gate on a piece of the state: plain data, so that a list of gates can be kept and applied
/// later.
struct SlotGate {
    GateKind kind;
    unsigned long target = 0;  ///< one bit of the slot index; 0 pairs two pieces slot by slot
    SlotCondition controls = {};
    const MatrixEntries* matrix = nullptr;  ///< borrowed; null for a kind without a matrix
};

/// Applies a gate to `n` slots, `n` a power of two. With a target it pairs slots of `lower` and
/// does not use `upper`. Without one it pairs slot i of `lower` with slot i of `upper`, and does
/// nothing when `upper` is null. A phase and a sign flip have no target and change `lower` only.
///
/// Returns whether the amplitudes may have changed: for matrices whether any pair was not zero in
/// all bits, for a compared exchange whether any pair differed, for all other kinds true.
bool apply_gate(const SlotGate& gate, complex_t* lower, complex_t* upper, unsigned long n);

}  // namespace Nimbrel
