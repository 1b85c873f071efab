#include <limits>

#include "dense/blocks/block_support.h"
#include "dense/scalar_sums.h"

namespace {

using namespace Nimbrel::Testing;
using Nimbrel::complex_t;
using Nimbrel::SplitProbability;

class Probabilities : public HandedTest {
  protected:
    double read(Blocks& blocks, unsigned long number, unsigned long value, unsigned long mask,
                double limit) {
        double result = -77.0;
        blocks[number].peek_read_probability(&result, value, mask, limit);
        blocks[number].finish();
        return result;
    }

    /// Limits on both sides of 0, on both sides of the total, and one that a sum hits exactly.
    std::vector<double> limits(double total, double reached) {
        return {0.0, -1.0, total * std::fabs(draws.number()), total, total * 2.0 + 1.0, reached};
    }
};

INSTANTIATE_TEST_SUITE_P(Hands, Probabilities, all_hands);

TEST_P(Probabilities, OfReadsUnderEveryKindOfMaskAndLimit) {
    for (const unsigned long b : block_sizes()) {
        Blocks blocks(b, GetParam());
        const int rounds = b < small_qubits ? 20 : 4;
        for (int round = 0; round < rounds; ++round) {
            State state = blocks.fill(draws);
            const unsigned long number = draws.below(Blocks::count);
            const complex_t* data = blocks.slots(state, number);
            const unsigned long mask = draws.one_in(3) ? 0 : draws.mask(b) & draws.mask(b + 1);
            const unsigned long value = draws.mask(b);
            const unsigned long half = blocks.num_terms / 2;
            const double reached = scalar_read_probability(data, half, value, mask, 0.0);
            const double total = scalar_read_probability(data, blocks.num_terms, value, mask, 0.0);
            for (const double limit : limits(total, reached)) {
                const double expected =
                    scalar_read_probability(data, blocks.num_terms, value, mask, limit);
                ASSERT_TRUE(same_bits(read(blocks, number, value, mask, limit), expected))
                    << "block of " << blocks.num_terms << " mask " << mask << " value " << value
                    << " limit " << limit;
            }
            ASSERT_TRUE(same_bits(blocks.contents(), state));
            ASSERT_EQ(blocks[number].lock_count, 0);
        }
    }
}

TEST_P(Probabilities, WithAMaskAreFusedAndWithoutAreNot) {
    Blocks blocks(2, GetParam());
    const double x = 0x1p27 + 1.0;  // its square has one bit more than a double
    blocks[0].set_all_values(State{{1.0, 0.0}, {1.0, 0.0}, {x, 0.0}, {0.0, 0.0}}.data());
    ASSERT_NE(std::fma(x, x, 2.0), 2.0 + x * x);
    EXPECT_EQ(read(blocks, 0, 0, 0, 0.0), 2.0 + x * x);
    EXPECT_EQ(read(blocks, 0, 0, 0, 3.0), 2.0 + x * x);
    EXPECT_EQ(read(blocks, 0, 0, 4, 0.0), std::fma(x, x, 2.0));  // a mask that all slots meet
    EXPECT_EQ(read(blocks, 0, 0, 4, 3.0), std::fma(x, x, 2.0));
}

TEST_P(Probabilities, AreLeftOffAtTheLimitAndOnlyAboveZero) {
    Blocks blocks(2, GetParam());
    for (unsigned long i = 0; i < 4; ++i) blocks[1].set_value(i, {1.0, 1.0});
    EXPECT_EQ(read(blocks, 1, 0, 0, 0.0), 8.0);
    EXPECT_EQ(read(blocks, 1, 0, 0, -3.0), 8.0);
    EXPECT_EQ(read(blocks, 1, 0, 0, 100.0), 8.0);
    EXPECT_EQ(read(blocks, 1, 0, 0, 4.0), 4.0);
    EXPECT_EQ(read(blocks, 1, 0, 0, 4.5), 6.0);
    EXPECT_EQ(read(blocks, 1, 1, 1, 2.0), 2.0);
    EXPECT_EQ(read(blocks, 1, 4, 4, 0.0), 0.0);  // no slot has that bit
}

class SplitProbabilities : public Probabilities {
  protected:
    SplitProbability split(Blocks& blocks, unsigned long number, unsigned long bit) {
        SplitProbability result{-77.0, -77.0, -77.0};
        blocks[number].peek_split_probability(&result, bit);
        blocks[number].finish();
        return result;
    }

    /// The block's sum after a collapse of the state.
    double sum_after(Blocks& blocks, const State& state, unsigned long number, unsigned long bit,
                     unsigned long value) {
        blocks.fill(state);
        blocks[number].collapse(bit, value);
        return read(blocks, number, 0, 0, 0.0);
    }

    void expect_split(Blocks& blocks, const State& state, unsigned long number, unsigned long bit) {
        blocks.fill(state);
        const SplitProbability sums = split(blocks, number, bit);
        ASSERT_TRUE(same_bits(blocks.contents(), state));
        ASSERT_EQ(blocks[number].lock_count, 0);
        ASSERT_TRUE(same_bits(sums.total, read(blocks, number, 0, 0, 0.0)));
        ASSERT_TRUE(same_bits(sums.clear, sum_after(blocks, state, number, bit, 0)));
        ASSERT_TRUE(same_bits(sums.set, sum_after(blocks, state, number, bit, bit)));
    }

    /// A slot of the half with the bit at `value`.
    unsigned long slot_in_half(const Blocks& blocks, unsigned long bit, unsigned long value) {
        return (draws.below(blocks.num_terms) & ~bit) | value;
    }
};

INSTANTIATE_TEST_SUITE_P(Hands, SplitProbabilities, all_hands);

TEST_P(SplitProbabilities, AreTheSumsBeforeAndAfterACollapse) {
    for (const unsigned long b : block_sizes()) {
        Blocks blocks(b, GetParam());
        for (unsigned long bit = 1; bit < blocks.num_terms; bit *= 2) {
            const State state = draws.state(Blocks::count * blocks.num_terms);
            ASSERT_NO_FATAL_FAILURE(expect_split(blocks, state, draws.below(Blocks::count), bit))
                << "block of " << blocks.num_terms << " bit " << bit;
        }
    }
}

TEST_P(SplitProbabilities, OfOneHalfKnowNothingOfTheOther) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    for (const unsigned long b : block_sizes()) {
        Blocks blocks(b, GetParam());
        for (unsigned long bit = 1; bit < blocks.num_terms; bit *= 2) {
            for (const double odd : {infinity, -infinity, std::nan(""), 1e200}) {
                const unsigned long number = draws.below(Blocks::count);
                const unsigned long value = draws.one_in(2) ? bit : 0;
                State state = draws.state(Blocks::count * blocks.num_terms);
                complex_t& term = blocks.slots(state, number)[slot_in_half(blocks, bit, value)];
                (draws.one_in(2) ? term.re : term.im) = odd;
                ASSERT_NO_FATAL_FAILURE(expect_split(blocks, state, number, bit))
                    << odd << " in a block of " << blocks.num_terms << " bit " << bit;
                blocks.fill(state);
                const SplitProbability sums = split(blocks, number, bit);
                ASSERT_FALSE(std::isfinite(sums.total));
                ASSERT_EQ(std::isfinite(sums.clear), value != 0);
                ASSERT_EQ(std::isfinite(sums.set), value == 0);
            }
        }
    }
}

TEST_P(SplitProbabilities, OfAFewTerms) {
    Blocks blocks(2, GetParam());
    blocks[3].set_all_values(State{{1.0, 0.0}, {0.0, 2.0}, {3.0, 0.0}, {0.0, 4.0}}.data());
    const SplitProbability by_low_bit = split(blocks, 3, 1);
    EXPECT_EQ(by_low_bit.total, 30.0);
    EXPECT_EQ(by_low_bit.clear, 10.0);
    EXPECT_EQ(by_low_bit.set, 20.0);
    const SplitProbability by_high_bit = split(blocks, 3, 2);
    EXPECT_EQ(by_high_bit.total, 30.0);
    EXPECT_EQ(by_high_bit.clear, 5.0);
    EXPECT_EQ(by_high_bit.set, 25.0);
}

class Sampling : public HandedTest {
  protected:
    unsigned long index(Blocks& blocks, unsigned long number, double target) {
        unsigned long result = 77;
        blocks[number].get_index_from_probability(target, &result);
        blocks[number].finish();
        return result;
    }
};

INSTANTIATE_TEST_SUITE_P(Hands, Sampling, all_hands);

TEST_P(Sampling, FindsTheSlotOfTheRunningSum) {
    for (const unsigned long b : block_sizes()) {
        Blocks blocks(b, GetParam());
        for (int round = 0; round < (b < small_qubits ? 20 : 4); ++round) {
            State state = blocks.fill(draws);
            const unsigned long number = draws.below(Blocks::count);
            const complex_t* data = blocks.slots(state, number);
            const double total = scalar_read_probability(data, blocks.num_terms, 0, 0, 0.0);
            for (const double target : {0.0, -1.0, total * std::fabs(draws.number()), total,
                                        std::nextafter(total, 0.0), total * 2.0 + 1.0}) {
                ASSERT_EQ(index(blocks, number, target),
                          scalar_index(data, blocks.num_terms, target))
                    << "block of " << blocks.num_terms << " target " << target;
            }
            ASSERT_TRUE(same_bits(blocks.contents(), state));
        }
    }
}

TEST_P(Sampling, NeverChoosesAZeroButForTheEnd) {
    Blocks blocks(2, GetParam());
    blocks.fill(State(Blocks::count * 4, complex_t{0.0, 0.0}));
    EXPECT_EQ(index(blocks, 2, 0.0), 3UL);  // nothing to choose
    blocks[2].set_value(1, {0.0, 0.5});
    EXPECT_EQ(index(blocks, 2, 0.0), 1UL);
    EXPECT_EQ(index(blocks, 2, 0.25), 1UL);
    EXPECT_EQ(index(blocks, 2, 0.26), 3UL);  // above the total, and slot 3 is zero
    EXPECT_EQ(index(blocks, 2, std::numeric_limits<double>::quiet_NaN()), 3UL);
    blocks[2].set_value(0, {-0.0, 0.0});  // no zero in its bits
    EXPECT_EQ(index(blocks, 2, 0.0), 0UL);
}

}  // namespace
