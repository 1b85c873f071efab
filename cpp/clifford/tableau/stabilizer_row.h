/// `Stabilizer`, one row of a stabilizer tableau: a Pauli string with a phase.
///
/// Does not depend on records or filters. Not thread-safe.
#pragma once

#include <memory_resource>
#include <vector>

/// One bit for each qubit: qubit q is bit q & 63 of word q >> 6. Bits above the last qubit are 0.
struct PauliBits {
    PauliBits(unsigned bits, std::pmr::memory_resource* memory);

    /// Whether any bit is 1.
    bool any() const;

    /// Sets every bit to 0.
    void clear();

    bool test(unsigned long qubit) const;

    /// Sets the qubit's bit to 1.
    void set(unsigned long qubit);

    std::pmr::vector<unsigned long> words;
    unsigned long bit_count;
    unsigned long tail_mask;  ///< used bits of a partial last word; 0 if the last word is full
};

/// The operator i^phase times the tensor product of one letter for each qubit: I, X, Z, or Y where
/// both the x and the z bit are 1. Y is the Pauli matrix and not the product XZ, so `phase` counts
/// no factors of i that belong to letters.
struct Stabilizer {
    /// The identity with phase 0. The words are allocated from `memory`; the words of a copy come
    /// from the default resource.
    explicit Stabilizer(unsigned qubits,
                        std::pmr::memory_resource* memory = std::pmr::get_default_resource());

    /// Replaces this row by the product of this row (left factor) and `right`.
    /// Throws, before any change, if the lengths differ.
    void multiply(const Stabilizer& right);

    /// Swaps letters and phases with a row of the same length. Each row keeps its memory.
    void exchange(Stabilizer& other);

    /// Whether every letter is I. The phase is not tested.
    bool is_identity() const { return !x.any() && !z.any(); }

    unsigned length;           ///< number of qubits
    unsigned short phase = 0;  ///< exponent of i, 0 to 3; odd only inside a product
    PauliBits x;
    PauliBits z;
};
