#include <gtest/gtest.h>

#include <stdexcept>

#include "core_register/core_register.h"
#include "filter/op_filter.h"

namespace {

using Nimbrel::complex_t;
using Nimbrel::OpFilter;
using Nimbrel::QPU_Base;

/// A filter that overrides only the pure operation.
class BareFilter : public OpFilter {
  public:
    ~BareFilter() override { filter_registry.erase(handle); }
    void put_instructions(const Nimbrel::QPUOp* /*ops*/, unsigned long /*num_ops*/) override {}
};

class Defaults : public testing::Test {
  protected:
    template <typename Operation>
    void expect_error(const char* expected, Operation&& operation) {
        try {
            operation();
            ADD_FAILURE() << "no exception: " << expected;
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), expected);
        }
    }

    BareFilter filter;
    complex_t buffer[2] = {{1.0, 2.0}, {3.0, 4.0}};
    std::string text = "kept";
};

TEST_F(Defaults, StateOperationsRaise) {
    expect_error("Error: no QPU data for qc.pull_state()",
                 [&] { filter.pull_state(buffer, text, 2); });
    expect_error("Error: no QPU data for qc.pull_state_specific()",
                 [&] { filter.pull_state_specific(text, buffer, 2, 1); });
    expect_error("Error: no QPU data for qc.push_state()",
                 [&] { filter.push_state(buffer, 0, 2); });
    expect_error("Error: override_state_buffer is not implemented for this filter type.",
                 [&] { filter.override_state_buffer(buffer, 1); });
    expect_error("Error: no QPU data for qc.peek_read_probability()",
                 [&] { filter.peek_read_probability(0, 1, 0.0); });
    expect_error("Error: no QPU data for qc.peek_read_probability()",
                 [&] { filter.peek_num_nonzero_terms(); });
}

TEST_F(Defaults, TheOthersAnswerWithoutLooking) {
    EXPECT_EQ(filter.normalize(), 1.0);
    EXPECT_EQ(filter.check_state(nullptr, 0.0, true), 1);
    EXPECT_EQ(filter.pps(1, 2), 0.0);
    filter.postselect(0, 0);
    filter.peek_n_biggest_terms(1, nullptr, nullptr);
    filter.peek_value(0, buffer);
    filter.finish();
    filter.set_random();
    filter.connect("host", 1, 1.0, text);
    filter.disconnect(text);
    filter.get_status(text);
    EXPECT_EQ(text, "kept");
    EXPECT_EQ(buffer[0].re, 1.0);
}

TEST_F(Defaults, OperationsNeedNothingOfArrays) {
    const Nimbrel::ArrayRules& rules = filter.array_rules;
    const Nimbrel::ArrayNeeds nothing;
    EXPECT_EQ(rules.pull_state_needs(0), nothing);
    EXPECT_EQ(rules.pull_state_specific_needs(1, 0), nothing);
    EXPECT_EQ(rules.push_state_needs(1), nothing);
    EXPECT_EQ(rules.check_state_needs(nullptr, 0, 0.0), nothing);
    EXPECT_EQ(rules.override_state_buffer_needs(1), nothing);
    EXPECT_EQ(rules.peek_n_biggest_terms_needs(1), nothing);
    EXPECT_EQ(rules.peek_value_needs(), nothing);
}

TEST_F(Defaults, TheBaseOfTheRegisterIsThatRegister) { EXPECT_EQ(&filter.qpu_base(), filter.qpu); }

TEST_F(Defaults, ARegisterBaseStoresNoResults) {
    QPU_Base base(0, nullptr);
    EXPECT_EQ(base.fetch_read_result(2, 8), 0UL);
}

TEST_F(Defaults, EventsCarryTheOpenIds) {
    filter.event_stack.push(4);
    filter.event_stack.push(5);
    filter.queue_event("name", "message", 3, 9);
    filter.event_stack.pop(5);
    ASSERT_EQ(filter.events.size(), 1U);
    const Nimbrel::OpEvent& event = filter.events.front();
    EXPECT_EQ(event.name, "name");
    EXPECT_EQ(event.message, "message");
    EXPECT_EQ(event.code, 3U);
    EXPECT_EQ(event.aux, 9UL);
    EXPECT_EQ(event.ids, (std::vector<unsigned long>{4, 5}));
    EXPECT_EQ(event.values, (std::vector<unsigned long>{0, 0}));
}

}  // namespace
