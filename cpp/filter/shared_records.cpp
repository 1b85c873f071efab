#include "filter/shared_records.h"

#include <sstream>
#include <stdexcept>
#include <string>

#include "core_register/core_register.h"
#include "filter/opcodes.h"
#include "support/convert.h"

namespace Nimbrel {
namespace {

[[noreturn]] void refuse_callback(const QPUOp& op) {
    throw std::runtime_error("Unhandled callback:[lookup:(" + std::to_string(op.read_flag) + ")]");
}

[[noreturn]] void refuse_unknown(unsigned long opcode) {
    // A jump gets here only if the record loop let it through, which would be a fault of the loop:
    // the guard makes it loud. Clearing bit 8 covers the label and the backward jump as well.
    const unsigned long jump = opcode & ~0x100UL;
    if (jump == OP_JUMP_FWD || jump == OP_JUMP_NOTHING) {
        throw std::runtime_error("Error: unhandled jump: " +
                                 std::to_string(static_cast<long>(opcode)));
    }
    std::ostringstream text;
    text << "Error: Unknown opcode: 0x" << std::hex << opcode << '\n';
    throw std::runtime_error(text.str());
}

}  // namespace

void dispatch_shared_record(OpFilter& filter, const QPUOp& op) {
    switch (op.opcode) {
        case OP_OPEN_EVENT:
        case OP_OPEN_EVENT_2:
            return filter.event_stack.push(truncate_to_u64(op.angle));
        case OP_CLOSE_EVENT:
        case OP_CLOSE_EVENT_2:
            return filter.event_stack.pop(truncate_to_u64(op.angle));

        case OP_FLAG_NAND:
            return filter.qpu->flag_nand(static_cast<long>(op.target_mask),
                                         static_cast<long>(op.cond_mask), op.cond_flag,
                                         op.read_flag);

        case OP_Z_NOTHING:
        case OP_FETCH_REQUEST:
        case OP_FETCH_REPLY:
        case OP_MARKER_0:
        case OP_MARKER_2:
        case OP_MARKER_12:
        case OP_MARKER_15:
        case OP_MARKER_17:
        case OP_MARKER_412:
        case OP_MARKER_4012:
        case OP_MARKER_4015:
        case OP_MARKER_4412:
        case OP_MARKER_8003:
        case OP_MARKER_C003:
            return;

        case OP_CALLBACK:
            refuse_callback(op);
        default:
            refuse_unknown(op.opcode);
    }
}

void extend_next_operation(OpFilter& filter, const QPUOp& op) {
    if (!filter.qpu->flag_condition(op.cond_flag)) return;
    filter.qpu->extend_masks(op.target_mask, op.target_offset, op.cond_mask, op.cond_neg_mask,
                             op.cond_offset);
}

void refuse_operation(std::string_view operation, std::string_view simulator) {
    throw std::runtime_error(std::string(operation) + " has not been implemented for the " +
                             std::string(simulator) + ".");
}

}  // namespace Nimbrel
