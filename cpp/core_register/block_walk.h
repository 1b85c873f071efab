/// What the parts of the register share: results of one number a block, and the choice of the
/// blocks and the pairs of blocks that a gate works on. For cpp/core_register only.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <memory>
#include <stdexcept>
#include <type_traits>

#include "core_register/core_register.h"
#include "dense/blocks/core_block.h"
#include "support/bits.h"

namespace Nimbrel {

/// One result a block, zero at first, so that all blocks can work at once and be added in order.
///
/// Requires: no task that writes here is left when it goes.
template <typename Result>
class EachBlock {
    static_assert(std::is_trivially_default_constructible_v<Result>, "or all of it is filled");

  public:
    explicit EachBlock(unsigned long num_blocks) {
        // The limit of an array with its size in bytes in front, which such a register would need.
        if (num_blocks >> 60 != 0) {
            throw std::length_error("cannot create std::vector larger than max_size()");
        }
        if (num_blocks > small_.size()) {
            large_ = std::make_unique<Result[]>(num_blocks);
            values_ = large_.get();
        } else {
            values_ = small_.data();
            std::fill_n(values_, num_blocks, Result{});
        }
    }
    EachBlock(const EachBlock&) = delete;
    EachBlock& operator=(const EachBlock&) = delete;

    Result& operator[](unsigned long block) { return values_[block]; }
    const Result& operator[](unsigned long block) const { return values_[block]; }

  private:
    // Enough for every automatic layout on up to 64 hardware threads. Filled as far as it is used.
    std::array<Result, 128> small_;
    std::unique_ptr<Result[]> large_;
    Result* values_ = nullptr;
};

using PerBlock = EachBlock<double>;

/// Waits for the blocks in order and adds what their tasks have left in `results`.
inline double sum_of_blocks(const QPU& qpu, const PerBlock& results) {
    double sum = 0.0;
    for (unsigned long i = 0; i < qpu.num_blocks; ++i) {
        qpu.blocks[i]->finish();
        sum += results[i];
    }
    return sum;
}

/// A quantum condition, divided at the block's size: what selects blocks by their number, and what
/// a kernel tests on its slots.
struct GateCondition {
    /// No condition.
    GateCondition() = default;

    /// `negated` names those of the controls that must be 0. Bits of it outside `controls` go down
    /// as they are: no block meets one in the number, and the kernels know what to do with a
    /// slot's.
    GateCondition(const QPU& qpu, unsigned long controls, unsigned long negated)
        : slot_controls(controls & qpu.block_slot_mask),
          slot_negated(negated & qpu.block_slot_mask),
          block_controls(controls >> qpu.num_block_qubits),
          block_pattern((negated >> qpu.num_block_qubits) ^ block_controls) {}

    /// The condition of a gate's arguments; controls outside the register are dropped.
    static GateCondition of_gate(const QPU& qpu, unsigned long cond_mask,
                                 unsigned long cond_neg_mask) {
        const unsigned long controls = cond_mask & qpu.qubit_mask;
        return {qpu, controls, controls & cond_neg_mask};
    }

    bool admits_block(unsigned long number) const {
        return (number & block_controls) == block_pattern;
    }

    unsigned long slot_controls = 0;
    unsigned long slot_negated = 0;
    unsigned long block_controls = 0;
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

/// Calls `visit(block)` for each block that the condition admits and that holds anything.
template <typename Visit>
void for_each_live_block(QPU& qpu, const GateCondition& condition, Visit&& visit) {
    for (unsigned long i = 0; i < qpu.num_blocks; ++i) {
        CoreBlock& block = *qpu.blocks[i];
        if (condition.admits_block(i) && !block.all_zero) visit(block);
    }
}

/// Calls `visit(lower, upper)` for each pair of blocks with numbers that differ in exactly the bits
/// of `distance`, unless both are all zero. Lower is the one with the lowest of these bits clear,
/// and only its number is tested. Returns whether there was any.
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

/// Gives `task(block)` to the blocks of an operation that flips the index bits `flipped`: to each
/// alone when all of them are slot bits, else to the lower block of each pair.
/// Requires: `flipped` lies in the register. Leaves: pairs are done, single blocks at work.
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
    // A block can be in one pair at a time, and the next operation may pair it differently.
    if (for_each_live_pair(qpu, distance, condition, run_pair)) qpu.finish();
}

/// The walk of a gate with targets, each a gate of its own, down from the highest: the targets in
/// the block's number come before all slot targets, whose tasks nothing waits for in between.
/// `task(block, target)` gets a target of 0 for a pair.
template <typename Task>
void run_on_targets(QPU& qpu, unsigned long target_mask, const GateCondition& condition,
                    Task&& task) {
    for_each_bit_down(target_mask & qpu.qubit_mask, [&](unsigned long target) {
        ++qpu.op_count;
        const unsigned long slot_target = target & qpu.block_slot_mask;
        run_on_blocks(qpu, target, condition, [&](CoreBlock& block) { task(block, slot_target); });
    });
    qpu.removable_finish();
}

}  // namespace Nimbrel
