#include "clifford/tableau/tableau.h"

#include <algorithm>
#include <stdexcept>

#include "support/available_memory.h"

Tableau::Tableau(unsigned qubits)
    : num_qubits_(qubits), qubits_(qubits), rng_(StabilizerState::seed_from_clock()) {}

bool Tableau::reset() {
    if (!qubits_) return false;
    qubits_->reset();
    rng_.seed(StabilizerState::seed_from_clock());
    return true;
}

void Tableau::swap(unsigned long a, unsigned long b) {
    if (qubits_ && a != b) return qubits_->swap(a, b);
    apply(Gate::cnot, a, b);
    apply(Gate::cnot, b, a);
    apply(Gate::cnot, a, b);
}

std::optional<unsigned> Tableau::fixed_outcome(unsigned long qubit) {
    if (qubits_) {
        if (qubits_->is_random(qubit)) return std::nullopt;
        return qubits_->fixed_outcome(qubit);
    }
    const Stabilizer row = rows().reduced_z(qubit);
    if (!row.is_identity() || (row.phase & 1) != 0) return std::nullopt;
    return row.phase / 2U;
}

void Tableau::project(unsigned long qubit, unsigned outcome) {
    if (qubits_ && qubits_->is_random(qubit)) return qubits_->project(qubit, outcome);
    Stabilizer row = rows().reduced_z(qubit);
    row.phase = static_cast<unsigned short>(2 * outcome);
    rows().project_qubit<Clifford{3}>(row, qubit);
}

StabilizerState& Tableau::rows() {
    if (qubits_) change_to_rows();
    batch_.run(*rows_);
    return *rows_;
}

// Everything that can fail comes first, so that a failure changes nothing.
void Tableau::change_to_rows() {
    const unsigned long bytes = StabilizerState::bytes_of(num_qubits_);
    if (const auto shortage = Nimbrel::find_shortage(bytes)) {
        throw std::runtime_error("Error: could not allocate the rows of a tableau of " +
                                 std::to_string(num_qubits_) + " qubits." + shortage->text());
    }
    auto state = std::make_unique<StabilizerState>(num_qubits_);
    const auto copy = [&](std::vector<Stabilizer>& table, CopyRows copy_rows) {
        for (unsigned first = 0; first < num_qubits_; first += rows_in_group) {
            const unsigned count = std::min(rows_in_group, num_qubits_ - first);
            ((*qubits_).*copy_rows)(first, std::span(table).subspan(first, count));
        }
    };
    copy(state->destabilizers, &QubitTableau::copy_destabilizers);
    copy(state->stabilizers, &QubitTableau::copy_generators);
    state->rng = rng_;
    rows_ = std::move(state);
    qubits_.reset();
}

void Tableau::queue(Gate gate, unsigned long a, unsigned long b) {
    if (qubits_) change_to_rows();
    if (batch_.is_full()) batch_.run(*rows_);
    batch_.add({gate, static_cast<unsigned>(a), static_cast<unsigned>(b)});
}

unsigned Tableau::measure_rows(unsigned long qubit) {
    return rows().measure_qubit<Clifford{3}>(qubit) & 1;
}
