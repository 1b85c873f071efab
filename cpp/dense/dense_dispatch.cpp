#include "core_register/core_register.h"
#include "dense/dense_filter.h"
#include "filter/opcodes.h"
#include "filter/record_loop.h"
#include "filter/shared_records.h"
#include "support/convert.h"

namespace Nimbrel {
namespace {

/// A gate without an angle, by its member of the register.
using Gate = void (QPU::*)(unsigned long target_mask, unsigned long cond_mask,
                           unsigned long cond_neg_mask, long cond_flag);
using Rotation = void (QPU::*)(double angle, unsigned long target_mask, unsigned long cond_mask,
                               unsigned long cond_neg_mask, long cond_flag);

void apply(QPU& qpu, Gate gate, const QPUOp& op) {
    (qpu.*gate)(op.target_mask, op.cond_mask, op.cond_neg_mask, op.cond_flag);
}

void apply(QPU& qpu, Rotation gate, double angle, const QPUOp& op) {
    (qpu.*gate)(angle, op.target_mask, op.cond_mask, op.cond_neg_mask, op.cond_flag);
}

/// The time in which records run. Their gates may wait, also after a record that failed.
class RecordsScope {
  public:
    explicit RecordsScope(QPU& qpu) : qpu_(qpu) { qpu.begin_records(); }
    ~RecordsScope() { qpu_.end_records(); }
    RecordsScope(const RecordsScope&) = delete;
    RecordsScope& operator=(const RecordsScope&) = delete;

  private:
    QPU& qpu_;
};

unsigned long word(long flag) { return static_cast<unsigned long>(flag); }

}  // namespace

void OpFilter_QPUSim::put_instructions(const QPUOp* ops, unsigned long num_ops) {
    const auto copies = reserve_record_copies(num_ops);
    const RecordsScope scope(*qpu);
    run_records(ops, num_ops, qpu, open_label, [this](const QPUOp& op) { dispatch(op); });
}

void OpFilter_QPUSim::dispatch(const QPUOp& op) {
    switch (op.opcode) {
        case OP_X:
            return apply(*qpu, &QPU::op_not, op);
        case OP_Y:
            return apply(*qpu, &QPU::y, op);
        case OP_H:
            return apply(*qpu, &QPU::hadamard, op);
        case OP_SWAP:
            return apply(*qpu, &QPU::cswap, op);
        case OP_LELBOW:
            return apply(*qpu, &QPU::lelbow, op);
        case OP_RELBOW:
            return apply(*qpu, &QPU::relbow, op);
        case OP_Z:
            return apply(*qpu, &QPU::cz, op);
        case OP_ROOTX:
            return apply(*qpu, &QPU::rootx, op);
        case OP_ROOTX_INV:
            return apply(*qpu, &QPU::rootx_inv, op);
        case OP_ROOTY:
            return apply(*qpu, &QPU::rooty, op);
        case OP_ROOTY_INV:
            return apply(*qpu, &QPU::rooty_inv, op);

        case OP_PHASE:
            return apply(*qpu, &QPU::phase, op.angle, op);
        case OP_T:
            return apply(*qpu, &QPU::phase, 45.0, op);
        case OP_T_INV:
            return apply(*qpu, &QPU::phase, -45.0, op);
        case OP_S:
            return apply(*qpu, &QPU::phase, 90.0, op);
        case OP_S_INV:
            return apply(*qpu, &QPU::phase, -90.0, op);
        case OP_RX:
            return apply(*qpu, &QPU::rx, op.angle, op);
        case OP_RY:
            return apply(*qpu, &QPU::ry, op.angle, op);
        case OP_RZ:
            return apply(*qpu, &QPU::rz, op.angle, op);

        case OP_PPR:
            return qpu->ppr(op.angle, op.target_mask, op.cond_mask, word(op.read_flag),
                            op.cond_neg_mask, op.cond_flag);
        case OP_PPM:
            qpu->ppm(truncate_to_i32(op.angle), op.target_mask, op.cond_mask, op.cond_flag,
                     op.read_flag);
            return;
        case OP_PCP:
            return qpu->pcp(op.angle, op.target_mask, op.cond_mask, op.cond_flag);

        case OP_READ:
            qpu->read(op.target_mask, op.cond_flag, word(op.read_flag));
            return;
        case OP_WRITE:
            return qpu->write(op.cond_mask, op.target_mask, op.cond_flag, word(op.read_flag));
        case OP_CLEAR:
            return qpu->write(0, op.target_mask, op.cond_flag, 0);
        case OP_FREE:
            return free_qubits(op);
        case OP_RESET:
            // A state vector that memory cannot hold has told so on standard output; the next
            // operation reports that there is no register.
            qpu->reset(op.target_mask, nullptr);
            return;

        default:
            return dispatch_shared_record(*this, op, state_vector_refusals);
    }
}

// Bit 4 asks for the check, and qubit debugging allows it. The check then spares a measurement:
// what is known to be classical is cleared, the rest is only looked at.
void OpFilter_QPUSim::free_qubits(const QPUOp& op) {
    constexpr unsigned long check_requested = 0x10;
    if (!qpu->debug_qubits || (op.cond_mask & check_requested) == 0) {
        return qpu->write(0, op.target_mask, op.cond_flag, 0);
    }
    const unsigned long known = op.target_mask & qpu->classical_qubits;
    if (known != 0) qpu->write(0, known, op.cond_flag, 0);
    // Asked again, because the write may have changed what is known.
    const unsigned long unknown = op.target_mask & ~qpu->classical_qubits;
    if (unknown == 0) return;
    qpu->assert_value(0, unknown, "free_nonzero_qubits", word(op.read_flag), op.cond_flag);
}

}  // namespace Nimbrel
