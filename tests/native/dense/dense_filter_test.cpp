#include "dense/dense_filter.h"

#include <gtest/gtest.h>

#include "dense/dense_fixture.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

using MakeFilter = DenseFilter;

TEST_F(MakeFilter, TheFactoryKnowsItsName) {
    OpFilter* made = OpFilter::AllocateNew(nullptr, "StreamQPU", 0, 0);
    EXPECT_NE(dynamic_cast<OpFilter_QPUSim*>(made), nullptr);
    OpFilter::delete_filter(made->handle);
}

/// The array that each operation needs on 3 qubits.
class NeedsOfArrays : public DenseFilter {
  protected:
    void SetUp() override { reset(3); }

    const ArrayRules& rules = filter.array_rules;
};

TEST_F(NeedsOfArrays, PullState) {
    for (const unsigned long length : {0UL, 8UL, 9UL}) {
        EXPECT_EQ(rules.pull_state_needs(length), (ArrayNeeds{.amplitudes = 8, .writable = true}));
    }
}

TEST_F(NeedsOfArrays, PullStateSpecific) {
    const struct {
        unsigned long selector;
        unsigned long needed;
    } cases[] = {{0, 8},          {0b001, 2},       {0b101, 4},      {0b111, 8},
                 {0xFFFFFFFF, 8}, {0b1000'0010, 2}, {0b1000'0000, 1}};
    for (const auto& [selector, needed] : cases) {
        EXPECT_EQ(rules.pull_state_specific_needs(selector, 8),
                  (ArrayNeeds{.amplitudes = needed, .writable = true}));
    }
}

TEST_F(NeedsOfArrays, SourcesNeedNotBeWritable) {
    EXPECT_EQ(rules.push_state_needs(0), ArrayNeeds{.amplitudes = 8});
    EXPECT_EQ(rules.push_state_needs(0b110), ArrayNeeds{.amplitudes = 4});
    EXPECT_EQ(rules.check_state_needs(nullptr, 0, 0.0), ArrayNeeds{.amplitudes = 8});
}

TEST_F(NeedsOfArrays, Peeks) {
    EXPECT_EQ(rules.peek_value_needs(), (ArrayNeeds{.amplitudes = 1, .writable = true}));
    EXPECT_EQ(rules.peek_n_biggest_terms_needs(3),
              (ArrayNeeds{.amplitudes = 3, .indices = 3, .writable = true}));
    EXPECT_EQ(rules.peek_n_biggest_terms_needs(0), ArrayNeeds{});
}

TEST_F(NeedsOfArrays, OverrideStateBuffer) {
    EXPECT_EQ(rules.override_state_buffer_needs(1),
              (ArrayNeeds{.amplitudes = 2, .alignment = 8, .writable = true}));
    EXPECT_EQ(rules.override_state_buffer_needs(64).amplitudes, ~0UL);
}

/// Indices and selectors outside the register are refused, and the state does not change.
class Refusals : public DenseFilter {
  protected:
    void SetUp() override {
        reset(3);
        load(*filter.qpu, uneven_state(8));
    }

    ~Refusals() override { EXPECT_STATE(state_of(*filter.qpu), uneven_state(8)); }

    complex_t array[8] = {};
};

TEST_F(Refusals, PushState) {
    EXPECT_FAILURE(
        filter.push_state(array, 0b1100, 4),
        "Error: push_state() selector 12 names qubits outside the register of 3 qubits.");
    filter.push_state(uneven_state(8).data(), 0, 8);
}

TEST_F(Refusals, CheckState) {
    EXPECT_EQ(filter.check_state(array, 0.0, true), 0);
    EXPECT_EQ(filter.check_state(uneven_state(8).data(), 0.0, false), 1);
}

TEST_F(Refusals, PeekValue) {
    EXPECT_FAILURE(filter.peek_value(8, array),
                   "Error: peek_value() index 8 lies outside the register of 8 terms.");
    filter.peek_value(5, array);
    EXPECT_STATE(State{array[0]}, State{uneven_state(8)[5]});
}

TEST_F(Refusals, NoTermsAtAll) {
    filter.peek_n_biggest_terms(0, nullptr, nullptr);
    unsigned long indices[3] = {};
    filter.peek_n_biggest_terms(3, indices, array);
    EXPECT_NE(array[2].re, 0.0);
}

TEST_F(Refusals, PullStateLeavesTheTextAsItIs) {
    std::string info = "as it was";
    filter.pull_state(array, info, 8);
    EXPECT_STATE(State(array, array + 8), uneven_state(8));
    EXPECT_EQ(info, "as it was");
}

using Override = DenseFilter;

TEST_F(Override, TheBufferIsTheState) {
    alignas(32) complex_t buffer[4] = {{0.6, 0.0}, {0.0, 0.0}, {0.0, 0.8}, {0.0, 0.0}};
    filter.override_state_buffer(buffer, 2);
    EXPECT_STATE(state_of(*filter.qpu), State(buffer, buffer + 4));
    run(OP_X, {.target_mask = 0b01});
    EXPECT_STATE(State(buffer, buffer + 4), (State{{0, 0}, {0.6, 0}, {0, 0}, {0, 0.8}}));
}

/// Vectors then cross cache lines. Every kernel must still work on them.
TEST_F(Override, TheBufferMayBeginAtAnyDouble) {
    for (unsigned long offset = 0; offset < 8; ++offset) {
        alignas(64) double doubles[32 + 8] = {};
        auto* const buffer = reinterpret_cast<complex_t*>(doubles + offset);
        filter.override_state_buffer(buffer, 4);
        load(*filter.qpu, uneven_state(16));
        OpFilter_QPUSim beside;
        shape(*beside.qpu, 4, {0, false});
        load(*beside.qpu, uneven_state(16));
        for (const unsigned long opcode : {OP_X, OP_Y, OP_H, OP_RX, OP_T, OP_ROOTY}) {
            const QPUOp op = record(opcode, {.target_mask = 0b1011, .cond_mask = 0b0100});
            filter.put_instructions(&op, 1);
            beside.put_instructions(&op, 1);
        }
        EXPECT_STATE(State(buffer, buffer + 16), state_of(*beside.qpu));
        EXPECT_FALSE(same_bits(State(buffer, buffer + 16), uneven_state(16)));
        filter.qpu->deallocate();
        OpFilter::filter_registry.erase(beside.handle);
    }
}

/// With the state's own memory as source and destination the state may be lost, but no memory
/// outside it is touched.
TEST_F(Override, TheBufferMayBeAnArgumentAsWell) {
    alignas(32) complex_t buffer[16] = {};
    filter.qpu->sim_params["num_block_qubits"] = 2;
    filter.override_state_buffer(buffer, 4);
    load(*filter.qpu, uneven_state(16));
    std::string info;
    filter.pull_state(buffer, info, 16);
    filter.push_state(buffer, 0, 16);
    EXPECT_STATE(state_of(*filter.qpu), uneven_state(16));
    run(OP_X, {.target_mask = 0b1000});
    filter.pull_state(buffer, info, 16);
    filter.push_state(buffer, 0, 16);
    filter.push_state(buffer, 0b0110, 4);
    filter.pull_state_specific(info, buffer, 16, 0b1111);
    EXPECT_EQ(filter.check_state(state_of(*filter.qpu).data(), 0.0, true), 1);
}

class Masks : public DenseFilter {
  protected:
    static constexpr const char* no_qubit_to_measure =
        "qc.peek_read_probability() must specify at least one qubit to measure.";
    static constexpr const char* no_qubit_to_postselect =
        "qc.postselect() must specify at least one qubit to postselect.";
};

TEST_F(Masks, MayNotBeEmpty) {
    // Before the register exists.
    EXPECT_FAILURE(filter.peek_read_probability(0, 0, 0.0), no_qubit_to_measure);
    EXPECT_FAILURE(filter.postselect(0, 0), no_qubit_to_postselect);
    reset(2);
    EXPECT_FAILURE(filter.peek_read_probability(0, 0, 0.0), no_qubit_to_measure);
    EXPECT_FAILURE(filter.postselect(0, 0), no_qubit_to_postselect);
    EXPECT_EQ(filter.peek_read_probability(0, 0b11, 0.0), 1.0);
    filter.postselect(0, 0b11);
}

TEST_F(Masks, TheLimitIsPassedOn) {
    reset(3);  // two blocks
    load(*filter.qpu, State(8, complex_t{0.25, 0.25}));
    EXPECT_EQ(filter.peek_read_probability(0, 0b001, 0.0), 0.5);
    EXPECT_EQ(filter.peek_read_probability(0, 0b001, 0.01), 0.25) << "one term of each block";
}

using StateOperations = DenseFilter;

TEST_F(StateOperations, GoToTheRegister) {
    reset(2);
    load(*filter.qpu, {{0, 0}, {2, 0}, {0, 0}, {0, 0}});
    EXPECT_EQ(filter.normalize(), 4.0);
    EXPECT_STATE(state_of(*filter.qpu), basis(4, 1));
    EXPECT_EQ(filter.pps(0, 0b01), filter.qpu->pps(0, 0b01));
    EXPECT_EQ(filter.pps(0, 0b10), 1.0);
    filter.set_random();
    filter.finish();
    EXPECT_NEAR(filter.qpu->peek_total_probability(), 1.0, 1e-12);
    EXPECT_FALSE(same_bits(state_of(*filter.qpu), basis(4, 1)));
}

TEST_F(StateOperations, NeedARegister) {
    std::string info;
    EXPECT_FAILURE(filter.pull_state(nullptr, info, 0), no_register_text);
    EXPECT_FAILURE(filter.pull_state_specific(info, nullptr, 0, 1), no_register_text);
    EXPECT_FAILURE(filter.push_state(nullptr, 1, 0), no_register_text);
    EXPECT_FAILURE(filter.check_state(nullptr, 0.0, true), no_register_text);
    EXPECT_FAILURE(filter.peek_n_biggest_terms(0, nullptr, nullptr), no_register_text);
    EXPECT_FAILURE(filter.peek_n_biggest_terms(1, nullptr, nullptr), no_register_text);
    EXPECT_FAILURE(filter.peek_value(0, nullptr), no_register_text);
    EXPECT_FAILURE(filter.peek_read_probability(0, 1, 0.0), no_register_text);
    EXPECT_FAILURE(filter.postselect(0, 1), no_register_text);
    EXPECT_FAILURE(filter.normalize(), no_register_text);
    EXPECT_FAILURE(filter.pps(1, 0), no_register_text);
    EXPECT_FAILURE(filter.set_random(), no_register_text);
    filter.finish();
}

TEST_F(StateOperations, ReportAMissingRegisterBeforeAnArray) {
    const ArrayRules& rules = filter.array_rules;
    EXPECT_FAILURE((void)rules.pull_state_needs(0), no_register_text);
    EXPECT_FAILURE((void)rules.pull_state_specific_needs(0, 0), no_register_text);
    EXPECT_FAILURE((void)rules.pull_state_specific_needs(1, 0), no_register_text);
    EXPECT_FAILURE((void)rules.push_state_needs(1), no_register_text);
    EXPECT_FAILURE((void)rules.check_state_needs(nullptr, 0, 0.0), no_register_text);
    EXPECT_FAILURE((void)rules.peek_n_biggest_terms_needs(0), no_register_text);
    EXPECT_FAILURE((void)rules.peek_value_needs(), no_register_text);
    EXPECT_EQ(rules.override_state_buffer_needs(2).amplitudes, 4UL);
}

TEST_F(StateOperations, TheListOfNonzeroTermsIsNotKept) {
    EXPECT_FAILURE(filter.peek_num_nonzero_terms(),
                   "Error: no QPU data for qc.peek_read_probability()");
}

}  // namespace
