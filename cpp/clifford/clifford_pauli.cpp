// Rotation and measurement of Pauli products. Gates fold a product into Z on one qubit, the pivot;
// the pivot is rotated or measured, and the gates are undone.
#include <algorithm>
#include <bit>
#include <stdexcept>

#include "clifford/clifford_filter.h"
#include "filter/mask_pairs.h"
#include "support/bits.h"
#include "support/convert.h"

namespace Nimbrel {
namespace {

[[noreturn]] void refuse_angle() {
    throw std::runtime_error("qc.ppr() angles must be multiples of pi/4 for Clifford sim.");
}

/// Twice the angle modulo 360, which is the angle of the rotation about Z on the pivot. The
/// doubling wraps in 32 bits. Throws for an angle that is not a whole number.
int z_rotation_of(double angle) {
    const int whole = truncate_to_i32(angle);
    if (!(static_cast<double>(whole) == angle)) refuse_angle();
    const auto doubled = static_cast<int>(static_cast<unsigned>(whole) * 2U);
    return (doubled % 360 + 360) % 360;
}

/// Visits the letters of an entry from the lowest qubit to the highest.
template <typename Entry, typename Visit>
void for_each_letter(const Entry& entry, Visit&& visit) {
    for_each_bit(entry.x_mask | entry.z_mask,
                 [&](unsigned long bit) { visit(entry.letter_of(bit)); });
}

/// Visits the letters of an entry from the highest qubit to the lowest.
template <typename Entry, typename Visit>
void for_each_letter_down(const Entry& entry, Visit&& visit) {
    for (unsigned long left = entry.x_mask | entry.z_mask; left != 0;) {
        const unsigned long bit = std::bit_floor(left);
        visit(entry.letter_of(bit));
        left ^= bit;
    }
}

}  // namespace

void OpFilter_CliffordQPUSim::put_pauli_mask(unsigned long base, unsigned long mask,
                                             unsigned long PauliEntry::* part) {
    const auto entry = std::find_if(pauli_entries.begin(), pauli_entries.end(),
                                    [base](const PauliEntry& e) { return e.base == base; });
    if (entry != pauli_entries.end()) {
        (*entry).*part = mask;
    } else if (mask != 0) {
        pauli_entries.push_back({base, 0, 0});
        pauli_entries.back().*part = mask;
    }
}

// A later mask for the same base replaces the earlier one.
void OpFilter_CliffordQPUSim::collect_pauli_masks(unsigned long x_mask, unsigned long z_mask,
                                                  unsigned long target_offset,
                                                  unsigned long cond_offset) {
    pauli_entries.clear();
    if (x_mask != 0) put_pauli_mask(target_offset, x_mask, &PauliEntry::x_mask);
    if (z_mask != 0) put_pauli_mask(cond_offset, z_mask, &PauliEntry::z_mask);
    for_each_mask(qpu_base().target_extensions, [this](unsigned long mask, unsigned long base) {
        put_pauli_mask(base, mask, &PauliEntry::x_mask);
    });
    for_each_mask(qpu_base().cond_extensions, [this](unsigned long mask, unsigned long base) {
        put_pauli_mask(base, mask, &PauliEntry::z_mask);
    });
    qpu_base().clear_extensions();
}

void OpFilter_CliffordQPUSim::fold_letter(const PauliLetter& letter, unsigned long pivot) {
    if (letter.x) {
        if (letter.z) apply_s_inv(letter.qubit);
        state->apply(GateKind::had, letter.qubit);
    }
    if (letter.qubit != pivot) state->apply(GateKind::cnot, letter.qubit, pivot);
}

void OpFilter_CliffordQPUSim::unfold_letter(const PauliLetter& letter, unsigned long pivot) {
    if (letter.qubit != pivot) state->apply(GateKind::cnot, letter.qubit, pivot);
    if (letter.x) {
        state->apply(GateKind::had, letter.qubit);
        if (letter.z) state->apply(GateKind::s, letter.qubit);
    }
}

// The pivot is the number of the lowest bit in the masks of the first entry; the base of the entry
// is not added. With a base other than 0 the pivot may be a qubit outside the product, and the
// gates use that qubit.
unsigned long OpFilter_CliffordQPUSim::fold_product() {
    const PauliEntry& first = pauli_entries.front();
    const unsigned long pivot = bit_number(first.x_mask | first.z_mask);
    require_inside(pivot);
    for (const PauliEntry& entry : pauli_entries) {
        for_each_letter(entry, [this](const PauliLetter& letter) { require_inside(letter.qubit); });
    }
    for (const PauliEntry& entry : pauli_entries) {
        for_each_letter(entry, [&](const PauliLetter& letter) { fold_letter(letter, pivot); });
    }
    return pivot;
}

void OpFilter_CliffordQPUSim::unfold_product(unsigned long pivot) {
    // Not by a reversed view: Clang 14, which builds the sanitized engine, cannot compile it.
    for (std::size_t i = pauli_entries.size(); i-- > 0;) {
        for_each_letter_down(pauli_entries[i],
                             [&](const PauliLetter& letter) { unfold_letter(letter, pivot); });
    }
}

void OpFilter_CliffordQPUSim::ppr(double angle, unsigned long target_mask, unsigned long cond_mask,
                                  unsigned long read_flag, long cond_flag,
                                  unsigned long target_offset, unsigned long cond_offset) {
    if (read_flag != 0) {
        throw std::runtime_error("qc.ppr() cannot have condition masks in the Clifford sim.");
    }
    require_state();
    if (!qpu_base().flag_condition(cond_flag)) return;
    if (angle == 0.0 || (target_mask | cond_mask) == 0) return;
    collect_pauli_masks(target_mask, cond_mask, target_offset, cond_offset);
    const unsigned long pivot = fold_product();
    // The angle is checked after the fold: a refused angle leaves the product folded.
    rotate_qubit(z_rotation_of(angle), pivot);
    unfold_product(pivot);
}

void OpFilter_CliffordQPUSim::rotate_qubit(int degrees, unsigned long qubit) {
    switch (degrees) {
        case 0:
            return;
        case 90:
            return state->apply(GateKind::s, qubit);
        case 180:
            return state->apply(GateKind::z, qubit);
        case 270:
            return apply_s_inv(qubit);
        default:
            refuse_angle();
    }
}

void OpFilter_CliffordQPUSim::measure_pauli_product(const QPUOp& op) {
    require_state();
    if (!qpu_base().flag_condition(op.cond_flag)) return;
    if ((op.target_mask | op.cond_mask) == 0) return;
    qpu_base().prepare_read_flags(op.read_flag, 1);
    collect_pauli_masks(op.target_mask, op.cond_mask, op.target_offset, op.cond_offset);
    const unsigned long pivot = fold_product();
    const bool inverted = truncate_to_i32(op.angle) == -1;
    if (inverted) state->apply(GateKind::x, pivot);
    const unsigned outcome = state->measure(pivot);
    if (inverted) state->apply(GateKind::x, pivot);
    unfold_product(pivot);
    qpu_base().set_read_flag(op.read_flag, static_cast<long>(outcome));
}

}  // namespace Nimbrel
