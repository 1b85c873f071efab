/// One stored term of a sparse state, and how walks pick terms by their keys.
#pragma once

#include <vector>

#include "support/complex.h"

namespace Nimbrel {

/// A term: the index of a basis state one bit up, and its amplitude. The bit below the index is a
/// gate's marker and 0 at rest, which leaves 63 bits for qubits.
struct term_t {
    unsigned long key;
    complex_t amplitude;
};

static_assert(sizeof(term_t) == 24);

using TermList = std::vector<term_t>;

/// Throws if `count` terms do not fit into the memory that is left beside all that is held now.
/// `refusal` begins the text: "NAME could not allocate a list".
void require_memory_for_terms(const char* refusal, std::size_t count);

/// The marker of the sort-marker method.
inline constexpr unsigned long term_marker = 1;

inline bool compare_terms(const term_t& a, const term_t& b) { return a.key < b.key; }

/// Squared magnitude, each product and the sum rounded by itself.
inline double squared_magnitude(const complex_t& a) { return a.re * a.re + a.im * a.im; }

/// Bits of a key that must have given values. Terms match when their masked key is the value, so
/// that a value with bits outside the mask matches none.
struct KeyPattern {
    unsigned long mask = 0;
    unsigned long value = 0;

    /// The condition of a gate: each bit of `conds` must be 1, or 0 if it is in `negs` as well.
    static constexpr KeyPattern condition(unsigned long conds, unsigned long negs) {
        return {conds, conds & ~negs};
    }

    constexpr bool matches(unsigned long key) const { return (key & mask) == value; }
};

/// Flips qubits in every term.
inline void flip_qubits(TermList& terms, unsigned long qubits) {
    if (qubits == 0) return;
    for (term_t& term : terms) term.key ^= qubits * 2;
}

}  // namespace Nimbrel
