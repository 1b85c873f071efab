#include "dense/blocks/waiting_gate.h"

#include "dense/blocks/kernels/pauli.h"

namespace Nimbrel {

void act_on_block(const WaitingGate& gate, const StoredState& state, unsigned long slot) {
    const unsigned long size = 1UL << state.num_block_qubits;
    const unsigned long partner = slot ^ gate.distance;
    complex_t* here = state.amplitudes + slot * size;
    complex_t* there = gate.distance == 0 ? nullptr : state.amplitudes + partner * size;
    if (!gate.is_product) {
        apply_gate({.kind = gate.kind,
                    .target = gate.target,
                    .controls = gate.controls,
                    .matrix = &gate.matrix},
                   here, there, size);
        return;
    }
    // The parities of the two block numbers, as a bit above the slots that the Z mask selects.
    rotate_product({.here = here,
                    .there = there,
                    .n = size,
                    .num_block_qubits = state.num_block_qubits,
                    .here_number = gate.odd_slots >> slot & 1,
                    .there_number = gate.odd_slots >> partner & 1,
                    .x_mask = gate.target,
                    .z_mask = gate.z_mask | size,
                    .y_factors = gate.y_factors},
                   gate.controls, gate.sine, gate.cosine);
}

}  // namespace Nimbrel
