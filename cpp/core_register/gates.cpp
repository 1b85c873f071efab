#include "core_register/block_walk.h"
#include "core_register/core_register.h"
#include "dense/blocks/core_block.h"
#include "support/bits.h"

namespace Nimbrel {
namespace {

/// Exchanges the memory of the pairs of blocks at `distance`; no amplitude moves and nothing is
/// left to wait for.
void swap_pairs(QPU& qpu, unsigned long distance, const GateCondition& condition) {
    for_each_live_pair(qpu, distance, condition,
                       [](CoreBlock& lower, CoreBlock& upper) { lower.swap_blocks(&upper); });
}

/// Targets and controls of a diagonal gate inside the register. It has no preferred qubit, so the
/// lowest control stands in for a target when there is none.
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

}  // namespace

void QPU::hadamard(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
                   long cond_flag) {
    if (!acts(cond_flag)) return;
    classical_qubits &= ~target_mask;
    const auto condition = GateCondition::of_gate(*this, cond_mask, cond_neg_mask);
    run_on_targets(*this, target_mask, condition, [&](CoreBlock& block, unsigned long target) {
        block.op_hadamard(target, condition.slot_controls, condition.slot_negated);
    });
}

void QPU::complex2x2(const complex_t* matrix, unsigned long target_mask, unsigned long cond_mask,
                     unsigned long cond_neg_mask, long cond_flag) {
    if (!acts(cond_flag)) return;
    classical_qubits &= ~target_mask;
    const auto condition = GateCondition::of_gate(*this, cond_mask, cond_neg_mask);
    run_on_targets(*this, target_mask, condition, [&](CoreBlock& block, unsigned long target) {
        block.op_complex2x2(target, condition.slot_controls, matrix, condition.slot_negated);
    });
}

void QPU::real2x2(const double* matrix, unsigned long target_mask, unsigned long cond_mask,
                  unsigned long cond_neg_mask, long cond_flag) {
    if (!acts(cond_flag)) return;
    classical_qubits &= ~target_mask;
    const auto condition = GateCondition::of_gate(*this, cond_mask, cond_neg_mask);
    run_on_targets(*this, target_mask, condition, [&](CoreBlock& block, unsigned long target) {
        block.op_real2x2(target, condition.slot_controls, matrix, condition.slot_negated);
    });
}

// `cnot` without controls and `op_not` with some hand over to one another; controls outside the
// register only go from there to here and back without them.
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
        if (distance != 0 && condition.slot_controls == 0) {
            swap_pairs(*this, distance, condition);
            return;
        }
        run_on_blocks(*this, target, condition, [&](CoreBlock& block) {
            block.op_cnot(target & block_slot_mask, condition.slot_controls,
                          condition.slot_negated);
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
            for_each_live_block(*this, {}, [=](CoreBlock& block) { block.op_not(target); });
        }
    });
    removable_finish();
}

// Either elbow is a conditional NOT here: the ancilla that it computes or uncomputes is simulated.
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

// The target is one more control, so no pairs form. Basis states stay, and with them what is known
// to be classical; the same holds for `phase`.
void QPU::cz(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
             long cond_flag) {
    if (!acts(cond_flag)) return;
    const DiagonalMasks masks(*this, target_mask, cond_mask);
    if (masks.targets == 0) return;
    for_each_bit(masks.targets, [&](unsigned long target) {
        ++op_count;
        const auto condition =
            GateCondition::of_gate(*this, target | masks.controls, cond_neg_mask);
        for_each_live_block(*this, condition, [&](CoreBlock& block) {
            block.op_cz(condition.slot_controls, condition.slot_negated);
        });
    });
    removable_finish();
}

void QPU::phase(double angle, unsigned long target_mask, unsigned long cond_mask,
                unsigned long cond_neg_mask, long cond_flag) {
    if (!acts(cond_flag)) return;
    if (target_mask == 0 && cond_mask == 0) return;
    ++op_count;
    const DiagonalMasks masks(*this, target_mask, cond_mask);
    const auto [sine, cosine] = angles.of(angle);
    // Negations of all targets go with each one, in the mask of the current one or not.
    const unsigned long negated = (masks.controls | masks.targets) & cond_neg_mask;
    for_each_bit(masks.targets, [&](unsigned long target) {
        const GateCondition condition(*this, target | masks.controls, negated);
        for_each_live_block(*this, condition, [&](CoreBlock& block) {
            block.op_phase(condition.slot_controls, sine, cosine, condition.slot_negated);
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
        // What is known about the two qubits goes with them.
        classical_qubits &= ~(first | second);
        if ((classical_before & first) != 0) classical_qubits |= second;
        if ((classical_before & second) != 0) classical_qubits |= first;
    }
    removable_finish();
}

}  // namespace Nimbrel
