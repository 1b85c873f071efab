// A register with pinned memory: `deallocate` leaves all of it where it is.

#include <gtest/gtest.h>

#include <vector>

#include "core_register/gate_support.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

class PinnedMemory : public GateLayouts {};
INSTANTIATE_TEST_SUITE_P(Layouts, PinnedMemory, testing::ValuesIn(all_layouts));

TEST_P(PinnedMemory, KeepsBlocksStoreAndStateThroughADeallocate) {
    CoreBlock** const array = qpu.blocks;
    const std::vector<CoreBlock*> blocks(array, array + qpu.num_blocks);
    CoreBlockStore* const store = qpu.block_store;
    qpu.memory_pinned = true;
    qpu.deallocate();
    ASSERT_EQ(qpu.blocks, array);
    ASSERT_EQ(qpu.block_store, store);
    EXPECT_EQ(std::vector<CoreBlock*>(array, array + qpu.num_blocks), blocks);
    EXPECT_STATE(state_of(qpu), start);
    qpu.hadamard(0b1001, 0, 0, 0);
    QPU never_deallocated(0, nullptr);
    shape(never_deallocated, 4, GetParam());
    load(never_deallocated, start);
    never_deallocated.hadamard(0b1001, 0, 0, 0);
    EXPECT_STATE(state_of(qpu), state_of(never_deallocated)) << "the workers serve on";
    qpu.memory_pinned = false;
}

TEST_P(PinnedMemory, GoesWithTheFirstDeallocateAfterTheSwitch) {
    qpu.memory_pinned = true;
    qpu.deallocate();
    qpu.memory_pinned = false;
    qpu.deallocate();
    EXPECT_EQ(qpu.blocks, nullptr);
    EXPECT_EQ(qpu.block_store, nullptr);
    EXPECT_THROW(qpu.verify_allocated(), std::runtime_error);
}

}  // namespace
