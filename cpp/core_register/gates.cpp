#include "core_register/block_walk.h"
#include "core_register/core_register.h"
#include "dense/blocks/core_block.h"
#include "support/bits.h"

namespace Nimbrel {
namespace {

/// Exchanges the memory of the pairs of blocks at `distance`. No amplitude moves, and the blocks
/// are idle afterwards.
void swap_pairs(QPU& qpu, unsigned long distance, const GateCondition& condition) {
    for_each_live_pair(qpu, distance, condition,
                       [](CoreBlock& lower, CoreBlock& upper) { lower.swap_blocks(&upper); });
}

/// Targets and controls of a diagonal gate inside the register. Target and control are
/// interchangeable, so the lowest control becomes the target of a gate without one.
struct DiagonalMasks {
    DiagonalMasks(const QPU& qpu, unsigned long target_mask, unsigned long cond_mask)
        : targets(target_mask & qpu.qubit_mask), controls(cond_mask & qpu.qubit_mask) {
        if (targets != 0) return;
        targets = lowest_bit(controls);
        controls = without_lowest_bit(controls);
    }

    unsigned long targets;
    unsigned long controls;
};

WaitingGate exchange() { return {.kind = GateKind::exchange}; }

}  // namespace

void QPU::hadamard(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
                   long cond_flag) {
    if (!acts(cond_flag)) return;
    run_on_targets(
        *this, target_mask, cond_mask, cond_neg_mask,
        [] { return WaitingGate{.kind = GateKind::hadamard}; },
        [](CoreBlock& block, unsigned long target, SlotCondition controls) {
            block.op_hadamard(target, controls);
        });
}

void QPU::complex2x2(const complex_t* matrix, unsigned long target_mask, unsigned long cond_mask,
                     unsigned long cond_neg_mask, long cond_flag) {
    if (!acts(cond_flag)) return;
    apply_matrix(GateMatrix::complex(matrix), target_mask, cond_mask, cond_neg_mask);
}

void QPU::apply_matrix(const GateMatrix& matrix, unsigned long target_mask, unsigned long cond_mask,
                       unsigned long cond_neg_mask) {
    run_on_targets(
        *this, target_mask, cond_mask, cond_neg_mask,
        [&matrix] { return WaitingGate{.kind = matrix.kind, .matrix = matrix.entries}; },
        [&matrix](CoreBlock& block, unsigned long target, SlotCondition controls) {
            block.op_complex2x2(target, controls, matrix);
        });
}

void QPU::real2x2(const double* m, unsigned long target_mask, unsigned long cond_mask,
                  unsigned long cond_neg_mask, long cond_flag) {
    if (!acts(cond_flag)) return;
    const GateMatrix matrix = GateMatrix::real(m);
    run_on_targets(
        *this, target_mask, cond_mask, cond_neg_mask,
        [&matrix] { return WaitingGate{.kind = matrix.kind, .matrix = matrix.entries}; },
        [&matrix](CoreBlock& block, unsigned long target, SlotCondition controls) {
            block.op_real2x2(target, controls, matrix);
        });
}

// `cnot` without controls calls `op_not`; `op_not` with controls calls `cnot`. Controls outside the
// register count for `op_not` and are dropped here, so that `op_not` runs without controls.
void QPU::cnot(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
               long cond_flag) {
    if (!acts(cond_flag)) return;
    classical_qubits &= ~target_mask;
    if ((cond_mask & qubit_mask) == 0) {
        op_not(target_mask & qubit_mask, 0, 0, 0);
        return;
    }
    const auto condition = GateCondition::of_gate(*this, cond_mask, cond_neg_mask);
    for_each_bit_down(target_mask & qubit_mask, [&](unsigned long target) {
        ++op_count;
        const unsigned long distance = target >> num_block_qubits;
        if (distance != 0 && condition.slots.mask == 0) {
            swap_pairs(*this, distance, condition);
            return;
        }
        run_gate(*this, target, condition, exchange, [&](CoreBlock& block) {
            block.op_cnot(target & block_slot_mask, condition.slots);
        });
    });
    removable_finish();
}

void QPU::op_not(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
                 long cond_flag) {
    if (!acts(cond_flag)) return;
    classical_qubits &= ~target_mask;
    if (cond_mask != 0) {
        cnot(target_mask, cond_mask, cond_neg_mask, 0);
        return;
    }
    ++op_count;
    for_each_bit_down(target_mask & qubit_mask, [&](unsigned long target) {
        const unsigned long distance = target >> num_block_qubits;
        if (distance != 0) {
            swap_pairs(*this, distance, {});
        } else {
            run_gate(*this, target, {}, exchange, [=](CoreBlock& block) { block.op_not(target); });
        }
    });
    removable_finish();
}

// Either elbow is a controlled NOT here: the ancilla that it computes or uncomputes is simulated.
void QPU::lelbow(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
                 long cond_flag) {
    if (!acts(cond_flag)) return;
    classical_qubits &= ~target_mask;
    const unsigned long targets = target_mask & qubit_mask;
    if (targets == 0) return;
    op_not(targets, cond_mask & qubit_mask, cond_neg_mask, 0);
}

void QPU::relbow(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
                 long cond_flag) {
    lelbow(target_mask, cond_mask, cond_neg_mask, cond_flag);
}

// The target is one more control, so the gate needs no pairs. It maps each basis state to itself,
// so classical qubits stay classical; the same holds for `phase`.
void QPU::cz(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
             long cond_flag) {
    if (!acts(cond_flag)) return;
    const DiagonalMasks masks(*this, target_mask, cond_mask);
    if (masks.targets == 0) return;
    for_each_bit(masks.targets, [&](unsigned long target) {
        ++op_count;
        const auto condition =
            GateCondition::of_gate(*this, target | masks.controls, cond_neg_mask);
        run_gate(
            *this, 0, condition, [] { return WaitingGate{.kind = GateKind::sign_flip}; },
            [&](CoreBlock& block) { block.op_cz(condition.slots); });
    });
    removable_finish();
}

void QPU::phase(double angle, unsigned long target_mask, unsigned long cond_mask,
                unsigned long cond_neg_mask, long cond_flag) {
    if (!acts(cond_flag)) return;
    if (target_mask == 0 && cond_mask == 0) return;
    ++op_count;
    const DiagonalMasks masks(*this, target_mask, cond_mask);
    const SineCosine turn = angles.of(angle);
    if (turn.cosine == 1.0) return removable_finish();
    const auto gate = [&turn] {
        return WaitingGate{
            .kind = turn.cosine == -1.0 ? GateKind::sign_flip : GateKind::phase,
            .matrix = {{{1.0, 0.0}, {0.0, 0.0}, {0.0, 0.0}, {turn.cosine, turn.sine}}}};
    };
    // Each target gets the negated bits of all targets, also those outside its own controls.
    const unsigned long negated = (masks.controls | masks.targets) & cond_neg_mask;
    for_each_bit(masks.targets, [&](unsigned long target) {
        const GateCondition condition(*this, target | masks.controls, negated);
        run_gate(*this, 0, condition, gate, [&](CoreBlock& block) {
            block.op_phase(condition.slots, turn.sine, turn.cosine);
        });
    });
    removable_finish();
}

// With one target the second is 0: the outer gates do nothing and the middle one is a NOT.
void QPU::cswap(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
                long cond_flag) {
    if (!acts(cond_flag)) return;
    const unsigned long classical_before = classical_qubits;
    const unsigned long first = lowest_bit(target_mask);
    const unsigned long second = lowest_bit(without_lowest_bit(target_mask));
    cnot(second, cond_mask | first, cond_neg_mask, 0);
    cnot(first, cond_mask | second, cond_neg_mask, 0);
    cnot(second, cond_mask | first, cond_neg_mask, 0);

    if (cond_mask != 0) {
        classical_qubits &= ~target_mask;
    } else {
        // Each qubit takes the classical mark of the other.
        classical_qubits &= ~(first | second);
        if ((classical_before & first) != 0) classical_qubits |= second;
        if ((classical_before & second) != 0) classical_qubits |= first;
    }
    removable_finish();
}

}  // namespace Nimbrel
