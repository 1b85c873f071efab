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

/// Stores the masked bits of `outcome` in consecutive flags. Unsigned, because a run may pass the
/// highest flag number; a run from a negative one counts toward zero and loses what falls on the
/// constants.
void store_outcome(QPU& qpu, unsigned long outcome, unsigned long mask, unsigned long read_flag) {
    for_each_bit(mask, [&](unsigned long bit) {
        qpu.set_read_flag(static_cast<long>(read_flag), (outcome & bit) != 0 ? 1 : 0);
        ++read_flag;
    });
}

std::string assertion_text(unsigned long value, unsigned long mask) {
    std::ostringstream text;
    text << "Error: assert check failed: mask:" << std::hex << mask << " expected value:" << value;
    return text.str();
}

}  // namespace

// A block whose number differs from `value` in a masked bit has no term to add.
double QPU::peek_read_probability_sv(unsigned long value, unsigned long mask, double limit) {
    verify_allocated();
    PerBlock sums(num_blocks);
    for_each_live_block(*this, {}, [&](CoreBlock& block) {
        const unsigned long number = block.thread_id;
        const unsigned long difference = (number << num_block_qubits) ^ value;
        if ((difference & block_number_mask & mask) != 0) return;
        block.peek_read_probability(&sums[number], value & block_slot_mask, mask & block_slot_mask,
                                    limit);
    });
    const double probability = sum_of_blocks(*this, sums);
    removable_finish();
    return probability;
}

// One draw for the whole register: the block totals pick the block, and the block walks its own
// terms with what is left of the draw.
unsigned long QPU::draw_term_index(const PerBlock& totals, double total) {
    double rest = random_zero_to_one() * total;
    for (unsigned long i = 0; i < num_blocks; ++i) {
        if (!(totals[i] > 0.0)) continue;
        if (totals[i] >= rest) {
            unsigned long slot = 0;
            blocks[i]->get_index_from_probability(rest, &slot);
            blocks[i]->finish();
            return i * terms_per_block + slot;
        }
        rest -= totals[i];
    }
    // A state of norm zero, or rounding that left the draw above the last total.
    removable_finish();
    return qubit_mask;
}

unsigned long QPU::get_random_term_index() {
    verify_allocated();
    PerBlock totals(num_blocks);
    for_each_live_block(*this, {}, [&totals](CoreBlock& block) {
        block.peek_read_probability(&totals[block.thread_id], 0, 0, 0.0);
    });
    const double total = sum_of_blocks(*this, totals);
    return draw_term_index(totals, total);
}

// The norm after a collapse is a sum over what stays, in the order of the whole sum. For one bit
// the pass that the draw needs makes the sums for both outcomes, and spares the pass of
// `normalize`.
unsigned long QPU::measure_slot_bit(unsigned long bit) {
    EachBlock<SplitProbability> splits(num_blocks);
    for_each_live_block(*this, {}, [&splits, bit](CoreBlock& block) {
        block.peek_split_probability(&splits[block.thread_id], bit);
    });
    PerBlock totals(num_blocks);
    double total = 0.0;
    for (unsigned long i = 0; i < num_blocks; ++i) {
        blocks[i]->finish();
        total += totals[i] = splits[i].total;
    }
    const unsigned long outcome = draw_term_index(totals, total) & bit;
    collapse(bit, outcome);
    double norm = 0.0;
    for (unsigned long i = 0; i < num_blocks; ++i) {
        norm += outcome != 0 ? splits[i].set : splits[i].clear;
    }
    scale_to_norm_one(norm);
    return outcome;
}

unsigned long QPU::measure(unsigned long targets) {
    if (std::has_single_bit(targets) && (targets & block_slot_mask) != 0) {
        return measure_slot_bit(targets);
    }
    // Drawn also for no target at all, so that a program's draws do not depend on its masks.
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
    ++op_count;
    const unsigned long targets = target_mask & qubit_mask;
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
        // Nothing of the old state stays, so nothing is measured and no flag is stored.
        if (value > qubit_mask) {
            throw std::runtime_error("Error: qc.write() value " + std::to_string(value) +
                                     " lies outside the register of " + std::to_string(num_qubits) +
                                     " qubits.");
        }
        op_count += 2;
        set_zero();
        set_value(value, {1.0, 0.0});
    } else {
        // The flags get what was measured and not what is written.
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
