#include "bit/bit_filter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core_register/core_register.h"
#include "expect_failure.h"
#include "filter/opcodes.h"
#include "filter_fixture.h"
#include "fixed_memory.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

/// Behaviour that Python cannot reach: a direct `write`, a text that is not empty, the qubit table.
class BitFilter : public FilterFixture<OpFilter_BitQPUSim> {
  protected:
    std::string refusal(unsigned long qubits) {
        return "Error: qc.reset() could not allocate a register of " + std::to_string(qubits) +
               " qubits.";
    }
};

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
    const struct {
        unsigned long qubits;
        std::string size;
    } registers[] = {
        {1UL << 23, "34 MB"},
        {1UL << 45, "136 TB"},
        // Sizes whose bytes or rounded words overflow.
        {1UL << 62, "1.67772e+07 TB"},
        {~0UL - 63, "1.67772e+07 TB"},
        {~0UL, "1.67772e+07 TB"},
    };
    for (const auto& [qubits, size] : registers) {
        SCOPED_TRACE(qubits);
        const FixedMemory memory(33UL << 20);
        EXPECT_FAILURE(run(OP_RESET, qubits), refusal(qubits) + " It needs " + size +
                                                  ", and the process may have 33 MB more.");
    }
    for (const unsigned long qubits : {1UL << 62, ~0UL - 63, ~0UL}) {
        SCOPED_TRACE(qubits);
        const FixedMemory memory(~0UL);  // enough memory, but too many for a vector
        EXPECT_FAILURE(run(OP_RESET, qubits), refusal(qubits));
    }
    EXPECT_EQ(pulled_text(), "0110");
    EXPECT_EQ(filter.qpu->num_qubits, 4UL);
    EXPECT_EQ(filter.qpu->qint_table, (std::vector<unsigned int>{2, 0, 0, 0}));
}

TEST_F(BitFilter, MemoryThatARegisterHasIsNotAskedForAgain) {
    run(OP_RESET, 1UL << 23);
    const FixedMemory none(0);
    run(OP_RESET, 1UL << 23);
    EXPECT_EQ(filter.qpu->num_qubits, 1UL << 23);
    // The table's old memory exists until the table has grown, and is free when the bits grow.
    const FixedMemory table((4UL << 23) + 256);
    run(OP_RESET, (1UL << 23) + 64);
    EXPECT_EQ(filter.qpu->num_qubits, (1UL << 23) + 64);
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
