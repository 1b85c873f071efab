/// `Tableau`, the state of the Clifford filter: a stabilizer tableau in the form that is fastest.
///
/// Does not depend on records or filters. Not thread-safe.
#pragma once

#include <algorithm>
#include <memory>
#include <optional>
#include <random>
#include <span>
#include <vector>

#include "clifford/tableau/gate_batch.h"
#include "clifford/tableau/qubit_tableau.h"
#include "clifford/tableau/stabilizer_state.h"

/// The state of a register, with the values that a `StabilizerState` has after the same operations.
///
/// It is stored qubit by qubit for as long as the rows are a basis. A CNOT whose control is its
/// target erases a qubit, and the rows are then no longer a basis; so is a projection on a row that
/// is not Z on its qubit. From there to the next reset the state is stored row by row, and gates
/// wait in a batch until the rows are read.
///
/// Requires of every operation: qubit numbers are below `num_qubits`; they are not checked.
class Tableau {
  public:
    using Gate = CliffordGate::Kind;

    /// All qubits are 0. The generator of outcomes is seeded from the clock.
    explicit Tableau(unsigned qubits);

    /// Sets all qubits to 0, with a new seed. Returns false, without a change, if the memory for
    /// that is no longer there.
    bool reset();

    /// Conjugates all rows by a gate. `b` is the target of a CNOT or the second qubit of a
    /// controlled Z.
    void apply(Gate gate, unsigned long a, unsigned long b = 0);
    /// Three CNOTs.
    void swap(unsigned long a, unsigned long b);

    /// Measures Z and returns the outcome.
    unsigned measure(unsigned long qubit);

    /// The outcome of a measurement of Z; none if it would be drawn.
    std::optional<unsigned> fixed_outcome(unsigned long qubit);

    /// Projects on an outcome. If the outcome is fixed already, projects on what `reduced_z` leaves
    /// of Z. Throws if the other outcome is fixed.
    void project(unsigned long qubit, unsigned outcome);

    /// Calls `visit(row)` for each destabilizer and then for each generator, with `between()` in
    /// between.
    template <typename Visit, typename Between>
    void for_each_row(Visit&& visit, Between&& between);

    unsigned num_qubits() const { return num_qubits_; }
    unsigned num_rows() const { return rows_ == nullptr ? num_qubits_ : rows_->num_rows; }

  private:
    using CopyRows = void (QubitTableau::*)(unsigned first, std::span<Stabilizer> rows);
    static constexpr unsigned rows_in_group = 64;

    template <typename Visit>
    static void for_each_row_of(QubitTableau& qubits, CopyRows copy, Visit&& visit);

    /// The state row by row, with all gates applied. Changes to that form.
    StabilizerState& rows();
    void change_to_rows();
    void queue(Gate gate, unsigned long a, unsigned long b);
    unsigned measure_rows(unsigned long qubit);
    unsigned draw_outcome() { return static_cast<unsigned>(rng_() >> 1 & 1); }

    unsigned num_qubits_;
    std::optional<QubitTableau> qubits_;     ///< none after the change to rows
    std::unique_ptr<StabilizerState> rows_;  ///< null before it
    GateBatch batch_;                        ///< gates not yet applied to the rows
    std::mt19937_64 rng_;                    ///< of outcomes before the change to rows
};

inline void Tableau::apply(Gate gate, unsigned long a, unsigned long b) {
    if (!qubits_) return queue(gate, a, b);
    switch (gate) {
        case Gate::x:
            return qubits_->px(a);
        case Gate::y:
            return qubits_->py(a);
        case Gate::z:
            return qubits_->pz(a);
        case Gate::had:
            return qubits_->had(a);
        case Gate::s:
            return qubits_->sgate(a);
        case Gate::cnot:
            if (a == b) return queue(gate, a, b);
            return qubits_->cnot(a, b);
        case Gate::cz:
            // On one qubit it toggles each bit twice.
            if (a != b) qubits_->cz(a, b);
    }
}

inline unsigned Tableau::measure(unsigned long qubit) {
    if (!qubits_) return measure_rows(qubit);
    QubitTableau& qubits = *qubits_;
    if (!qubits.is_random(qubit)) return qubits.fixed_outcome(qubit);
    const unsigned outcome = draw_outcome();
    qubits.project(qubit, outcome);
    return outcome;
}

template <typename Visit>
void Tableau::for_each_row_of(QubitTableau& qubits, CopyRows copy, Visit&& visit) {
    const unsigned count = qubits.num_qubits();
    std::vector<Stabilizer> group(std::min(rows_in_group, count), Stabilizer(count));
    for (unsigned first = 0; first < count; first += rows_in_group) {
        const std::span<Stabilizer> some =
            std::span(group).first(std::min(rows_in_group, count - first));
        (qubits.*copy)(first, some);
        for (const Stabilizer& row : some) visit(row);
    }
}

template <typename Visit, typename Between>
void Tableau::for_each_row(Visit&& visit, Between&& between) {
    if (qubits_) {
        for_each_row_of(*qubits_, &QubitTableau::copy_destabilizers, visit);
        between();
        return for_each_row_of(*qubits_, &QubitTableau::copy_generators, visit);
    }
    const StabilizerState& state = rows();
    for (const Stabilizer& row : state.destabilizers) visit(row);
    between();
    for (const Stabilizer& row : state.stabilizers) visit(row);
}
