#include <bit>
#include <sstream>
#include <stdexcept>
#include <string>

#include "core_register/block_walk.h"
#include "core_register/core_register.h"
#include "dense/blocks/core_block.h"
#include "support/bits.h"
#include "support/random.h"

namespace Nimbrel {
namespace {

/// Stores the masked bits of `outcome` in consecutive flags. The number is unsigned, because a run
/// may wrap past the highest flag. A run from a negative flag counts toward zero; bits that fall on
/// the constants -1, 0 and 1 are not stored.
void store_outcome(QPU& qpu, unsigned long outcome, unsigned long mask, unsigned long read_flag) {
    for_each_bit(mask, [&](unsigned long bit) {
        qpu.set_read_flag(static_cast<long>(read_flag), (outcome & bit) != 0 ? 1 : 0);
        ++read_flag;
    });
}

std::string assertion_text(unsigned long value, unsigned long mask) {
    std::ostringstream text;
    text.exceptions(std::ios::badbit);  // without memory the text would be cut short in silence
    text << "Error: assert check failed: mask:" << std::hex << mask << " expected value:" << value;
    return text.str();
}

}  // namespace

// A block whose number differs from `value` in a masked bit has no qualifying term.
double QPU::peek_read_probability_sv(unsigned long value, unsigned long mask, double limit) {
    verify_allocated();
    block_sums.assign(num_blocks, 0.0);
    for_each_live_block(*this, {}, [&](CoreBlock& block) {
        const unsigned long number = block.thread_id;
        const unsigned long difference = (number << num_block_qubits) ^ value;
        if ((difference & block_number_mask & mask) != 0) return;
        block.peek_read_probability(&block_sums[number], value & block_slot_mask,
                                    mask & block_slot_mask, limit);
    });
    const double probability = add_block_sums();
    removable_finish();
    return probability;
}

// One draw for the whole register: the block sums select the block, and the block walks its own
// terms with the remainder of the draw.
unsigned long QPU::draw_term_index(double total) {
    double rest = random_zero_to_one() * total;
    for (unsigned long i = 0; i < num_blocks; ++i) {
        if (!(block_sums[i] > 0.0)) continue;
        if (block_sums[i] >= rest) {
            unsigned long slot = 0;
            blocks[i]->get_index_from_probability(rest, &slot);
            blocks[i]->finish();
            return i * terms_per_block + slot;
        }
        rest -= block_sums[i];
    }
    // The norm is zero, or rounding left the draw above the last sum.
    removable_finish();
    return qubit_mask;
}

unsigned long QPU::get_random_term_index() {
    verify_allocated();
    return draw_term_index(sum_whole_blocks());
}

// One pass sums the probabilities for the draw and for both outcomes. The sum for the drawn outcome
// is the norm after the collapse, so `normalize` need not sum again.
unsigned long QPU::measure_slot_bit(unsigned long bit) {
    block_splits.assign(num_blocks, {});
    for_each_live_block(*this, {}, [this, bit](CoreBlock& block) {
        block.peek_split_probability(&block_splits[block.thread_id], bit);
    });
    block_sums.assign(num_blocks, 0.0);
    double total = 0.0;
    for (unsigned long i = 0; i < num_blocks; ++i) {
        blocks[i]->finish();
        total += block_sums[i] = block_splits[i].total;
    }
    const unsigned long outcome = draw_term_index(total) & bit;
    collapse(bit, outcome);
    double norm = 0.0;
    for (const SplitProbability& split : block_splits) {
        norm += outcome != 0 ? split.set : split.clear;
    }
    scale_to_norm_one(norm);
    return outcome;
}

unsigned long QPU::measure(unsigned long targets) {
    if (std::has_single_bit(targets) && (targets & block_slot_mask) != 0) {
        return measure_slot_bit(targets);
    }
    // An empty mask draws too, so that the number of draws does not depend on the masks.
    const unsigned long outcome = get_random_term_index() & targets;
    collapse(targets, outcome);
    normalize();
    return outcome;
}

void QPU::collapse(unsigned long mask, unsigned long value) {
    verify_allocated();
    const unsigned long inside = mask & qubit_mask;
    if (inside == 0) return;
    const unsigned long number_bits = inside >> num_block_qubits;
    const unsigned long number_value = value >> num_block_qubits;
    const unsigned long slot_bits = inside & block_slot_mask;
    for_each_live_block(*this, {}, [=, this](CoreBlock& block) {
        if ((block.thread_id & number_bits) != number_value) {
            block.set_zero();
        } else if (slot_bits != 0) {
            block.collapse(slot_bits, value & block_slot_mask);
        }
    });
    removable_finish();
}

unsigned long QPU::read(unsigned long target_mask, long cond_flag, unsigned long read_flag) {
    if (!acts(cond_flag)) return 0;
    const unsigned long targets = target_mask & qubit_mask;
    if (read_flag != 0) {
        const auto count = static_cast<unsigned long>(std::popcount(targets));
        prepare_read_flags(static_cast<long>(read_flag), count);
    }
    ++op_count;
    const unsigned long outcome = measure(targets);
    removable_finish();
    if (read_flag != 0) store_outcome(*this, outcome, targets, read_flag);
    classical_qubits |= targets;
    return outcome;
}

void QPU::write(unsigned long value, unsigned long target_mask, long cond_flag,
                unsigned long read_flag) {
    if (!acts(cond_flag)) return;
    const unsigned long targets = target_mask & qubit_mask;
    if (targets == qubit_mask) {
        // The whole state is replaced, so nothing is measured and no flag is stored.
        if (value > qubit_mask) {
            throw std::runtime_error("Error: qc.write() value " + std::to_string(value) +
                                     " lies outside the register of " + std::to_string(num_qubits) +
                                     " qubits.");
        }
        op_count += 2;
        set_zero();
        set_value(value, {1.0, 0.0});
    } else {
        // The flags get the measured outcome, not the written value.
        const unsigned long wrong = (read(targets, 0, read_flag) ^ value) & targets;
        if (wrong != 0) op_not(wrong, 0, 0, 0);
    }
    classical_qubits |= targets;
    removable_finish();
}

void QPU::postselect_sv(unsigned long value, unsigned long mask) {
    verify_allocated();
    const unsigned long inside = mask & qubit_mask;
    collapse(inside, value & inside);
    if (normalize() == 0.0) {
        throw std::runtime_error("Error: qc.postselect() no nonzero terms match desired value.");
    }
    removable_finish();
}

void QPU::assert_value(unsigned long value, unsigned long mask, const char* name,
                       unsigned long event_arg, long cond_flag) {
    if (!flag_condition(cond_flag)) return;
    const double probability = peek_read_probability_sv(value, mask, 1.0);
    if (0.99999 > probability && report_event) {
        // An event's code has 32 bits.
        report_event(name, assertion_text(value, mask), static_cast<unsigned int>(event_arg));
    }
}

}  // namespace Nimbrel
