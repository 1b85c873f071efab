// Measurement: reads and writes of qubits, probabilities and postselection.
#include <bit>
#include <optional>
#include <stdexcept>

#include "clifford/clifford_filter.h"
#include "clifford/qubit_list.h"
#include "filter/shared_records.h"

namespace Nimbrel {

void OpFilter_CliffordQPUSim::store_outcome(long& flag, unsigned outcome) {
    if (flag == 0) return;
    qpu_base().set_read_flag(flag, static_cast<long>(outcome));
    flag = static_cast<long>(static_cast<unsigned long>(flag) + 1);
}

void OpFilter_CliffordQPUSim::prepare_flags(long flag) {
    if (flag == 0) return;
    unsigned long count = 0;
    for_each_mask(target_list, [&](unsigned long mask, unsigned long /*base*/) {
        count += static_cast<unsigned long>(std::popcount(mask));
    });
    qpu_base().prepare_read_flags(flag, count);
}

void OpFilter_CliffordQPUSim::read(const QPUOp& op) {
    require_state();
    if (!holds(static_cast<unsigned long>(op.cond_flag))) return;
    collect_gate_masks(op.target_mask, 0, op.target_offset, 0);
    require_inside(target_list);
    long flag = op.read_flag;
    prepare_flags(flag);
    for_each_qubit(target_list,
                   [&](unsigned long qubit) { store_outcome(flag, state->measure(qubit)); });
}

unsigned OpFilter_CliffordQPUSim::wanted_bit(unsigned long qubit) const {
    std::optional<unsigned> wanted;
    for_each_mask(condition_list, [&](unsigned long mask, unsigned long base) {
        if (wanted || base > qubit || qubit - base >= bits_per_word) return;
        wanted = static_cast<unsigned>(mask >> (qubit - base) & 1);
    });
    return wanted.value_or(0);
}

// The words that hold the controls of a gate hold the value of a write, so the value is in
// `condition_list`.
void OpFilter_CliffordQPUSim::write(unsigned long value, unsigned long target_mask,
                                    unsigned long cond_flag, unsigned long read_flag,
                                    unsigned long target_offset, unsigned long cond_offset) {
    require_state();
    if (!holds(cond_flag)) return;
    collect_gate_masks(target_mask, value, target_offset, cond_offset);
    require_inside(target_list);
    auto flag = static_cast<long>(read_flag);
    prepare_flags(flag);
    for_each_qubit(target_list, [&](unsigned long qubit) {
        const unsigned outcome = state->measure(qubit);
        if (outcome != wanted_bit(qubit)) state->apply(GateKind::x, qubit);
        store_outcome(flag, outcome);
    });
}

double OpFilter_CliffordQPUSim::peek_read_probability(unsigned long value, unsigned long mask,
                                                      double /*limit*/) {
    require_state();
    require_peek_mask(mask);
    if (!std::has_single_bit(mask)) {
        throw std::runtime_error(
            "qc.peek_read_probability() in Clifford sim must specify exactly one qubit to "
            "measure.");
    }
    const unsigned long qubit = bit_number(mask);
    require_inside(qubit);
    const std::optional<unsigned> outcome = state->fixed_outcome(qubit);
    if (!outcome) return 0.5;
    const unsigned wanted = (value & mask) != 0 ? 1 : 0;
    return *outcome == wanted ? 1.0 : 0.0;
}

// The probability comes from the virtual operation. A derived class may accept several qubits
// there, so this function projects every qubit of the mask.
void OpFilter_CliffordQPUSim::postselect(unsigned long value, unsigned long mask) {
    if (mask == 0) {
        throw std::runtime_error("qc.postselect() must specify at least one qubit to postselect.");
    }
    const double probability = peek_read_probability(value, mask, 0.0);
    if (probability == 0.0) {
        throw std::runtime_error("qc.postselect() no non-zero terms have the desired value.");
    }
    if (probability == 1.0) return;
    require_state();
    for_each_bit(mask, [&](unsigned long bit) {
        const unsigned long qubit = bit_number(bit);
        require_inside(qubit);
        const unsigned wanted = (value & bit) != 0 ? 1 : 0;
        if (state->fixed_outcome(qubit).value_or(wanted) != wanted) {
            throw std::runtime_error("qc.postselect(): no non-zero terms match desired value.");
        }
        state->project(qubit, wanted);
    });
}

}  // namespace Nimbrel
