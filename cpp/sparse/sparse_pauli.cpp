// Rotation and measurement of Pauli products. Basis changes turn every letter into a Z, CNOTs put
// the parity of all Zs into the pivot qubit, the pivot is rotated or measured, and the steps are
// undone.
#include <bit>

#include "sparse/sparse_filter.h"
#include "support/bits.h"
#include "support/convert.h"

namespace Nimbrel {
namespace {

// Factors of S and its inverse in a measurement. A rotation computes them from an angle.
constexpr complex_t s_factor{6.123233995736766e-17, 1.0};
constexpr complex_t s_inv_factor{6.123233995736766e-17, -1.0};

/// The qubits of a Pauli product by letter.
struct PauliLetters {
    unsigned long ys;
    unsigned long only_xs;
    unsigned long pivot;  ///< the highest qubit with a letter; qubit 0 if there is none
    unsigned long below;  ///< all other qubits with a letter

    PauliLetters(unsigned long x_mask, unsigned long z_mask)
        : ys(x_mask & z_mask), only_xs(x_mask & ~z_mask) {
        const unsigned long all = x_mask | z_mask;
        pivot = all == 0 ? 1 : std::bit_floor(all);
        below = all & ~pivot;
    }
};

/// CNOTs from every lower qubit of the product to the pivot, in one walk over the list: the pivot
/// is flipped if an odd number of controls is 1. A second call undoes the first.
void fold_parity(TermList& terms, const PauliLetters& letters) {
    if (letters.below == 0) return;
    for (term_t& term : terms) {
        const bool odd = (std::popcount(term.key & letters.below * 2) & 1) != 0;
        term.key ^= odd ? letters.pivot * 2 : 0;
    }
}

}  // namespace

// Only the rotation about Z has the controls of the gate. If they are not met, the other steps
// cancel each other.
void OpFilter_SparseSVSim::rotate_pauli_product(const QPUOp& op) {
    if (!qpu_base().flag_condition(op.cond_flag)) return;
    const PauliLetters letters(op.target_mask & qubit_mask, op.cond_mask & qubit_mask);
    if (letters.ys != 0) apply_phase(-90.0, letters.ys, 0, 0, 0);
    apply_hadamard(letters.ys, 0, 0, 0);
    apply_hadamard(letters.only_xs, 0, 0, 0);
    fold_parity(terms, letters);

    const auto [s, c] = sine_cosines.of_half(2 * op.angle);
    const complex_t z_rotation[4]{{c, -s}, {0.0, 0.0}, {0.0, 0.0}, {c, s}};
    apply_matrix(z_rotation, letters.pivot, static_cast<unsigned long>(op.read_flag),
                 op.cond_neg_mask, 0);

    fold_parity(terms, letters);
    apply_hadamard(letters.only_xs, 0, 0, 0);
    apply_hadamard(letters.ys, 0, 0, 0);
    if (letters.ys != 0) apply_phase(90.0, letters.ys, 0, 0, 0);
}

void OpFilter_SparseSVSim::measure_pauli_product(const QPUOp& op) {
    if (!qpu_base().flag_condition(op.cond_flag)) return;
    qpu_base().prepare_read_flags(op.read_flag, 1);
    const unsigned long outcome = ppm_as_gates(
        truncate_to_i32(op.angle), op.target_mask & qubit_mask, op.cond_mask & qubit_mask);
    qpu_base().set_read_flag(op.read_flag, static_cast<long>(outcome));
}

unsigned long OpFilter_SparseSVSim::ppm_as_gates(int sign, unsigned long x_mask,
                                                 unsigned long z_mask) {
    if ((x_mask | z_mask) == 0) return 0;
    const PauliLetters letters(x_mask, z_mask);
    multiply_terms(s_inv_factor, letters.ys, 0, 0);
    apply_hadamard(letters.ys, 0, 0, 0);
    apply_hadamard(letters.only_xs, 0, 0, 0);
    fold_parity(terms, letters);

    // The pivot is flipped, so that the sample and the projection use the inverted value.
    const bool inverted = sign == -1;
    if (inverted) flip_qubits(terms, letters.pivot);
    const unsigned long outcome = measure(letters.pivot) != 0 ? 1 : 0;
    if (inverted) flip_qubits(terms, letters.pivot);

    fold_parity(terms, letters);
    apply_hadamard(letters.only_xs, 0, 0, 0);
    apply_hadamard(letters.ys, 0, 0, 0);
    multiply_terms(s_factor, letters.ys, 0, 0);
    return outcome;
}

}  // namespace Nimbrel
