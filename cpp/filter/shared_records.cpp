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

constexpr RefusedOperation no_extensions[] = {{OP_EXTEND, "qc.extend"}};

void refuse_if_listed(unsigned long opcode, const Refusals& refusals) {
    for (const RefusedOperation& refused : refusals.operations) {
        if (refused.opcode != opcode) continue;
        throw std::runtime_error(std::string(refused.name) + " has not been implemented for the " +
                                 std::string(refusals.simulator) + ".");
    }
}

[[noreturn]] void refuse_unknown(unsigned long opcode) {
    // The record loop handles all jumps, so a jump here is an error of the loop. Clearing bit 8
    // makes the test cover the label and the backward jump too.
    const unsigned long jump = opcode & ~0x100UL;
    if (jump == OP_JUMP_FWD || jump == OP_JUMP_FAMILY) {
        throw std::runtime_error("Error: unhandled jump: " +
                                 std::to_string(static_cast<long>(opcode)));
    }
    std::ostringstream text;
    text.exceptions(std::ios::badbit);  // without memory the text would be cut short in silence
    text << "Error: Unknown opcode: 0x" << std::hex << opcode << '\n';
    throw std::runtime_error(text.str());
}

}  // namespace

constinit const Refusals state_vector_refusals{"State-vector QPU sim", no_extensions};

void dispatch_shared_record(OpFilter& filter, const QPUOp& op, const Refusals& refusals) {
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

        case OP_Z_NOP:
        case OP_FETCH_REQUEST:
        case OP_FETCH_REPLY:
        case OP_MARKER_10000000:
        case OP_MARKER_10000002:
        case OP_MARKER_10000012:
        case OP_MARKER_10000015:
        case OP_MARKER_10000017:
        case OP_MARKER_10000412:
        case OP_MARKER_10004012:
        case OP_MARKER_10004015:
        case OP_MARKER_10004412:
        case OP_MARKER_10008003:
        case OP_MARKER_1000C003:
            return;

        case OP_CALLBACK:
            refuse_callback(op);
        default:
            refuse_if_listed(op.opcode, refusals);
            refuse_unknown(op.opcode);
    }
}

void extend_next_operation(OpFilter& filter, const QPUOp& op) {
    QPU_Base& qpu = filter.qpu_base();
    if (!qpu.flag_condition(op.cond_flag)) return;
    qpu.extend_masks(op.target_mask, op.target_offset, op.cond_mask, op.cond_neg_mask,
                     op.cond_offset);
}

void require_peek_mask(unsigned long mask) {
    if (mask == 0) {
        throw std::runtime_error(
            "qc.peek_read_probability() must specify at least one qubit to measure.");
    }
}

void refuse_before_reset() {
    throw std::runtime_error("qc.reset() has not been called or did not succeed.");
}

}  // namespace Nimbrel
