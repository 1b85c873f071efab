/// How tasks are posted: order, waiting, pairs, and unknown task numbers.
#include "dense/blocks/block_support.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

class HandOver : public HandedTest {};

INSTANTIATE_TEST_SUITE_P(Hands, HandOver, threaded_hands);

TEST_P(HandOver, TellsOfAnUnknownTaskAndServesTheNext) {
    for (const int number : {21, 22, 1000, 2147483647, -1}) {
        Blocks blocks(handed_over_qubits, GetParam());
        State expected = blocks.fill(draws);
        const std::string printed = printed_by([&] {
            blocks[3].start_worker(static_cast<TaskID>(number));
            blocks[3].finish();
        });
        EXPECT_EQ(printed, "Thread 3 got invalid task ID " + std::to_string(number) + ".\n");
        EXPECT_EQ(blocks[3].task_id, TASK_NONE);
        scalar_cz(blocks.slots(expected, 3), blocks.num_terms, {2, 0});
        blocks[3].op_cz({2, 2});
        EXPECT_TRUE(same_bits(blocks.contents(), expected));
    }
}

TEST_P(HandOver, WaitsInEitherWay) {
    Blocks blocks(handed_over_qubits, GetParam());
    State expected = blocks.fill(draws);
    blocks[1].op_cz({});
    blocks[1].wait_for_worker(false);
    EXPECT_EQ(blocks[1].task_id, TASK_NONE);
    blocks[1].op_cz({1, 1});
    blocks[1].wait_for_worker(true);
    EXPECT_EQ(blocks[1].task_id, TASK_NONE);
    scalar_cz(blocks.slots(expected, 1), blocks.num_terms, {});
    scalar_cz(blocks.slots(expected, 1), blocks.num_terms, {1, 0});
    EXPECT_TRUE(same_bits(blocks.contents(), expected));
}

// A second `start_worker` waits until the first task has ended.
TEST_P(HandOver, HasRoomForOneTask) {
    Blocks blocks(handed_over_qubits, GetParam());
    State expected = blocks.fill(draws);
    blocks[2].op_cz({4, 4});
    for (int i = 0; i < 8; ++i) blocks[2].start_worker(TASK_OP_CZ);
    for (int i = 0; i < 9; ++i) {
        scalar_cz(blocks.slots(expected, 2), blocks.num_terms, {4, 0});
    }
    EXPECT_TRUE(same_bits(blocks.contents(), expected));
}

TEST_P(HandOver, LeavesResultsBehindTheirPointers) {
    Blocks blocks(handed_over_qubits, GetParam());
    blocks.fill(State(Blocks::count * blocks.num_terms, complex_t{0.5, 0.0}));
    double sums[Blocks::count] = {};
    unsigned long indices[Blocks::count] = {};
    for (unsigned long i = 0; i < Blocks::count; ++i) {
        blocks[i].peek_read_probability(&sums[i], 0, 0, 0.0);
        blocks[i].get_index_from_probability(2.5, &indices[i]);
    }
    blocks.finish();
    for (const double sum : sums) EXPECT_EQ(sum, 0.25 * static_cast<double>(blocks.num_terms));
    for (const unsigned long index : indices) EXPECT_EQ(index, 9UL);
}

TEST_P(HandOver, WaitsForTheUpperBlockOfAPairToo) {
    Blocks blocks(handed_over_qubits, GetParam());
    for (int round = 0; round < 20; ++round) {
        State expected = blocks.fill(draws);
        blocks[1].set_op_buddy(&blocks[3]);
        blocks[3].op_cz({});
        blocks[1].finish();
        ASSERT_EQ(blocks[3].task_id, TASK_NONE);
        scalar_cz(blocks.slots(expected, 3), blocks.num_terms, {});
        ASSERT_TRUE(same_bits(blocks[3].get_value(0).re, blocks.slots(expected, 3)[0].re));
        blocks[1].set_op_buddy(nullptr);
        ASSERT_TRUE(same_bits(blocks.contents(), expected));
    }
}

TEST_P(HandOver, WaitsForBothEndsBeforeAPairWorks) {
    Blocks blocks(handed_over_qubits, GetParam());
    for (int round = 0; round < 20; ++round) {
        State expected = blocks.fill(draws);
        blocks[0].op_cz({1, 1});
        blocks[2].op_cz({2, 2});
        blocks.paired(0, 2).op_cnot(0, {});
        blocks[0].finish();
        ASSERT_EQ(blocks[0].op_buddy, nullptr);
        scalar_cz(blocks.slots(expected, 0), blocks.num_terms, {1, 0});
        scalar_cz(blocks.slots(expected, 2), blocks.num_terms, {2, 0});
        scalar_pairs(blocks.slots(expected, 0), blocks.slots(expected, 2), blocks.num_terms, {},
                     scalar_cnot);
        ASSERT_TRUE(same_bits(blocks.contents(), expected));
    }
}

// A pair ends inside its task, so the next task of the lower block can follow at once.
TEST_P(HandOver, TakesTheNextTaskOfAPairsLowerBlock) {
    Blocks blocks(handed_over_qubits, GetParam());
    for (int round = 0; round < 20; ++round) {
        State expected = blocks.fill(draws);
        blocks.paired(0, 2).op_cnot(0, {});
        blocks[0].op_hadamard(1, {});
        scalar_pairs(blocks.slots(expected, 0), blocks.slots(expected, 2), blocks.num_terms, {},
                     scalar_cnot);
        scalar_pairs(blocks.slots(expected, 0), blocks.num_terms, 1, {}, scalar_hadamard);
        ASSERT_TRUE(same_bits(blocks.contents(), expected));
    }
}

TEST(HandOverWithoutThreads, StartsAndWaitsForNothing) {
    Blocks blocks(1, Hands::caller);
    EXPECT_EQ(printed_by([&] {
                  blocks[0].start_worker(static_cast<TaskID>(21));
                  blocks[0].start_worker(TASK_EXIT);
                  blocks[0].wait_for_worker(true);
                  blocks[0].wait_for_worker(false);
              }),
              "");
    EXPECT_EQ(blocks[0].task_id, TASK_NONE);
    EXPECT_FALSE(blocks[0].worker_ready);
    blocks[0].set_op_buddy(&blocks[1]);
    blocks[0].finish();
    EXPECT_EQ(blocks[0].op_buddy, &blocks[1]);
}

/// Operations that may have a buddy, by name.
struct BuddyOperation {
    const char* name;
    void (*run)(CoreBlock&);
};

void PrintTo(const BuddyOperation& operation, std::ostream* out) { *out << operation.name; }

constexpr GateMatrix complex_identity{GateKind::diagonal_matrix,
                                      {{{1, 0}, {0, 0}, {0, 0}, {1, 0}}}};
constexpr GateMatrix real_identity{GateKind::real_matrix, {{{1, 0}, {0, 0}, {0, 0}, {1, 0}}}};
double ignored_result;

const BuddyOperation buddy_operations[] = {
    {"op_cnot", [](CoreBlock& block) { block.op_cnot(0, {}); }},
    {"op_hadamard", [](CoreBlock& block) { block.op_hadamard(0, {}); }},
    {"op_complex2x2", [](CoreBlock& block) { block.op_complex2x2(0, {}, complex_identity); }},
    {"op_real2x2", [](CoreBlock& block) { block.op_real2x2(0, {}, real_identity); }},
    {"op_ppr", [](CoreBlock& block) { block.op_ppr(4, 0, {}, 0.0, 1.0); }},
    {"op_ppm", [](CoreBlock& block) { block.op_ppm(4, 0, 0); }},
    {"op_pps", [](CoreBlock& block) { block.op_pps(4, 0, &ignored_result); }},
    {"op_x_multi", [](CoreBlock& block) { block.op_x_multi(1, 0); }},
};

class BuddyOperations : public testing::TestWithParam<BuddyOperation> {};

INSTANTIATE_TEST_SUITE_P(All, BuddyOperations, testing::ValuesIn(buddy_operations));

TEST_P(BuddyOperations, TakeTheMarkOfZeroFromBothBlocks) {
    for (const Hands hands : {Hands::caller, Hands::own_worker, Hands::team}) {
        Blocks blocks(2, hands);
        blocks.fill(State(Blocks::count * 4, complex_t{0.0, 0.0}));
        for (unsigned long i = 0; i < Blocks::count; ++i) blocks[i].set_zero();
        GetParam().run(blocks.paired(0, 1));
        blocks.finish();
        EXPECT_FALSE(blocks[0].all_zero);
        EXPECT_FALSE(blocks[1].all_zero);
        EXPECT_TRUE(blocks[2].all_zero);
        EXPECT_EQ(blocks[0].op_buddy, nullptr);
    }
}

TEST(BuddyMarks, StayInAnExchangeByNotAndWithoutABuddy) {
    Blocks blocks(2, Hands::caller);
    blocks[0].set_zero();
    blocks[1].set_zero();
    blocks.paired(0, 1).op_not(0);
    EXPECT_TRUE(blocks[0].all_zero);
    EXPECT_TRUE(blocks[1].all_zero);
    EXPECT_EQ(blocks[0].op_buddy, nullptr);
    blocks[0].op_hadamard(1, {});
    blocks[0].op_ppm(1, 0, 0);
    EXPECT_TRUE(blocks[0].all_zero);
}

}  // namespace
