/// A dense filter, and a state without zeros or equal amplitudes.
#pragma once

#include "core_register/state_support.h"
#include "dense/dense_filter.h"
#include "filter/opcodes.h"
#include "record.h"

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
