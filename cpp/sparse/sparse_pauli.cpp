// Products of Pauli letters: every letter is turned to a Z, the parity of the Zs is folded into the
// highest qubit, and once that one has been rotated or measured all is undone.
#include <bit>

#include "sparse/sparse_filter.h"
#include "support/bits.h"
#include "support/convert.h"

namespace Nimbrel {
namespace {

// Quarter turns of a measurement are written down; a rotation computes its own.
constexpr complex_t quarter_turn{6.123233995736766e-17, 1.0};
constexpr complex_t quarter_turn_back{6.123233995736766e-17, -1.0};

/// The qubits of a product by their letter.
struct PauliLetters {
    unsigned long ys;
    unsigned long only_xs;
    unsigned long pivot;  ///< the highest qubit with a letter, qubit 0 if there is none
    unsigned long below;  ///< the others

    PauliLetters(unsigned long x_mask, unsigned long z_mask)
        : ys(x_mask & z_mask), only_xs(x_mask & ~z_mask) {
        const unsigned long all = x_mask | z_mask;
        pivot = all == 0 ? 1 : std::bit_floor(all);
        below = all & ~pivot;
    }
};

/// A ladder of controlled flips from every lower qubit onto the pivot, in one walk: the flips all
/// have one target, so only their number matters. It is its own inverse.
void fold_parity(TermList& terms, const PauliLetters& letters) {
    if (letters.below == 0) return;
    for (term_t& term : terms) {
        const bool odd = (std::popcount(term.key & letters.below * 2) & 1) != 0;
        term.key ^= odd ? letters.pivot * 2 : 0;
    }
}

}  // namespace

// The conditions belong to the turn about Z alone; what stands around it cancels without it.
void OpFilter_SparseSVSim::rotate_pauli_product(const QPUOp& op) {
    if (!qpu_base().flag_condition(op.cond_flag)) return;
    const PauliLetters letters(op.target_mask & qubit_mask, op.cond_mask & qubit_mask);
    if (letters.ys != 0) apply_phase(-90.0, letters.ys, 0, 0, 0);
    apply_hadamard(letters.ys, 0, 0, 0);
    apply_hadamard(letters.only_xs, 0, 0, 0);
    fold_parity(terms, letters);

    const auto [s, c] = turns.of_half(2 * op.angle);
    const complex_t turn[4]{{c, -s}, {0.0, 0.0}, {0.0, 0.0}, {c, s}};
    apply_matrix(turn, letters.pivot, static_cast<unsigned long>(op.read_flag), op.cond_neg_mask,
                 0);

    fold_parity(terms, letters);
    apply_hadamard(letters.only_xs, 0, 0, 0);
    apply_hadamard(letters.ys, 0, 0, 0);
    if (letters.ys != 0) apply_phase(90.0, letters.ys, 0, 0, 0);
}

void OpFilter_SparseSVSim::measure_pauli_product(const QPUOp& op) {
    if (!qpu_base().flag_condition(op.cond_flag)) return;
    const unsigned long outcome = ppm_as_gates(
        truncate_to_i32(op.angle), op.target_mask & qubit_mask, op.cond_mask & qubit_mask);
    qpu_base().set_read_flag(op.read_flag, static_cast<long>(outcome));
}

unsigned long OpFilter_SparseSVSim::ppm_as_gates(int sign, unsigned long x_mask,
                                                 unsigned long z_mask) {
    if ((x_mask | z_mask) == 0) return 0;
    const PauliLetters letters(x_mask, z_mask);
    multiply_terms(quarter_turn_back, letters.ys, 0, 0);
    apply_hadamard(letters.ys, 0, 0, 0);
    apply_hadamard(letters.only_xs, 0, 0, 0);
    fold_parity(terms, letters);

    // The pivot itself is turned over, so that the sample and the projection see it inverted.
    const bool inverted = sign == -1;
    if (inverted) flip_qubits(terms, letters.pivot);
    const unsigned long outcome = measure(letters.pivot) != 0 ? 1 : 0;
    if (inverted) flip_qubits(terms, letters.pivot);

    fold_parity(terms, letters);
    apply_hadamard(letters.only_xs, 0, 0, 0);
    apply_hadamard(letters.ys, 0, 0, 0);
    multiply_terms(quarter_turn, letters.ys, 0, 0);
    return outcome;
}

}  // namespace Nimbrel
