// Measurement and projection of one qubit of a tableau that is stored qubit by qubit.
#include <algorithm>

#include "clifford/tableau/qubit_tableau.h"
#include "support/bits.h"

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
    const RowPlace at(shape_, row);
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

void QubitTableau::project(unsigned long qubit, unsigned outcome) {
    OriginPair& pair = origins_[qubit];
    if (!projections_.accepts(words_of(pair.z))) finish_projections();
    const unsigned row = first_generator(pair.z);
    const RowPlace at(shape_, row);
    if (!flips_.empty()) flip_with(pair.z, row);
    projections_.add(row, words_of(pair.z), pair.z.blocks, pair.z.sign() ^ outcome);

    projections_.apply_rest(pair.x, words_of(pair.x));
    words_of(pair.x)[at.word] |= at.bit;  // X anticommutes with the new generator
    pair.x.blocks.x |= at.block;

    unsigned long* const words = words_of(pair.z);
    std::fill_n(words, words_of_string_, 0UL);
    words[shape_.words + at.word] = at.bit;
    pair.z.blocks = {0, at.block};
    pair.z.flip(pair.z.sign() ^ outcome);
    pair.z.set_stage(projections_.count());
}

void QubitTableau::finish_projections() {
    projections_.prepare();
    for (OriginPair& pair : origins_) {
        for (Origin* origin : {&pair.x, &pair.z}) {
            if (origin->stage() == 0) {
                projections_.apply(*origin, words_of(*origin));
            } else {
                projections_.apply_rest(*origin, words_of(*origin));
                origin->set_stage(0);
            }
        }
    }
    projections_.clear();
}
