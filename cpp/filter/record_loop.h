/// The record loop: the order in which every simulating filter examines each record.
///
/// The loop handles jumps and labels, skips the records that an open jump skips, and passes every
/// other record to the filter's dispatch. Runs on the thread that called `put_instructions`.
#pragma once

#include <vector>

#include "filter/opcodes.h"
#include "filter/qpu_op.h"
#include "filter/state/qpu_base.h"
#include "support/prefetch.h"

namespace Nimbrel {

/// Handles one record of the jump family. `open_label` is the label at which an open jump ends, 0
/// if no jump is open. Without a `qpu` every classical condition holds. Throws for a label with a
/// quantum condition and for a backward jump, also while a jump is open.
void handle_jump_record(const QPUOp& op, const QPU_Base* qpu, unsigned long& open_label);

/// Returns an empty vector with room for `num_ops` records. The dense, bit and Clifford filters
/// call it before the first record, so that a count that no vector can hold fails before anything
/// has run.
[[nodiscard]] std::vector<QPUOp> reserve_record_copies(unsigned long num_ops);

/// Prefetch distance in records.
inline constexpr unsigned long records_ahead = 24;

/// Runs the records in order and calls `dispatch(op)` for those that are not skipped.
template <typename Dispatch>
void run_records(const QPUOp* ops, unsigned long num_ops, const QPU_Base* qpu,
                 unsigned long& open_label, Dispatch&& dispatch) {
    for (unsigned long i = 0; i < num_ops; ++i) {
        const QPUOp& op = ops[i];
        prefetch_passing(&op, records_ahead * sizeof(QPUOp));
        // The low byte is the same in all jump opcodes, so most records cost one comparison here.
        if ((op.opcode & 0xFF) == jump_low_byte) {
            handle_jump_record(op, qpu, open_label);
        } else if (open_label == 0) {
            dispatch(op);
        }
    }
}

/// `run_records` for filters with mask extensions. The record after an extension clears it, whether
/// or not that record has used it.
template <typename Dispatch>
void run_records_with_extensions(const QPUOp* ops, unsigned long num_ops, QPU_Base& qpu,
                                 unsigned long& open_label, Dispatch&& dispatch) {
    run_records(ops, num_ops, &qpu, open_label, [&](const QPUOp& op) {
        dispatch(op);
        if (qpu.has_extensions() && op.opcode != OP_EXTEND) qpu.clear_extensions();
    });
}

}  // namespace Nimbrel
