/// Registers with a known state, in every layout of blocks and threads that a small one can have.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "core_register/core_register.h"
#include "dense/blocks/core_block.h"
#include "expect_failure.h"

namespace Nimbrel::Testing {

using State = std::vector<complex_t>;

inline constexpr const char* no_register_text =
    "Error: Simulated state vector data is requested, but not present. To fix this:\n"
    "        (1) Make sure qc.reset() has been called.\n"
    "        (2) Make sure a '>>state-vector-sim>>' or other filter has been added to the "
    "pipeline.\n"
    "              for example: qc = QPU();\n"
    "                    ...or: QPU(filters=['>>state-vector-sim>>', '>>buffer>>'], "
    "add_default_filters=False)";

/// Index bits in a block, 0 for one block, and whether each block has a thread.
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

/// The state in which one term is 1.
inline State basis(unsigned long terms, unsigned long index) {
    State state(terms, complex_t{0.0, 0.0});
    state[index].re = 1.0;
    return state;
}

inline bool same_bits(const State& a, const State& b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(a[0])) == 0;
}

inline std::string text_of(const State& state) {
    std::string text;
    for (const complex_t& term : state) {
        text += " (" + std::to_string(term.re) + ", " + std::to_string(term.im) + ")";
    }
    return text;
}

/// Compares bit for bit, so the two zeros differ.
inline testing::AssertionResult states_agree(const State& actual, const State& expected) {
    if (same_bits(actual, expected)) return testing::AssertionSuccess();
    return testing::AssertionFailure()
           << "state is" << text_of(actual) << "\nand should be" << text_of(expected);
}
#define EXPECT_STATE(actual, expected) \
    EXPECT_TRUE(Nimbrel::Testing::states_agree((actual), (expected)))

/// A register of three qubits, once in every layout.
class RegisterLayouts : public testing::TestWithParam<Layout> {
  protected:
    void SetUp() override { shape(qpu, 3, GetParam()); }

    QPU qpu{0, nullptr};
};

}  // namespace Nimbrel::Testing
