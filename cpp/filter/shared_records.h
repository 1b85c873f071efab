/// Records that have the same effect on every simulating filter, and the refusals of the others.
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

}  // namespace Nimbrel
