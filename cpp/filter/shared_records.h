/// Records that mean the same to every simulating filter, and the refusals that they share.
#pragma once

#include <string_view>

#include "filter/op_filter.h"
#include "filter/qpu_op.h"

namespace Nimbrel {

/// The default arm of every filter's dispatch: event markers, the flag operation, markers that are
/// let pass, and the refusal of callbacks and unknown opcodes.
void dispatch_shared_record(OpFilter& filter, const QPUOp& op);

/// A mask extension, for the filters that take them: if its classical condition holds, its masks
/// join those of the next operation.
void extend_next_operation(OpFilter& filter, const QPUOp& op);

/// Refuses an operation that a filter recognises and does not simulate. `simulator` is the filter's
/// name in the message: "Bit sim", "Clifford sim" or "State-vector QPU sim".
[[noreturn]] void refuse_operation(std::string_view operation, std::string_view simulator);

}  // namespace Nimbrel
