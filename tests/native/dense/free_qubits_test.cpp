#include <gtest/gtest.h>

#include "dense/dense_fixture.h"
#include "support/random.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

constexpr unsigned long check = 0x10;

class FreeQubits : public DenseFilter {
  protected:
    void SetUp() override { reset(3); }

    void free(unsigned long mask, unsigned long options, long cond_flag = 0, long read_flag = 0) {
        run(OP_FREE, {.target_mask = mask,
                      .cond_mask = options,
                      .cond_flag = cond_flag,
                      .read_flag = read_flag});
    }

    void start_from(const State& state, unsigned long known) {
        load(*filter.qpu, state);
        filter.qpu->classical_qubits = known;
        filter.qpu->debug_qubits = true;
    }
};

TEST_F(FreeQubits, WithoutDebuggingTheQubitsAreClearedAndNothingIsAsserted) {
    start_from(basis(8, 0b111), 0);
    filter.qpu->debug_qubits = false;
    free(0b010, check);
    EXPECT_STATE(state_of(*filter.qpu), basis(8, 0b101));
    EXPECT_TRUE(filter.events.empty());
}

TEST_F(FreeQubits, WithoutTheOptionTheQubitsAreClearedAndNothingIsAsserted) {
    start_from(basis(8, 0b111), 0);
    free(0b010, ~check);
    EXPECT_STATE(state_of(*filter.qpu), basis(8, 0b101));
    EXPECT_TRUE(filter.events.empty());
}

TEST_F(FreeQubits, KnownQubitsAreClearedAndTheOthersOnlyLookedAt) {
    start_from(basis(8, 0b111), 0b010);
    filter.event_stack.push(6);
    free(0b110, check, 0, 0x1'0000'0009L);
    EXPECT_STATE(state_of(*filter.qpu), basis(8, 0b101));
    ASSERT_EQ(filter.events.size(), 1U);
    EXPECT_EQ(filter.events[0].name, "free_nonzero_qubits");
    EXPECT_EQ(filter.events[0].message, "Error: assert check failed: mask:4 expected value:0");
    EXPECT_EQ(filter.events[0].code, 9U);
    EXPECT_EQ(filter.events[0].aux, filter.handle);
    EXPECT_EQ(filter.events[0].ids, std::vector<unsigned long>{6});
}

TEST_F(FreeQubits, QubitsThatAreZeroPass) {
    start_from(basis(8, 0b001), 0);
    free(0b110, check);
    EXPECT_TRUE(filter.events.empty());
    EXPECT_STATE(state_of(*filter.qpu), basis(8, 0b001));
}

TEST_F(FreeQubits, OnlyKnownQubitsAskForNoProbability) {
    start_from(basis(8, 0b110), 0b110);
    free(0b110, check);
    EXPECT_TRUE(filter.events.empty());
    EXPECT_STATE(state_of(*filter.qpu), basis(8, 0));
}

TEST_F(FreeQubits, ALookAtUnknownQubitsDrawsNothing) {
    start_from(State(8, complex_t{0.25, 0.25}), 0);
    set_random_seed(3);
    const double first_draw = random_zero_to_one();
    set_random_seed(3);
    free(0b111, check);
    EXPECT_EQ(random_zero_to_one(), first_draw);
    EXPECT_EQ(filter.events.size(), 1U);
}

TEST_F(FreeQubits, AFailedConditionDoesNothing) {
    start_from(basis(8, 0b111), 0b010);
    free(0b110, check, -1);
    free(0b110, 0, -1);
    EXPECT_STATE(state_of(*filter.qpu), basis(8, 0b111));
    EXPECT_TRUE(filter.events.empty());
}

}  // namespace
