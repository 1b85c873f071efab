#include "clifford/tableau/qubit_tableau.h"

#include <algorithm>

#include "support/bits.h"

namespace {

constexpr unsigned words_of_cache_line = 8;

/// Words of each part of a string. Fills whole cache lines, so that no vector crosses one, if that
/// takes at most a twentieth more memory.
unsigned words_of_part(unsigned qubits) {
    const auto words = static_cast<unsigned>(Nimbrel::words_for_bits(qubits));
    const unsigned missing =
        (words_of_cache_line - words % words_of_cache_line) % words_of_cache_line;
    return missing * 20 <= words ? words + missing : words;
}

}  // namespace

QubitTableau::QubitTableau(unsigned qubits)
    : num_qubits_(qubits),
      shape_(words_of_part(qubits)),
      words_of_string_(2UL * shape_.words),
      product_(fastest_product(shape_)),
      total_words_(2UL * qubits * words_of_string_),
      words_(total_words_),
      origins_(qubits),
      projections_(shape_, product_, qubits) {
    set_origins();
}

void QubitTableau::reset() {
    std::fill_n(words_.first(), total_words_, 0UL);
    flips_.clear();
    projections_.clear();
    set_origins();
}

// The origin of X is X, and the origin of Z is Z.
void QubitTableau::set_origins() {
    for (unsigned qubit = 0; qubit < num_qubits_; ++qubit) {
        const auto word = static_cast<unsigned>(Nimbrel::word_of(qubit));
        const auto block = static_cast<unsigned short>(1U << shape_.block_of(word));
        OriginPair& pair = origins_[qubit];
        pair.x = {2 * qubit, {block, 0}};
        pair.z = {2 * qubit + 1, {0, block}};
        words_of(pair.x)[word] = Nimbrel::bit_of(qubit);
        words_of(pair.z)[shape_.words + word] = Nimbrel::bit_of(qubit);
    }
}

// The signs of the rows with X on both qubits and Z on one of them: those that a controlled Z
// changes and this one does not.
void QubitTableau::add_flips(const OriginPair& a, const OriginPair& b) {
    const unsigned long* const x_a = words_of(a.z);
    const unsigned long* const x_b = words_of(b.z);
    const unsigned long* const z_a = words_of(a.x);
    const unsigned long* const z_b = words_of(b.x);
    unsigned long any = 0;
    for (std::size_t i = 0; i < words_of_string_; ++i) any |= x_a[i] & x_b[i] & (z_a[i] ^ z_b[i]);
    if (any == 0) return;
    flips_.resize(words_of_string_);
    for (std::size_t i = 0; i < words_of_string_; ++i) {
        flips_[i] ^= x_a[i] & x_b[i] & (z_a[i] ^ z_b[i]);
    }
}

void QubitTableau::cz(unsigned long a, unsigned long b) {
    if (!projections_.empty()) finish_projections();
    add_flips(origins_[a], origins_[b]);
    multiply(x_origin(a), z_origin(b));
    multiply(x_origin(b), z_origin(a));
}
