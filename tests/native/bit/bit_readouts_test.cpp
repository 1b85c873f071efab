#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "bit/bit_filter.h"
#include "filter/opcodes.h"

namespace {

using namespace Nimbrel;

constexpr unsigned long top_qubit = 1UL << 63;

/// The read-outs with all 64 bits of their masks: Python's arguments end at qubit 31.
class BitReadouts : public testing::Test {
  protected:
    ~BitReadouts() override { OpFilter::filter_registry.erase(filter.handle); }

    void run(unsigned long opcode, unsigned long target_mask) {
        QPUOp op{};
        op.opcode = opcode;
        op.target_mask = target_mask;
        filter.put_instructions(&op, 1);
    }

    /// A register of 70 qubits in which qubits 1 and 63 are 1.
    void set_up() {
        run(OP_RESET, 70);
        run(OP_X, top_qubit | 0b10);
    }

    std::string bits() {
        std::string text;
        filter.pull_state(nullptr, text, 0);
        return text;
    }

    OpFilter_BitQPUSim filter;
};

template <typename Call>
std::string error_of(const Call& call) {
    try {
        call();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "no error";
}

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
    const std::string before = bits();
    EXPECT_NO_THROW(filter.postselect(top_qubit, top_qubit));
    EXPECT_NO_THROW(filter.postselect(~0UL, top_qubit | 0b10));
    EXPECT_EQ(error_of([this] { filter.postselect(~top_qubit, top_qubit); }),
              "qc.postselect() no non-zero terms match the desired value.");
    EXPECT_EQ(bits(), before);
}

TEST_F(BitReadouts, AnEmptyMaskHasOneTextForBoth) {
    set_up();
    const std::string text =
        "qc.peek_read_probability() must specify at least one qubit to measure.";
    EXPECT_EQ(error_of([this] { filter.peek_read_probability(0, 0, 0.0); }), text);
    EXPECT_EQ(error_of([this] { filter.peek_read_probability(top_qubit, 0, 0.0); }), text);
    EXPECT_EQ(error_of([this] { filter.postselect(0, 0); }), text);
    EXPECT_EQ(error_of([this] { filter.postselect(top_qubit, 0); }), text);
}

TEST_F(BitReadouts, AMissingRegisterIsReportedBeforeAnEmptyMask) {
    const std::string text = "qc.reset() has not been called or did not succeed.";
    EXPECT_EQ(error_of([this] { filter.peek_read_probability(0, 0, 0.0); }), text);
    EXPECT_EQ(error_of([this] { filter.postselect(0, 0); }), text);
}

}  // namespace
