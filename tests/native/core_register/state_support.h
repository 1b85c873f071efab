/// Registers with a known state, in every layout of blocks and threads that a small one can have.
#pragma once

#include <gtest/gtest.h>

#include <ostream>
#include <vector>

#include "core_register/core_register.h"
#include "dense/blocks/core_block.h"
#include "dense/states.h"
#include "expect_failure.h"

namespace Nimbrel::Testing {

inline constexpr const char* no_register_text =
    "Error: Simulated state vector data is requested, but not present. To fix this:\n"
    "        (1) Make sure qc.reset() has been called.\n"
    "        (2) Make sure a '>>state-vector-sim>>' or other filter has been added to the "
    "pipeline.\n"
    "              for example: qc = QPU();\n"
    "                    ...or: QPU(filters=['>>state-vector-sim>>', '>>buffer>>'], "
    "add_default_filters=False)";

/// Qubits in a block, 0 for the automatic layout, and whether each block has a thread.
struct Layout {
    unsigned long block_qubits;
    bool threads;

    friend void PrintTo(const Layout& layout, std::ostream* out) {
        *out << "blocks of " << layout.block_qubits << " qubits"
             << (layout.threads ? " with threads" : "");
    }
};

inline const std::vector<Layout> all_layouts{{0, false}, {1, false}, {1, true},
                                             {2, false}, {2, true},  {30, true}};

/// Sizes a register in a layout; its state is |0>.
inline void shape(QPU& qpu, unsigned long qubits, const Layout& layout) {
    qpu.sim_params["num_block_qubits"] = layout.block_qubits;
    qpu.sim_params["async"] = layout.threads ? 1 : 0;
    ASSERT_TRUE(qpu.reset(qubits, nullptr));
}

inline void load(QPU& qpu, const State& state) {
    ASSERT_EQ(state.size(), qpu.num_terms);
    qpu.push_state_sv(state.data(), 0, state.size());
}

/// The state in term order.
inline State state_of(QPU& qpu) {
    State state(qpu.num_terms, complex_t{-77.0, -77.0});
    qpu.pull_state_sv(state.data(), state.size());
    return state;
}

/// A register of three qubits, once for each layout.
class RegisterLayouts : public testing::TestWithParam<Layout> {
  protected:
    void SetUp() override { shape(qpu, 3, GetParam()); }

    QPU qpu{0, nullptr};
};

}  // namespace Nimbrel::Testing
