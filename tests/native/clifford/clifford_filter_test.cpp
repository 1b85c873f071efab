// Operations with 64-bit masks (masks from Python have 32 bits), and postselection in a derived
// class that returns probabilities of its own.
#include "clifford/clifford_filter.h"

#include "clifford/tableau/clifford_support.h"
#include "core_register/core_register.h"
#include "filter/opcodes.h"
#include "filter_fixture.h"
#include "fixed_memory.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

constexpr unsigned long top_qubit = 1UL << 63;
constexpr const char* no_register = "qc.reset() has not been called or did not succeed.";

/// Returns `answer` as the probability of every peek, unless it is negative.
class AnsweringFilter : public OpFilter_CliffordQPUSim {
  public:
    double peek_read_probability(unsigned long value, unsigned long mask, double limit) override {
        asked.push_back({value, mask, limit});
        if (answer >= 0.0) return answer;
        return OpFilter_CliffordQPUSim::peek_read_probability(value, mask, limit);
    }

    struct Question {
        unsigned long value;
        unsigned long mask;
        double limit;

        bool operator==(const Question&) const = default;
    };

    double answer = -1.0;
    std::vector<Question> asked;
};

class CliffordFilter : public FilterFixture<AnsweringFilter> {
  protected:
    std::string tableau() { return pulled_text(); }

    double probability(unsigned long value, unsigned long mask) {
        return filter.peek_read_probability(value, mask, 0.0);
    }
};

TEST_F(CliffordFilter, AResetThatNeedsTooMuchMemoryLeavesNoTableau) {
    run(OP_RESET, 2);
    for (const auto& [qubits, size] :
         std::vector<std::pair<unsigned, std::string>>{{20000, "195."}, {~0U, "8.3886"}}) {
        SCOPED_TRACE(qubits);
        const FixedMemory memory(100UL << 20);
        try {
            run(OP_RESET, qubits);
            FAIL() << "nothing thrown";
        } catch (const std::runtime_error& error) {
            const std::string text = error.what();
            EXPECT_TRUE(text.starts_with("Error: qc.reset() could not allocate a tableau of " +
                                         std::to_string(qubits) + " qubits. It needs " + size))
                << text;
            EXPECT_TRUE(text.ends_with(", and the process may have 100 MB more.")) << text;
        }
        EXPECT_FAILURE(run(OP_X, 1), no_register);
        run(OP_RESET, 2);
        EXPECT_EQ(probability(0, 1), 1.0);
    }
}

TEST_F(CliffordFilter, APeekSeesTheTopQubitOfAMask) {
    run(OP_RESET, 70);
    EXPECT_EQ(probability(0, top_qubit), 1.0);
    EXPECT_EQ(probability(top_qubit, top_qubit), 0.0);
    run(OP_X, top_qubit);
    EXPECT_EQ(probability(top_qubit, top_qubit), 1.0);
    EXPECT_EQ(probability(~top_qubit, top_qubit), 0.0);
    run(OP_H, top_qubit);
    EXPECT_EQ(probability(0, top_qubit), 0.5);
    EXPECT_EQ(probability(top_qubit, top_qubit), 0.5);
}

TEST_F(CliffordFilter, APeekOfSeveralQubitsCountsAll64Bits) {
    run(OP_RESET, 64);
    EXPECT_FAILURE(probability(0, top_qubit | 1),
                   "qc.peek_read_probability() in Clifford sim must specify exactly one qubit to "
                   "measure.");
    EXPECT_FAILURE(probability(0, 0),
                   "qc.peek_read_probability() must specify at least one qubit to measure.");
}

TEST_F(CliffordFilter, APeekOutsideTheRegisterIsRefused) {
    run(OP_RESET, 63);
    EXPECT_FAILURE(probability(0, top_qubit),
                   "Error: qubit 63 lies outside the register of 63 qubits.");
    EXPECT_FAILURE(filter.postselect(0, top_qubit),
                   "Error: qubit 63 lies outside the register of 63 qubits.");
}

TEST_F(CliffordFilter, APostselectionReachesTheTopQubitOfAMask) {
    run(OP_RESET, 64);
    run(OP_H, top_qubit);
    filter.postselect(top_qubit, top_qubit);
    EXPECT_EQ(probability(top_qubit, top_qubit), 1.0);
    EXPECT_FAILURE(filter.postselect(0, top_qubit),
                   "qc.postselect() no non-zero terms have the desired value.");
}

TEST_F(CliffordFilter, PullStateAppendsItsText) {
    run(OP_RESET, 1);
    std::string text = "before\n";
    complex_t untouched{3.0, 4.0};
    filter.pull_state(&untouched, text, 1);
    EXPECT_EQ(text, "before\n0 1|0\n-----\n0 0|1\n");
    EXPECT_EQ(untouched.re, 3.0);
    EXPECT_EQ(untouched.im, 4.0);
}

TEST_F(CliffordFilter, TakesNoAmplitudes) {
    const char* text = "qc.push_state() has not been implemented for the Clifford sim.";
    EXPECT_FAILURE(filter.push_state(nullptr, 0, 0), text);
    run(OP_RESET, 1);
    EXPECT_FAILURE(filter.push_state(nullptr, 0, 2), text);
}

TEST_F(CliffordFilter, EveryOperationNeedsARegister) {
    EXPECT_FAILURE(filter.s(0, 0, 0, 0, 0, 0), no_register);
    EXPECT_FAILURE(filter.s_inv(0, 0, 0, 0, 0, 0), no_register);
    EXPECT_FAILURE(filter.x(0, 0, 0, 0, 0, 0), no_register);
    EXPECT_FAILURE(filter.z(0, 0, 0, 0, 0, 0), no_register);
    EXPECT_FAILURE(filter.ppr(0.0, 0, 0, 0, 0, 0, 0), no_register);
    EXPECT_FAILURE(filter.write(0, 0, 0, 0, 0, 0), no_register);
    EXPECT_FAILURE(tableau(), no_register);
    EXPECT_FAILURE(probability(0, 0), no_register);
    EXPECT_FAILURE(filter.postselect(0, 1), no_register);
}

/// The arguments of the member functions are in another order than the words of a record.
TEST_F(CliffordFilter, MemberFunctionsTakeTheirOperandsInOrder) {
    run(OP_RESET, 4);
    filter.x(0b1, 0, 0, 0, 1, 0);         // qubit 1
    filter.x(0b100, 0b1, 0b1, 0, 0, 1);   // qubit 2 under qubit 1
    filter.x(0b1, 0, 0, ~0UL, 0, 0);      // a condition of -1 fails
    filter.write(0b1, 0b11, 0, 9, 2, 3);  // qubits 2 and 3, the value's bit 0 is qubit 3
    for (unsigned qubit = 0; qubit < 4; ++qubit) {
        const unsigned long mask = 1UL << qubit;
        EXPECT_EQ(probability(mask, mask), qubit == 1 || qubit == 3 ? 1.0 : 0.0) << qubit;
    }
    EXPECT_EQ(filter.qpu->fetch_read_result(9, 2), 0b01UL);  // what was measured
}

TEST_F(CliffordFilter, MemberGatesOnTwoQubits) {
    run(OP_RESET, 2);
    run(OP_H, 0b11);
    filter.s(0b1, 0, 0, 0, 0, 0);
    filter.s_inv(0b1, 0, 0, 0, 1, 0);
    EXPECT_EQ(tableau(), "0 00|01\n0 00|10\n-------\n0 01|01\n2 10|10\n");
    filter.z(0, 0b11, 0, 0, 0, 0);
    EXPECT_EQ(tableau(), "0 00|01\n0 00|10\n-------\n0 01|11\n2 10|11\n");
    filter.ppr(45.0, 0, 0b1, 0, 0, 0, 1);  // Z on qubit 1, folded onto qubit 0
    EXPECT_EQ(tableau(), "0 00|01\n0 00|10\n-------\n2 01|00\n0 10|00\n");
}

TEST_F(CliffordFilter, APostselectionAsksTheVirtualOperation) {
    run(OP_RESET, 1);
    const std::string fresh = tableau();
    filter.answer = 0.0;
    EXPECT_FAILURE(filter.postselect(0, 1),
                   "qc.postselect() no non-zero terms have the desired value.");
    filter.answer = 1.0;
    filter.postselect(1, 1);
    EXPECT_EQ(tableau(), fresh);
    EXPECT_FAILURE(filter.postselect(1, 0),
                   "qc.postselect() must specify at least one qubit to postselect.");
    EXPECT_EQ(filter.asked, (std::vector<AnsweringFilter::Question>{{0, 1, 0.0}, {1, 1, 0.0}}));
}

TEST_F(CliffordFilter, APostselectionChecksFixedOutcomesItself) {
    run(OP_RESET, 2);
    run(OP_X, 0b10);
    filter.answer = 0.25;
    const std::string before = tableau();
    const char* text = "qc.postselect(): no non-zero terms match desired value.";
    EXPECT_FAILURE(filter.postselect(0b01, 0b01), text);
    EXPECT_FAILURE(filter.postselect(0b00, 0b10), text);
    EXPECT_EQ(tableau(), before);
}

TEST_F(CliffordFilter, APostselectionWalksAllBitsOfItsMask) {
    run(OP_RESET, 2);
    run(OP_H, 0b11);
    filter.answer = 0.25;
    filter.postselect(0b10, 0b11);
    EXPECT_EQ(tableau(), "0 01|00\n0 10|00\n-------\n0 00|01\n2 00|10\n");
}

/// The row of a fixed outcome is the identity. Its product with the generator is the generator,
/// which is added a second time and cleared by the elimination.
TEST_F(CliffordFilter, APostselectionOfAFixedOutcomeProjectsOnWhatIsLeft) {
    run(OP_RESET, 1);
    filter.answer = 0.25;
    filter.postselect(0, 1);
    EXPECT_EQ(tableau(), "0 1|0\n0 0|0\n-----\n0 0|1\n0 0|0\n");

    run(OP_RESET, 1);
    run(OP_X, 1);
    filter.postselect(1, 1);
    EXPECT_EQ(tableau(), "0 1|0\n0 0|0\n-----\n2 0|1\n2 0|0\n");
}

/// More gates than fit into one batch.
TEST_F(CliffordFilter, RunsMoreGatesThanOneBatchHolds) {
    run(OP_RESET, 3);
    std::vector<QPUOp> ops(100001);
    for (std::size_t i = 0; i < ops.size(); ++i) {
        ops[i].opcode = i % 2 == 0 ? OP_H : OP_S;
        ops[i].target_mask = 0b010;
    }
    filter.put_instructions(ops.data(), ops.size());
    // H then S maps X to Z, Z to Y and Y to X, so three of these pairs are the identity. 50000
    // pairs act like two; then one H follows. Generator: Z to Y to X to Z. Destabilizer: X to Z to
    // Y to -Y.
    EXPECT_EQ(tableau(),
              "0 001|000\n2 010|010\n0 100|000\n---------\n0 000|001\n0 000|010\n0 000|100\n");
}

}  // namespace
