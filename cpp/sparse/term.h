/// One stored term of a sparse state, and the pattern by which gates select terms.
///
/// Values and pure functions only: any thread may use them.
#pragma once

#include <vector>

#include "support/complex.h"

namespace Nimbrel {

/// A stored term: the amplitude of one basis state.
///
/// The key is the index of the basis state shifted left by one, so qubit q is bit q + 1. Bit 0 is a
/// marker for gates that pair terms, and 0 while no such gate runs. That leaves 63 bits for qubits.
struct term_t {
    unsigned long key;
    complex_t amplitude;
};

static_assert(sizeof(term_t) == 24);

using TermList = std::vector<term_t>;

/// Throws if the process may not have the memory for a new list of `count` terms, in addition to
/// all memory in use. `refusal` is the beginning of the message: "NAME could not allocate a list".
void require_memory_for_terms(const char* refusal, std::size_t count);

/// Key bit 0. A gate that pairs terms sets it in the terms whose target qubit is 1.
inline constexpr unsigned long term_marker = 1;

/// Order of terms by key.
inline bool compare_terms(const term_t& a, const term_t& b) { return a.key < b.key; }

/// Squared magnitude. The two products and the sum are rounded one by one.
inline double squared_magnitude(const complex_t& a) { return a.re * a.re + a.im * a.im; }

/// Required values of some bits of a key. A key matches if `key & mask` equals `value`; a value
/// with bits outside the mask matches no key.
struct KeyPattern {
    unsigned long mask = 0;
    unsigned long value = 0;

    /// The quantum condition of a gate, in key bits. Each control must be 1, or 0 if it is also in
    /// `negated`. Bits of `negated` that are no controls have no effect.
    static constexpr KeyPattern of_controls(unsigned long controls, unsigned long negated) {
        return {controls, controls & ~negated};
    }

    constexpr bool matches(unsigned long key) const { return (key & mask) == value; }
};

/// Flips these qubits in every term. `qubits` is a mask of index bits, not of key bits.
inline void flip_qubits(TermList& terms, unsigned long qubits) {
    if (qubits == 0) return;
    for (term_t& term : terms) term.key ^= qubits * 2;
}

}  // namespace Nimbrel
