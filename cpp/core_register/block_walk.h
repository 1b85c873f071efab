/// The choice of the blocks and the pairs of blocks that a gate works on. For cpp/core_register
/// only; all functions run on the submitting thread.
#pragma once

#include <bit>

#include "core_register/core_register.h"
#include "dense/blocks/core_block.h"
#include "dense/blocks/waiting_gate.h"
#include "support/bits.h"

namespace Nimbrel {

/// The controls of a gate, divided at the block size: the bits of the block number select blocks,
/// the kernels test the slot bits.
struct GateCondition {
    /// No controls.
    GateCondition() = default;

    /// `negated` names the controls that must be 0. Bits of it outside `controls` are passed on: no
    /// block number meets such a bit, and the kernels define what a slot does.
    GateCondition(const QPU& qpu, unsigned long controls, unsigned long negated)
        : slots{.mask = controls & qpu.block_slot_mask,
                .pattern = (controls ^ negated) & qpu.block_slot_mask},
          block_mask(controls >> qpu.num_block_qubits),
          block_pattern((controls ^ negated) >> qpu.num_block_qubits) {}

    /// The condition of a gate's arguments. Controls outside the register are dropped.
    static GateCondition of_gate(const QPU& qpu, unsigned long cond_mask,
                                 unsigned long cond_neg_mask) {
        const unsigned long controls = cond_mask & qpu.qubit_mask;
        return {qpu, controls, controls & cond_neg_mask};
    }

    bool admits_block(unsigned long number) const { return (number & block_mask) == block_pattern; }

    SlotCondition slots;
    unsigned long block_mask = 0;
    unsigned long block_pattern = 0;
};

/// Calls `visit(bit)` for each set bit of the mask, from the highest down.
template <typename Visit>
void for_each_bit_down(unsigned long mask, Visit&& visit) {
    while (mask != 0) {
        const unsigned long bit = std::bit_floor(mask);
        visit(bit);
        mask ^= bit;
    }
}

/// Calls `visit(block)` for each block that the condition admits and that is not all zero.
template <typename Visit>
void for_each_live_block(QPU& qpu, const GateCondition& condition, Visit&& visit) {
    for (unsigned long i = 0; i < qpu.num_blocks; ++i) {
        CoreBlock& block = *qpu.blocks[i];
        if (condition.admits_block(i) && !block.all_zero) visit(block);
    }
}

/// Calls `visit(lower, upper)` for each pair of blocks whose numbers differ in exactly the bits of
/// `distance`, except pairs of two all-zero blocks. The lower block has the lowest of these bits
/// clear, and only its number is tested. Returns whether there was any pair.
///
///     distance 0b10 of 8 blocks:  0 1 2 3 4 5 6 7
///                                 |_|_| | |_|_| |
///                                   |___|   |___|
template <typename Visit>
bool for_each_live_pair(QPU& qpu, unsigned long distance, const GateCondition& condition,
                        Visit&& visit) {
    const unsigned long selector = lowest_bit(distance);
    bool any = false;
    for (unsigned long i = 0; i < qpu.num_blocks; ++i) {
        if ((i & selector) != 0 || !condition.admits_block(i)) continue;
        CoreBlock& lower = *qpu.blocks[i];
        CoreBlock& upper = *qpu.blocks[i ^ distance];
        if (lower.all_zero && upper.all_zero) continue;
        visit(lower, upper);
        any = true;
    }
    return any;
}

/// Adds a gate that flips the index bits `flipped` to the register's waiting gates, with the blocks
/// that it works on. `gate` tells the arithmetic; its blocks and controls are filled in here.
/// Returns false for a gate that has to act at once, and has done nothing then.
/// Requires: the register lets gates wait.
bool let_wait(QPU& qpu, unsigned long flipped, const GateCondition& condition, WaitingGate gate);

/// Calls `task(block)` for an operation that flips the index bits `flipped`: on each single block
/// when all of them are slot bits, else on the lower block of each pair.
/// Requires: `flipped` lies in the register. Leaves: pairs are idle, single blocks may be at work.
template <typename Task>
void run_on_blocks(QPU& qpu, unsigned long flipped, const GateCondition& condition, Task&& task) {
    const unsigned long distance = flipped >> qpu.num_block_qubits;
    if (distance == 0) {
        for_each_live_block(qpu, condition, task);
        return;
    }
    const auto run_pair = [&task](CoreBlock& lower, CoreBlock& upper) {
        lower.set_op_buddy(&upper);
        task(lower);
    };
    // A block is in one pair at a time, and the next operation may pair it with another block.
    if (for_each_live_pair(qpu, distance, condition, run_pair)) qpu.finish();
}

/// The same for a gate that may wait: lets `make_gate()` wait, or calls `task(block)`. A gate on a
/// few qubits would notice what it takes to make one for nothing.
template <typename MakeGate, typename Task>
void run_gate(QPU& qpu, unsigned long flipped, const GateCondition& condition, MakeGate&& make_gate,
              Task&& task) {
    if (qpu.lets_gates_wait() && let_wait(qpu, flipped, condition, make_gate())) return;
    run_on_blocks(qpu, flipped, condition, task);
}

/// Runs a gate on each of its targets, from the highest down: targets in the block number come
/// before slot targets, because no wait follows a slot target. Calls `task(block, target, slots)`
/// with a target of 0 for a pair. The targets are no longer known to be classical.
template <typename MakeGate, typename Task>
void run_on_targets(QPU& qpu, unsigned long target_mask, unsigned long cond_mask,
                    unsigned long cond_neg_mask, MakeGate&& make_gate, Task&& task) {
    qpu.classical_qubits &= ~target_mask;
    const auto condition = GateCondition::of_gate(qpu, cond_mask, cond_neg_mask);
    for_each_bit_down(target_mask & qpu.qubit_mask, [&](unsigned long target) {
        ++qpu.op_count;
        run_gate(qpu, target, condition, make_gate, [&](CoreBlock& block) {
            task(block, target & qpu.block_slot_mask, condition.slots);
        });
    });
    qpu.removable_finish();
}

}  // namespace Nimbrel
