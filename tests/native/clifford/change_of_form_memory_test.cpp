// A tableau that changes to rows without the memory for them.
#include "clifford/clifford_filter.h"

#include "core_register/core_register.h"
#include "filter/opcodes.h"
#include "filter_fixture.h"
#include "fixed_memory.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

class ErasedQubits : public FilterFixture<OpFilter_CliffordQPUSim> {
  protected:
    /// An X on the first qubit with itself as its control.
    void erase() { filter.x(1, 1, 0, 0, 0, 0); }
    double probability_of_one() { return filter.peek_read_probability(1, 1, 0.0); }
};

TEST_F(ErasedQubits, NeedMemoryForTheRowsAndChangeNothingWithoutIt) {
    run(OP_RESET, 9000);  // smaller ones are not checked
    run(OP_X, 1);
    {
        const FixedMemory memory(1UL << 20);
        try {
            erase();
            FAIL() << "nothing thrown";
        } catch (const std::runtime_error& error) {
            const std::string text = error.what();
            EXPECT_TRUE(
                text.starts_with("Error: could not allocate the rows of a tableau of 9000 "
                                 "qubits. It needs "))
                << text;
        }
    }
    EXPECT_EQ(probability_of_one(), 1.0);
    run(OP_H, 1);
    EXPECT_EQ(probability_of_one(), 0.5);
}

TEST_F(ErasedQubits, AreErasedWithEnoughMemory) {
    run(OP_RESET, 70);
    run(OP_X, 1);
    erase();
    EXPECT_EQ(probability_of_one(), 0.5);
}

}  // namespace
