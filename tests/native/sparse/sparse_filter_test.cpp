#include "sparse/sparse_filter.h"

#include "sparse/sparse_support.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

constexpr complex_t untouched{7.0, 7.0};

using Lifecycle = SparseFilter;

TEST_F(Lifecycle, TheFactoryKnowsItsName) {
    OpFilter* made = OpFilter::AllocateNew(nullptr, "StreamSparseQPU", 0, 0);
    EXPECT_NE(dynamic_cast<OpFilter_SparseSVSim*>(made), nullptr);
    OpFilter::delete_filter(made->handle);
}

TEST_F(Lifecycle, ANewFilterHasNothing) {
    EXPECT_EQ(filter.qubit_mask, 0UL);
    EXPECT_EQ(filter.prune_threshold, 0.0);
    EXPECT_TRUE(filter.terms.empty());
}

TEST_F(Lifecycle, AResetSetsTheFields) {
    const struct {
        unsigned long qubits;
        unsigned long mask;
    } cases[] = {{0, 0}, {1, 1}, {5, 31}, {62, ~0UL >> 2}, {63, ~0UL >> 1}};
    for (const auto& [qubits, mask] : cases) {
        filter.prune_threshold = 1.0;
        reset(qubits);
        EXPECT_EQ(filter.num_qubits, qubits);
        EXPECT_EQ(filter.qubit_mask, mask);
        EXPECT_EQ(filter.prune_threshold, 1e-25);
        EXPECT_TERMS({0, {1.0, 0.0}});
    }
}

TEST_F(Lifecycle, ARefusedResetChangesNothing) {
    reset(3);
    run(OP_X, {.target_mask = 0b101});
    filter.prune_threshold = 0.25;
    for (const unsigned long qubits : {64UL, 65UL, ~0UL}) {
        EXPECT_FAILURE(reset(qubits), "This quick sparse_sv prototype just handles 64 qubits.");
    }
    EXPECT_EQ(filter.num_qubits, 3UL);
    EXPECT_EQ(filter.qubit_mask, 7UL);
    EXPECT_EQ(filter.prune_threshold, 0.25);
    EXPECT_TERMS({5, {1.0, 0.0}});
}

TEST_F(Lifecycle, FlagsAndOpenEventsSurviveAReset) {
    filter.qpu->set_read_flag(5, 1);
    run(OP_OPEN_EVENT, {.angle = 3.9});
    run(OP_OPEN_EVENT_2, {.angle = 4.0});
    reset(2);
    EXPECT_EQ(filter.qpu->get_read_flag(5), 1);
    EXPECT_EQ(filter.event_stack.ids, (std::vector<unsigned long>{3, 4}));
    run(OP_CLOSE_EVENT, {.angle = 3.0});
    EXPECT_EQ(filter.event_stack.ids, std::vector<unsigned long>{4});
    run(OP_CLOSE_EVENT_2, {.angle = 4.0});
    EXPECT_TRUE(filter.event_stack.ids.empty());
}

class Push : public SparseFilter {
  protected:
    static constexpr complex_t source[] = {
        {0.5, 0.0}, {0.0, 0.0}, {0.0, 0.25}, {-0.0, 0.0}, {0.125, 0.0}};
};

TEST_F(Push, DropsWhatIsBelowTheThresholdAsItStands) {
    reset(3);
    filter.prune_threshold = 0.0625;
    filter.push_state(source, 0, 5);
    EXPECT_TERMS({0, {0.5, 0.0}}, {2, {0.0, 0.25}});
    filter.prune_threshold = 0.0;
    filter.push_state(source, 0, 5);
    EXPECT_TERMS({0, {0.5, 0.0}}, {2, {0.0, 0.25}}, {3, {-0.0, 0.0}}, {4, {0.125, 0.0}});
}

TEST_F(Push, NoGateLooksAtTheThreshold) {
    reset(2);
    filter.prune_threshold = 10.0;
    run(OP_H, {.target_mask = 0b11});
    run(OP_H, {.target_mask = 0b11});
    run(OP_READ, {.target_mask = 0b01});
    EXPECT_GT(filter.normalize(), 0.0);
    EXPECT_EQ(filter.terms.size(), 4UL);
}

TEST_F(Push, LeavesTheRegisterAsItIs) {
    reset(1);
    filter.push_state(source, 0, 5);
    EXPECT_EQ(filter.num_qubits, 1UL);
    EXPECT_EQ(filter.qubit_mask, 1UL);
    EXPECT_EQ(filter.terms.size(), 3UL);
    for (const unsigned long mask : {1UL, 1UL << 40, 1UL << 63}) {
        EXPECT_FAILURE(filter.push_state(source, mask, 5),
                       "Partial push_state is not yet implemented for sparse_sv.");
    }
    EXPECT_EQ(filter.terms.size(), 3UL);
    filter.push_state(nullptr, 0, 0);
    EXPECT_TRUE(filter.terms.empty());
}

/// What the operations write to an array, and the array that they need.
class Arrays : public SparseFilter {
  protected:
    void SetUp() override {
        reset(3);
        load({{5, {0.0, 0.75}}, {1, {0.5, 0.0}}});
    }

    State dest = State(8, untouched);
    std::string info = "as it was";
    const ArrayRules& rules = filter.array_rules;
};

TEST_F(Arrays, ALengthOf0ClearsNothing) {
    filter.pull_state(dest.data(), info, 0);
    EXPECT_STATE(dest, (State{untouched,
                              {0.5, 0.0},
                              untouched,
                              untouched,
                              untouched,
                              {0.0, 0.75},
                              untouched,
                              untouched}));
    dest.assign(8, untouched);
    filter.pull_state_specific(info, dest.data(), 0, 0b101);
    EXPECT_STATE(dest, (State{untouched,
                              {0.5, 0.0},
                              untouched,
                              {0.0, 0.75},
                              untouched,
                              untouched,
                              untouched,
                              untouched}));
    EXPECT_EQ(info, "as it was");
}

TEST_F(Arrays, ALengthClearsSoMany) {
    filter.pull_state(dest.data(), info, 7);
    EXPECT_STATE(dest, (State{{0.0, 0.0},
                              {0.5, 0.0},
                              {0.0, 0.0},
                              {0.0, 0.0},
                              {0.0, 0.0},
                              {0.0, 0.75},
                              {0.0, 0.0},
                              untouched}));
    EXPECT_EQ(info, "as it was");
}

TEST_F(Arrays, ShortOnesMustReachTheHighestTerm) {
    for (const unsigned long length : {0UL, 5UL, 6UL, 7UL}) {
        EXPECT_EQ(rules.pull_state_needs(length), (ArrayNeeds{.amplitudes = 6, .writable = true}));
    }
    EXPECT_EQ(rules.pull_state_specific_needs(0b100, 1).amplitudes, 2UL);
    EXPECT_EQ(rules.pull_state_specific_needs(0, 0).amplitudes, 1UL);
    EXPECT_EQ(rules.pull_state_specific_needs(0b111, 7).amplitudes, 6UL);
}

TEST_F(Arrays, AnArrayForAllTermsOfTheRegisterIsLongEnough) {
    EXPECT_EQ(rules.pull_state_needs(8), (ArrayNeeds{.amplitudes = 8, .writable = true}));
    EXPECT_EQ(rules.pull_state_specific_needs(0b101, 4),
              (ArrayNeeds{.amplitudes = 4, .writable = true}));
    EXPECT_EQ(rules.check_state_needs(dest.data(), 8, 0.0), ArrayNeeds{.amplitudes = 8});
}

TEST_F(Arrays, TermsOutsideTheRegisterMustBeReachedToo) {
    const State pushed(11, complex_t{1.0, 0.0});
    reset(1);
    filter.push_state(pushed.data(), 0, 11);
    EXPECT_EQ(rules.pull_state_needs(2).amplitudes, 11UL);
    EXPECT_EQ(rules.pull_state_needs(10).amplitudes, 11UL);
    run(OP_X, {.target_mask = 1});
    EXPECT_EQ(rules.pull_state_needs(11).amplitudes, 12UL);
    EXPECT_EQ(rules.check_state_needs(pushed.data(), 11, 0.0), ArrayNeeds{.amplitudes = 12});
    reset(2);
    EXPECT_EQ(rules.pull_state_needs(3).amplitudes, 1UL);
    EXPECT_EQ(rules.pull_state_needs(4).amplitudes, 4UL);
}

TEST_F(Arrays, ACheckNeedsAmplitudesUpToTheFirstMismatch) {
    const State expected{{9.0, 0.0}, {0.5, 0.0}, {9.0, 0.0}, {9.0, 0.0}, {9.0, 0.0}, {0.0, 0.75}};
    EXPECT_EQ(filter.check_state(expected.data(), 0.0, true), 1);
    EXPECT_EQ(rules.check_state_needs(expected.data(), 5, 0.0), ArrayNeeds{.amplitudes = 6});
    EXPECT_EQ(rules.check_state_needs(expected.data(), 6, 0.0), ArrayNeeds{.amplitudes = 6});
    // The other term is now first in the list and does not match.
    load({{0, {0.5, 0.0}}, {5, {0.0, 0.75}}});
    EXPECT_EQ(rules.check_state_needs(expected.data(), 1, 0.0), ArrayNeeds{.amplitudes = 1});
    EXPECT_EQ(filter.check_state(expected.data(), 0.0, false), 0);
}

TEST_F(Arrays, PeeksNeedTheirPlaces) {
    EXPECT_EQ(rules.peek_value_needs(), (ArrayNeeds{.amplitudes = 1, .writable = true}));
    EXPECT_EQ(rules.peek_n_biggest_terms_needs(3),
              (ArrayNeeds{.amplitudes = 3, .indices = 3, .writable = true}));
    EXPECT_EQ(rules.peek_n_biggest_terms_needs(0), ArrayNeeds{});
    filter.peek_n_biggest_terms(0, nullptr, nullptr);
}

TEST_F(Arrays, PlacesBeyondTheListAreZero) {
    State many(1000, untouched);
    std::vector<unsigned long> indices(1000, 7);
    filter.peek_n_biggest_terms(1000, indices.data(), many.data());
    EXPECT_EQ(indices[0], 5UL);
    EXPECT_EQ(indices[1], 1UL);
    EXPECT_EQ(std::vector<unsigned long>(indices.begin() + 2, indices.end()),
              std::vector<unsigned long>(998, 0));
    EXPECT_STATE(State(many.begin() + 2, many.end()), State(998, complex_t{0.0, 0.0}));
}

}  // namespace
