#include <limits>
#include <stdexcept>

#include "dense/blocks/block_support.h"
#include "dense/scalar_sums.h"

namespace {

using namespace Nimbrel::Testing;
using Nimbrel::complex_t;
using Nimbrel::CoreBlock;

constexpr complex_t zero{0.0, 0.0};

class Transfer : public HandedTest {
  protected:
    static State values_of(CoreBlock& block) {
        State values(block.num_terms, complex_t{-77.0, -77.0});
        block.get_all_values(values.data());
        return values;
    }
};

INSTANTIATE_TEST_SUITE_P(Hands, Transfer, all_hands);

TEST_P(Transfer, OfSingleValues) {
    Blocks blocks(3, GetParam());
    State expected = blocks.fill(draws);
    blocks.slots(expected, 0)[5] = {0.25, -0.0};
    blocks[0].set_value(5, {0.25, -0.0});
    EXPECT_TRUE(same_bits(blocks.contents(), expected));
    EXPECT_TRUE(same_bits(blocks[0].get_value(5).im, -0.0));
    EXPECT_EQ(blocks[0].get_value(5).re, 0.25);
    EXPECT_EQ(blocks[0].lock_count, 0);
}

TEST_P(Transfer, OfASingleValueWaitsForTheTaskBefore) {
    Blocks blocks(handed_over_qubits, GetParam());
    blocks.fill(draws);
    blocks[1].set_zero();
    blocks[1].set_value(7, {1.0, 2.0});  // not cleared by the task that came first
    EXPECT_EQ(blocks[1].get_value(7).im, 2.0);
    EXPECT_EQ(blocks[1].get_value(8).re, 0.0);
    EXPECT_FALSE(blocks[1].all_zero);
}

TEST_P(Transfer, OfAZeroKeepsTheMarkOfAZeroBlock) {
    Blocks blocks(2, GetParam());
    blocks.fill(draws);
    blocks[3].set_zero();
    blocks[3].set_value(1, zero);
    EXPECT_TRUE(blocks[3].all_zero);
    EXPECT_TRUE(same_bits(values_of(blocks[3]), State(4, zero)));
    blocks[3].set_value(1, {-0.0, 0.0});  // a negative zero is not zero in all bits
    EXPECT_FALSE(blocks[3].all_zero);
    blocks[3].set_value(1, zero);
    EXPECT_FALSE(blocks[3].all_zero);
}

TEST_P(Transfer, OfABlock) {
    for (const unsigned long b : {0UL, 4UL, handed_over_qubits}) {
        Blocks blocks(b, GetParam());
        State expected = blocks.fill(draws);
        const State values = draws.state(blocks.num_terms);
        std::copy(values.begin(), values.end(), blocks.slots(expected, 2));
        blocks[2].set_all_values(values.data());
        EXPECT_TRUE(same_bits(blocks.contents(), expected));
        EXPECT_TRUE(same_bits(values_of(blocks[2]), values));
        EXPECT_EQ(blocks[2].lock_count, 0);
    }
}

TEST_P(Transfer, OfZerosMarksTheBlock) {
    for (const unsigned long b : {0UL, 4UL, handed_over_qubits}) {
        Blocks blocks(b, GetParam());
        State expected = blocks.fill(draws);
        std::fill_n(blocks.slots(expected, 2), blocks.num_terms, zero);
        State values(blocks.num_terms, zero);
        blocks[2].set_all_values(values.data());
        EXPECT_TRUE(blocks[2].all_zero);
        EXPECT_TRUE(same_bits(blocks.contents(), expected));
        EXPECT_EQ(blocks[2].lock_count, 0);

        values.back().im = -0.0;
        blocks[2].set_all_values(values.data());
        EXPECT_FALSE(blocks[2].all_zero);
        EXPECT_TRUE(same_bits(values_of(blocks[2]), values));
    }
}

TEST_P(Transfer, OfAMarkedBlockDoesNotReadIt) {
    Blocks blocks(2, GetParam());
    blocks.fill(draws);
    blocks[1].all_zero = true;
    EXPECT_TRUE(same_bits(values_of(blocks[1]), State(4, zero)));
    EXPECT_EQ(blocks[1].lock_count, 0);
}

TEST_P(Transfer, OfABlockWhoseClearingStillWaits) {
    Blocks blocks(handed_over_qubits, GetParam());
    blocks.fill(draws);
    blocks[1].set_zero();
    EXPECT_TRUE(same_bits(values_of(blocks[1]), State(blocks.num_terms, zero)));
    blocks.finish();
    EXPECT_EQ(blocks[1].lock_count, 0);
}

TEST_P(Transfer, ChecksEachPartAgainstTheTolerance) {
    Blocks blocks(2, GetParam());
    CoreBlock& block = blocks[0];
    const State values{{0.5, 0.0}, {0.0, 0.25}, {0.0, 0.0}, {1.0, 1.0}};
    block.set_all_values(values.data());
    blocks.finish();
    EXPECT_TRUE(block.check_all_values(values.data(), 0.0));

    State other = values;
    other[3].im += 0.125;
    EXPECT_TRUE(block.check_all_values(other.data(), 0.125));  // exactly the tolerance passes
    EXPECT_EQ(block.lock_count, 0);
    EXPECT_FALSE(block.check_all_values(other.data(), 0.12));
    EXPECT_EQ(block.lock_count, 1);  // the early return does not unlock

    other = values;
    other[0].re = std::numeric_limits<double>::quiet_NaN();
    EXPECT_TRUE(block.check_all_values(other.data(), 0.0));
    other[1].re = -0.125;
    EXPECT_FALSE(block.check_all_values(other.data(), 0.1));
    EXPECT_EQ(block.lock_count, 2);
}

class BiggestTerms : public HandedTest {
  protected:
    /// Amplitudes of few different sizes, so that many are equal.
    State coarse_state(unsigned long terms) {
        State state(terms);
        for (complex_t& term : state) {
            term = {static_cast<double>(draws.below(3)) - 1.0,
                    static_cast<double>(draws.below(5)) * 0.5};
        }
        return state;
    }
};

INSTANTIATE_TEST_SUITE_P(Hands, BiggestTerms, all_hands);

TEST_P(BiggestTerms, OfAllBlocksInTurn) {
    for (const unsigned long b : block_sizes()) {
        Blocks blocks(b, GetParam());
        for (const unsigned long n : {1UL, 2UL, 7UL, Blocks::count * blocks.num_terms + 3}) {
            if (n > 50) continue;  // the scalar list is slow
            State state = draws.one_in(2) ? coarse_state(Blocks::count * blocks.num_terms)
                                          : draws.state(Blocks::count * blocks.num_terms);
            blocks.fill(state);
            std::vector<unsigned long> indices(n, 0);
            std::vector<unsigned long> expected_indices(n, 0);
            State values(n, zero);
            State expected_values(n, zero);
            for (unsigned long number = 0; number < Blocks::count; ++number) {
                scalar_top_terms(blocks.slots(state, number), blocks.num_terms, number << b,
                                 expected_indices, expected_values);
                blocks[number].peek_n_biggest_terms(n, indices.data(), values.data());
                ASSERT_EQ(blocks[number].lock_count, 0);
            }
            ASSERT_EQ(indices, expected_indices) << "blocks of " << blocks.num_terms;
            ASSERT_TRUE(same_bits(values, expected_values));
            ASSERT_TRUE(same_bits(blocks.contents(), state));
        }
    }
}

TEST_P(BiggestTerms, KeepTheFirstOfEquals) {
    Blocks blocks(2, GetParam());
    blocks[2].set_all_values(State{{0.5, 0.0}, {0.0, 1.0}, {1.0, 0.0}, {0.0, -0.5}}.data());
    unsigned long indices[3] = {};
    State values(3, zero);
    blocks[2].peek_n_biggest_terms(3, indices, values.data());
    EXPECT_EQ(indices[0], 9UL);
    EXPECT_EQ(indices[1], 10UL);
    EXPECT_EQ(indices[2], 8UL);  // slot 3 is as large as this last entry and is not admitted
    EXPECT_TRUE(same_bits(values, State{{0.0, 1.0}, {1.0, 0.0}, {0.5, 0.0}}));
}

TEST_P(BiggestTerms, LeavePlacesWithoutATermAtZero) {
    Blocks blocks(1, GetParam());
    blocks[1].set_all_values(State{{0.0, 0.0}, {0.0, 0.5}}.data());
    unsigned long indices[3] = {};
    State values(3, zero);
    blocks[1].peek_n_biggest_terms(3, indices, values.data());
    EXPECT_EQ(indices[0], 3UL);
    EXPECT_EQ(indices[1], 0UL);
    EXPECT_EQ(indices[2], 0UL);
    EXPECT_TRUE(same_bits(values, State{{0.0, 0.5}, zero, zero}));
}

TEST_P(BiggestTerms, PassOverAMarkedBlock) {
    Blocks blocks(1, GetParam());
    blocks[1].set_all_values(State{{1.0, 0.0}, {1.0, 0.0}}.data());
    blocks[1].all_zero = true;
    unsigned long index = 77;
    complex_t value{0.0, 0.0};
    blocks[1].peek_n_biggest_terms(1, &index, &value);
    EXPECT_EQ(index, 77UL);
    EXPECT_EQ(blocks[1].lock_count, 0);
    blocks[1].peek_n_biggest_terms(1UL << 63, &index, &value);  // the length is not read
}

TEST_P(BiggestTerms, AreNotListedInAnImpossibleNumber) {
    Blocks blocks(1, GetParam());
    unsigned long index = 0;
    complex_t value{0.0, 0.0};
    for (const unsigned long n : {1UL << 60, 1UL << 63, ~0UL}) {
        blocks[1].lock_count = 0;
        try {
            blocks[1].peek_n_biggest_terms(n, &index, &value);
            ADD_FAILURE() << "no exception for " << n;
        } catch (const std::length_error& error) {
            EXPECT_STREQ(error.what(), "cannot create std::vector larger than max_size()");
        }
        EXPECT_EQ(blocks[1].lock_count, 1);
    }
}

TEST_P(BiggestTerms, OfNoneReturnAtOnce) {
    Blocks blocks(1, GetParam());
    blocks[1].set_value(0, {1.0, 0.0});
    blocks[1].peek_n_biggest_terms(0, nullptr, nullptr);
    EXPECT_EQ(blocks[1].lock_count, 0);
}

}  // namespace
