#include "bit/bit_filter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core_register.h"
#include "expect_failure.h"
#include "filter/opcodes.h"
#include "filter_fixture.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

/// What Python cannot reach: `write` by itself, the text that is appended to, the qubit table.
class BitFilter : public FilterFixture<OpFilter_BitQPUSim> {};

TEST_F(BitFilter, PullStateAppendsToTheText) {
    run(OP_RESET, 70);
    run(OP_X, 1UL << 5, 64);
    const std::string expected = std::string(69, '0') + "1";
    std::string text;
    filter.pull_state(nullptr, text, 0);
    EXPECT_EQ(text, expected);
    filter.pull_state(nullptr, text, 0);
    EXPECT_EQ(text, expected + expected);
}

TEST_F(BitFilter, WriteTakesEveryPartOnItsOwn) {
    run(OP_RESET, 130);
    filter.write(0b101, 0b111, 0, 10, 64, 64, false, 0, "");
    EXPECT_EQ(pulled_text().substr(64, 4), "1010");
    EXPECT_EQ(filter.qpu->fetch_read_result(10, 3), 0b101UL);
    filter.write(0b111, 0b010, 0, -20, 64, 64, false, 0, "");
    EXPECT_EQ(pulled_text().substr(64, 4), "1110");
    EXPECT_EQ(filter.qpu->get_read_flag(20), 0);
}

TEST_F(BitFilter, WriteWithTheCheckReportsItsCallersLabel) {
    run(OP_RESET, 4);
    run(OP_X, 0b0110);
    filter.write(0, 0b0010, 0, 0, 0, 0, true, 0x1'0000'0005UL, "label of the caller");
    ASSERT_EQ(filter.events.size(), 1U);
    EXPECT_EQ(filter.events[0].name, "label of the caller");
    EXPECT_EQ(filter.events[0].message, "Error: assert zero check failed.");
    EXPECT_EQ(filter.events[0].code, 5U) << "an event's code has 32 bits";
    EXPECT_EQ(filter.events[0].aux, filter.handle);
    EXPECT_EQ(pulled_text(), "0010");
}

TEST_F(BitFilter, ResetSizesTheQubitTable) {
    run(OP_RESET, 70);
    EXPECT_EQ(filter.qpu->num_qubits, 70UL);
    EXPECT_EQ(filter.qpu->reserve_qubits(70), 0);
    run(OP_RESET, 3);
    EXPECT_EQ(filter.qpu->num_qubits, 3UL);
    EXPECT_EQ(filter.qpu->qint_table, std::vector<unsigned int>(3, 0));
}

TEST_F(BitFilter, ARegisterThatIsTooLargeLeavesTheOldOne) {
    run(OP_RESET, 4);
    run(OP_X, 0b0110);
    filter.qpu->reserve_qubits(2);
    // Sizes that no vector holds, at which rounding up to words would wrap.
    std::vector<unsigned long> sizes{1UL << 62, ~0UL, ~0UL - 63};
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    sizes.push_back(1UL << 45);  // no allocator gives it; the sanitizers' own ends the process
#endif
    for (const unsigned long qubits : sizes) {
        SCOPED_TRACE(qubits);
        EXPECT_FAILURE(run(OP_RESET, qubits),
                       "Error: qc.reset() could not allocate a register of " +
                           std::to_string(qubits) + " qubits.");
    }
    EXPECT_EQ(pulled_text(), "0110");
    EXPECT_EQ(filter.qpu->num_qubits, 4UL);
    EXPECT_EQ(filter.qpu->qint_table, (std::vector<unsigned int>{2, 0, 0, 0}));
}

TEST_F(BitFilter, EventsAndOpenEventsSurviveAReset) {
    run(OP_RESET, 2);
    filter.event_stack.push(3);
    filter.queue_event("a", "b", 0, 0);
    filter.qpu->set_read_flag(5, 1);
    run(OP_RESET, 2);
    EXPECT_EQ(filter.event_stack.ids, std::vector<unsigned long>{3});
    EXPECT_EQ(filter.events.size(), 1U);
    EXPECT_EQ(filter.qpu->get_read_flag(5), 1);
}

}  // namespace
