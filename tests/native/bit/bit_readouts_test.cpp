#include <gtest/gtest.h>

#include <string>

#include "bit/bit_filter.h"
#include "expect_failure.h"
#include "filter/opcodes.h"
#include "filter_fixture.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

constexpr unsigned long top_qubit = 1UL << 63;

/// Read-outs with masks of 64 bits, because masks from Python have 32.
class BitReadouts : public FilterFixture<OpFilter_BitQPUSim> {
  protected:
    /// A register of 70 qubits in which qubits 1 and 63 are 1.
    void set_up() {
        run(OP_RESET, 70);
        run(OP_X, top_qubit | 0b10);
    }
};

TEST_F(BitReadouts, AProbabilitySeesTheTopQubitOfAMask) {
    set_up();
    EXPECT_EQ(filter.peek_read_probability(top_qubit, top_qubit, 0.0), 1.0);
    EXPECT_EQ(filter.peek_read_probability(0, top_qubit, 0.0), 0.0);
    EXPECT_EQ(filter.peek_read_probability(top_qubit | 0b10, ~0UL, 0.0), 1.0);
    EXPECT_EQ(filter.peek_read_probability(0b10, ~0UL, 0.0), 0.0);
}

TEST_F(BitReadouts, AProbabilityIgnoresTheValueOutsideItsMask) {
    set_up();
    EXPECT_EQ(filter.peek_read_probability(~0UL, top_qubit | 0b10, 0.0), 1.0);
    EXPECT_EQ(filter.peek_read_probability(~top_qubit, top_qubit, 0.0), 0.0);
}

TEST_F(BitReadouts, APostselectionSeesTheTopQubitOfAMask) {
    set_up();
    const std::string before = pulled_text();
    EXPECT_NO_THROW(filter.postselect(top_qubit, top_qubit));
    EXPECT_NO_THROW(filter.postselect(~0UL, top_qubit | 0b10));
    EXPECT_FAILURE(filter.postselect(~top_qubit, top_qubit),
                   "qc.postselect() no non-zero terms match the desired value.");
    EXPECT_EQ(pulled_text(), before);
}

TEST_F(BitReadouts, AnEmptyMaskHasOneTextForBoth) {
    set_up();
    const std::string text =
        "qc.peek_read_probability() must specify at least one qubit to measure.";
    EXPECT_FAILURE(filter.peek_read_probability(0, 0, 0.0), text);
    EXPECT_FAILURE(filter.peek_read_probability(top_qubit, 0, 0.0), text);
    EXPECT_FAILURE(filter.postselect(0, 0), text);
    EXPECT_FAILURE(filter.postselect(top_qubit, 0), text);
}

TEST_F(BitReadouts, AMissingRegisterIsReportedBeforeAnEmptyMask) {
    const std::string text = "qc.reset() has not been called or did not succeed.";
    EXPECT_FAILURE(filter.peek_read_probability(0, 0, 0.0), text);
    EXPECT_FAILURE(filter.postselect(0, 0), text);
}

}  // namespace
