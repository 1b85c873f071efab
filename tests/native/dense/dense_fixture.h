/// A dense filter, records for it, and a state without zeros or equal amplitudes.
#pragma once

#include "core_register/state_support.h"
#include "dense/dense_filter.h"
#include "filter/opcodes.h"

namespace Nimbrel::Testing {

/// Amplitudes of different moduli and phases, not normalised.
inline State uneven_state(unsigned long terms) {
    State state(terms);
    for (unsigned long i = 0; i < terms; ++i) {
        const auto number = static_cast<double>(i);
        state[i] = {0.3 - 0.05 * number, 0.02 * number * number - 0.4};
    }
    return state;
}

/// The words of a record that the dense filter reads.
struct Words {
    unsigned long target_mask = 0;
    unsigned long cond_mask = 0;
    double angle = 0.0;
    long cond_flag = 0;
    long read_flag = 0;
    unsigned long cond_neg_mask = 0;
};

inline QPUOp record(unsigned long opcode, const Words& words = {}) {
    QPUOp op{};
    op.opcode = opcode;
    op.target_mask = words.target_mask;
    op.cond_mask = words.cond_mask;
    op.angle = words.angle;
    op.cond_flag = words.cond_flag;
    op.read_flag = words.read_flag;
    op.cond_neg_mask = words.cond_neg_mask;
    return op;
}

class DenseFilter : public testing::Test {
  protected:
    ~DenseFilter() override { OpFilter::filter_registry.erase(filter.handle); }

    void run(const QPUOp& op) { filter.put_instructions(&op, 1); }
    void run(unsigned long opcode, const Words& words = {}) { run(record(opcode, words)); }

    /// Blocks of two qubits, each with a thread.
    void reset(unsigned long qubits) { shape(*filter.qpu, qubits, {2, true}); }

    OpFilter_QPUSim filter;
};

}  // namespace Nimbrel::Testing
