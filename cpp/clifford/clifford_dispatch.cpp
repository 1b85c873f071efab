#include <stdexcept>
#include <string>

#include "clifford/clifford_filter.h"
#include "filter/opcodes.h"
#include "filter/record_loop.h"
#include "filter/shared_records.h"
#include "support/available_memory.h"

namespace Nimbrel {
namespace {

constexpr RefusedOperation refused_operations[] = {
    {OP_PCP, "qc.pcp"},
    {OP_LELBOW, "qc.lelbow"},
    {OP_RELBOW, "qc.relbow"},
    {OP_RX, "qc.rx"},
    {OP_RY, "qc.ry"},
    {OP_T, "qc.t"},
    {OP_T_INV, "qc.t_inv"},
    {OP_ROOTX, "qc.rootx"},
    {OP_ROOTX_INV, "qc.rootx_inv"},
    {OP_ROOTY, "qc.rooty"},
    {OP_ROOTY_INV, "qc.rooty_inv"},
};

constexpr Refusals refusals{"Clifford sim", refused_operations};

void require_memory_for_tableau(unsigned qubits) {
    if (const auto shortage = find_shortage(StabilizerState::bytes_of(qubits))) {
        throw std::runtime_error("Error: qc.reset() could not allocate a tableau of " +
                                 std::to_string(qubits) + " qubits." + shortage->text());
    }
}

unsigned long word(long flag) { return static_cast<unsigned long>(flag); }

}  // namespace

void OpFilter_CliffordQPUSim::put_instructions(const QPUOp* ops, unsigned long num_ops) {
    const auto copies = reserve_record_copies(num_ops);
    run_records_with_extensions(ops, num_ops, qpu_base(), open_label,
                                [this](const QPUOp& op) { dispatch(op); });
}

void OpFilter_CliffordQPUSim::dispatch(const QPUOp& op) {
    switch (op.opcode) {
        case OP_X:
            return x(op.target_mask, op.cond_mask, op.cond_neg_mask, word(op.cond_flag),
                     op.target_offset, op.cond_offset);
        case OP_Y:
            return y(op);
        case OP_Z:
            return z(op.target_mask, op.cond_mask, op.cond_neg_mask, word(op.cond_flag),
                     op.target_offset, op.cond_offset);
        case OP_H:
            return hadamard(op);
        case OP_S:
            return s(op.target_mask, op.cond_mask, op.cond_neg_mask, word(op.cond_flag),
                     op.target_offset, op.cond_offset);
        case OP_S_INV:
            return s_inv(op.target_mask, op.cond_mask, op.cond_neg_mask, word(op.cond_flag),
                         op.target_offset, op.cond_offset);
        case OP_SWAP:
            return swap(op);
        case OP_PHASE:
            return rotate_about_z(op, "qc.phase()");
        case OP_RZ:
            return rotate_about_z(op, "qc.rz()");
        case OP_PPR:
            return ppr(op.angle, op.target_mask, op.cond_mask, word(op.read_flag), op.cond_flag,
                       op.target_offset, op.cond_offset);
        case OP_PPM:
            return measure_pauli_product(op);

        case OP_READ:
            return read(op);
        case OP_WRITE:
            return write(op.cond_mask, op.target_mask, word(op.cond_flag), word(op.read_flag),
                         op.target_offset, op.cond_offset);
        case OP_CLEAR:
        case OP_FREE:  // this filter does not check that freed qubits are 0
            return write(0, op.target_mask, word(op.cond_flag), 0, op.target_offset,
                         op.cond_offset);
        case OP_RESET:
            return reset(op.target_mask);
        case OP_EXTEND:
            return extend_next_operation(*this, op);

        default:
            return dispatch_shared_record(*this, op, refusals);
    }
}

// The size of the tableau is the low 32 bits of the word, while the register stores the whole word.
// Only qubits of the tableau can be reserved: a table for a larger number would not fit into
// memory.
void OpFilter_CliffordQPUSim::reset(unsigned long qubits) {
    qpu_base().num_qubits = qubits;
    const auto tableau_qubits = static_cast<unsigned>(qubits);
    const bool same_size = state != nullptr && state->num_qubits() == tableau_qubits;
    if (!same_size || !state->reset()) {
        state.reset();
        require_memory_for_tableau(tableau_qubits);
        // Before the tableau, so that a reset that fails leaves none.
        qpu_base().qint_table.reserve(tableau_qubits);
        state = std::make_unique<Tableau>(tableau_qubits);
    }
    if (qubits == state->num_qubits()) {
        qpu_base().clear_all_qints();
    } else {
        qpu_base().qint_table.assign(state->num_qubits(), 0);
    }
}

}  // namespace Nimbrel
