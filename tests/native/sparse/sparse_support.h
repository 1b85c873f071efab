/// A fixture with a sparse filter, and comparison of its term list with terms given by index.
#pragma once

#include "dense/dense_fixture.h"
#include "sparse/sparse_filter.h"

namespace Nimbrel::Testing {

/// An expected term, by index instead of key.
struct Term {
    unsigned long index;
    complex_t amplitude;
};

using Terms = std::vector<Term>;

/// Compares the two lists in order: keys, and amplitudes bit for bit. A marker that a gate has left
/// in a key is a difference.
inline testing::AssertionResult lists_agree(const TermList& actual, const Terms& expected) {
    if (actual.size() != expected.size()) {
        return testing::AssertionFailure()
               << actual.size() << " terms instead of " << expected.size();
    }
    for (std::size_t i = 0; i < actual.size(); ++i) {
        const State found{actual[i].amplitude};
        const State wanted{expected[i].amplitude};
        if (actual[i].key == expected[i].index * 2 && same_bits(found, wanted)) continue;
        return testing::AssertionFailure()
               << "term " << i << ": key " << actual[i].key << text_of(found)
               << " and should be key " << expected[i].index * 2 << text_of(wanted);
    }
    return testing::AssertionSuccess();
}
#define EXPECT_TERMS(...) EXPECT_TRUE(Nimbrel::Testing::lists_agree(filter.terms, {__VA_ARGS__}))

class SparseFilter : public testing::Test {
  protected:
    ~SparseFilter() override { OpFilter::filter_registry.erase(filter.handle); }

    void run(unsigned long opcode, const Words& words = {}) {
        const QPUOp op = record(opcode, words);
        filter.put_instructions(&op, 1);
    }

    void reset(unsigned long qubits) { run(OP_RESET, {.target_mask = qubits}); }

    /// Replaces the list by these terms, in this order.
    void load(const Terms& terms) {
        filter.terms.clear();
        for (const Term& term : terms) filter.terms.push_back({term.index * 2, term.amplitude});
    }

    OpFilter_SparseSVSim filter;
};

}  // namespace Nimbrel::Testing
