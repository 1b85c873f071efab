// The operations as the submitter calls them: each one waits for the last task, copies its
// arguments into the block and submits a task.
#include "dense/blocks/core_block.h"

namespace Nimbrel {

void CoreBlock::op_not(unsigned long target_mask) {
    submit(TASK_OP_NOT, GateArguments{.target_mask = target_mask});
}

void CoreBlock::op_cnot(unsigned long target_mask, SlotCondition condition) {
    submit_pair(TASK_OP_CNOT, GateArguments{.target_mask = target_mask, .condition = condition});
}

void CoreBlock::op_hadamard(unsigned long target_mask, SlotCondition condition) {
    submit_pair(TASK_OP_HADAMARD,
                GateArguments{.target_mask = target_mask, .condition = condition});
}

void CoreBlock::op_complex2x2(unsigned long target_mask, SlotCondition condition,
                              const GateMatrix& matrix) {
    submit_matrix(TASK_OP_COMPLEX2X2, target_mask, condition, matrix);
}

void CoreBlock::op_real2x2(unsigned long target_mask, SlotCondition condition,
                           const GateMatrix& matrix) {
    submit_matrix(TASK_OP_REAL2X2, target_mask, condition, matrix);
}

// The factor has norm 1, so its real part is enough to find 1 and -1, which need no product.
void CoreBlock::op_phase(SlotCondition condition, double im, double re) {
    if (re == 1.0) return;
    if (re == -1.0) return op_cz(condition);
    submit(TASK_OP_CPHASE, PhaseArguments{.condition = condition, .im = im, .re = re});
}

void CoreBlock::op_cz(SlotCondition condition) {
    submit(TASK_OP_CZ, GateArguments{.target_mask = 0, .condition = condition});
}

void CoreBlock::op_ppr(unsigned long x_mask, unsigned long z_mask, SlotCondition condition,
                       double sine, double cosine) {
    submit_pair(TASK_OP_PPR, ProductArguments{.x_mask = x_mask,
                                              .z_mask = z_mask,
                                              .condition = condition,
                                              .sine = sine,
                                              .cosine = cosine});
}

void CoreBlock::op_ppm(unsigned long x_mask, unsigned long z_mask, unsigned long measured) {
    submit_pair(TASK_OP_PPM,
                ProductArguments{.x_mask = x_mask, .z_mask = z_mask, .measured = measured});
}

void CoreBlock::op_pps(unsigned long x_mask, unsigned long z_mask, double* result) {
    submit_pair(TASK_OP_PPS,
                ProductArguments{.x_mask = x_mask, .z_mask = z_mask, .result = result});
}

void CoreBlock::op_x_multi(unsigned long target_bits, unsigned long condition_bits) {
    submit_pair(TASK_OP_X_MULTI,
                GateArguments{.target_mask = target_bits, .condition = {.mask = condition_bits}});
}

void CoreBlock::peek_read_probability(double* out, unsigned long value, unsigned long mask,
                                      double limit) {
    submit(TASK_PEEK_READ_PROBABILITY,
           ReadArguments{.result = out, .value = value, .mask = mask, .limit = limit});
}

void CoreBlock::peek_split_probability(SplitProbability* out, unsigned long bit) {
    submit(TASK_PEEK_READ_PROBABILITY, ReadArguments{.split = out, .mask = bit});
}

void CoreBlock::get_index_from_probability(double target, unsigned long* out) {
    submit(TASK_GET_INDEX_FROM_PROBABILITY, IndexArguments{.target = target, .result = out});
}

void CoreBlock::scale_probability(double factor) {
    submit(TASK_SCALE_PROBABILITY, ScaleArguments{.factor = factor});
}

void CoreBlock::collapse(unsigned long mask, unsigned long value) {
    submit(TASK_COLLAPSE, MaskArguments{.mask = mask, .value = value});
}

// The mark is set before the memory is cleared: any later task of this block runs after the
// clearing.
void CoreBlock::set_zero() {
    wait_until_idle();
    all_zero = true;
    post(TASK_SET_ZERO, {});
}

void CoreBlock::set_zero_mask(unsigned long mask) {
    submit(TASK_SET_ZERO_MASK, MaskArguments{.mask = mask});
}

void CoreBlock::set_random() {
    wait_until_idle();
    all_zero = false;
    post(TASK_SET_RANDOM, {});
}

}  // namespace Nimbrel
