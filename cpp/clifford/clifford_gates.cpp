// The gates: which controls each refuses, and which gates of the tableau it applies.
#include <stdexcept>
#include <string>

#include "clifford/clifford_filter.h"
#include "clifford/qubit_list.h"
#include "filter/shared_records.h"

namespace Nimbrel {

void OpFilter_CliffordQPUSim::refuse_outside(unsigned long qubit) const {
    throw std::runtime_error("Error: qubit " + std::to_string(qubit) +
                             " lies outside the register of " +
                             std::to_string(state->num_qubits()) + " qubits.");
}

void OpFilter_CliffordQPUSim::require_each_inside(const QubitList& list) const {
    for_each_qubit(list, [this](unsigned long qubit) { require_inside(qubit); });
}

void OpFilter_CliffordQPUSim::collect_extensions() {
    append_pairs(target_list.more, qpu_base().target_extensions);
    append_pairs(condition_list.more, qpu_base().cond_extensions);
    qpu_base().clear_extensions();
}

bool OpFilter_CliffordQPUSim::prepare_gate(unsigned long target_mask, unsigned long cond_mask,
                                           unsigned long cond_flag, unsigned long target_offset,
                                           unsigned long cond_offset, const char* refusal) {
    require_state();
    if (!holds(cond_flag)) return false;
    if (cond_mask != 0 && refusal != nullptr) throw std::runtime_error(refusal);
    collect_gate_masks(target_mask, cond_mask, target_offset, cond_offset);
    return true;
}

bool OpFilter_CliffordQPUSim::prepare_gate(const QPUOp& op, const char* refusal) {
    return prepare_gate(op.target_mask, op.cond_mask, static_cast<unsigned long>(op.cond_flag),
                        op.target_offset, op.cond_offset, refusal);
}

void OpFilter_CliffordQPUSim::apply_s_inv(unsigned long qubit) {
    state->apply(GateKind::z, qubit);
    state->apply(GateKind::s, qubit);
}

void OpFilter_CliffordQPUSim::apply_to_targets(GateKind kind) {
    require_inside(target_list);
    for_each_qubit(target_list, [&](unsigned long qubit) { state->apply(kind, qubit); });
}

void OpFilter_CliffordQPUSim::s(unsigned long target_mask, unsigned long cond_mask,
                                unsigned long /*cond_neg_mask*/, unsigned long cond_flag,
                                unsigned long target_offset, unsigned long cond_offset) {
    if (prepare_gate(target_mask, cond_mask, cond_flag, target_offset, cond_offset,
                     "qc.s() can't have conditions in the Clifford sim.")) {
        apply_to_targets(GateKind::s);
    }
}

void OpFilter_CliffordQPUSim::s_inv(unsigned long target_mask, unsigned long cond_mask,
                                    unsigned long /*cond_neg_mask*/, unsigned long cond_flag,
                                    unsigned long target_offset, unsigned long cond_offset) {
    if (prepare_gate(target_mask, cond_mask, cond_flag, target_offset, cond_offset,
                     "qc.s_inv() can't have conditions in the Clifford sim.")) {
        require_inside(target_list);
        for_each_qubit(target_list, [this](unsigned long qubit) { apply_s_inv(qubit); });
    }
}

void OpFilter_CliffordQPUSim::y(const QPUOp& op) {
    if (prepare_gate(op, "qc.y() cannot have conditions for Clifford sim.")) {
        apply_to_targets(GateKind::y);
    }
}

void OpFilter_CliffordQPUSim::hadamard(const QPUOp& op) {
    if (prepare_gate(op, "qc.had() can't have conditions in the Clifford sim.")) {
        apply_to_targets(GateKind::had);
    }
}

// In x() and z() a control counts only if the record has one too: controls that come from an
// extension record alone are ignored.
void OpFilter_CliffordQPUSim::x(unsigned long target_mask, unsigned long cond_mask,
                                unsigned long /*cond_neg_mask*/, unsigned long cond_flag,
                                unsigned long target_offset, unsigned long cond_offset) {
    if (!prepare_gate(target_mask, cond_mask, cond_flag, target_offset, cond_offset, nullptr)) {
        return;
    }
    if (cond_mask == 0) return apply_to_targets(GateKind::x);
    const FirstQubits controls(condition_list);
    if (controls.count != 1) {
        throw std::runtime_error("qc.x() can only have one condition for Clifford sim.");
    }
    require_inside(target_list);
    require_inside(controls.first);
    for_each_qubit(target_list, [&](unsigned long qubit) {
        state->apply(GateKind::cnot, controls.first, qubit);
    });
}

void OpFilter_CliffordQPUSim::z(unsigned long target_mask, unsigned long cond_mask,
                                unsigned long /*cond_neg_mask*/, unsigned long cond_flag,
                                unsigned long target_offset, unsigned long cond_offset) {
    if (!prepare_gate(target_mask, cond_mask, cond_flag, target_offset, cond_offset, nullptr)) {
        return;
    }
    if (cond_mask == 0) return apply_to_targets(GateKind::z);
    const FirstQubits controls(condition_list);
    const bool symmetric = controls.count == 2 && target_list.empty();
    if (controls.count != 1 && !symmetric) {
        throw std::runtime_error("qc.z() can only have one condition for Clifford sim.");
    }
    require_inside(target_list);
    require_inside(condition_list);
    if (symmetric) return state->apply(GateKind::cz, controls.first, controls.second);
    if (target_list.empty()) return state->apply(GateKind::z, controls.first);
    for_each_qubit(target_list,
                   [&](unsigned long qubit) { state->apply(GateKind::cz, controls.first, qubit); });
}

void OpFilter_CliffordQPUSim::rotate_about_z(const QPUOp& op, const char* operation) {
    const auto flag = static_cast<unsigned long>(op.cond_flag);
    const auto run = [&](auto gate) {
        (this->*gate)(op.target_mask, op.cond_mask, op.cond_neg_mask, flag, op.target_offset,
                      op.cond_offset);
    };
    if (op.angle == 90.0) return run(&OpFilter_CliffordQPUSim::s);
    if (op.angle == -90.0) return run(&OpFilter_CliffordQPUSim::s_inv);
    if (op.angle == 180.0) return run(&OpFilter_CliffordQPUSim::z);
    throw std::runtime_error(std::string(operation) +
                             " has not been implemented for the Clifford sim.");
}

void OpFilter_CliffordQPUSim::swap(const QPUOp& op) {
    if (!prepare_gate(op, "qc.swap() can't have conditions in the Clifford sim.")) return;
    const FirstQubits targets(target_list);
    if (targets.count != 2) {
        throw std::runtime_error("qc.swap() must specify exactly two target qubits.");
    }
    require_inside(target_list);
    state->swap(targets.first, targets.second);
}

}  // namespace Nimbrel
