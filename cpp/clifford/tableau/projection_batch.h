/// Projections of a `QubitTableau` that wait, so that one pass over all origins serves several.
///
/// Not thread-safe.
#pragma once

#include <array>
#include <vector>

#include "clifford/tableau/origin.h"

/// Projections on outcomes of Z, in order, and how they change an origin.
///
/// Let P be X or Z on a qubit, A its origin, and B that of the measured Z. The first generator that
/// anticommutes with Z gives its row r to it and becomes the destabilizer of that row. So C becomes
/// C V, where V maps Z on r to B with the sign of the outcome, and X on r to the old generator; the
/// origin of P becomes V^-1 A V:
///
/// - If A has no X or Y at place r, it keeps its letters elsewhere and has I at r.
/// - Otherwise A = (A B) B^-1. A B has no X or Y at r, and B becomes Z at r with the sign of the
///   outcome. So the letters are those of A B, and Z at r.
/// - The one P that anticommutes with the measured Z, X on the same qubit, gets an X at r.
///
/// Several projections multiply A by several strings. Which ones depends only on the x bits of A at
/// their rows, and their product is made once for all origins with the same bits.
class ProjectionBatch {
  public:
    ProjectionBatch(const StringShape& shape, MultiplyStrings product, unsigned qubits);

    bool empty() const { return count_ == 0; }

    /// Whether a projection with this origin of Z can be added. Not if the origin has an X or Y at
    /// the row of another one: origins get none there by the projections before it.
    bool accepts(const unsigned long* letters) const;
    unsigned count() const { return count_; }

    /// Adds a projection. `letters` are those of the origin of Z; `sign` is its sign and that of
    /// the outcome, multiplied. Requires: `accepts`, and the origin is at the stage of `count`.
    void add(unsigned row, const unsigned long* letters, StringBlocks blocks, unsigned sign);

    /// Call after the last `add`, before `apply`.
    void prepare();

    /// Applies all projections to an origin of stage 0 that commutes with all measured operators.
    void apply(Origin& origin, unsigned long* letters);

    /// Applies the projections from the origin's stage on, one after the other. Of an operator that
    /// anticommutes with a measured one, the caller adds the X.
    void apply_rest(Origin& origin, unsigned long* letters);

    /// Removes all projections. Every origin has to be at stage 0.
    void clear() {
        count_ = 0;
        places_.clear();
    }

  private:
    static constexpr unsigned max_capacity = 8;

    /// The product of the strings of some projections.
    struct Product {
        StringBlocks blocks;
        unsigned char exponent;
        unsigned char sign;
        bool is_made;
    };

    /// The rows of projections that share a word.
    struct RowGroup {
        std::size_t word;
        unsigned long rows;
    };

    unsigned long* letters_of(unsigned chosen) {
        return letters_.data() + chosen * 2UL * shape_.words;
    }
    void apply_one(unsigned number, Origin& origin, unsigned long* letters);
    void make(unsigned chosen);
    void make_places(unsigned chosen);
    unsigned chosen_by(unsigned x_bits) const;

    StringShape shape_;
    MultiplyStrings multiply_;
    unsigned capacity_;
    unsigned count_ = 0;
    std::vector<RowPlace> places_;

    // Bit i of entry j: whether the string of projection i has that bit at the row of projection j.
    std::array<unsigned, max_capacity> x_at_{};
    std::array<unsigned, max_capacity> z_at_{};

    // Index: the projections that multiply, a bit for each.
    std::vector<unsigned long> letters_;
    std::vector<Product> products_;
    std::vector<unsigned long> z_bits_;  ///< for each group, the z bits at its rows afterwards

    std::vector<unsigned char> chosen_;  ///< index: the x bits of an origin at the rows
    std::vector<RowGroup> groups_;
    unsigned short blocks_ = 0;  ///< of all rows
};
