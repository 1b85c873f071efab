// Memory that runs out in a program of the Clifford filter.
#include <gtest/gtest.h>

#include <stdexcept>

#include "faults/scenario.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

/// The printed tableau. Its signs do not depend on random outcomes: a measured qubit is written,
/// and no flag stores a random outcome.
std::string clifford_state(OpFilter& filter) {
    std::string tableau;
    try {
        filter.pull_state(nullptr, tableau, 0);
    } catch (const std::runtime_error&) {
        return "none";
    }
    return tableau + common_state(filter);
}

std::vector<Step> program(unsigned long qubits) {
    return {
        record_step("reset", OP_RESET, {.target_mask = qubits}),
        record_step("hadamard", OP_H, {.target_mask = 3}),
        record_step("s", OP_S, {.target_mask = 5, .target_offset = 1}),
        record_step("extension", OP_EXTEND,
                    {.target_mask = 5, .cond_mask = 2, .target_offset = 8, .cond_offset = 16}),
        record_step("extended cnot", OP_X, {.target_mask = 1}),
        record_step("swap", OP_SWAP, {.target_mask = 17}),
        record_step("product rotation", OP_PPR, {.target_mask = 5, .cond_mask = 12, .angle = 45.0}),
        record_step("open event", OP_OPEN_EVENT, {.angle = 7.0}),
        record_step("write of a random qubit", OP_WRITE, {.target_mask = 1, .target_offset = 4}),
        record_step("read", OP_READ, {.target_mask = 1, .read_flag = 500, .target_offset = 20}),
        record_step("read of many", OP_READ,
                    {.target_mask = 15, .read_flag = 1022, .target_offset = 20}),
        record_step("product measurement", OP_PPM,
                    {.cond_mask = 1UL << 25, .angle = 1.0, .read_flag = 5000}),
        record_step("write", OP_WRITE,
                    {.target_mask = 7, .cond_mask = 5, .read_flag = 9000, .target_offset = 20}),
        {"probability", [](OpFilter& filter) { filter.peek_read_probability(1, 1, 0.0); }},
        {"postselection", [](OpFilter& filter) { filter.postselect(0, 2); }},
        record_step("erased qubit", OP_X, {.target_mask = 4, .cond_mask = 4}),
        record_step("hadamard on rows", OP_H, {.target_mask = 2}),
        record_step("cnot on rows", OP_X, {.target_mask = 1, .cond_mask = 2}),
        {"probability on rows", [](OpFilter& filter) { filter.peek_read_probability(1, 2, 0.0); }},
        record_step("same size", OP_RESET, {.target_mask = qubits}),
        record_step("another hadamard", OP_H, {.target_mask = 3}),
        record_step("larger", OP_RESET, {.target_mask = qubits + 20}),
    };
}

Scenario scenario(unsigned long qubits) {
    return {.make = [] { return OpFilter::AllocateNew(nullptr, "StreamCliffordQPU", 0, 0); },
            .seen = clifford_state,
            .other_reset =
                [](OpFilter& filter) {
                    const QPUOp reset = record(OP_RESET, {.target_mask = 3});
                    filter.put_instructions(&reset, 1);
                },
            .steps = program(qubits)};
}

TEST(CliffordFaults, MemoryThatRunsOut) { expect_to_survive_every_failed_allocation(scenario(30)); }

// Its tables are mapped.
TEST(CliffordFaults, MemoryOfALargeTableauThatRunsOut) {
    Scenario large = scenario(2100);
    large.steps.resize(3);
    large.seen = [](OpFilter& filter) -> std::string {
        try {
            filter.peek_read_probability(1, 4, 0.0);
        } catch (const std::runtime_error&) {
            return "none";
        }
        return common_state(filter);
    };
    large.steps.push_back(record_step("larger", OP_RESET, {.target_mask = 2200}));
    expect_to_survive_every_failed_allocation(large);
}

}  // namespace
