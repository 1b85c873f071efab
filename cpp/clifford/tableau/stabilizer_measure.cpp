// Measurement and projection of one qubit, and the elimination that adds a generator.
#include <algorithm>
#include <stdexcept>
#include <utility>

#include "clifford/tableau/stabilizer_state.h"

bool StabilizerState::has_anticommuting_row(unsigned long qubit) const {
    return std::any_of(stabilizers.begin(), stabilizers.end(),
                       [qubit](const Stabilizer& row) { return row.x.test(qubit); });
}

// If Z on the qubit is a product of generators, generator i is a factor exactly if destabilizer i
// anticommutes with Z.
void StabilizerState::multiply_by_generators(Stabilizer& row, unsigned long qubit) const {
    for (unsigned i = 0; i < num_rows; ++i) {
        if (destabilizers[i].x.test(qubit)) row.multiply(stabilizers[i]);
    }
}

Stabilizer StabilizerState::reduced_z(unsigned long qubit) const {
    Stabilizer row(num_qubits);
    row.z.set(qubit);
    if (!has_anticommuting_row(qubit)) multiply_by_generators(row, qubit);
    return row;
}

template <Clifford Variant>
unsigned StabilizerState::measure_qubit(unsigned long qubit) {
    Stabilizer row = reduced_z(qubit);
    if (row.is_identity() && (row.phase & 1) == 0) return row.phase / 2U;

    // Bit 1 of one output is the outcome. If `reduced_z` has multiplied the row and it is not the
    // identity, the projection uses the row as it is now.
    const auto sign = static_cast<unsigned>(rng() & 2);
    row.phase = static_cast<unsigned short>(sign);
    project_qubit<Variant>(row, qubit);
    return 2 + sign / 2;
}

template <Clifford Variant>
void StabilizerState::project_qubit(const Stabilizer& target, unsigned long qubit) {
    const unsigned pivot = first_anticommuting_row(qubit);
    if (pivot != num_rows) return replace_row(pivot, target, qubit);

    scratch = target;
    multiply_by_generators(scratch, qubit);
    if (!scratch.is_identity()) return add_generator();
    if (scratch.phase == 2) throw std::runtime_error("Cannot project onto orthogonal state");
}

template unsigned StabilizerState::measure_qubit<Clifford{3}>(unsigned long);
template void StabilizerState::project_qubit<Clifford{3}>(const Stabilizer&, unsigned long);

unsigned StabilizerState::first_anticommuting_row(unsigned long qubit) const {
    unsigned row = 0;
    while (row < num_rows && !stabilizers[row].x.test(qubit)) ++row;
    return row;
}

// The replaced generator becomes the destabilizer of the new one. Rows that anticommute with the
// new generator are multiplied by the replaced one, so that they commute.
void StabilizerState::replace_row(unsigned pivot, const Stabilizer& target, unsigned long qubit) {
    destabilizers[pivot] = stabilizers[pivot];
    stabilizers[pivot] = target;
    const Stabilizer& replaced = destabilizers[pivot];
    for (unsigned i = 0; i < num_rows; ++i) {
        if (i == pivot) continue;
        if (destabilizers[i].x.test(qubit)) destabilizers[i].multiply(replaced);
        if (stabilizers[i].x.test(qubit)) stabilizers[i].multiply(replaced);
    }
}

void StabilizerState::add_generator() {
    // All allocations come first, so that a failed one leaves both tables unchanged.
    Stabilizer generator = scratch;
    Stabilizer destabilizer(num_qubits);
    stabilizers.reserve(num_rows + 1UL);
    destabilizers.reserve(num_rows + 1UL);
    stabilizers.push_back(std::move(generator));
    destabilizers.push_back(std::move(destabilizer));
    ++num_rows;
    eliminate();
}

// Each column has at most one pivot. Rows without a pivot keep their destabilizers.
void StabilizerState::eliminate() {
    unsigned row = 0;
    for (unsigned long column = 0; column < num_qubits && row < num_rows; ++column) {
        if (eliminate_column(row, column, &Stabilizer::x, &Stabilizer::z) ||
            eliminate_column(row, column, &Stabilizer::z, &Stabilizer::x)) {
            ++row;
        }
    }
}

bool StabilizerState::eliminate_column(unsigned row, unsigned long column,
                                       PauliBits Stabilizer::* part,
                                       PauliBits Stabilizer::* destabilizer_part) {
    unsigned found = row;
    while (found < num_rows && !(stabilizers[found].*part).test(column)) ++found;
    if (found == num_rows) return false;

    if (found != row) stabilizers[row].exchange(stabilizers[found]);
    Stabilizer& destabilizer = destabilizers[row];
    destabilizer.x.clear();
    destabilizer.z.clear();
    (destabilizer.*destabilizer_part).set(column);
    for (unsigned i = 0; i < num_rows; ++i) {
        if (i != row && (stabilizers[i].*part).test(column)) {
            stabilizers[i].multiply(stabilizers[row]);
        }
    }
    return true;
}
