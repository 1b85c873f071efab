#include <stdexcept>

#include "filter/opcodes.h"
#include "filter/record_loop.h"
#include "filter/shared_records.h"
#include "sparse/sparse_filter.h"
#include "support/gate_matrices.h"

namespace Nimbrel {
namespace {

// T and S compute their factors from an angle. The inverse gates use these constants, whose real
// parts differ from the computed ones in the last bits.
constexpr complex_t t_inv_factor{0.7071067811865476, -0.7071067811865475};
constexpr complex_t s_inv_factor{6.123233995736766e-17, -1.0};

}  // namespace

void OpFilter_SparseSVSim::put_instructions(const QPUOp* ops, unsigned long num_ops) {
    run_records(ops, num_ops, &qpu_base(), open_label, [this](const QPUOp& op) { dispatch(op); });
}

void OpFilter_SparseSVSim::dispatch(const QPUOp& op) {
    switch (op.opcode) {
        case OP_X:
        case OP_LELBOW:
        case OP_RELBOW:
            return flip(op);
        case OP_SWAP:
            return swap(op);
        case OP_Z:
            return negate_terms(op);
        case OP_T_INV:
            return multiply_terms(t_inv_factor, op);
        case OP_S_INV:
            return multiply_terms(s_inv_factor, op);

        case OP_PHASE:
            return apply_phase(op.angle, op.target_mask, op.cond_mask, op.cond_neg_mask,
                               op.cond_flag);
        case OP_T:
            return apply_phase(45.0, op.target_mask, op.cond_mask, op.cond_neg_mask, op.cond_flag);
        case OP_S:
            return apply_phase(90.0, op.target_mask, op.cond_mask, op.cond_neg_mask, op.cond_flag);

        case OP_H:
            return apply_hadamard(op.target_mask, op.cond_mask, op.cond_neg_mask, op.cond_flag);
        case OP_Y:
            return apply_matrix(y_matrix, op);
        case OP_RX:
            return rotate_x(op);
        case OP_RY:
            return rotate_y(op);
        case OP_RZ:
            return rotate_z(op);
        case OP_ROOTX:
            return apply_matrix(rootx_matrix, op);
        case OP_ROOTX_INV:
            return apply_matrix(rootx_inv_matrix, op);
        case OP_ROOTY:
            return apply_matrix(rooty_matrix, op);
        case OP_ROOTY_INV:
            return apply_matrix(rooty_inv_matrix, op);

        case OP_PPR:
            return rotate_pauli_product(op);
        case OP_PPM:
            return measure_pauli_product(op);
        case OP_PCP:
            return;  // accepted and ignored

        case OP_READ:
            return read(op);
        case OP_WRITE:
            // In this filter the word `target_offset` holds the first read flag of a write.
            return apply_write(op.cond_mask, op.target_mask, op.cond_flag,
                               static_cast<long>(op.target_offset));
        case OP_CLEAR:
            return clear(op.target_mask, op.cond_flag);
        case OP_FREE:
            return clear(op.target_mask,
                         op.read_flag);  // `read_flag` holds its classical condition
        case OP_RESET:
            return reset(op.target_mask);

        default:
            return dispatch_shared_record(*this, op, state_vector_refusals);
    }
}

void OpFilter_SparseSVSim::reset(unsigned long qubits) {
    constexpr unsigned long most_qubits = 63;  // one key bit is the marker
    if (qubits > most_qubits) {
        throw std::runtime_error("This quick sparse_sv prototype just handles 64 qubits.");
    }
    terms.reserve(1);
    num_qubits = qubits;
    qubit_mask = (1UL << qubits) - 1;
    index_bits = qubit_mask;
    prune_threshold = 1e-25;
    replace_by(0);
}

}  // namespace Nimbrel
