#include <gtest/gtest.h>

#include <limits>

#include "core_register/gate_support.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

class PauliBatch : public GateLayouts {
  protected:
    void expect_batch(const std::vector<unsigned long>& xs, const std::vector<unsigned long>& zs) {
        EXPECT_EQ(qpu.pcp_x_masks, xs);
        EXPECT_EQ(qpu.pcp_z_masks, zs);
    }
};
INSTANTIATE_TEST_SUITE_P(Layouts, PauliBatch, testing::ValuesIn(all_layouts));

TEST_P(PauliBatch, OfOneIsAQuarterTurnBackwards) {
    qpu.pcp(1000.0, 0b0010, 0b1000, 0);
    EXPECT_NEAR_STATE(state_of(qpu), rotate_about(start, -90.0, 0b0010, 0b1000));
    EXPECT_EQ(qpu.op_count, 1UL);
}

TEST_P(PauliBatch, OfTwoRunsThePairAndThenEachAlone) {
    qpu.classical_qubits = ~0UL;
    qpu.pcp(2000.0, 0b0001, 0, 0);
    EXPECT_STATE(state_of(qpu), start);
    EXPECT_EQ(qpu.op_count, 0UL);
    EXPECT_EQ(qpu.classical_qubits, ~0b0001UL);
    qpu.pcp(2001.0, 0, 0b1000, 0);
    State expected = rotate_about(start, -45.0, 0b0001, 0b1000);
    expected = rotate_about(expected, 45.0, 0b0001, 0);
    expected = rotate_about(expected, 45.0, 0, 0b1000);
    EXPECT_NEAR_STATE(state_of(qpu), expected);
    EXPECT_EQ(qpu.op_count, 3UL);
}

TEST_P(PauliBatch, OfThreeRunsAllSubsetsFromTheLargestDown) {
    const unsigned long x[] = {0b0001, 0, 0b1000};
    const unsigned long z[] = {0, 0b0010, 0b1000};
    for (int k = 0; k < 3; ++k) qpu.pcp(3000.0 + k, x[k], z[k], 0);
    State expected = start;
    for (int size = 3; size > 0; --size) {
        for (unsigned long subset = 1; subset < 8; ++subset) {
            if (std::popcount(subset) != size) continue;
            unsigned long px = 0;
            unsigned long pz = 0;
            for (int k = 0; k < 3; ++k) {
                if ((subset >> k & 1) != 0) px |= x[k], pz |= z[k];
            }
            expected = rotate_about(expected, size == 2 ? 22.5 : -22.5, px, pz);
        }
    }
    EXPECT_NEAR_STATE(state_of(qpu), expected);
    EXPECT_EQ(qpu.op_count, 7UL);
}

// XX and ZZ commute. Their OR is YY, which is minus their product.
TEST_P(PauliBatch, MergesItsProductsByOr) {
    qpu.pcp(2000.0, 0b1001, 0, 0);
    qpu.pcp(2001.0, 0, 0b1001, 0);
    State expected = rotate_about(start, -45.0, 0b1001, 0b1001);
    expected = rotate_about(expected, 45.0, 0b1001, 0);
    expected = rotate_about(expected, 45.0, 0, 0b1001);
    EXPECT_NEAR_STATE(state_of(qpu), expected);

    load(qpu, start);
    qpu.pcp(2000.0, 0b0011, 0, 0);
    qpu.pcp(2001.0, 0b0110, 0, 0);
    expected = rotate_about(start, -45.0, 0b0111, 0);
    expected = rotate_about(expected, 45.0, 0b0011, 0);
    expected = rotate_about(expected, 45.0, 0b0110, 0);
    EXPECT_NEAR_STATE(state_of(qpu), expected);
}

TEST_P(PauliBatch, CollectsMasksInsideTheRegister) {
    qpu.pcp(3000.0, 0b10001, 0b100010, 0);
    expect_batch({0b0001}, {0b0010});
    EXPECT_EQ(qpu.classical_qubits, 0UL);
    qpu.pcp(3001.0, 0b10000, 0, 0);
    expect_batch({0b0001}, {0b0010});
    qpu.pcp(3000.0, 0, 0, 0);
    expect_batch({0b0001}, {0b0010});
    qpu.pcp(3000.0, 0, 0b0100, 0);
    expect_batch({0}, {0b0100});
}

TEST_P(PauliBatch, AFailedConditionCollectsNothing) {
    qpu.pcp(2000.0, 0b0001, 0, -1);
    expect_batch({}, {});
    qpu.pcp(2000.0, 0b0001, 0, 0);
    qpu.pcp(2001.0, 0, 0b1000, -1);
    expect_batch({0b0001}, {0});
    EXPECT_STATE(state_of(qpu), start);
}

TEST_P(PauliBatch, AConditionThatHoldsActsOnNothingFurther) {
    qpu.set_read_flag(70, 1);
    qpu.pcp(1000.0, 0b0010, 0b1000, 70);
    EXPECT_NEAR_STATE(state_of(qpu), rotate_about(start, -90.0, 0b0010, 0b1000));
}

TEST_P(PauliBatch, CodesWithoutALastProductOnlyCollect) {
    const double codes[] = {
        500.0,        -1.0,  -1000.0, 999.0, std::numeric_limits<double>::quiet_NaN(),
        2147483648.0, -1e300};
    std::size_t collected = 0;
    for (const double code : codes) {
        qpu.pcp(code, 0b0001, 0, 0);
        // -1000 is product 0, which begins a batch.
        collected = code == -1000.0 ? 1 : collected + 1;
        EXPECT_EQ(qpu.pcp_x_masks.size(), collected) << code;
    }
    EXPECT_EQ(qpu.op_count, 0UL);
}

TEST_P(PauliBatch, CodesAreTruncated) {
    qpu.pcp(1000.9, 0b0010, 0, 0);
    EXPECT_EQ(qpu.op_count, 1UL);
}

TEST_P(PauliBatch, ProductsThatDoNotCommuteAreRefused) {
    qpu.pcp(2000.0, 0b0001, 0, 0);
    EXPECT_FAILURE(qpu.pcp(2001.0, 0, 0b0001, 0), "Error: qc.pcp() masks do not commute.");
    EXPECT_STATE(state_of(qpu), start);
    expect_batch({0b0001, 0}, {0, 0b0001});
    qpu.pcp(2000.0, 0b1000, 0, 0);
    expect_batch({0b1000}, {0});
}

TEST_P(PauliBatch, ALastProductBeforeTheOthersIsRefused) {
    EXPECT_FAILURE(qpu.pcp(2001.0, 0b0001, 0, 0),
                   "Error: qc.pcp() batch of 2 products has only 1.");
    expect_batch({0b0001}, {0});
    EXPECT_FAILURE(qpu.pcp(40039.0, 0b0001, 0, 0),
                   "Error: qc.pcp() batch of 40 products has only 2.");
    EXPECT_STATE(state_of(qpu), start);
}

// With more than N products collected, the first N are the batch.
TEST_P(PauliBatch, TheFirstProductsAreTheBatch) {
    qpu.pcp(3000.0, 0b0001, 0, 0);
    qpu.pcp(3001.0, 0b1000, 0, 0);
    qpu.pcp(2001.0, 0, 0b0001, 0);
    State expected = rotate_about(start, -45.0, 0b1001, 0);
    expected = rotate_about(expected, 45.0, 0b0001, 0);
    expected = rotate_about(expected, 45.0, 0b1000, 0);
    EXPECT_NEAR_STATE(state_of(qpu), expected);
}

TEST_P(PauliBatch, MoreSubsetsThanAnIntCountsRunNothing) {
    for (const int size : {31, 32, 64, 100}) {
        for (int k = 0; k < size; ++k) qpu.pcp(1000.0 * size + k, 0b0001, 0, 0);
        EXPECT_EQ(qpu.pcp_x_masks.size(), static_cast<std::size_t>(size));
    }
    EXPECT_STATE(state_of(qpu), start);
    // The products are checked nevertheless.
    for (int k = 0; k < 31; ++k) qpu.pcp(32000.0 + k, 0b0001, 0, 0);
    EXPECT_FAILURE(qpu.pcp(32031.0, 0, 0b0001, 0), "Error: qc.pcp() masks do not commute.");
}

}  // namespace
