/// The record loop: the order in which every simulating filter looks at each record.
///
/// It takes the jumps and labels, skips what an open jump skips, and hands every other record to
/// the filter's dispatch. Runs on the thread that called `put_instructions`.
#pragma once

#include <vector>

#include "core_register/core_register.h"
#include "filter/opcodes.h"
#include "filter/qpu_op.h"
#include "support/prefetch.h"

namespace Nimbrel {

/// Handles one record of the jump family: labels, jumps, and what is refused or ignored among them.
/// `open_label` is the label that an open jump looks for, 0 for none. Throws for a label with a
/// quantum condition and for a backward jump, also inside a skipped stretch.
void steer_program(const QPUOp& op, const QPU_Base* qpu, unsigned long& open_label);

/// Room for a copy of each record. The dense, bit and Clifford filters ask for it before their
/// first record: a count that no vector can hold must fail before anything has run.
[[nodiscard]] std::vector<QPUOp> reserve_record_copies(unsigned long num_ops);

/// How far ahead of the running record the array is fetched.
inline constexpr unsigned long records_ahead = 24;

/// Runs the records in order, `dispatch(op)` being the filter's own part.
template <typename Dispatch>
void run_records(const QPUOp* ops, unsigned long num_ops, const QPU_Base* qpu,
                 unsigned long& open_label, Dispatch&& dispatch) {
    for (unsigned long i = 0; i < num_ops; ++i) {
        const QPUOp& op = ops[i];
        prefetch_passing(&op, records_ahead * sizeof(QPUOp));
        // All opcodes that steer have this low byte, so one test keeps them off the usual path.
        if ((op.opcode & 0xFF) == jump_family) {
            steer_program(op, qpu, open_label);
        } else if (open_label == 0) {
            dispatch(op);
        }
    }
}

/// `run_records` for filters that take mask extensions: an extension lasts until the next record
/// that is dispatched, whatever that one does with it.
template <typename Dispatch>
void run_records_with_extensions(const QPUOp* ops, unsigned long num_ops, QPU* qpu,
                                 unsigned long& open_label, Dispatch&& dispatch) {
    run_records(ops, num_ops, qpu, open_label, [&](const QPUOp& op) {
        dispatch(op);
        if (qpu->has_extensions() && op.opcode != OP_EXTEND) qpu->clear_extensions();
    });
}

}  // namespace Nimbrel
