// Memory that runs out in a program of the sparse filter.
#include "sparse/sparse_filter.h"

#include <gtest/gtest.h>

#include "faults/scenario.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

OpFilter_SparseSVSim& sparse(OpFilter& filter) {
    return dynamic_cast<OpFilter_SparseSVSim&>(filter);
}

/// The terms by index: a gate that fails may have put the list into another order.
std::string sparse_state(OpFilter& filter) {
    const OpFilter_SparseSVSim& simulator = sparse(filter);
    if (simulator.terms.empty()) return "none";
    std::vector<complex_t> state(1UL << simulator.num_qubits);
    for (const term_t& term : simulator.terms) state[term.key >> 1] = term.amplitude;
    return std::to_string(simulator.num_qubits) + text_of(state) + common_state(filter);
}

Step step(const std::string& name, std::function<void(OpFilter_SparseSVSim&)> act) {
    return {name, [act = std::move(act)](OpFilter& filter) { act(sparse(filter)); }};
}

/// A term at index 0 and one at index 9, so that a gate on one qubit has partners to create.
void push_two_terms(OpFilter_SparseSVSim& simulator) {
    std::vector<complex_t> state(32);
    state[0] = {0.6, 0.0};
    state[9] = {0.0, 0.8};
    simulator.push_state(state.data(), 0, state.size());
}

Scenario scenario() {
    return {
        .make = [] { return OpFilter::AllocateNew(nullptr, "StreamSparseQPU", 0, 0); },
        .seen = sparse_state,
        .failed_reset = FailedReset::leaves_the_register,
        .other_reset = {},
        .steps =
            {
                record_step("reset", OP_RESET, {.target_mask = 5}),
                step("push", push_two_terms),
                record_step("hadamard", OP_H, {.target_mask = 1}),
                record_step("controlled hadamard", OP_H, {.target_mask = 2, .cond_mask = 8}),
                record_step("rotation", OP_RX, {.target_mask = 16, .angle = 50.0}),
                record_step("root", OP_ROOTY, {.target_mask = 4}),
                record_step("diagonal product rotation", OP_PPR, {.cond_mask = 5, .angle = 10.0}),
                record_step("open event", OP_OPEN_EVENT, {.angle = 7.0}),
                record_step("read", OP_READ, {.target_mask = 5, .read_flag = 2}),
                record_step("read into other words", OP_READ,
                            {.target_mask = 31, .read_flag = 1022}),
                record_step("rotation of a basis state", OP_RY, {.target_mask = 1, .angle = 70.0}),
                record_step("diagonal product measurement", OP_PPM,
                            {.cond_mask = 1, .angle = 1.0, .read_flag = 5000}),
                record_step("another hadamard", OP_H, {.target_mask = 2}),
                record_step("write", OP_WRITE,
                            {.target_mask = 2, .cond_mask = 2, .target_offset = 9000}),
                record_step("nand", OP_FLAG_NAND,
                            {.target_mask = 2, .cond_mask = 3, .read_flag = 20000}),
                step("biggest terms",
                     [](OpFilter_SparseSVSim& simulator) {
                         std::vector<unsigned long> indices(3);
                         std::vector<complex_t> terms(3);
                         simulator.peek_n_biggest_terms(3, indices.data(), terms.data());
                     }),
                step("product probability",
                     [](OpFilter_SparseSVSim& simulator) { simulator.pps(3, 17); }),
                record_step("second reset", OP_RESET, {.target_mask = 6}),
            },
    };
}

TEST(SparseFaults, MemoryThatRunsOut) { expect_to_survive_every_failed_allocation(scenario()); }

}  // namespace
