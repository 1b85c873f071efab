#include <cmath>
#include <cstdio>
#include <stdexcept>

#include "core_register/block_walk.h"
#include "core_register/core_register.h"
#include "dense/blocks/core_block.h"

namespace Nimbrel {

double QPU::add_block_sums() {
    double sum = 0.0;
    for (unsigned long i = 0; i < num_blocks; ++i) {
        blocks[i]->finish();
        sum += block_sums[i];
    }
    return sum;
}

double QPU::sum_whole_blocks() {
    block_sums.assign(num_blocks, 0.0);
    for_each_live_block(*this, {}, [this](CoreBlock& block) {
        block.peek_read_probability(&block_sums[block.thread_id], 0, 0, 0.0);
    });
    return add_block_sums();
}

double QPU::peek_total_probability() {
    verify_allocated();
    const double total = sum_whole_blocks();
    removable_finish();
    return total;
}

double QPU::normalize() {
    verify_allocated();
    const double total = peek_total_probability();
    finish();
    scale_to_norm_one(total);
    removable_finish();
    return total;
}

// A norm of 0 cannot be scaled and is left to the caller; a norm of exactly 1 needs no scaling.
void QPU::scale_to_norm_one(double norm) {
    if (norm != 1.0 && norm != 0.0) scale_probability(1.0 / std::sqrt(norm));
}

void QPU::scale_probability(double factor) {
    verify_allocated();
    for_each_live_block(*this, {}, [factor](CoreBlock& block) { block.scale_probability(factor); });
}

void QPU::set_random(bool normalize_after) {
    verify_allocated();
    classical_qubits = 0;
    for (unsigned long i = 0; i < num_blocks; ++i) blocks[i]->set_random();
    if (normalize_after) normalize();
    removable_finish();
}

void QPU::set_zero() {
    verify_allocated();
    for (unsigned long i = 0; i < num_blocks; ++i) {
        if (blocks[i] == nullptr) {
            std::printf("ERROR at %s:%d: block %d is NULL\n", "core_register", 374,
                        static_cast<int>(i));
            throw std::runtime_error("Error: NULL state vector block");
        }
        if (!blocks[i]->all_zero) blocks[i]->set_zero();
    }
    removable_finish();
}

void QPU::set_zero_mask(unsigned long mask) {
    verify_allocated();
    const unsigned long inside = mask & qubit_mask;
    if (inside == 0) return;
    const unsigned long number_bits = inside >> num_block_qubits;
    const unsigned long slot_bits = inside & block_slot_mask;
    for_each_live_block(*this, {}, [=](CoreBlock& block) {
        if ((block.thread_id & number_bits) != 0) {
            block.set_zero();
        } else if (slot_bits != 0) {
            block.set_zero_mask(slot_bits);
        }
    });
    removable_finish();
}

void QPU::set_value(unsigned long index, const complex_t& value) {
    verify_allocated();
    blocks[index >> num_block_qubits]->set_value(index & block_slot_mask, value);
    removable_finish();
}

// No wait is needed: every operation returns with all blocks idle.
complex_t QPU::get_value(unsigned long index) const {
    verify_allocated();
    CoreBlock& block = *blocks[index >> num_block_qubits];
    if (block.all_zero) return {0.0, 0.0};
    return block.get_value(index & block_slot_mask);
}

}  // namespace Nimbrel
