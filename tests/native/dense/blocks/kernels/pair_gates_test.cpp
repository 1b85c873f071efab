#include <limits>

#include "dense/blocks/kernels/pair_gates.h"

namespace {

using namespace Nimbrel::Testing;
using Nimbrel::complex_t;
using Nimbrel::CoreBlock;
using Nimbrel::GateMatrix;

class PairGates : public HandedTest {
  protected:
    /// One gate on one block, compared in the whole buffer.
    void expect_gate(Blocks& blocks, const PairGate& gate, unsigned long t, Condition cond) {
        expect_gate(blocks, draws.state(Blocks::count * blocks.num_terms), gate, t, cond);
    }

    void expect_gate(Blocks& blocks, State expected, const PairGate& gate, unsigned long t,
                     Condition cond) {
        if (!gate.conditional) cond = {};
        const Matrices matrices(draws);
        const unsigned long number = draws.below(Blocks::count);
        blocks.fill(expected);
        scalar_pairs(blocks.slots(expected, number), blocks.num_terms, t, cond,
                     [&](complex_t& x, complex_t& y) { gate.scalar(x, y, matrices); });
        gate.run(blocks[number], t, cond, matrices);
        ASSERT_TRUE(same_bits(blocks.contents(), expected))
            << gate.name << " in a block of " << blocks.num_terms << " target " << t << cond;
        ASSERT_EQ(blocks[number].lock_count, 0);
    }

    /// The same on a block and its buddy.
    void expect_gate_on_pair(Blocks& blocks, const PairGate& gate, Condition cond) {
        if (!gate.conditional) cond = {};
        const Matrices matrices(draws);
        const unsigned long lower = draws.below(Blocks::count);
        const unsigned long upper = (lower + 1 + draws.below(Blocks::count - 1)) % Blocks::count;
        State expected = blocks.fill(draws);
        scalar_pairs(blocks.slots(expected, lower), blocks.slots(expected, upper), blocks.num_terms,
                     cond, [&](complex_t& x, complex_t& y) { gate.scalar(x, y, matrices); });
        gate.run(blocks.paired(lower, upper), 0, cond, matrices);
        ASSERT_TRUE(same_bits(blocks.contents(), expected))
            << gate.name << " on two blocks of " << blocks.num_terms << cond;
        ASSERT_EQ(blocks[lower].op_buddy, nullptr);
        ASSERT_EQ(blocks[lower].lock_count, 0);
        ASSERT_EQ(blocks[upper].lock_count, 0);
    }
};

INSTANTIATE_TEST_SUITE_P(Hands, PairGates, all_hands);

TEST_P(PairGates, OnEveryTargetBit) {
    for (const unsigned long b : block_sizes()) {
        Blocks blocks(b, GetParam());
        for (const PairGate& gate : pair_gates()) {
            for (unsigned long t = 1; t < blocks.num_terms; t *= 2) {
                ASSERT_NO_FATAL_FAILURE(expect_gate(blocks, gate, t, {}));
            }
        }
    }
}

TEST_P(PairGates, UnderRandomConditions) {
    for (const unsigned long b : block_sizes()) {
        Blocks blocks(b, GetParam());
        const int rounds = b < small_qubits ? 40 : 6;
        for (int round = 0; b > 0 && round < rounds; ++round) {
            const PairGate& gate = pair_gates()[1 + draws.below(pair_gates().size() - 1)];
            const unsigned long t = 1UL << draws.below(b);
            ASSERT_NO_FATAL_FAILURE(expect_gate(blocks, gate, t, draws.condition(b)));
        }
    }
}

// The condition is tested on the slot with the target bit clear.
TEST_P(PairGates, WithTheTargetInTheCondition) {
    constexpr unsigned long b = 5;
    Blocks blocks(b, GetParam());
    for (unsigned long t = 1; t < blocks.num_terms; t *= 2) {
        const unsigned long others = draws.mask(b) & ~t;
        for (const PairGate& gate : pair_gates()) {
            ASSERT_NO_FATAL_FAILURE(expect_gate(blocks, gate, t, {t, 0}));
            ASSERT_NO_FATAL_FAILURE(expect_gate(blocks, gate, t, {t, t}));
            ASSERT_NO_FATAL_FAILURE(expect_gate(blocks, gate, t, {t | others, t}));
            ASSERT_NO_FATAL_FAILURE(expect_gate(blocks, gate, t, {t | others, others}));
        }
    }
}

TEST_P(PairGates, WithOneConditionBitInEveryPlace) {
    constexpr unsigned long b = 6;
    Blocks blocks(b, GetParam());
    for (unsigned long t = 1; t < blocks.num_terms; t *= 2) {
        for (unsigned long bit = 1; bit <= 2 * blocks.num_terms; bit *= 2) {
            const PairGate& gate = pair_gates()[1 + draws.below(pair_gates().size() - 1)];
            ASSERT_NO_FATAL_FAILURE(expect_gate(blocks, gate, t, {bit, 0}));
            ASSERT_NO_FATAL_FAILURE(expect_gate(blocks, gate, t, {bit, bit}));
        }
    }
}

TEST_P(PairGates, OnTwoBlocks) {
    for (const unsigned long b : block_sizes()) {
        Blocks blocks(b, GetParam());
        for (const PairGate& gate : pair_gates()) {
            ASSERT_NO_FATAL_FAILURE(expect_gate_on_pair(blocks, gate, {}));
        }
        const int rounds = b < small_qubits ? 20 : 6;
        for (int round = 0; round < rounds; ++round) {
            const PairGate& gate = pair_gates()[1 + draws.below(pair_gates().size() - 1)];
            ASSERT_NO_FATAL_FAILURE(expect_gate_on_pair(blocks, gate, draws.condition(b)));
        }
    }
}

// Strides that no register uses: they are not rounded, and the walk ends with the block.
TEST_P(PairGates, OnAStrideOfSeveralBits) {
    for (unsigned long b = 1; b < 7; ++b) {
        Blocks blocks(b, GetParam());
        for (unsigned long t = 3; t < blocks.num_terms; ++t) {
            if (std::has_single_bit(t)) continue;
            const PairGate& gate = pair_gates()[draws.below(pair_gates().size())];
            ASSERT_NO_FATAL_FAILURE(expect_gate(blocks, gate, t, {}));
        }
    }
}

TEST_P(PairGates, OnAStrideOfSeveralBitsUnderConditions) {
    for (unsigned long b = 1; b < 7; ++b) {
        Blocks blocks(b, GetParam());
        for (unsigned long t = 3; t < blocks.num_terms; ++t) {
            if (std::has_single_bit(t)) continue;
            const PairGate& gate = pair_gates()[1 + draws.below(pair_gates().size() - 1)];
            ASSERT_NO_FATAL_FAILURE(expect_gate(blocks, gate, t, draws.condition(b)));
        }
    }
}

TEST_P(PairGates, OnAStrideAboveTheBlockTouchNothing) {
    constexpr unsigned long b = 4;
    Blocks blocks(b, GetParam());
    for (const PairGate& gate : pair_gates()) {
        for (const unsigned long t : {16UL, 17UL, 24UL, 1UL << 30, 1UL << 31, 1UL << 45}) {
            ASSERT_NO_FATAL_FAILURE(expect_gate(blocks, gate, t, {}));
        }
    }
}

// Gates on one block follow each other without a wait between them.
TEST_P(PairGates, QueueUpInOrder) {
    for (const unsigned long b : {3UL, handed_over_qubits}) {
        Blocks blocks(b, GetParam());
        const Matrices matrices(draws);
        State expected = blocks.fill(draws);
        for (int step = 0; step < 12; ++step) {
            const PairGate& gate = pair_gates()[draws.below(pair_gates().size())];
            const unsigned long t = 1UL << draws.below(b);
            const Condition cond = gate.conditional ? draws.condition(b) : Condition{};
            for (unsigned long number = 0; number < Blocks::count; ++number) {
                scalar_pairs(blocks.slots(expected, number), blocks.num_terms, t, cond,
                             [&](complex_t& x, complex_t& y) { gate.scalar(x, y, matrices); });
                gate.run(blocks[number], t, cond, matrices);
            }
        }
        ASSERT_TRUE(same_bits(blocks.contents(), expected)) << "blocks of " << blocks.num_terms;
    }
}

TEST_P(PairGates, CopyTheMatrixOfATaskThatIsStillPosted) {
    Blocks blocks(handed_over_qubits, GetParam());
    for (const bool real : {false, true}) {
        State expected = blocks.fill(draws);
        const Matrices matrices(draws);
        scalar_pairs(blocks.slots(expected, 1), blocks.num_terms, 4, {},
                     [&](complex_t& x, complex_t& y) {
                         if (real) return scalar_real2x2(x, y, matrices.real_entries);
                         scalar_complex2x2(x, y, matrices.complex_entries);
                     });
        GateMatrix matrix = real ? GateMatrix::real(matrices.real_entries)
                                 : GateMatrix::complex(matrices.complex_entries);
        real ? blocks[1].op_real2x2(4, {}, matrix) : blocks[1].op_complex2x2(4, {}, matrix);
        matrix.entries = {};
        ASSERT_TRUE(same_bits(blocks.contents(), expected));
    }
}

TEST_P(PairGates, KeepAZeroPairUnderAMatrixAndMayNegateItElsewhere) {
    Blocks blocks(1, GetParam());
    CoreBlock& block = blocks[1];
    const complex_t complex_entries[] = {{-1, -1}, {-1, -1}, {-1, -1}, {-1, -1}};
    const double real_entries[] = {-1, -1, -1, -1};
    blocks.fill(State(Blocks::count * 2, complex_t{0.0, 0.0}));
    block.op_complex2x2(1, {}, GateMatrix::complex(complex_entries));
    block.op_real2x2(1, {}, GateMatrix::real(real_entries));
    EXPECT_TRUE(same_bits(blocks.contents(), State(Blocks::count * 2, complex_t{0.0, 0.0})));

    block.set_value(1, {-0.0, 0.0});  // not zero in all bits, so the pair counts
    block.op_real2x2(1, {}, GateMatrix::real(real_entries));
    blocks.finish();
    EXPECT_TRUE(same_bits(block.get_value(0).re, 0.0));
    EXPECT_TRUE(same_bits(block.get_value(0).im, -0.0));
}

// Infinities show whether a kernel omits a product by zero: that product is NaN.
TEST_P(PairGates, OnInfinities) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    for (unsigned long b = 1; b < small_qubits; ++b) {
        Blocks blocks(b, GetParam());
        for (const PairGate& gate : pair_gates()) {
            State state = draws.state(Blocks::count * blocks.num_terms);
            for (complex_t& term : state) {
                if (draws.one_in(8)) term.re = draws.one_in(2) ? infinity : -infinity;
                if (draws.one_in(8)) term.im = draws.one_in(2) ? infinity : -infinity;
            }
            const unsigned long t = 1UL << draws.below(b);
            ASSERT_NO_FATAL_FAILURE(expect_gate(blocks, state, gate, t, {}));
        }
    }
}

TEST_P(PairGates, OfTheHadamardUseTheLowerNeighbourOfOneOverRootTwo) {
    Blocks blocks(1, GetParam());
    blocks[2].set_value(0, {1.0, 0.0});
    blocks[2].set_value(1, {0.0, 0.0});
    blocks[2].op_hadamard(1, {});
    blocks.finish();
    const auto root = std::bit_cast<double>(0x3FE6A09E667F3BCCUL);
    EXPECT_TRUE(same_bits(blocks[2].get_value(0).re, root));
    EXPECT_TRUE(same_bits(blocks[2].get_value(1).re, root));
}

}  // namespace
