// Refusals of lists that are larger than the available memory: the texts, and the state that is
// left.
#include <cstring>

#include "expect_failure.h"
#include "fixed_memory.h"
#include "sparse/sparse_support.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

constexpr unsigned long mega = 1UL << 20;
constexpr unsigned long low_20_qubits = mega - 1;

std::string refusal(const std::string& step, unsigned long terms, const std::string& needed,
                    const std::string& available) {
    return "Error: " + step + " of " + std::to_string(terms) + " terms. It needs " + needed +
           ", and the process may have " + available + " more.";
}

class MemoryLimit : public SparseFilter {
  protected:
    static bool same_terms(const TermList& a, const TermList& b) {
        return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * 24) == 0;
    }
};

TEST_F(MemoryLimit, EarlierTargetsStayDone) {
    reset(24);
    run(OP_H, {.target_mask = low_20_qubits | 1UL << 20});
    const TermList one_target_done = filter.terms;
    ASSERT_EQ(one_target_done.size(), 2 * mega);

    reset(24);
    run(OP_H, {.target_mask = low_20_qubits});
    filter.terms.shrink_to_fit();
    {
        // The first target needs 48 MB, the second one 96 MB.
        const FixedMemory memory(50 * mega);
        EXPECT_FAILURE(run(OP_H, {.target_mask = 3UL << 20}),
                       refusal("a gate could not allocate a list", 4 * mega, "96 MB", "50 MB"));
    }
    EXPECT_TRUE(same_terms(filter.terms, one_target_done));
    run(OP_H, {.target_mask = 1UL << 21});
    EXPECT_EQ(filter.terms.size(), 4 * mega);
}

TEST_F(MemoryLimit, AListThatCannotBeOrderedStaysAsItIs) {
    reset(24);
    run(OP_H, {.target_mask = low_20_qubits | 1UL << 20});
    run(OP_SWAP, {.target_mask = 1 | 1UL << 20});
    const TermList before = filter.terms;
    {
        const FixedMemory memory(48 * mega - 1);
        EXPECT_FAILURE(
            run(OP_H, {.target_mask = 1UL << 5}),
            refusal("a gate could not allocate a scratch list", 2 * mega, "48 MB", "48 MB"));
    }
    EXPECT_TRUE(same_terms(filter.terms, before));
}

TEST_F(MemoryLimit, APushThatDoesNotFitLeavesTheList) {
    reset(24);
    run(OP_X, {.target_mask = 5});
    const State state(2 * mega, complex_t{1.0, 0.0});
    {
        const FixedMemory memory(mega);
        EXPECT_FAILURE(
            filter.push_state(state.data(), 0, state.size()),
            refusal("push_state() could not allocate a list", 2 * mega, "48 MB", "1 MB"));
    }
    EXPECT_TERMS({5, {1.0, 0.0}});
    // Amplitudes of 0 are not stored and need no memory.
    const FixedMemory none(0);
    State sparse(2 * mega);
    sparse[7] = {0.0, 1.0};
    filter.push_state(sparse.data(), 0, sparse.size());
    EXPECT_TERMS({7, {0.0, 1.0}});
}

TEST_F(MemoryLimit, WalksInTheMemoryThatIsThereAreNotRefused) {
    reset(24);
    const unsigned long targets = low_20_qubits | 1UL << 20;
    run(OP_H, {.target_mask = targets});
    run(OP_H, {.target_mask = targets});  // allocates the scratch list
    const FixedMemory none(0);
    run(OP_H, {.target_mask = targets});
    EXPECT_EQ(filter.terms.size(), 2 * mega);
}

}  // namespace
