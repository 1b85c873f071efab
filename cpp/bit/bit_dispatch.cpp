#include "bit/bit_filter.h"
#include "filter/opcodes.h"
#include "filter/record_loop.h"
#include "filter/shared_records.h"

namespace Nimbrel {
namespace {

// Front ends compare the names, also those of the rotation about Z and of the inverse S, which
// are not the names of the operations.
constexpr RefusedOperation refused_operations[] = {
    {OP_Y, "qc.y"},
    {OP_PHASE, "qc.phase"},
    {OP_PPR, "qc.ppr"},
    {OP_PPM, "qc.ppm"},
    {OP_PCP, "qc.pcp"},
    {OP_RX, "qc.rx"},
    {OP_RY, "qc.ry"},
    {OP_RZ, "qc.t"},
    {OP_T, "qc.t"},
    {OP_T_INV, "qc.t_inv"},
    {OP_S, "qc.s"},
    {OP_S_INV, "qc.OP_qc_s_inv"},
    {OP_Z, "qc.z"},
    {OP_ROOTX, "qc.rootx"},
    {OP_ROOTX_INV, "qc.rootx_inv"},
    {OP_ROOTY, "qc.rooty"},
    {OP_ROOTY_INV, "qc.rooty_inv"},
};

constexpr Refusals refusals{"Bit sim", refused_operations};

}  // namespace

void OpFilter_BitQPUSim::put_instructions(const QPUOp* ops, unsigned long num_ops) {
    const auto copies = reserve_record_copies(num_ops);
    run_records_with_extensions(ops, num_ops, qpu_base(), open_label,
                                [this](const QPUOp& op) { dispatch(op); });
}

void OpFilter_BitQPUSim::dispatch(const QPUOp& op) {
    switch (op.opcode) {
        case OP_X:
        case OP_LELBOW:
        case OP_RELBOW:
            return flip(op);
        case OP_SWAP:
            return swap(op);
        case OP_READ:
            return read(op);
        case OP_WRITE:
            return write(op.cond_mask, op.target_mask, op.cond_flag, op.read_flag, op.target_offset,
                         op.cond_offset, false, 0, "");
        case OP_CLEAR:
            return write(0, op.target_mask, op.cond_flag, 0, op.target_offset, op.cond_offset,
                         false, 0, "");
        case OP_FREE:
            return free_qubits(op);
        case OP_RESET:
            return reset(op.target_mask);
        case OP_EXTEND:
            return extend_next_operation(*this, op);
        case OP_H:
            return;  // ignored on purpose: programs with a Hadamard run here without it

        default:
            return dispatch_shared_record(*this, op, refusals);
    }
}

}  // namespace Nimbrel
