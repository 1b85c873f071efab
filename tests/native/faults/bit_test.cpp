// Memory that runs out in a program of the bit filter.
#include <gtest/gtest.h>

#include <stdexcept>

#include "faults/scenario.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

constexpr unsigned long all = ~0UL;

std::string bit_state(OpFilter& filter) {
    std::string bits;
    try {
        filter.pull_state(nullptr, bits, 0);
    } catch (const std::runtime_error&) {
        return "none";
    }
    return bits + common_state(filter);
}

Scenario scenario() {
    return {
        .make =
            [] {
                OpFilter* filter = OpFilter::AllocateNew(nullptr, "StreamBitQPU", 0, 0);
                filter->qpu_base().debug_qubits = true;
                return filter;
            },
        .seen = bit_state,
        .failed_reset = FailedReset::leaves_the_register,
        .other_reset = {},
        .steps =
            {
                record_step("reset", OP_RESET, {.target_mask = 200}),
                record_step("x", OP_X, {.target_mask = all, .target_offset = 64}),
                record_step(
                    "extension", OP_EXTEND,
                    {.target_mask = 5, .cond_mask = 6, .target_offset = 128, .cond_offset = 64}),
                record_step(
                    "second extension", OP_EXTEND,
                    {.target_mask = 16, .cond_mask = 48, .target_offset = 128, .cond_offset = 64}),
                record_step("extended x", OP_X,
                            {.target_mask = 2, .cond_mask = 1, .cond_neg_mask = 1}),
                record_step("swap", OP_SWAP, {.target_mask = 3}),
                record_step("open event", OP_OPEN_EVENT, {.angle = 7.0}),
                record_step("read", OP_READ,
                            {.target_mask = all, .read_flag = 100, .target_offset = 64}),
                record_step("write", OP_WRITE,
                            {.target_mask = all, .cond_mask = 77, .read_flag = 1000}),
                record_step("x of a freed qubit", OP_X, {.target_mask = 3, .target_offset = 64}),
                record_step(
                    "checked free", OP_FREE,
                    {.target_mask = 3, .cond_mask = 16, .read_flag = 4, .target_offset = 64}),
                record_step("nand", OP_FLAG_NAND,
                            {.target_mask = 2, .cond_mask = 3, .read_flag = 20000}),
                record_step("close event", OP_CLOSE_EVENT, {.angle = 7.0}),
                record_step("larger", OP_RESET, {.target_mask = 4000}),
                record_step("smaller", OP_RESET, {.target_mask = 20}),
            },
    };
}

TEST(BitFaults, MemoryThatRunsOut) { expect_to_survive_every_failed_allocation(scenario()); }

}  // namespace
