#include "dense/blocks/block_support.h"

namespace {

using namespace Nimbrel::Testing;
using Nimbrel::complex_t;

class Phases : public HandedTest {
  protected:
    void expect_phase(Blocks& blocks, Condition cond) {
        const unsigned long number = draws.below(Blocks::count);
        const double im = draws.number();
        const double re = draws.number();
        State expected = blocks.fill(draws);
        scalar_phase(blocks.slots(expected, number), blocks.num_terms, cond, im, re);
        blocks[number].op_phase(slots_of(cond), im, re);
        ASSERT_TRUE(same_bits(blocks.contents(), expected))
            << "phase in a block of " << blocks.num_terms << cond;
        ASSERT_EQ(blocks[number].lock_count, 0);
    }

    void expect_cz(Blocks& blocks, Condition cond) {
        const unsigned long number = draws.below(Blocks::count);
        State expected = blocks.fill(draws);
        scalar_cz(blocks.slots(expected, number), blocks.num_terms, cond);
        blocks[number].op_cz(slots_of(cond));
        ASSERT_TRUE(same_bits(blocks.contents(), expected))
            << "cz in a block of " << blocks.num_terms << cond;
        ASSERT_EQ(blocks[number].lock_count, 0);
    }

    void expect_both(Blocks& blocks, Condition cond) {
        ASSERT_NO_FATAL_FAILURE(expect_phase(blocks, cond));
        ASSERT_NO_FATAL_FAILURE(expect_cz(blocks, cond));
    }
};

INSTANTIATE_TEST_SUITE_P(Hands, Phases, all_hands);

TEST_P(Phases, OnEverySingleBitAndOnAllSlots) {
    for (const unsigned long b : block_sizes()) {
        Blocks blocks(b, GetParam());
        ASSERT_NO_FATAL_FAILURE(expect_both(blocks, {}));
        for (unsigned long bit = 1; bit < blocks.num_terms; bit *= 2) {
            ASSERT_NO_FATAL_FAILURE(expect_both(blocks, {bit, 0}));
            ASSERT_NO_FATAL_FAILURE(expect_both(blocks, {bit, bit}));
        }
    }
}

TEST_P(Phases, UnderRandomConditions) {
    for (const unsigned long b : block_sizes()) {
        Blocks blocks(b, GetParam());
        const int rounds = b < small_qubits ? 40 : 6;
        for (int round = 0; round < rounds; ++round) {
            ASSERT_NO_FATAL_FAILURE(expect_both(blocks, draws.condition(b)));
        }
    }
}

// A negation outside a single-bit mask moves the start of the walk. The steps are the same, and the
// walk ends with the block.
TEST_P(Phases, WithANegationOutsideASingleBitStayInTheBlock) {
    for (unsigned long b = 0; b < 6; ++b) {
        Blocks blocks(b, GetParam());
        for (unsigned long bit = 1; bit <= 2 * blocks.num_terms; bit *= 2) {
            for (unsigned long negation = 0; negation < 2 * blocks.num_terms; ++negation) {
                ASSERT_NO_FATAL_FAILURE(expect_both(blocks, {bit, negation}));
            }
        }
    }
}

TEST_P(Phases, WithANegationButNoMaskWorkOnAllSlots) {
    Blocks blocks(3, GetParam());
    for (const unsigned long negation : {1UL, 5UL, 8UL, 1UL << 63}) {
        ASSERT_NO_FATAL_FAILURE(expect_both(blocks, {0, negation}));
    }
}

TEST_P(Phases, WithBitsFarAboveTheBlockStayInTheBlock) {
    Blocks blocks(3, GetParam());
    for (unsigned long bit = 1UL << 4; bit != 0; bit *= 2) {
        ASSERT_NO_FATAL_FAILURE(expect_both(blocks, {bit, 0}));
        ASSERT_NO_FATAL_FAILURE(expect_both(blocks, {bit, bit}));
        ASSERT_NO_FATAL_FAILURE(expect_both(blocks, {bit | 2, bit}));
        ASSERT_NO_FATAL_FAILURE(expect_both(blocks, {2, bit}));
    }
}

TEST_P(Phases, OfOneTouchNoMemoryAndStartNoTask) {
    Nimbrel::CoreBlockStore store(handed_over_qubits, 1, 0, nullptr, true, false);
    Nimbrel::CoreBlock block(0, handed_over_qubits, &store, nullptr, GetParam() != Hands::caller,
                             false);
    for (const double im : {0.0, 0.5, -1.0}) block.op_phase({}, im, 1.0);
    EXPECT_EQ(block.task_id, Nimbrel::TASK_NONE);
    block.finish();
    EXPECT_EQ(block.block_data, nullptr);  // any task would have set it
}

TEST_P(Phases, OfMinusOneFlipSignsExactly) {
    for (const unsigned long b : {4UL, handed_over_qubits}) {
        Blocks blocks(b, GetParam());
        State expected = blocks.fill(draws);
        scalar_cz(blocks.slots(expected, 2), blocks.num_terms, {2, 0});
        blocks[2].op_phase({2, 2}, 0.25, -1.0);
        ASSERT_TRUE(same_bits(blocks.contents(), expected));
    }
}

TEST_P(Phases, OfMinusOneMakeZerosNegative) {
    Blocks blocks(0, GetParam());
    blocks.fill(State(Blocks::count, complex_t{0.0, 0.0}));
    blocks[1].op_cz({});
    blocks.finish();
    EXPECT_TRUE(same_bits(blocks[1].get_value(0).re, -0.0));
    EXPECT_TRUE(same_bits(blocks[1].get_value(0).im, -0.0));
}

}  // namespace
