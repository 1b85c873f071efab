#include "bit/bit_filter.h"
#include "filter/opcodes.h"
#include "filter/record_loop.h"
#include "filter/shared_records.h"

namespace Nimbrel {
namespace {

[[noreturn]] void refuse(const char* operation) { refuse_operation(operation, "Bit sim"); }

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
        case OP_HADAMARD:
            return;  // passed over on purpose: a program with one runs on without it

        case OP_Y:
            refuse("qc.y");
        case OP_PHASE:
            refuse("qc.phase");
        case OP_PPR:
            refuse("qc.ppr");
        case OP_PPM:
            refuse("qc.ppm");
        case OP_PCP:
            refuse("qc.pcp");
        case OP_RX:
            refuse("qc.rx");
        case OP_RY:
            refuse("qc.ry");
        case OP_RZ:
            refuse("qc.t");  // not the gate's own name; front ends know it by this one
        case OP_T:
            refuse("qc.t");
        case OP_T_INV:
            refuse("qc.t_inv");
        case OP_S:
            refuse("qc.s");
        case OP_S_INV:
            refuse("qc.OP_qc_s_inv");  // not the gate's own name either
        case OP_Z:
            refuse("qc.z");
        case OP_ROOTX:
            refuse("qc.rootx");
        case OP_ROOTX_INV:
            refuse("qc.rootx_inv");
        case OP_ROOTY:
            refuse("qc.rooty");
        case OP_ROOTY_INV:
            refuse("qc.rooty_inv");

        default:
            return dispatch_shared_record(*this, op);
    }
}

}  // namespace Nimbrel
