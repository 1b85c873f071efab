#include <gtest/gtest.h>

#include "core_register/gate_support.h"
#include "dense/scalar_sums.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

class StatePrimitives : public GateLayouts {};
INSTANTIATE_TEST_SUITE_P(Layouts, StatePrimitives, testing::ValuesIn(all_layouts));

TEST_P(StatePrimitives, TheTotalIsAddedBlockByBlock) {
    double total = 0.0;
    for (unsigned long block = 0; block < qpu.num_blocks; ++block) {
        total += scalar_read_probability(&start[block * qpu.terms_per_block], qpu.terms_per_block,
                                         0, 0, 0.0);
    }
    EXPECT_EQ(qpu.peek_total_probability(), total);
}

TEST_P(StatePrimitives, NormalizeReturnsTheNormItFound) {
    State state(16, complex_t{0.0, 0.0});
    state[3].re = 3.0;
    state[12].im = -4.0;
    load(qpu, state);
    EXPECT_EQ(qpu.normalize(), 25.0);
    state[3].re = 3.0 * (1.0 / 5.0);
    state[12].im = -4.0 * (1.0 / 5.0);
    EXPECT_STATE(state_of(qpu), state);
}

TEST_P(StatePrimitives, NormalizeLeavesANormOfOneOrZero) {
    load(qpu, basis(16, 9));
    EXPECT_EQ(qpu.normalize(), 1.0);
    EXPECT_STATE(state_of(qpu), basis(16, 9));
    qpu.set_zero();
    EXPECT_EQ(qpu.normalize(), 0.0);
    EXPECT_STATE(state_of(qpu), State(16, complex_t{0.0, 0.0}));
}

TEST_P(StatePrimitives, NormalizeSpreadsNan) {
    load(qpu, basis(16, 9));
    qpu.set_value(9, {NAN, 0.0});
    qpu.set_value(10, {1.0, 0.0});
    EXPECT_TRUE(std::isnan(qpu.normalize()));
    EXPECT_TRUE(std::isnan(qpu.get_value(10).re));
}

TEST_P(StatePrimitives, ScalingSkipsZeroBlocks) {
    load(qpu, basis(16, 15));
    qpu.scale_probability(3.0);
    qpu.finish();
    EXPECT_EQ(qpu.get_value(15).re, 3.0);
    EXPECT_EQ(qpu.blocks[0]->all_zero, qpu.num_blocks > 1);
}

TEST_P(StatePrimitives, ARandomStateHasNoClassicalQubits) {
    qpu.classical_qubits = 0b1111;
    qpu.set_zero();
    qpu.set_random(false);
    EXPECT_EQ(qpu.classical_qubits, 0UL);
    EXPECT_NE(qpu.peek_total_probability(), 1.0);
    for (unsigned long i = 0; i < qpu.num_blocks; ++i) EXPECT_FALSE(qpu.blocks[i]->all_zero);
    qpu.set_random(true);
    EXPECT_NEAR(qpu.peek_total_probability(), 1.0, 1e-12);
}

TEST_P(StatePrimitives, ZeroingKeepsWhatIsKnownOfTheQubits) {
    qpu.classical_qubits = 0b0101;
    qpu.set_zero_mask(0b1111);
    qpu.set_zero();
    EXPECT_EQ(qpu.classical_qubits, 0b0101UL);
}

TEST_P(StatePrimitives, AZeroMaskClearsTermsWithAnyOfItsBits) {
    for (unsigned long mask = 0; mask < 32; ++mask) {
        load(qpu, start);
        qpu.set_zero_mask(mask);
        State expected = start;
        for (unsigned long i = 0; i < 16; ++i) {
            if ((i & mask) != 0) expected[i] = {0.0, 0.0};
        }
        EXPECT_STATE(state_of(qpu), expected);
    }
}

TEST_P(StatePrimitives, AZeroMaskOfBlockBitsOnlyMarksBlocks) {
    qpu.set_zero_mask(0b1000);
    for (unsigned long i = 0; i < qpu.num_blocks; ++i) {
        EXPECT_EQ(qpu.blocks[i]->all_zero, qpu.num_blocks > 1 && i >= qpu.num_blocks / 2);
    }
}

TEST_P(StatePrimitives, ValuesAreFoundThroughTheirBlock) {
    qpu.op_not(0b1000, 0, 0, 0);
    EXPECT_EQ(qpu.get_value(0b1010).re, start[0b0010].re);
    qpu.set_value(0b1010, {0.25, -0.5});
    EXPECT_EQ(qpu.get_value(0b1010).im, -0.5);
    qpu.op_not(0b1000, 0, 0, 0);
    EXPECT_EQ(qpu.get_value(0b0010).re, 0.25);
}

TEST_P(StatePrimitives, AZeroBlockReadsZeroWithoutALook) {
    qpu.set_zero();
    qpu.finish();
    qpu.blocks[0]->block_data[1] = {7.0, 7.0};
    EXPECT_EQ(qpu.get_value(1).re, 0.0);
    qpu.set_value(0, {0.0, 0.0});
    EXPECT_EQ(qpu.get_value(1).re, 0.0) << "a zero leaves the block known to be zero";
    qpu.set_value(0, {0.0, -0.0});
    EXPECT_EQ(qpu.get_value(1).re, 7.0) << "a negative zero is no zero";
}

TEST_P(StatePrimitives, AMissingBlockIsReported) {
    const unsigned long last = qpu.num_blocks - 1;
    CoreBlock* block = qpu.blocks[last];
    qpu.blocks[last] = nullptr;
    testing::internal::CaptureStdout();
    EXPECT_FAILURE(qpu.set_zero(), "Error: NULL state vector block");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "ERROR at core_register:374: block " + std::to_string(last) + " is NULL\n");
    qpu.blocks[last] = block;
    qpu.finish();
}

TEST_P(StatePrimitives, TooManyBlocksForAnArrayAreRefused) {
    const unsigned long blocks = qpu.num_blocks;
    qpu.num_blocks = 1UL << 63;
    EXPECT_THROW(qpu.peek_total_probability(), std::length_error);
    qpu.num_blocks = blocks;
}

// More blocks than an automatic layout makes.
TEST(StateOfManyBlocks, SumsComeFromTheHeapThen) {
    QPU qpu(0, nullptr);
    shape(qpu, 9, {1, false});
    ASSERT_EQ(qpu.num_blocks, 256UL);
    const State start = random_state(9, seed_of_this_test());
    load(qpu, start);
    EXPECT_NEAR(qpu.peek_total_probability(), 1.0, 1e-12);
    const double across_all = qpu.pps(0b100000001, 0);
    qpu.hadamard(0b100000001, 0, 0, 0);
    EXPECT_NEAR(qpu.pps(0, 0b100000001), across_all, 1e-12);
}

}  // namespace
