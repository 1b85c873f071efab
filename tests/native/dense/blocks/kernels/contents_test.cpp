#include "dense/blocks/block_support.h"
#include "dense/scalar_sums.h"
#include "support/random.h"

namespace {

using namespace Nimbrel::Testing;
using Nimbrel::complex_t;
using Nimbrel::CoreBlock;

class Contents : public HandedTest {
  protected:
    /// Runs `change(block)` and `scalar(slots)` on the same random block, many times.
    template <typename Change, typename Scalar>
    void expect_change(Blocks& blocks, Change&& change, Scalar&& scalar) {
        const unsigned long number = draws.below(Blocks::count);
        State expected = blocks.fill(draws);
        scalar(blocks.slots(expected, number));
        change(blocks[number]);
        ASSERT_TRUE(same_bits(blocks.contents(), expected)) << "block of " << blocks.num_terms;
        ASSERT_EQ(blocks[number].lock_count, 0);
        ASSERT_FALSE(blocks[number].all_zero);
    }

    static int rounds(unsigned long b) { return b < small_qubits ? 20 : 4; }
};

INSTANTIATE_TEST_SUITE_P(Hands, Contents, all_hands);

TEST_P(Contents, Scale) {
    for (const unsigned long b : block_sizes()) {
        Blocks blocks(b, GetParam());
        for (int round = 0; round < rounds(b); ++round) {
            const double factor = draws.number();
            ASSERT_NO_FATAL_FAILURE(expect_change(
                blocks, [&](CoreBlock& block) { block.scale_probability(factor); },
                [&](complex_t* data) { scalar_scale(data, blocks.num_terms, factor); }));
        }
    }
}

TEST_P(Contents, Collapse) {
    for (const unsigned long b : block_sizes()) {
        Blocks blocks(b, GetParam());
        for (int round = 0; round < rounds(b); ++round) {
            const unsigned long mask = draws.mask(b) & draws.mask(b + 1);
            const unsigned long value = draws.one_in(4) ? draws.mask(b) : draws.bits() & mask;
            ASSERT_NO_FATAL_FAILURE(expect_change(
                blocks, [&](CoreBlock& block) { block.collapse(mask, value); },
                [&](complex_t* data) { scalar_collapse(data, blocks.num_terms, mask, value); }))
                << "mask " << mask << " value " << value;
        }
    }
}

TEST_P(Contents, CollapseWithoutAMaskKeepsAllOrNothing) {
    Blocks blocks(3, GetParam());
    State expected = blocks.fill(draws);
    blocks[1].collapse(0, 0);
    EXPECT_TRUE(same_bits(blocks.contents(), expected));
    std::fill_n(blocks.slots(expected, 1), 8, complex_t{0.0, 0.0});
    blocks[1].collapse(0, 1);
    EXPECT_TRUE(same_bits(blocks.contents(), expected));
}

TEST_P(Contents, ClearUnderAMask) {
    for (const unsigned long b : block_sizes()) {
        Blocks blocks(b, GetParam());
        for (int round = 0; round < rounds(b); ++round) {
            const unsigned long mask = draws.mask(b) & draws.mask(b + 1);
            ASSERT_NO_FATAL_FAILURE(expect_change(
                blocks, [&](CoreBlock& block) { block.set_zero_mask(mask); },
                [&](complex_t* data) { scalar_zero_mask(data, blocks.num_terms, mask); }))
                << "mask " << mask;
        }
    }
}

TEST_P(Contents, ClearWholeAndMarkTheBlock) {
    for (const unsigned long b : {0UL, 5UL, handed_over_qubits}) {
        Blocks blocks(b, GetParam());
        State expected = blocks.fill(draws);
        std::fill_n(blocks.slots(expected, 2), blocks.num_terms, complex_t{0.0, 0.0});
        blocks[2].set_zero();
        EXPECT_TRUE(blocks[2].all_zero);
        EXPECT_TRUE(same_bits(blocks.contents(), expected));
        EXPECT_FALSE(blocks[1].all_zero);
    }
}

TEST_P(Contents, ClearUnderAMaskOrACollapseLeavesTheMark) {
    Blocks blocks(2, GetParam());
    blocks.fill(draws);
    blocks[1].set_zero_mask(3);
    blocks[1].collapse(3, 0);
    EXPECT_FALSE(blocks[1].all_zero);
    blocks[1].set_zero();
    blocks[1].set_zero_mask(1);
    blocks[1].collapse(1, 0);
    blocks[1].scale_probability(2.0);
    EXPECT_TRUE(blocks[1].all_zero);
}

TEST_P(Contents, DrawTheImaginaryPartFirst) {
    for (const unsigned long b : {0UL, 4UL, handed_over_qubits}) {
        Blocks blocks(b, GetParam());
        State expected = blocks.fill(draws);
        set_random_seed(5);
        for (unsigned long i = 0; i < blocks.num_terms; ++i) {
            complex_t& term = blocks.slots(expected, 1)[i];
            term.im = random_plus_minus();
            term.re = random_plus_minus();
        }
        set_random_seed(5);
        blocks[1].set_zero();
        blocks[1].set_random();
        EXPECT_FALSE(blocks[1].all_zero);
        EXPECT_TRUE(same_bits(blocks.contents(), expected)) << "block of " << blocks.num_terms;
    }
}

// Workers that fill blocks at the same time draw in an order that depends on thread timing.
TEST_P(Contents, DrawInAllBlocksAtOnce) {
    Blocks blocks(handed_over_qubits, GetParam());
    constexpr unsigned seed_of_draws = 11;
    set_random_seed(seed_of_draws);
    for (unsigned long number = 0; number < Blocks::count; ++number) blocks[number].set_random();
    std::vector<double> lanes;
    for (const complex_t& term : blocks.contents()) lanes.insert(lanes.end(), {term.re, term.im});

    set_random_seed(seed_of_draws);
    std::vector<double> expected(lanes.size());
    for (double& draw : expected) draw = random_plus_minus();
    std::sort(lanes.begin(), lanes.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(lanes, expected);
}

}  // namespace
