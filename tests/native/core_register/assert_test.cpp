#include <gtest/gtest.h>

#include "core_register/state_support.h"
#include "filter/op_filter.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

/// Only the events of it are used.
class OwningFilter : public OpFilter {
  public:
    ~OwningFilter() override { filter_registry.erase(handle); }
    void put_instructions(const QPUOp* /*ops*/, unsigned long /*num_ops*/) override {}
};

class AssertValue : public testing::TestWithParam<Layout> {
  protected:
    void SetUp() override { shape(qpu, 3, GetParam()); }

    /// Qubit 2 is 0 with this probability, up to rounding.
    void load_zero_with(double probability) {
        State state(8, complex_t{0.0, 0.0});
        state[1].re = std::sqrt(probability);
        state[5].im = std::sqrt(1.0 - probability);
        load(qpu, state);
    }

    OwningFilter owner;
    QPU& qpu = *owner.qpu;
};
INSTANTIATE_TEST_SUITE_P(Layouts, AssertValue, testing::ValuesIn(all_layouts));

TEST_P(AssertValue, AllowsForALittleRounding) {
    load_zero_with(0.999995);
    const State before = state_of(qpu);
    qpu.assert_value(0, 0b100, "name", 0, 0);
    EXPECT_TRUE(owner.events.empty());
    EXPECT_STATE(state_of(qpu), before);
}

TEST_P(AssertValue, QueuesAnEventForAnythingElse) {
    load_zero_with(0.99998);
    const State before = state_of(qpu);
    owner.event_stack.push(3);
    owner.event_stack.push(4);
    qpu.assert_value(0, 0b100, "the name", 0x1'0000'0007UL, 0);
    ASSERT_EQ(owner.events.size(), 1U);
    const OpEvent& event = owner.events[0];
    EXPECT_EQ(event.name, "the name");
    EXPECT_EQ(event.message, "Error: assert check failed: mask:4 expected value:0");
    EXPECT_EQ(event.code, 7U) << "an event's code has 32 bits";
    EXPECT_EQ(event.aux, owner.handle);
    EXPECT_EQ(event.ids, (std::vector<unsigned long>{3, 4}));
    EXPECT_EQ(event.values, (std::vector<unsigned long>{0, 0}));
    EXPECT_STATE(state_of(qpu), before);
}

TEST_P(AssertValue, NamesMaskAndValueInHexadecimal) {
    load(qpu, basis(8, 2));
    qpu.assert_value(0xAB0UL << 32, (0xCDEFUL << 32) | 2, "n", 0, 0);
    ASSERT_EQ(owner.events.size(), 1U);
    EXPECT_EQ(owner.events[0].message,
              "Error: assert check failed: mask:cdef00000002 expected value:ab000000000");
}

TEST_P(AssertValue, TakesAnyValue) {
    load(qpu, basis(8, 0b110));
    qpu.assert_value(0b100, 0b101, "n", 0, 0);
    EXPECT_TRUE(owner.events.empty());
    qpu.assert_value(0b101, 0b101, "n", 0, 0);
    EXPECT_EQ(owner.events.size(), 1U);
}

TEST_P(AssertValue, AFailedConditionAsksNothing) {
    load(qpu, basis(8, 7));
    for (const long condition : {-1L, 9L, -9L}) qpu.assert_value(0, 7, "n", 0, condition);
    EXPECT_TRUE(owner.events.empty());
}

TEST(AssertValueWithoutRegister, ThrowsOnlyWhenTheConditionHolds) {
    OwningFilter owner;
    owner.qpu->assert_value(0, 1, "n", 0, -1);
    EXPECT_FAILURE(owner.qpu->assert_value(0, 1, "n", 0, 0), no_register_text);
    EXPECT_TRUE(owner.events.empty());
}

TEST(AssertValueWithoutAnOwner, ReportsNothing) {
    QPU qpu(0, nullptr);
    qpu.reset(1, nullptr);
    qpu.assert_value(1, 1, "name", 0, 0);
    EXPECT_EQ(qpu.peek_read_probability_sv(0, 1, 0.0), 1.0);
}

}  // namespace
