// Compares every gate in every layout of blocks and threads bit for bit with one block.

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "core_register/gate_support.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

struct Masks {
    unsigned long targets;
    unsigned long conds;
    unsigned long negs;
};

const std::vector<Masks> mask_cases{
    {0b0001, 0, 0},           {0b1000, 0, 0},           {0b1111, 0, 0},
    {0b0010, 0b0001, 0},      {0b0001, 0b0010, 0b0010}, {0b1000, 0b0001, 0},
    {0b1000, 0b0001, 0b0001}, {0b0001, 0b1000, 0},      {0b0001, 0b1000, 0b1000},
    {0b1000, 0b0100, 0},      {0b0100, 0b1010, 0b1000}, {0b1010, 0b0101, 0b0001},
    {0b0101, 0b1010, 0b1010}, {0b1010, 0b110101, 0},    {0b110010, 0b0100, 0b1111},
};

using GateCall = std::function<void(QPU&, const Masks&)>;

const complex_t matrix[] = {{0.3, 0.1}, {-0.2, 0.7}, {0.9, -0.4}, {0.5, 0.6}};
const double real_matrix[] = {0.3, -0.8, 0.7, 0.4};

class GatesInBlocks : public GateLayouts {
  protected:
    /// Runs the gate with all masks, here and on a register of one block.
    void compare(const GateCall& gate) {
        QPU one_block(0, nullptr);
        shape(one_block, 4, {0, false});
        for (const Masks& masks : mask_cases) {
            SCOPED_TRACE(testing::Message() << "targets " << masks.targets << " conds "
                                            << masks.conds << " negs " << masks.negs);
            load(qpu, start);
            load(one_block, start);
            qpu.op_count = 0;
            one_block.op_count = 0;
            gate(qpu, masks);
            gate(one_block, masks);
            EXPECT_STATE(state_of(qpu), state_of(one_block));
            EXPECT_EQ(qpu.op_count, one_block.op_count);
        }
    }
};
INSTANTIATE_TEST_SUITE_P(Layouts, GatesInBlocks, testing::ValuesIn(all_layouts));

TEST_P(GatesInBlocks, Hadamard) {
    compare([](QPU& q, const Masks& m) { q.hadamard(m.targets, m.conds, m.negs, 0); });
}

TEST_P(GatesInBlocks, Matrices) {
    compare([](QPU& q, const Masks& m) { q.complex2x2(matrix, m.targets, m.conds, m.negs, 0); });
    compare([](QPU& q, const Masks& m) { q.real2x2(real_matrix, m.targets, m.conds, m.negs, 0); });
}

TEST_P(GatesInBlocks, Nots) {
    compare([](QPU& q, const Masks& m) { q.cnot(m.targets, m.conds, m.negs, 0); });
    compare([](QPU& q, const Masks& m) { q.op_not(m.targets, m.conds, m.negs, 0); });
    compare([](QPU& q, const Masks& m) { q.cswap(m.targets, m.conds, m.negs, 0); });
}

TEST_P(GatesInBlocks, DiagonalGates) {
    compare([](QPU& q, const Masks& m) { q.cz(m.targets, m.conds, m.negs, 0); });
    compare([](QPU& q, const Masks& m) { q.phase(31.0, m.targets, m.conds, m.negs, 0); });
    compare([](QPU& q, const Masks& m) { q.phase(180.0, m.targets, m.conds, m.negs, 0); });
}

TEST_P(GatesInBlocks, PauliRotations) {
    compare([](QPU& q, const Masks& m) { q.ppr(31.0, m.targets, 0b0110, 0, 0, 0); });
    compare([](QPU& q, const Masks& m) { q.ppr(31.0, 0, m.targets, m.conds & 15, m.negs, 0); });
    compare([](QPU& q, const Masks& m) { q.ppr(31.0, m.targets, m.targets, 0, 0, 0); });
}

// All-zero blocks are skipped, so the sign of a zero may differ between layouts.
TEST_P(GatesInBlocks, SparseStates) {
    for (unsigned long index = 0; index < 16; ++index) {
        load(qpu, basis(16, index));
        qpu.hadamard(0b1001, 0b0100, 0b0100, 0);
        State expected = basis(16, index);
        for (const unsigned long target : {0b1000UL, 0b0001UL}) {
            scalar_pairs(expected.data(), expected.size(), target, {0b0100, 0b0100},
                         scalar_hadamard);
        }
        EXPECT_NEAR_STATE(state_of(qpu), expected);
    }
}

TEST_P(GatesInBlocks, ATargetThatIsItsOwnControl) {
    qpu.hadamard(0b1000, 0b1000, 0, 0);
    EXPECT_EQ(qpu.op_count, 1UL);
    if (qpu.block_number_mask != 0) {
        EXPECT_STATE(state_of(qpu), start) << "no lower block meets the control";
    }
}

/// Which blocks a gate works on, as seen in their fields.
class BlockChoice : public testing::Test {
  protected:
    void SetUp() override { shape(qpu, 4, {2, true}); }

    std::vector<bool> zero_blocks() const {
        std::vector<bool> zero(qpu.num_blocks);
        for (unsigned long i = 0; i < qpu.num_blocks; ++i) zero[i] = qpu.blocks[i]->all_zero;
        return zero;
    }

    std::vector<unsigned long> slots() const {
        std::vector<unsigned long> slots(qpu.num_blocks);
        for (unsigned long i = 0; i < qpu.num_blocks; ++i) slots[i] = qpu.blocks[i]->store_slot;
        return slots;
    }

    QPU qpu{0, nullptr};
};

TEST_F(BlockChoice, OnlyThePairWithSomethingInItIsTouched) {
    EXPECT_EQ(zero_blocks(), (std::vector<bool>{false, true, true, true}));
    qpu.hadamard(0b0100, 0, 0, 0);
    EXPECT_EQ(zero_blocks(), (std::vector<bool>{false, false, true, true}));
    qpu.hadamard(0b0010, 0, 0, 0);
    EXPECT_EQ(zero_blocks(), (std::vector<bool>{false, false, true, true}));
}

TEST_F(BlockChoice, ANotOnABlockBitMovesNoAmplitude) {
    qpu.op_not(0b0100, 0, 0, 0);
    EXPECT_EQ(slots(), (std::vector<unsigned long>{1, 0, 2, 3})) << "blocks 2 and 3 are all zero";
    EXPECT_EQ(zero_blocks(), (std::vector<bool>{true, false, true, true}));
    EXPECT_STATE(state_of(qpu), basis(16, 0b0100));
}

TEST_F(BlockChoice, ACnotAmongBlockBitsSwapsThePairsThatMeetTheCondition) {
    load(qpu, random_state(4, seed_of_this_test()));
    qpu.cnot(0b0100, 0b1000, 0, 0);
    EXPECT_EQ(slots(), (std::vector<unsigned long>{0, 1, 3, 2}));
    qpu.cnot(0b1000, 0b0100, 0b0100, 0);
    EXPECT_EQ(slots(), (std::vector<unsigned long>{3, 1, 0, 2}));
    qpu.cnot(0b1000, 0b0101, 0, 0);
    EXPECT_EQ(slots(), (std::vector<unsigned long>{3, 1, 0, 2})) << "a slot condition moves data";
}

TEST_F(BlockChoice, EveryGateLeavesBlocksUnpaired) {
    qpu.hadamard(0b1111, 0, 0, 0);
    qpu.ppr(30.0, 0b1100, 0b1010, 0, 0, 0);
    qpu.ppm(1, 0b1100, 0b1010, 0, 0);
    for (unsigned long i = 0; i < qpu.num_blocks; ++i) {
        EXPECT_EQ(qpu.blocks[i]->op_buddy, nullptr);
        EXPECT_EQ(qpu.blocks[i]->task_id, TASK_NONE);
    }
}

}  // namespace
