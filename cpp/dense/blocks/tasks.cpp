#include "dense/blocks/core_block.h"

// Every operation hands over its task by the same steps: wait for the last one, put the arguments
// in place, submit. With a buddy, neither block of the pair counts as zero from then on.

namespace Nimbrel {

void CoreBlock::prepare_pair_submission() {
    prepare_submission();
    // Asked only now: the task that ended may have ended a pair as well.
    if (op_buddy == nullptr) return;
    all_zero = false;
    op_buddy->all_zero = false;
}

void CoreBlock::op_not(unsigned long target_mask) {
    prepare_submission();
    arguments.target_mask = target_mask;
    submit(TASK_OP_NOT);
}

void CoreBlock::op_cnot(unsigned long target_mask, unsigned long cond_mask,
                        unsigned long cond_neg_mask) {
    prepare_pair_submission();
    arguments.target_mask = target_mask;
    arguments.cond_mask = cond_mask;
    arguments.cond_neg_mask = cond_neg_mask;
    submit(TASK_OP_CNOT);
}

void CoreBlock::op_hadamard(unsigned long target_mask, unsigned long cond_mask,
                            unsigned long cond_neg_mask) {
    prepare_pair_submission();
    arguments.target_mask = target_mask;
    arguments.cond_mask = cond_mask;
    arguments.cond_neg_mask = cond_neg_mask;
    submit(TASK_OP_HADAMARD);
}

void CoreBlock::op_complex2x2(unsigned long target_mask, unsigned long cond_mask,
                              const complex_t* matrix, unsigned long cond_neg_mask) {
    prepare_pair_submission();
    arguments.target_mask = target_mask;
    arguments.cond_mask = cond_mask;
    arguments.complex_matrix = matrix;
    arguments.cond_neg_mask = cond_neg_mask;
    submit(TASK_OP_COMPLEX2X2);
}

void CoreBlock::op_real2x2(unsigned long target_mask, unsigned long cond_mask, const double* matrix,
                           unsigned long cond_neg_mask) {
    prepare_pair_submission();
    arguments.target_mask = target_mask;
    arguments.cond_mask = cond_mask;
    arguments.real_matrix = matrix;
    arguments.cond_neg_mask = cond_neg_mask;
    submit(TASK_OP_REAL2X2);
}

// The factor has norm 1, so its real part alone tells the two cases that need no product.
void CoreBlock::op_phase(unsigned long cond_mask, double im, double re,
                         unsigned long cond_neg_mask) {
    if (re == 1.0) return;
    if (re == -1.0) return op_cz(cond_mask, cond_neg_mask);
    prepare_submission();
    arguments.cond_mask = cond_mask;
    arguments.first_factor = im;
    arguments.second_factor = re;
    arguments.cond_neg_mask = cond_neg_mask;
    submit(TASK_OP_CPHASE);
}

void CoreBlock::op_cz(unsigned long cond_mask, unsigned long cond_neg_mask) {
    prepare_submission();
    arguments.cond_mask = cond_mask;
    arguments.cond_neg_mask = cond_neg_mask;
    submit(TASK_OP_CZ);
}

void CoreBlock::op_ppr(unsigned long x_mask, unsigned long z_mask, unsigned long cond_mask,
                       double sine, double cosine, unsigned long cond_neg_mask) {
    prepare_pair_submission();
    arguments.x_mask = x_mask;
    arguments.z_mask = z_mask;
    arguments.cond_mask = cond_mask;
    arguments.first_factor = sine;
    arguments.second_factor = cosine;
    arguments.cond_neg_mask = cond_neg_mask;
    submit(TASK_OP_PPR);
}

void CoreBlock::op_ppm(unsigned long x_mask, unsigned long z_mask, unsigned long measured) {
    prepare_pair_submission();
    arguments.x_mask = x_mask;
    arguments.z_mask = z_mask;
    arguments.measured = measured;
    submit(TASK_OP_PPM);
}

void CoreBlock::op_pps(unsigned long x_mask, unsigned long z_mask, double* result) {
    prepare_pair_submission();
    arguments.x_mask = x_mask;
    arguments.z_mask = z_mask;
    arguments.result = result;
    submit(TASK_OP_PPS);
}

void CoreBlock::op_x_multi(unsigned long target_bits, unsigned long condition_bits) {
    prepare_pair_submission();
    arguments.target_mask = target_bits;
    arguments.cond_mask = condition_bits;
    submit(TASK_OP_X_MULTI);
}

void CoreBlock::peek_read_probability(double* out, unsigned long value, unsigned long mask,
                                      double limit) {
    prepare_submission();
    arguments.result = out;
    arguments.split = nullptr;
    arguments.value = value;
    arguments.mask = mask;
    arguments.limit = limit;
    submit(TASK_PEEK_READ_PROBABILITY);
}

void CoreBlock::peek_split_probability(SplitProbability* out, unsigned long bit) {
    prepare_submission();
    arguments.split = out;
    arguments.mask = bit;
    submit(TASK_PEEK_READ_PROBABILITY);
}

void CoreBlock::get_index_from_probability(double target, unsigned long* out) {
    prepare_submission();
    arguments.probability_target = target;
    arguments.result_index = out;
    submit(TASK_GET_INDEX_FROM_PROBABILITY);
}

void CoreBlock::scale_probability(double factor) {
    prepare_submission();
    arguments.scale = factor;
    submit(TASK_SCALE_PROBABILITY);
}

void CoreBlock::collapse(unsigned long mask, unsigned long value) {
    prepare_submission();
    arguments.mask = mask;
    arguments.value = value;
    submit(TASK_COLLAPSE);
}

// Set before the memory is cleared: the clearing comes before any later task of this block.
void CoreBlock::set_zero() {
    prepare_submission();
    all_zero = true;
    submit(TASK_SET_ZERO);
}

void CoreBlock::set_zero_mask(unsigned long mask) {
    prepare_submission();
    arguments.zero_mask = mask;
    submit(TASK_SET_ZERO_MASK);
}

void CoreBlock::set_random() {
    prepare_submission();
    all_zero = false;
    submit(TASK_SET_RANDOM);
}

}  // namespace Nimbrel
