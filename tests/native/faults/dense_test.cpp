// Memory and threads that run out in a program of the dense filter.
#include <gtest/gtest.h>

#include "core_register/state_support.h"
#include "dense/dense_filter.h"
#include "faults/scenario.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

constexpr unsigned long all_qubits = 31;

/// `block_qubits` and `waits_from`: as the register's fields of these names.
struct Setting {
    unsigned long block_qubits;
    unsigned long waits_from;

    friend void PrintTo(const Setting& setting, std::ostream* out) {
        *out << "blocks of " << setting.block_qubits << ", gates wait from " << setting.waits_from;
    }
};

Step step(const std::string& name, std::function<void(QPU&)> act) {
    return {name, [act = std::move(act)](OpFilter& filter) { act(*filter.qpu); }};
}

std::string dense_state(OpFilter& filter) {
    if (filter.qpu->blocks == nullptr) return "none";
    return text_of(state_of(*filter.qpu)) + common_state(filter);
}

std::vector<Step> dense_program() {
    return {
        record_step("reset", OP_RESET, {.target_mask = 5}),
        record_step("hadamards", OP_H, {.target_mask = all_qubits}),
        record_step("cnot", OP_X, {.target_mask = 1, .cond_mask = 16}),
        record_step("rotation", OP_RX, {.target_mask = 18, .angle = 30.0}),
        record_step("phase", OP_PHASE, {.target_mask = 9, .angle = 20.0}),
        record_step("swap", OP_SWAP, {.target_mask = 17}),
        record_step("product rotation", OP_PPR, {.target_mask = 5, .cond_mask = 12, .angle = 10.0}),
        record_step("first of a batch", OP_PCP, {.target_mask = 1, .angle = 2000.0}),
        record_step("last of a batch", OP_PCP, {.cond_mask = 2, .angle = 2001.0}),
        record_step("open event", OP_OPEN_EVENT, {.angle = 7.0}),
        record_step("second event", OP_OPEN_EVENT, {.angle = 8.0}),
        record_step("read of one", OP_READ, {.target_mask = 2, .read_flag = 2}),
        record_step("read of a block bit", OP_READ, {.target_mask = 16, .read_flag = 200}),
        record_step("read of many", OP_READ, {.target_mask = 13, .read_flag = 1022}),
        record_step("hadamards again", OP_H, {.target_mask = all_qubits}),
        record_step("read into negative flags", OP_READ, {.target_mask = 3, .read_flag = -3000}),
        record_step("product measurement", OP_PPM,
                    {.target_mask = 5, .cond_mask = 6, .angle = 1.0, .read_flag = 5000}),
        record_step("write", OP_WRITE, {.target_mask = 6, .cond_mask = 2, .read_flag = 9000}),
        record_step("nand", OP_FLAG_NAND, {.target_mask = 2, .cond_mask = 3, .read_flag = 20000}),
        step("assertion",
             [](QPU& qpu) { qpu.assert_value(31, 31, "a name longer than 15", 3, 0); }),
        record_step("checked free", OP_FREE, {.target_mask = 1, .cond_mask = 16, .read_flag = 4}),
        record_step("close event", OP_CLOSE_EVENT, {.angle = 7.0}),
        step("normalize", [](QPU& qpu) { qpu.normalize(); }),
        step("probability", [](QPU& qpu) { qpu.peek_read_probability_sv(1, 17, 0.0); }),
        step("product probability", [](QPU& qpu) { qpu.pps(3, 17); }),
        step("slice",
             [](QPU& qpu) {
                 std::vector<complex_t> slice(4);
                 std::string text;
                 qpu.pull_state_specific_sv(text, slice.data(), 3, slice.size());
             }),
        step("factor",
             [](QPU& qpu) {
                 const std::vector<complex_t> factor{{0.6, 0.0}, {0.0, 0.8}};
                 qpu.push_state_sv(factor.data(), 4, factor.size());
             }),
        step("biggest terms",
             [](QPU& qpu) {
                 std::vector<unsigned long> indices(3);
                 std::vector<complex_t> terms(3);
                 qpu.peek_n_biggest_terms(3, indices.data(), terms.data());
             }),
        step("printed state", [](QPU& qpu) { qpu.print_state_vector_to_string(1, 0.0, 40); }),
        step("postselection", [](QPU& qpu) { qpu.postselect_sv(0, 8); }),
    };
}

class DenseFaults : public testing::TestWithParam<Setting> {
  protected:
    static Scenario scenario() {
        const Setting setting = GetParam();
        return {.make =
                    [setting] {
                        OpFilter* filter = OpFilter::AllocateNew(nullptr, "StreamQPU", 0, 0);
                        filter->qpu->sim_params["async"] = 1;
                        filter->qpu->sim_params["verbose"] = 0;
                        filter->qpu->debug_qubits = true;
                        filter->qpu->waits_from_qubits = setting.waits_from;
                        // Not by name: a name of 16 letters would be allocated.
                        for (auto& [name, value] : filter->qpu->sim_params) {
                            if (name.starts_with("num_block")) value = setting.block_qubits;
                        }
                        return filter;
                    },
                .seen = dense_state,
                .other_reset = [](OpFilter& filter) { ASSERT_TRUE(filter.qpu->reset(2, nullptr)); },
                .steps = dense_program()};
    }
};

TEST_P(DenseFaults, MemoryThatRunsOut) { expect_to_survive_every_failed_allocation(scenario()); }

TEST_P(DenseFaults, AResetOfAnotherShape) {
    Scenario resets = scenario();
    resets.steps = {
        record_step("reset", OP_RESET, {.target_mask = 3}),
        record_step("hadamards", OP_H, {.target_mask = 7}),
        record_step("larger", OP_RESET, {.target_mask = 4}),
        record_step("more hadamards", OP_H, {.target_mask = 15}),
        record_step("smaller", OP_RESET, {.target_mask = 1}),
    };
    const auto make = resets.make;
    resets.make = [make] {
        OpFilter* filter = make();
        filter->qpu->sim_params["verbose"] = 1;
        return filter;
    };
    expect_to_survive_every_failed_allocation(resets);
    if (GetParam().block_qubits != 0) expect_to_survive_every_failed_thread(resets);
}

constexpr unsigned long never = 64;
INSTANTIATE_TEST_SUITE_P(Settings, DenseFaults,
                         testing::Values(Setting{0, never}, Setting{2, never}, Setting{2, 1}));

}  // namespace
