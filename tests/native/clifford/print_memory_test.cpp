// A tableau that is printed without the memory for its text.
#include "clifford/clifford_filter.h"

#include "core_register/core_register.h"
#include "filter/opcodes.h"
#include "filter_fixture.h"
#include "fixed_memory.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

class PrintedTableaus : public FilterFixture<OpFilter_CliffordQPUSim> {
  protected:
    static constexpr unsigned long qubits = 3000;  // the texts of smaller ones are not checked
    static constexpr unsigned long text_bytes = (2 * qubits + 1) * (2 * qubits + 4);

    void SetUp() override {
        run(OP_RESET, qubits);
        run(OP_X, 1);
    }
    void print() { filter.pull_state(nullptr, text, 0); }

    std::string text;
};

TEST_F(PrintedTableaus, NeedMemoryForTheTextAndChangeNothingWithoutIt) {
    {
        const FixedMemory memory(text_bytes);  // not enough for the copy that the caller makes
        try {
            print();
            FAIL() << "nothing thrown";
        } catch (const std::runtime_error& error) {
            const std::string message = error.what();
            EXPECT_TRUE(
                message.starts_with("Error: could not allocate the text of a tableau of 3000 "
                                    "qubits. It needs "))
                << message;
        }
    }
    EXPECT_EQ(text, "");
    EXPECT_EQ(filter.peek_read_probability(1, 1, 0.0), 1.0);
}

TEST_F(PrintedTableaus, UseTheMemoryThatTheTextHasAlready) {
    text.reserve(text_bytes);
    const FixedMemory memory(text_bytes);
    print();
    EXPECT_EQ(text.size(), text_bytes);
}

}  // namespace
