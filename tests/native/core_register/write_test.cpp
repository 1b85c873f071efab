#include <gtest/gtest.h>

#include "core_register/state_support.h"
#include "support/random.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

class Write : public RegisterLayouts {
  protected:
    /// The draw that comes next after a seed and `draws` others.
    static double draw_after(unsigned int seed, int draws) {
        set_random_seed(seed);
        for (int i = 0; i < draws; ++i) random_zero_to_one();
        return random_zero_to_one();
    }
};
INSTANTIATE_TEST_SUITE_P(Layouts, Write, testing::ValuesIn(all_layouts));

TEST_P(Write, TheWholeRegisterIsSetWithoutADraw) {
    load(qpu, State(8, complex_t{0.25, 0.25}));
    const double first_draw = draw_after(4, 0);
    set_random_seed(4);
    qpu.write(6, ~0UL, 0, 10);
    EXPECT_EQ(random_zero_to_one(), first_draw);
    EXPECT_STATE(state_of(qpu), basis(8, 6));
    EXPECT_TRUE(qpu.read_flags.empty());
    EXPECT_EQ(qpu.op_count, 2UL);
    EXPECT_EQ(qpu.classical_qubits, 7UL);
}

TEST_P(Write, AValueOutsideTheRegisterIsRefusedBeforeAnythingChanges) {
    const State before(8, complex_t{0.25, 0.25});
    load(qpu, before);
    EXPECT_FAILURE(qpu.write(8, 7, 0, 0),
                   "Error: qc.write() value 8 lies outside the register of 3 qubits.");
    EXPECT_FAILURE(
        qpu.write(~0UL, ~0UL, 0, 0),
        "Error: qc.write() value 18446744073709551615 lies outside the register of 3 qubits.");
    EXPECT_STATE(state_of(qpu), before);
    EXPECT_EQ(qpu.op_count, 0UL);
    EXPECT_EQ(qpu.classical_qubits, 0UL);
}

TEST_P(Write, PartOfTheRegisterIsMeasuredAndFlipped) {
    load(qpu, basis(8, 0b011));
    const double second_draw = draw_after(4, 1);
    set_random_seed(4);
    qpu.write(0b110, 0b101, 0, 10);
    EXPECT_EQ(random_zero_to_one(), second_draw);
    EXPECT_STATE(state_of(qpu), basis(8, 0b110));
    EXPECT_EQ(qpu.fetch_read_result(10, 2), 0b01UL) << "the flags get what was measured";
    EXPECT_EQ(qpu.op_count, 2UL);
    EXPECT_EQ(qpu.classical_qubits, 0b101UL);
}

TEST_P(Write, NothingIsFlippedWhenTheValueIsThereAlready) {
    load(qpu, basis(8, 0b011));
    qpu.write(0b001, 0b101, 0, 0);
    EXPECT_STATE(state_of(qpu), basis(8, 0b011));
    EXPECT_EQ(qpu.op_count, 1UL);
}

TEST_P(Write, TheOtherQubitsCollapseAlong) {
    State ghz(8, complex_t{0.0, 0.0});
    ghz[0].re = ghz[7].re = 1.0;
    for (unsigned int seed = 0; seed < 8; ++seed) {
        load(qpu, ghz);
        const bool ones = draw_after(seed, 0) > 0.5;
        set_random_seed(seed);
        qpu.write(0, 0b100, 0, 0);
        State expected(8, complex_t{0.0, 0.0});
        expected[ones ? 3 : 0].re = 1.0;
        EXPECT_STATE(state_of(qpu), expected);
    }
}

TEST_P(Write, AFailedConditionWritesNothing) {
    const State before(8, complex_t{0.25, 0.25});
    load(qpu, before);
    for (const long condition : {-1L, 9L, -9L}) {
        qpu.write(0, 7, condition, 10);
        qpu.write(0, 1, condition, 10);
        qpu.write(99, 7, condition, 10);
    }
    EXPECT_STATE(state_of(qpu), before);
    EXPECT_EQ(qpu.op_count, 0UL);
    EXPECT_EQ(qpu.classical_qubits, 0UL);
    EXPECT_TRUE(qpu.read_flags.empty());
}

TEST_P(Write, WritesNothingToNoQubits) {
    load(qpu, basis(8, 5));
    qpu.write(7, 0, 0, 10);
    EXPECT_STATE(state_of(qpu), basis(8, 5));
    EXPECT_EQ(qpu.classical_qubits, 0UL);
}

TEST(WriteWithoutRegister, Throws) {
    QPU qpu(0, nullptr);
    EXPECT_FAILURE(qpu.write(0, 1, -1, 0), no_register_text);
}

}  // namespace
