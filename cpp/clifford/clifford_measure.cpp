// Reading and writing qubits.
#include "clifford/clifford_filter.h"
#include "clifford/qubit_list.h"

namespace Nimbrel {

StabilizerState& OpFilter_CliffordQPUSim::tableau() {
    batch.run(*state);
    return *state;
}

unsigned OpFilter_CliffordQPUSim::measure(unsigned long qubit) {
    return tableau().measure_qubit<Clifford{3}>(qubit) & 1;
}

void OpFilter_CliffordQPUSim::store_outcome(long& flag, unsigned outcome) {
    if (flag == 0) return;
    qpu_base().set_read_flag(flag, static_cast<long>(outcome));
    flag = static_cast<long>(static_cast<unsigned long>(flag) + 1);
}

void OpFilter_CliffordQPUSim::read(const QPUOp& op) {
    require_state();
    if (!qpu_base().flag_condition(op.cond_flag)) return;
    collect_gate_masks(op.target_mask, 0, op.target_offset, 0);
    require_inside(target_list);
    long flag = op.read_flag;
    for_each_qubit(target_list, [&](unsigned long qubit) { store_outcome(flag, measure(qubit)); });
}

unsigned OpFilter_CliffordQPUSim::wanted_bit(unsigned long qubit) const {
    for (std::size_t i = 0; i < condition_list.size(); i += 2) {
        const unsigned long base = condition_list[i + 1];
        if (base > qubit || qubit - base >= bits_per_word) continue;
        return condition_list[i] >> (qubit - base) & 1;
    }
    return 0;
}

// The value travels where a gate has its conditions.
void OpFilter_CliffordQPUSim::write(unsigned long value, unsigned long target_mask,
                                    unsigned long cond_flag, unsigned long read_flag,
                                    unsigned long target_offset, unsigned long cond_offset) {
    require_state();
    if (!qpu_base().flag_condition(static_cast<long>(cond_flag))) return;
    collect_gate_masks(target_mask, value, target_offset, cond_offset);
    require_inside(target_list);
    auto flag = static_cast<long>(read_flag);
    for_each_qubit(target_list, [&](unsigned long qubit) {
        const unsigned outcome = measure(qubit);
        if (outcome != wanted_bit(qubit)) queue(GateKind::x, qubit);
        store_outcome(flag, outcome);
    });
}

}  // namespace Nimbrel
