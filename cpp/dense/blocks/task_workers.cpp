// What each task does, on the thread that runs it: lock, call the kernel, unlock, end the pair.
//
// The argument of `unlock` tells whether the amplitudes changed. Only the inactive disk tier uses
// it, to write a block back.
#include <bit>
#include <cstdio>

#include "dense/blocks/core_block.h"
#include "dense/blocks/kernels/contents.h"
#include "dense/blocks/kernels/phases.h"
#include "dense/blocks/kernels/width.h"
#include "dense/blocks/store.h"

namespace Nimbrel {
namespace {

// Workers may fill their blocks at the same time, and the generator has no lock. The order in which
// they get this mutex varies, so seeds repeat a random state only without threads.
std::mutex drawing;

}  // namespace

void CoreBlock::self_check_worker(int line) {
    lock_memory(true, nullptr);
    for (unsigned long i = 0; i < num_terms; ++i) {
        if (is_raw_zero(block_data[i])) continue;
        std::printf("Self-check all-zero inconsistency block %lu at line %d\n", i, line);
    }
    unlock(true, nullptr);
}

void CoreBlock::set_zero_worker() {
    lock_memory(false, nullptr);
    clear_slots(block_data, num_terms);
    unlock(true, nullptr);
}

void CoreBlock::set_random_worker() {
    lock_memory(false, nullptr);
    {
        const std::lock_guard guard(drawing);
        fill_slots_at_random(block_data, num_terms);
    }
    unlock(true, nullptr);
}

void CoreBlock::set_zero_mask_worker(unsigned long mask) {
    lock_memory(true, nullptr);
    unlock(clear_masked_slots(block_data, num_terms, mask), nullptr);
}

void CoreBlock::collapse_worker(unsigned long mask, unsigned long value) {
    lock_memory(true, nullptr);
    unlock(clear_other_slots(block_data, num_terms, mask, value), nullptr);
}

void CoreBlock::peek_read_probability_worker(double* out, unsigned long value, unsigned long mask,
                                             double limit) {
    lock_memory(true, nullptr);
    *out = sum_probabilities(block_data, num_terms, mask, value, limit);
    unlock(false, nullptr);
}

void CoreBlock::peek_split_probability_worker(SplitProbability* out, unsigned long bit) {
    lock_memory(true, nullptr);
    *out = split_probabilities(block_data, num_terms, bit);
    unlock(false, nullptr);
}

void CoreBlock::get_index_from_probability_worker(double target, unsigned long* out) {
    lock_memory(true, nullptr);
    *out = find_slot(block_data, num_terms, target);
    unlock(false, nullptr);
}

void CoreBlock::scale_probability_worker(double factor) {
    lock_memory(true, nullptr);
    scale_slots(block_data, num_terms, factor);
    unlock(true, nullptr);
}

[[gnu::always_inline]] inline void CoreBlock::run_pair_gate(const SlotGate& gate) {
    CoreBlock* buddy = op_buddy;
    lock_memory(true, buddy);
    complex_t* upper = buddy != nullptr ? buddy->block_data : nullptr;
    unlock(apply_gate(gate, block_data, upper, num_terms), buddy);
    if (gate.target == 0) set_op_buddy(nullptr);
}

void CoreBlock::op_not_worker(unsigned long target_mask) {
    // A block in memory is not written back, so nothing has to be compared.
    const GateKind kind =
        block_store->all_in_ram() ? GateKind::exchange : GateKind::compared_exchange;
    run_pair_gate({.kind = kind, .target = target_mask});
}

void CoreBlock::op_cnot_worker(unsigned long target_mask, SlotCondition condition) {
    run_pair_gate({.kind = GateKind::exchange, .target = target_mask, .controls = condition});
}

void CoreBlock::op_had_worker(unsigned long target_mask, SlotCondition condition) {
    run_pair_gate({.kind = GateKind::hadamard, .target = target_mask, .controls = condition});
}

void CoreBlock::op_complex2x2_worker(unsigned long target_mask, SlotCondition condition,
                                     const GateMatrix& matrix) {
    run_pair_gate({.kind = matrix.kind,
                   .target = target_mask,
                   .controls = condition,
                   .matrix = &matrix.entries});
}

// The matrix tells its kind.
void CoreBlock::op_real2x2_worker(unsigned long target_mask, SlotCondition condition,
                                  const GateMatrix& matrix) {
    op_complex2x2_worker(target_mask, condition, matrix);
}

void CoreBlock::op_cphase_worker(SlotCondition condition, double im, double re) {
    lock_memory(true, nullptr);
    if (num_terms < fewest_wide_slots) {
        multiply_slots(block_data, num_terms, condition, {re, im});  // soonest on a few qubits
    } else {
        const MatrixEntries factor{{{}, {}, {}, {re, im}}};
        apply_gate({.kind = GateKind::phase, .controls = condition, .matrix = &factor}, block_data,
                   nullptr, num_terms);
    }
    unlock(true, nullptr);
}

void CoreBlock::op_cz_worker(SlotCondition condition) {
    lock_memory(true, nullptr);
    apply_gate({.kind = GateKind::sign_flip, .controls = condition}, block_data, nullptr,
               num_terms);
    unlock(true, nullptr);
}

template <typename Kernel>
void CoreBlock::run_product(unsigned long x_mask, unsigned long z_mask, bool write_back,
                            Kernel&& kernel) {
    CoreBlock* buddy = op_buddy;
    lock_memory(true, buddy);
    kernel(PauliProduct{.here = block_data,
                        .there = buddy != nullptr ? buddy->block_data : nullptr,
                        .n = num_terms,
                        .num_block_qubits = num_block_qubits,
                        .here_number = thread_id,
                        .there_number = buddy != nullptr ? buddy->thread_id : 0,
                        .x_mask = x_mask,
                        .z_mask = z_mask,
                        .y_factors = static_cast<unsigned>(std::popcount(x_mask & z_mask))});
    unlock(write_back, buddy);
    if (buddy != nullptr) set_op_buddy(nullptr);
}

void CoreBlock::op_ppr_worker(unsigned long x_mask, unsigned long z_mask, SlotCondition condition,
                              double sine, double cosine) {
    run_product(x_mask, z_mask, true, [=](const PauliProduct& product) {
        rotate_product(product, condition, sine, cosine);
    });
}

void CoreBlock::op_ppm_worker(unsigned long x_mask, unsigned long z_mask, unsigned long measured) {
    run_product(x_mask, z_mask, true,
                [=](const PauliProduct& product) { project_product(product, measured); });
}

void CoreBlock::op_pps_worker(unsigned long x_mask, unsigned long z_mask, double* result) {
    run_product(x_mask, z_mask, false,
                [=](const PauliProduct& product) { *result = product_probability(product); });
}

// The early return leaves the lock counted, which nothing depends on while blocks are in memory.
void CoreBlock::op_x_multi_worker(unsigned long target_bits, unsigned long condition_bits) {
    CoreBlock* buddy = op_buddy;
    lock_memory(true, buddy);
    const unsigned long flips = target_bits & product_slot_mask(num_block_qubits);
    if (flips == 0) return;
    exchange_slots(block_data, buddy != nullptr ? buddy->block_data : nullptr, num_terms, flips,
                   condition_bits);
    unlock(true, buddy);
    if (buddy != nullptr) set_op_buddy(nullptr);
}

}  // namespace Nimbrel
