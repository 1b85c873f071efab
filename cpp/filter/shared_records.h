/// Records that have the same effect on every simulating filter, and refusals that filters share.
///
/// Called by a filter's dispatch, on the thread that called `put_instructions`.
#pragma once

#include <span>
#include <string_view>

#include "filter/op_filter.h"
#include "filter/qpu_op.h"

namespace Nimbrel {

/// An opcode that a filter recognises and does not simulate, and the operation's name in the error.
struct RefusedOperation {
    unsigned long opcode;
    std::string_view name;
};

/// The opcodes that a filter refuses, and the filter's name in the error.
struct Refusals {
    std::string_view simulator;
    std::span<const RefusedOperation> operations;
};

/// The refusals of the dense and the sparse filter.
extern const Refusals state_vector_refusals;

/// The default arm of every filter's dispatch. Handles event markers and the flag operation and
/// ignores markers. Throws for callbacks, for the filter's `refusals` and for unknown opcodes.
void dispatch_shared_record(OpFilter& filter, const QPUOp& op, const Refusals& refusals);

/// Handles a mask extension, for the filters that support them: if its classical condition holds,
/// adds its masks to those of the next operation.
void extend_next_operation(OpFilter& filter, const QPUOp& op);

/// Throws the error of `peek_read_probability` for an empty mask.
void require_peek_mask(unsigned long mask);

/// Throws the error of the bit and Clifford filters for an operation before the first reset.
[[noreturn]] void refuse_before_reset();

}  // namespace Nimbrel
