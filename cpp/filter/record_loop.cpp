#include "filter/record_loop.h"

#include <stdexcept>

namespace Nimbrel {
namespace {

void close_label(const QPUOp& op, unsigned long& open_label) {
    if (op.cond_mask != 0) {
        throw std::runtime_error(
            "qc.jump_fwd() with quantum conditions is experimental, and currently requires use of "
            "the >>jump-control>> filter.");
    }
    if (open_label == op.target_mask) open_label = 0;
}

}  // namespace

void handle_jump_record(const QPUOp& op, const QPU_Base* qpu, unsigned long& open_label) {
    switch (op.opcode) {
        case OP_LABEL:
            close_label(op, open_label);
            break;
        case OP_JUMP_BACK:
            throw std::runtime_error(
                "qc.jump_back() is experimental, and currently requires use of the "
                ">>jump-control>> filter.");
        case OP_JUMP_FWD:
            // Jumps do not nest: while one is open, others are skipped like any record.
            if (open_label == 0 && (qpu == nullptr || qpu->flag_condition(op.cond_flag))) {
                open_label = op.target_mask;
            }
            break;
        default:
            break;  // the rest of the family has no effect, whatever its other bits
    }
}

std::vector<QPUOp> reserve_record_copies(unsigned long num_ops) {
    // A few records always fit, and a call with a few should not pay for an allocation.
    constexpr unsigned long always_fits = 64;
    std::vector<QPUOp> copies;
    if (num_ops > always_fits) copies.reserve(num_ops);
    return copies;
}

}  // namespace Nimbrel
