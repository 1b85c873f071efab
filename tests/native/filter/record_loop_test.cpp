#include "filter/record_loop.h"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

#include "core_register/core_register.h"
#include "filter/op_filter.h"
#include "filter/shared_records.h"
#include "record.h"

namespace {

using namespace Nimbrel;
using Testing::record;

TEST(RecordLoop, AFilterWithoutARegisterTakesEveryJump) {
    QPUOp jump = record(OP_JUMP_FWD, {.target_mask = 5});
    jump.cond_flag = -1;  // fails with any register
    unsigned long open_label = 0;
    handle_jump_record(jump, nullptr, open_label);
    EXPECT_EQ(open_label, 5UL);

    const QPU qpu(0, nullptr);
    open_label = 0;
    handle_jump_record(jump, &qpu, open_label);
    EXPECT_EQ(open_label, 0UL);
}

TEST(RecordLoop, DispatchesInOrderAndSkipsOnlyWhatAJumpSkips) {
    const QPU qpu(0, nullptr);
    const std::vector<QPUOp> ops{
        record(OP_X, {.target_mask = 1}), record(OP_JUMP_FWD, {.target_mask = 9}),
        record(OP_X, {.target_mask = 2}), record(OP_LABEL, {.target_mask = 8}),
        record(OP_X, {.target_mask = 3}), record(OP_LABEL, {.target_mask = 9}),
        record(OP_X, {.target_mask = 4})};
    std::vector<unsigned long> seen;
    unsigned long open_label = 0;
    run_records(ops.data(), ops.size(), &qpu, open_label,
                [&](const QPUOp& op) { seen.push_back(op.target_mask); });
    EXPECT_EQ(seen, (std::vector<unsigned long>{1, 4}));
}

TEST(RecordLoop, ACountThatNoVectorHoldsFailsBeforeAnyRecord) {
    OpFilter* filter = OpFilter::AllocateNew(nullptr, "StreamBitQPU", 0, 0);
    const QPUOp open_event = record(OP_OPEN_EVENT);
    try {
        filter->put_instructions(&open_event, std::numeric_limits<unsigned long>::max());
        ADD_FAILURE() << "no exception";
    } catch (const std::length_error& error) {
        EXPECT_STREQ(error.what(), "vector::reserve");
    }
    EXPECT_TRUE(filter->event_stack.ids.empty());
    OpFilter::delete_filter(filter->handle);
}

/// The loop handles every jump itself, so only a direct call reaches this error.
TEST(SharedRecords, AJumpThatSlipsThroughIsNamed) {
    OpFilter* filter = OpFilter::AllocateNew(nullptr, "StreamBitQPU", 0, 0);
    for (const unsigned long jump : {OP_JUMP_FWD, OP_LABEL, OP_JUMP_FAMILY, OP_JUMP_BACK}) {
        try {
            dispatch_shared_record(*filter, record(jump), {});
            ADD_FAILURE() << "no exception";
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(error.what(), "Error: unhandled jump: " + std::to_string(jump));
        }
    }
    OpFilter::delete_filter(filter->handle);
}

TEST(SharedRecords, RefusalsNameTheSimulator) {
    OpFilter* filter = OpFilter::AllocateNew(nullptr, "StreamBitQPU", 0, 0);
    const auto text = [filter](unsigned long opcode, const Refusals& refusals) -> std::string {
        try {
            dispatch_shared_record(*filter, record(opcode), refusals);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "no exception";
    };
    const RefusedOperation operations[] = {{OP_X, "qc.x"}, {OP_Y, "qc.y"}};
    const Refusals refusals{"Some sim", operations};
    EXPECT_EQ(text(OP_Y, refusals), "qc.y has not been implemented for the Some sim.");
    EXPECT_EQ(text(OP_EXTEND, state_vector_refusals),
              "qc.extend has not been implemented for the State-vector QPU sim.");
    EXPECT_EQ(text(OP_Z, refusals), "Error: Unknown opcode: 0x4e6d627200001007\n");
    OpFilter::delete_filter(filter->handle);
}

}  // namespace
