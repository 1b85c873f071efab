/// A gate as the kernels see it, and the function that applies it to a piece of the state.
///
/// Pure functions of their arguments: they take no lock and know no block. The caller owns the
/// amplitudes for the time of the call.
#pragma once

#include <array>

#include "dense/blocks/kernels/slot_condition.h"
#include "support/complex.h"
#include "support/gate_matrices.h"

namespace Nimbrel {

enum class GateKind {
    exchange,           ///< NOT and CNOT
    compared_exchange,  ///< NOT without controls that reports whether any pair differed; slower
    hadamard,
    complex_matrix,   ///< any complex 2x2 matrix
    diagonal_matrix,  ///< complex, zeros off the diagonal: rotations about Z
    crossed_matrix,   ///< complex, real diagonal, imaginary off the diagonal: rotations about X, Y
    real_matrix,      ///< any real 2x2 matrix
    phase,            ///< multiplies the amplitudes that meet the controls by entry 3 of the matrix
    sign_flip,        ///< Z: flips the signs of the amplitudes that meet the controls
};

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
