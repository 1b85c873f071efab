/// `Origin`, a signed Pauli string of a `QubitTableau`, and the rows as places in such strings.
///
/// Plain values. Not thread-safe.
#pragma once

#include "clifford/tableau/string_product.h"
#include "support/bits.h"

/// The Pauli string that an operator came from. Its letters are elsewhere, at its place.
class Origin {
  public:
    Origin() = default;
    Origin(unsigned place, StringBlocks string_blocks) : blocks(string_blocks), bits_(place << 5) {}

    unsigned place() const { return bits_ >> 5; }
    unsigned sign() const { return bits_ & 1; }

    /// How many of the waiting projections have been applied.
    unsigned stage() const { return bits_ >> 1 & 15; }

    /// Requires: 0 or 1.
    void flip(unsigned sign) { bits_ ^= sign; }
    /// Requires: less than 16.
    void set_stage(unsigned stage) { bits_ = (bits_ & ~30U) | stage << 1; }

    StringBlocks blocks;  ///< exact in x; may have too many bits in z

  private:
    // One word for all, because a walk over all origins reads it for each.
    unsigned bits_ = 0;
};

/// The origins of X and Z on one qubit.
struct OriginPair {
    Origin x;
    Origin z;
};

/// Where the bit of one row is in each part of a string.
struct RowPlace {
    RowPlace(const StringShape& shape, unsigned row)
        : word(Nimbrel::word_of(row)),
          bit(Nimbrel::bit_of(row)),
          block(static_cast<unsigned short>(1U << shape.block_of(word))) {}

    std::size_t word;
    unsigned long bit;
    unsigned short block;
};
