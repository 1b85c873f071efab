/// Compares the code compiled for constant strides with the same loops on a run-time stride.
#include <type_traits>

#include "dense/blocks/block_support.h"
#include "dense/blocks/kernels/pair_gates.h"
#include "dense/blocks/kernels/slot_walk.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

/// A pair operation that changes both members, each in a different way.
struct SumAndDifference {
    static SumAndDifference operation() { return {}; }

    template <typename Amplitudes>
    bool operator()(Amplitudes& x, Amplitudes& y) const {
        const Amplitudes sum = x + y;
        y = x - y.swapped();
        x = sum;
        return true;
    }
};

void scalar_sum_and_difference(complex_t& x, complex_t& y) {
    const complex_t sum{x.re + y.re, x.im + y.im};
    y = {x.re - y.im, x.im - y.re};
    x = sum;
}

class StrideArms : public DrawingTest {
  protected:
    /// Compares the walk that a gate chooses with the scalar walk.
    void expect_walk(const State& start, unsigned long t, Condition cond) {
        State expected = start;
        scalar_pairs(expected.data(), start.size(), t, cond, scalar_sum_and_difference);
        State walked = start;
        walk_target(walked.data(), start.size(), t, slots_of(cond), SumAndDifference{});
        ASSERT_TRUE(same_bits(walked, expected))
            << "stride " << t << " of " << start.size() << cond;
    }
};

TEST_F(StrideArms, AreConstantsUpToTwoToThe30) {
    for (unsigned bit = 0; bit < 64; ++bit) {
        const unsigned long stride = 1UL << bit;
        bool constant = false;
        unsigned long seen = 0;
        with_constant_stride(stride, [&](auto value) {
            constant = !std::is_same_v<decltype(value), unsigned long>;
            seen = value;
        });
        EXPECT_EQ(seen, stride);
        EXPECT_EQ(constant, bit <= 30) << "bit " << bit;
    }
}

TEST_F(StrideArms, AgreeWithTheRunTimeStride) {
    const State start = draws.state(1UL << 16);
    const SumAndDifference op;
    for (unsigned long t = 2; t < start.size(); t *= 2) {
        State run_time = start;
        walk_all_pairs(run_time.data(), start.size(), t, op);
        State constant = start;
        with_constant_stride(t, [&](auto stride) {
            return walk_all_pairs(constant.data(), start.size(), stride, op);
        });
        ASSERT_TRUE(same_bits(constant, run_time)) << "stride " << t;
        ASSERT_NO_FATAL_FAILURE(expect_walk(start, t, {}));
    }
}

TEST_F(StrideArms, AgreeInSmallBlocksUnderAllConditions) {
    for (unsigned long b = 1; b < 5; ++b) {
        const State start = draws.state(1UL << b);
        for (unsigned long t = 1; t < start.size(); t *= 2) {
            for (unsigned long mask = 0; mask < 2 * start.size(); ++mask) {
                for (unsigned long negation = 0; negation < 2 * start.size(); ++negation) {
                    ASSERT_NO_FATAL_FAILURE(expect_walk(start, t, {mask, negation}));
                }
            }
        }
    }
}

TEST_F(StrideArms, AgreeWithTheWalkOfAnyStride) {
    const State start = draws.state(1UL << 8);
    for (unsigned long t = 1; t < start.size(); t *= 2) {
        const Condition cond = draws.condition(8);
        State arm = start;
        walk_target(arm.data(), arm.size(), t, slots_of(cond), SumAndDifference{});
        State any = start;
        walk_odd_stride(any.data(), any.size(), t, slots_of(cond), SumAndDifference{});
        ASSERT_TRUE(same_bits(arm, any)) << "stride " << t << cond;
    }
}

// Every gate on a block with strides that a small block does not have.
TEST_F(StrideArms, OfTheGatesServeWideStrides) {
    constexpr unsigned long qubits = 15;
    Blocks blocks(qubits, Hands::caller);
    const Matrices matrices(draws);
    const State start = blocks.fill(draws);
    for (const PairGate& gate : pair_gates()) {
        for (unsigned long t = 1UL << small_qubits; t < blocks.num_terms; t *= 2) {
            const Condition cond{gate.conditional ? draws.mask(qubits) & draws.mask(qubits) : 0, 0};
            State expected = start;
            scalar_pairs(blocks.slots(expected, 1), blocks.num_terms, t, cond,
                         [&](complex_t& x, complex_t& y) { gate.scalar(x, y, matrices); });
            blocks.fill(start);
            gate.run(blocks[1], t, cond, matrices);
            ASSERT_TRUE(same_bits(blocks.contents(), expected)) << gate.name << " " << t << cond;
        }
    }
}

TEST_F(StrideArms, OfThePhaseServeWideStrides) {
    constexpr unsigned long qubits = 15;
    Blocks blocks(qubits, Hands::caller);
    const State start = blocks.fill(draws);
    for (unsigned long bit = 1; bit < blocks.num_terms; bit *= 2) {
        State expected = start;
        scalar_phase(blocks.slots(expected, 2), blocks.num_terms, {bit, 0}, 0.6, 0.8);
        blocks.fill(start);
        blocks[2].op_phase({bit, bit}, 0.6, 0.8);
        ASSERT_TRUE(same_bits(blocks.contents(), expected)) << bit;
    }
}

}  // namespace
