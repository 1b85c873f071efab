/// One signed Pauli string, a row of a stabilizer tableau.
///
/// Knows nothing of records and filters. Used by one thread at a time.
#pragma once

#include <memory_resource>
#include <vector>

/// A bit vector: qubit q is bit q & 63 of word q >> 6. Bits above the last qubit are 0.
struct PauliBits {
    PauliBits(unsigned bits, std::pmr::memory_resource* memory);

    bool any() const;

    /// Sets every bit to 0.
    void clear();

    bool test(unsigned long qubit) const;
    void set(unsigned long qubit);

    std::pmr::vector<unsigned long> words;
    unsigned long bit_count;
    unsigned long tail_mask;  ///< used bits of a last partial word, 0 when the last one is full
};

/// A row: i^phase times the tensor product of one letter for each qubit, I, X, Z, and Y where both
/// bits are set. Y is the Pauli matrix itself, with no factor of i left to count.
struct Stabilizer {
    /// The identity with phase 0. Its words come from `memory`; a copy's come from the heap.
    explicit Stabilizer(unsigned qubits,
                        std::pmr::memory_resource* memory = std::pmr::get_default_resource());

    /// Multiplies by `right` from the right. Throws for rows of different length, before anything
    /// has changed.
    void multiply(const Stabilizer& right);

    /// Exchanges letters and phases with another row of the same length; each keeps its memory.
    void exchange(Stabilizer& other);

    /// Whether no qubit has a letter; the phase may be anything.
    bool is_identity() const { return !x.any() && !z.any(); }

    unsigned length;           ///< qubits
    unsigned short phase = 0;  ///< exponent of i, from 0 to 3; odd only inside a product
    PauliBits x;
    PauliBits z;
};
