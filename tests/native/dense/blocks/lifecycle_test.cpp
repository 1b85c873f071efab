#include "dense/blocks/block_support.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

static_assert(TASK_NONE == 0 && TASK_EXIT == 1 && TASK_SELF_CHECK == 2 && TASK_SET_ZERO == 3);
static_assert(TASK_SET_RANDOM == 4 && TASK_SET_ZERO_MASK == 5 && TASK_COLLAPSE == 6);
static_assert(TASK_PEEK_READ_PROBABILITY == 7 && TASK_GET_INDEX_FROM_PROBABILITY == 8);
static_assert(TASK_SCALE_PROBABILITY == 9 && TASK_OP_NOT == 10 && TASK_OP_X_MULTI == 11);
static_assert(TASK_OP_HADAMARD == 12 && TASK_OP_PPR == 13 && TASK_OP_PPM == 14);
static_assert(TASK_OP_PPS == 15 && TASK_OP_COMPLEX2X2 == 16 && TASK_OP_REAL2X2 == 17);
static_assert(TASK_OP_CNOT == 18 && TASK_OP_CPHASE == 19 && TASK_OP_CZ == 20);
static_assert(sizeof(TaskID) == 4);

class Lifecycle : public HandedTest {};

INSTANTIATE_TEST_SUITE_P(Hands, Lifecycle, all_hands);

TEST_P(Lifecycle, BeginsIdleWithoutMemory) {
    const bool threads = GetParam() != Hands::caller;
    CoreBlockStore store(3, 8, 0, nullptr, threads, false);
    CoreBlock block(5, 3, &store, nullptr, threads, true);
    EXPECT_EQ(block.thread_id, 5UL);
    EXPECT_EQ(block.store_slot, 5UL);
    EXPECT_EQ(block.op_buddy, nullptr);
    EXPECT_EQ(block.num_block_qubits, 3UL);
    EXPECT_EQ(block.block_store, &store);
    EXPECT_EQ(block.ocl_context, nullptr);
    EXPECT_EQ(block.use_threads, threads);
    EXPECT_TRUE(block.verbose);
    EXPECT_EQ(block.block_data, nullptr);
    EXPECT_EQ(block.num_terms, 8UL);
    EXPECT_EQ(block.accelerator_handle, nullptr);
    EXPECT_EQ(block.worker_thread.joinable(), threads);
    EXPECT_EQ(block.task_id, TASK_NONE);
    EXPECT_FALSE(block.all_zero);
    EXPECT_EQ(block.lock_count, 0);
}

TEST_P(Lifecycle, WaitsOnceForTheWorkerToCome) {
    Blocks blocks(2, GetParam());
    blocks.finish();
    for (unsigned long i = 0; i < Blocks::count; ++i) {
        EXPECT_EQ(blocks[i].worker_ready, GetParam() != Hands::caller);
    }
}

TEST_P(Lifecycle, EndsRightAfterItsBeginning) {
    const bool threads = GetParam() != Hands::caller;
    for (int i = 0; i < 100; ++i) {
        CoreBlockStore store(4, 2, 0, nullptr, threads, false);
        const auto team = GetParam() == Hands::team ? std::make_unique<BlockTeam>(2) : nullptr;
        const CoreBlock first(0, 4, &store, nullptr, threads, false, team.get());
        const CoreBlock second(1, 4, &store, nullptr, threads, false, team.get());
    }
}

TEST_P(Lifecycle, EndsWithTasksStillWaiting) {
    for (int i = 0; i < 100; ++i) {
        Blocks blocks(handed_over_qubits, GetParam());
        for (unsigned long number = 0; number < Blocks::count; ++number) {
            blocks[number].set_zero();
            blocks[number].op_hadamard(1, {});
        }
    }
}

// The test does not wait for any thread, so the first task may come before the workers run.
TEST_P(Lifecycle, ServesATaskThatComesBeforeItsWorker) {
    for (int i = 0; i < 50; ++i) {
        Blocks blocks(handed_over_qubits, GetParam());
        blocks[1].set_zero();
        blocks[1].op_cz({});
        blocks.finish();
        ASSERT_TRUE(same_bits(blocks[1].get_value(3).re, -0.0));
    }
}

TEST_P(Lifecycle, ExchangesTheSlotsOfTwoBlocks) {
    for (const unsigned long b : {1UL, handed_over_qubits}) {
        Blocks blocks(b, GetParam());
        State expected = blocks.fill(draws);
        std::fill_n(blocks.slots(expected, 1), blocks.num_terms, complex_t{0.0, 0.0});
        CoreBlock& one = blocks[1];
        CoreBlock& two = blocks[2];
        two.op_not(1);  // the exchange waits for both
        one.set_zero();
        one.swap_blocks(&two);
        EXPECT_EQ(one.store_slot, 2UL);
        EXPECT_EQ(two.store_slot, 1UL);
        EXPECT_FALSE(one.all_zero);
        EXPECT_TRUE(two.all_zero);
        EXPECT_EQ(one.block_data, blocks.store.block_data + 2 * blocks.num_terms);
        two.get_value(0);  // any lock finds the new place
        EXPECT_EQ(two.block_data, blocks.store.block_data + blocks.num_terms);
        complex_t* moved = blocks.slots(expected, 1);
        for (unsigned long i = 0; i < blocks.num_terms; i += 2) std::swap(moved[i], moved[i + 1]);
        EXPECT_TRUE(same_bits(blocks.contents(), expected));
    }
}

TEST_P(Lifecycle, ExchangesNothingWithItself) {
    Blocks blocks(2, GetParam());
    const State start = blocks.fill(draws);
    blocks[1].all_zero = true;
    blocks[1].swap_blocks(&blocks[1]);
    EXPECT_EQ(blocks[1].store_slot, 1UL);
    EXPECT_TRUE(blocks[1].all_zero);
    EXPECT_EQ(blocks[1].lock_count, 0);
    EXPECT_TRUE(same_bits(blocks.contents(), start));
}

TEST_P(Lifecycle, CountsNestedLocks) {
    Blocks blocks(1, GetParam());
    blocks[0].lock(true, &blocks[1]);
    EXPECT_EQ(blocks[1].block_data, blocks.store.get_ram_block_ptr(1));
    blocks[0].lock(false, nullptr);
    EXPECT_EQ(blocks[0].lock_count, 2);
    EXPECT_EQ(blocks[1].lock_count, 0);
    blocks[0].unlock(false, nullptr);
    blocks[0].unlock(true, &blocks[1]);
    EXPECT_EQ(blocks[0].lock_count, 0);
    EXPECT_NE(blocks[0].block_data, nullptr);
}

}  // namespace
