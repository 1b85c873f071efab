/// A gate whose arithmetic waits. Plain data, made by the submitting thread.
#pragma once

#include "dense/blocks/kernels/gates.h"
#include "dense/blocks/kernels/slot_condition.h"
#include "support/complex.h"

namespace Nimbrel {

/// One gate with everything that its arithmetic needs, as of its record: the matrix, and the store
/// slots of the blocks that it works on. Blocks may be exchanged and their marks may change before
/// it acts.
///
/// Store slots are bits of `slots` and `odd_slots`, so a waiting gate belongs to a register of at
/// most 64 blocks.
struct WaitingGate {
    GateKind kind = GateKind::sign_flip;
    bool is_product = false;  ///< a rotation about a Pauli product; `kind` is not used then

    unsigned long target = 0;    ///< a slot bit, or 0; of a product its X mask inside the block
    unsigned long distance = 0;  ///< the store slots of each pair differ in these bits; 0: no pairs
    SlotCondition controls = {};
    unsigned long slots = 0;  ///< the blocks to work on, of each pair the one with x
    MatrixEntries matrix = {};

    // A product alone, beside `target`: P has `y_factors` factors of i.
    unsigned long z_mask = 0;     ///< Z mask inside the block
    unsigned long odd_slots = 0;  ///< blocks whose number has odd parity under the Z mask
    unsigned y_factors = 0;
    double sine = 0.0;
    double cosine = 0.0;

    /// The bits of an amplitude's place in the store that the gate changes.
    unsigned long paired_bits(unsigned long num_block_qubits) const {
        return target | distance << num_block_qubits;
    }
};

/// The whole state in the order of the store: place = store slot * block size + slot.
struct StoredState {
    complex_t* amplitudes;
    unsigned long num_qubits;
    unsigned long num_block_qubits;

    unsigned long num_slots() const { return 1UL << (num_qubits - num_block_qubits); }
};

/// Applies a gate to the block in a store slot, or to its pair. Any thread, if no other works on
/// these blocks. Requires: the slot is one of the gate's.
void act_on_block(const WaitingGate& gate, const StoredState& state, unsigned long slot);

}  // namespace Nimbrel
