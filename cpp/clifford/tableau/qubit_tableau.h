/// `QubitTableau`, a stabilizer tableau that is stored qubit by qubit.
///
/// Does not depend on records or filters. Not thread-safe.
#pragma once

#include <bit>
#include <span>
#include <utility>
#include <vector>

#include "clifford/tableau/origin.h"
#include "clifford/tableau/projection_batch.h"
#include "clifford/tableau/stabilizer_row.h"
#include "clifford/tableau/zeroed_words.h"

/// The tableau of `StabilizerState` with one generator and one destabilizer for each qubit, for as
/// long as the rows are a basis: each destabilizer anticommutes with its own generator and commutes
/// with all other rows. Reset, gates on different qubits and projections keep that.
///
/// Rows that are a basis are the images of Z and X on each qubit under one Clifford operation C. So
/// instead of rows this class stores, for X and for Z on each qubit, its *origin*: the Pauli string
/// that C maps to it. The x bits of a qubit in all rows are the letters of the origin of Z, and
/// its z bits are the letters of the origin of X:
///
///                    x part of the origin     z part of the origin
///     origin of Z    x bits of generators     x bits of destabilizers
///     origin of X    z bits of generators     z bits of destabilizers
///
/// - A gate changes the origins of its own qubits only.
/// - A measurement is fixed if the origin of Z has no x bit. Then its sign is the outcome.
/// - The signs of rows follow from those of origins. They are computed when a row is made.
///
/// Projections wait until a gate multiplies origins or rows are read, see `ProjectionBatch`.
///
/// The tableau's controlled Z changes no sign, which no Clifford operation does. The difference to
/// one that does is kept as a sign for each row (`flips_`).
class QubitTableau {
  public:
    /// All qubits are 0. Throws std::bad_alloc.
    explicit QubitTableau(unsigned qubits);

    /// Sets all qubits to 0.
    void reset();

    // Conjugation of all rows by a gate, by the rules of `StabilizerState`.
    // Requires of a gate on two qubits: they differ.
    void px(unsigned long qubit) { z_origin(qubit).flip(1); }
    void pz(unsigned long qubit) { x_origin(qubit).flip(1); }
    void py(unsigned long qubit);
    void had(unsigned long qubit);
    void sgate(unsigned long qubit);
    void cnot(unsigned long control, unsigned long target);
    void cz(unsigned long a, unsigned long b);
    void swap(unsigned long a, unsigned long b);

    /// Whether a measurement of Z draws. If not, `fixed_outcome` is its outcome.
    bool is_random(unsigned long qubit) {
        Origin& origin = z_origin(qubit);
        if (!projections_.empty()) projections_.apply_rest(origin, words_of(origin));
        return origin.blocks.x != 0;
    }

    /// Requires: `is_random` was called and is false.
    unsigned fixed_outcome(unsigned long qubit) const;

    /// Makes Z on the qubit, with the sign of the outcome, a generator.
    /// Requires: `is_random` was called and is true.
    void project(unsigned long qubit, unsigned outcome);

    /// Replaces up to 64 rows by those from `first` on, which is a multiple of 64.
    /// Requires: each row has one letter a qubit.
    void copy_generators(unsigned first, std::span<Stabilizer> rows);
    void copy_destabilizers(unsigned first, std::span<Stabilizer> rows);

    unsigned num_qubits() const { return num_qubits_; }

  private:
    Origin& x_origin(unsigned long qubit) { return origins_[qubit].x; }
    Origin& z_origin(unsigned long qubit) { return origins_[qubit].z; }
    const Origin& z_origin(unsigned long qubit) const { return origins_[qubit].z; }

    unsigned long* words_of(const Origin& origin) const {
        return words_.first() + origin.place() * words_of_string_;
    }

    /// Replaces the letters of `left` by those of the product with `right`. Returns the exponent of
    /// i that the letters contribute.
    unsigned multiply_letters(Origin& left, const Origin& right);
    /// Replaces `left` by the product. Requires: the strings commute.
    void multiply(Origin& left, const Origin& right);

    unsigned first_generator(const Origin& origin) const;
    void set_origins();
    void flip_with(const Origin& measured, unsigned row);
    /// Applies the waiting projections.
    void finish_projections();
    void add_flips(const OriginPair& a, const OriginPair& b);

    class RowMaker;

    unsigned num_qubits_;
    StringShape shape_;
    std::size_t words_of_string_;
    MultiplyStrings product_;
    std::size_t total_words_;
    ZeroedWords words_;
    std::vector<OriginPair> origins_;
    ProjectionBatch projections_;
    std::vector<unsigned long> flips_;  ///< signs of generators, then of destabilizers; or empty
};

inline unsigned QubitTableau::multiply_letters(Origin& left, const Origin& right) {
    if (shape_.words != 1) {
        const StringProduct product =
            product_(shape_, words_of(left), left.blocks, words_of(right), right.blocks);
        left.blocks = product.blocks;
        return product.exponent;
    }
    unsigned long* const l = words_of(left);
    const unsigned long* const r = words_of(right);
    const unsigned long x_before_z = l[0] & r[1];
    const unsigned long odd = x_before_z ^ (l[1] & r[0]);
    l[0] ^= r[0];
    l[1] ^= r[1];
    const unsigned long three = (x_before_z ^ l[0] ^ l[1]) & odd;
    left.blocks = {static_cast<unsigned short>(l[0] != 0), static_cast<unsigned short>(l[1] != 0)};
    return static_cast<unsigned>(std::popcount(odd) + 2 * std::popcount(three)) & 3U;
}

inline void QubitTableau::multiply(Origin& left, const Origin& right) {
    left.flip(multiply_letters(left, right) / 2 ^ right.sign());
}

inline void QubitTableau::py(unsigned long qubit) {
    px(qubit);
    pz(qubit);
}

inline void QubitTableau::had(unsigned long qubit) {
    std::swap(origins_[qubit].x, origins_[qubit].z);
}

// S maps -Y to X, and -Y is -i X Z. The factor -i makes the odd exponent of the product even.
inline void QubitTableau::sgate(unsigned long qubit) {
    if (!projections_.empty()) finish_projections();
    OriginPair& origins = origins_[qubit];
    origins.x.flip(multiply_letters(origins.x, origins.z) / 2 ^ origins.z.sign());
}

inline void QubitTableau::cnot(unsigned long control, unsigned long target) {
    if (!projections_.empty()) finish_projections();
    multiply(z_origin(target), z_origin(control));
    multiply(x_origin(control), x_origin(target));
}

inline void QubitTableau::swap(unsigned long a, unsigned long b) {
    std::swap(origins_[a], origins_[b]);
}
