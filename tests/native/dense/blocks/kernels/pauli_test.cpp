#include "dense/blocks/block_support.h"
#include "dense/scalar_pauli.h"

namespace {

using namespace Nimbrel::Testing;
using Nimbrel::complex_t;
using Nimbrel::CoreBlock;

class PauliProducts : public HandedTest {
  protected:
    struct Round {
        unsigned long lower, upper;
        bool across;  ///< on two blocks
        unsigned long x_mask, z_mask;
        Condition cond;
    };

    /// Masks over the whole register: the block's bits, two of the block number, a few above.
    Round draw_round(unsigned long b, bool across) {
        Round round{};
        round.lower = draws.below(Blocks::count);
        round.upper = (round.lower + 1 + draws.below(Blocks::count - 1)) % Blocks::count;
        round.across = across;
        round.x_mask = draws.mask(b + 2);
        round.z_mask = draws.mask(b + 2);
        if (draws.one_in(4)) round.x_mask &= ~((1UL << b) - 1);
        if (draws.one_in(4)) round.x_mask &= ~1UL;
        if (draws.one_in(6)) round.z_mask |= 1UL << 55;
        if (draws.one_in(6)) round.x_mask |= 3UL << 54;
        round.cond = draws.condition(b);
        return round;
    }

    static ScalarProduct scalar(Blocks& blocks, State& state, unsigned long b, const Round& round) {
        complex_t* there = round.across ? blocks.slots(state, round.upper) : nullptr;
        return {{blocks.slots(state, round.lower), round.lower},
                {there, round.upper},
                b,
                round.x_mask,
                round.z_mask};
    }

    static CoreBlock& block_of(Blocks& blocks, const Round& round) {
        return round.across ? blocks.paired(round.lower, round.upper) : blocks[round.lower];
    }

    static void expect_idle(Blocks& blocks, const Round& round) {
        ASSERT_EQ(blocks[round.lower].op_buddy, nullptr);
        ASSERT_EQ(blocks[round.lower].lock_count, 0);
        ASSERT_EQ(blocks[round.upper].lock_count, 0);
    }

    static std::string text_of(const Blocks& blocks, const Round& round) {
        std::ostringstream text;
        text << "blocks of " << blocks.num_terms << (round.across ? " in a pair" : " alone")
             << " x " << round.x_mask << " z " << round.z_mask << round.cond << " number "
             << round.lower << " with " << round.upper;
        return text.str();
    }

    /// Calls check(blocks, b, round) for many rounds in blocks of every size.
    template <typename Check>
    void for_each_round(Check&& check) {
        for (const unsigned long b : block_sizes()) {
            Blocks blocks(b, GetParam());
            const int rounds = b < small_qubits ? 60 : 8;
            for (int i = 0; i < rounds; ++i) {
                const Round round = draw_round(b, i % 2 == 1);
                ASSERT_NO_FATAL_FAILURE(check(blocks, b, round)) << text_of(blocks, round);
                ASSERT_NO_FATAL_FAILURE(expect_idle(blocks, round)) << text_of(blocks, round);
            }
        }
    }
};

INSTANTIATE_TEST_SUITE_P(Hands, PauliProducts, all_hands);

TEST_P(PauliProducts, Rotate) {
    for_each_round([this](Blocks& blocks, unsigned long b, const Round& round) {
        const double sine = draws.number();
        const double cosine = draws.number();
        State expected = blocks.fill(draws);
        scalar_ppr(scalar(blocks, expected, b, round), round.cond, sine, cosine);
        block_of(blocks, round)
            .op_ppr(round.x_mask, round.z_mask, slots_of(round.cond), sine, cosine);
        ASSERT_TRUE(same_bits(blocks.contents(), expected));
    });
}

TEST_P(PauliProducts, Project) {
    for_each_round([this](Blocks& blocks, unsigned long b, const Round& round) {
        const unsigned long measured = draws.below(3);  // 1 and 2 are the outcome -1
        State expected = blocks.fill(draws);
        scalar_ppm(scalar(blocks, expected, b, round), measured);
        block_of(blocks, round).op_ppm(round.x_mask, round.z_mask, measured);
        ASSERT_TRUE(same_bits(blocks.contents(), expected)) << "measured " << measured;
    });
}

TEST_P(PauliProducts, TellTheirProbabilityAndChangeNothing) {
    for_each_round([this](Blocks& blocks, unsigned long b, const Round& round) {
        State expected = blocks.fill(draws);
        const double probability = scalar_pps(scalar(blocks, expected, b, round));
        double result = -77.0;
        block_of(blocks, round).op_pps(round.x_mask, round.z_mask, &result);
        ASSERT_TRUE(same_bits(blocks.contents(), expected));
        ASSERT_TRUE(same_bits(result, probability));
    });
}

TEST_P(PauliProducts, KnowTheFourPowersOfMinusI) {
    constexpr unsigned long b = 3;
    Blocks blocks(b, GetParam());
    const State start = blocks.fill(draws);
    for (unsigned long ys = 0; ys <= b; ++ys) {
        const unsigned long mask = (1UL << ys) - 1;
        State expected = start;
        blocks.fill(start);
        const ScalarProduct product{{blocks.slots(expected, 1), 1}, {nullptr, 0}, b, mask, mask};
        scalar_ppm(product, 0);
        blocks[1].op_ppm(mask, mask, 0);
        EXPECT_TRUE(same_bits(blocks.contents(), expected)) << ys << " factors Y";
    }
    // Y has (0, -i; i, 0): from |0> with amplitude 1, (1 + Y) makes (1, i).
    blocks.fill(State(Blocks::count << b, complex_t{0.0, 0.0}));
    blocks[1].set_value(0, {1.0, 0.0});
    blocks[1].op_ppm(1, 1, 0);
    blocks.finish();
    EXPECT_EQ(blocks[1].get_value(0).re, 1.0);
    EXPECT_EQ(blocks[1].get_value(1).im, 1.0);
}

class MultiExchange : public HandedTest {};

INSTANTIATE_TEST_SUITE_P(Hands, MultiExchange, all_hands);

TEST_P(MultiExchange, InOneBlock) {
    for (const unsigned long b : block_sizes()) {
        Blocks blocks(b, GetParam());
        const int rounds = b < small_qubits ? 40 : 8;
        for (int round = 0; b > 0 && round < rounds; ++round) {
            const unsigned long target =
                draws.mask(b) | 1UL << draws.below(b) | draws.below(2) << b;
            const unsigned long condition = draws.mask(b) & draws.mask(b);
            State expected = blocks.fill(draws);
            scalar_x_multi(blocks.slots(expected, 3), nullptr, blocks.num_terms, target, condition);
            blocks[3].op_x_multi(target, condition);
            ASSERT_TRUE(same_bits(blocks.contents(), expected))
                << "target " << target << " condition " << condition;
            ASSERT_EQ(blocks[3].lock_count, 0);
        }
    }
}

TEST_P(MultiExchange, BetweenTwoBlocks) {
    for (const unsigned long b : block_sizes()) {
        Blocks blocks(b, GetParam());
        const int rounds = b < small_qubits ? 20 : 8;
        for (int round = 0; b > 0 && round < rounds; ++round) {
            const unsigned long target = draws.mask(b) | 1UL << draws.below(b) | 1UL << (b + 1);
            const unsigned long condition = draws.one_in(3) ? 0 : draws.mask(b) & draws.mask(b);
            State expected = blocks.fill(draws);
            scalar_x_multi(blocks.slots(expected, 0), blocks.slots(expected, 2), blocks.num_terms,
                           target, condition);
            blocks.paired(0, 2).op_x_multi(target, condition);
            ASSERT_TRUE(same_bits(blocks.contents(), expected))
                << "target " << target << " condition " << condition;
            ASSERT_EQ(blocks[0].op_buddy, nullptr);
            ASSERT_EQ(blocks[0].lock_count, 0);
        }
    }
}

TEST_P(MultiExchange, WithoutATargetInTheBlockLeavesTheLockCounted) {
    for (const unsigned long b : {2UL, handed_over_qubits}) {
        Blocks blocks(b, GetParam());
        const State start = blocks.fill(draws);
        blocks[1].op_x_multi(1UL << b, 0);
        blocks.finish();
        EXPECT_EQ(blocks[1].lock_count, 1);

        blocks.paired(0, 2).op_x_multi(0, 0);
        blocks[0].finish();
        EXPECT_EQ(blocks[0].lock_count, 1);
        EXPECT_EQ(blocks[0].op_buddy, &blocks[2]);
        blocks[0].set_op_buddy(nullptr);
        EXPECT_TRUE(same_bits(blocks.contents(), start));
    }
}

// The mask of the slot bits is computed in 32 bits. A small block with a false number of qubits
// shows it: with 32 no bit of X is inside, with 33 one is.
TEST(SlotMask, CountsTheBlocksQubitsModulo32) {
    Blocks blocks(1, Hands::caller);
    CoreBlock& block = blocks[1];
    const State values{{1.0, 2.0}, {3.0, 4.0}};
    block.num_block_qubits = 32;
    block.set_all_values(values.data());
    block.op_ppm(3, 0, 0);  // no X inside: each slot with itself
    EXPECT_EQ(block.get_value(0).re, 2.0);
    EXPECT_EQ(block.get_value(1).im, 8.0);
    block.op_x_multi(3, 0);
    EXPECT_EQ(block.lock_count, 1);

    block.num_block_qubits = 33;
    block.set_all_values(values.data());
    block.op_ppm(3, 0, 0);
    EXPECT_EQ(block.get_value(0).re, 4.0);
    EXPECT_EQ(block.get_value(1).im, 6.0);
    block.op_x_multi(3, 0);
    EXPECT_EQ(block.lock_count, 1);
}

}  // namespace
