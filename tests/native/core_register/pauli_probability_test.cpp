#include <gtest/gtest.h>

#include "core_register/gate_support.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

class PauliProbability : public GateLayouts {};
INSTANTIATE_TEST_SUITE_P(Layouts, PauliProbability, testing::ValuesIn(all_layouts));

TEST_P(PauliProbability, IsTheWeightOfTheProjectedState) {
    State state = start;
    for (unsigned long x = 0; x < 16; ++x) {
        for (unsigned long z = 0; z < 16; ++z) {
            if ((x | z) == 0) continue;
            EXPECT_NEAR(qpu.pps(x, z), scalar_pps(product_on(state, x, z)), 1e-12)
                << "x " << x << " z " << z;
        }
    }
    EXPECT_EQ(qpu.op_count, 255UL);
    EXPECT_STATE(state_of(qpu), start);
}

TEST_P(PauliProbability, OfABasisState) {
    load(qpu, basis(16, 0b1000));
    EXPECT_EQ(qpu.pps(0, 0b1000), 0.0);
    EXPECT_EQ(qpu.pps(0, 0b0100), 1.0);
    EXPECT_EQ(qpu.pps(0b1000, 0), 0.5);
    EXPECT_EQ(qpu.pps(0b1001, 0b1001), 0.5);
}

TEST_P(PauliProbability, OfTheEmptyProductIsNothing) {
    EXPECT_EQ(qpu.pps(0, 0), 0.0);
    EXPECT_EQ(qpu.pps(0b10000, 0b100000), 0.0);
    EXPECT_EQ(qpu.op_count, 0UL);
}

TEST_P(PauliProbability, LettersOutsideTheRegisterAreDropped) {
    EXPECT_EQ(qpu.pps(0b10011, 0b100110), qpu.pps(0b0011, 0b0110));
}

TEST_P(PauliProbability, TooManyBlocksForAnArrayAreRefused) {
    const unsigned long blocks = qpu.num_blocks;
    qpu.num_blocks = 1UL << 60;
    try {
        qpu.pps(1, 0);
        ADD_FAILURE() << "no exception";
    } catch (const std::length_error& error) {
        EXPECT_STREQ(error.what(), "cannot create std::vector larger than max_size()");
    }
    qpu.num_blocks = blocks;
}

}  // namespace
