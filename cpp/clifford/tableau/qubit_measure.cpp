// Measurement and projection of one qubit of a tableau that is stored qubit by qubit.
#include <algorithm>

#include "clifford/tableau/qubit_tableau.h"
#include "support/bits.h"

namespace {

/// One row: its word and bit in each part of an origin, and its block.
struct RowBit {
    std::size_t word;
    unsigned long bit;
    unsigned short block;

    RowBit(const StringShape& shape, unsigned row)
        : word(Nimbrel::word_of(row)),
          bit(Nimbrel::bit_of(row)),
          block(static_cast<unsigned short>(1U << shape.block_of(word))) {}
};

}  // namespace

// The generators of which Z is a product are the z part of its origin. Each of them whose sign
// differs changes the outcome.
unsigned QubitTableau::fixed_outcome(unsigned long qubit) const {
    const Origin& origin = z_origin(qubit);
    if (flips_.empty()) return origin.sign();
    const unsigned long* const generators = words_of(origin) + shape_.words;
    unsigned long flipped = 0;
    for (unsigned i = 0; i < shape_.words; ++i) flipped ^= generators[i] & flips_[i];
    return origin.sign() ^ (static_cast<unsigned>(std::popcount(flipped)) & 1U);
}

unsigned QubitTableau::first_generator(const Origin& origin) const {
    const unsigned long* const words = words_of(origin);
    auto word = shape_.first_word(static_cast<unsigned>(std::countr_zero(origin.blocks.x)));
    while (words[word] == 0) ++word;
    return static_cast<unsigned>(word * Nimbrel::bits_per_word + Nimbrel::bit_number(words[word]));
}

// The rows that anticommute with Z are multiplied by the generator `row`. That generator replaces
// its destabilizer, and Z has exactly the sign of its outcome.
void QubitTableau::flip_with(const Origin& measured, unsigned row) {
    const RowBit at(shape_, row);
    unsigned long* const generators = flips_.data();
    unsigned long* const destabilizers = flips_.data() + shape_.words;
    const bool flipped = (generators[at.word] & at.bit) != 0;
    if (flipped) {
        const unsigned long* const anticommuting = words_of(measured);
        for (std::size_t i = 0; i < words_of_string_; ++i) flips_[i] ^= anticommuting[i];
    }
    generators[at.word] &= ~at.bit;
    destabilizers[at.word] &= ~at.bit;
    if (flipped) destabilizers[at.word] |= at.bit;
}

// Let P be X or Z on a qubit, A its origin, and B that of the measured Z. C becomes C' = C V, where
// V maps the generator's own Z to B and so on; the origin of P becomes V^-1 A V. If A has no X or
// Y at the generator's place, that has the letters of A elsewhere. Otherwise A = (A B) B^-1, where
// A B has no X or Y there, and B becomes Z at that place with the sign of the outcome.
//
// At the place itself, P has the letter of the old generator as destabilizer, and of the measured Z
// as generator: the x bit is set in the end by `project`, for the one P that anticommutes with it.
void QubitTableau::project_origin(Origin& origin, const Origin& measured, unsigned row,
                                  unsigned outcome) {
    const RowBit at(shape_, row);
    unsigned long* const x_part = words_of(origin);
    unsigned long* const z_part = x_part + shape_.words;
    if ((x_part[at.word] & at.bit) == 0) {
        z_part[at.word] &= ~at.bit;
        return;
    }
    const unsigned exponent = multiply_letters(origin, measured);
    origin.flip(exponent / 2 ^ measured.sign() ^ outcome);
    z_part[at.word] |= at.bit;
    origin.blocks.z |= at.block;
}

void QubitTableau::project(unsigned long qubit, unsigned outcome) {
    Origin& measured = z_origin(qubit);
    const unsigned row = first_generator(measured);
    const RowBit at(shape_, row);
    if (!flips_.empty()) flip_with(measured, row);
    for (OriginPair& pair : origins_) {
        for (Origin* origin : {&pair.x, &pair.z}) {
            const auto blocks = static_cast<unsigned>(origin->blocks.x | origin->blocks.z);
            if ((blocks & at.block) != 0 && origin != &measured) {
                project_origin(*origin, measured, row, outcome);
            }
        }
    }
    Origin& anticommuting = x_origin(qubit);
    words_of(anticommuting)[at.word] |= at.bit;
    anticommuting.blocks.x |= at.block;

    unsigned long* const words = words_of(measured);
    std::fill_n(words, words_of_string_, 0UL);
    words[shape_.words + at.word] = at.bit;
    measured.blocks = {0, at.block};
    measured.flip(measured.sign() ^ outcome);
}
