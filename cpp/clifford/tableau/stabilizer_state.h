/// A stabilizer tableau with destabilizer rows and a random generator of its own.
///
/// Knows nothing of records and filters. Used by one thread at a time. Qubit numbers are trusted:
/// callers check them against `num_qubits`.
#pragma once

#include <memory_resource>
#include <random>
#include <vector>

#include "clifford/tableau/stabilizer.h"

/// Selects how `measure_qubit` and `project_qubit` work; 3 is the one value in use.
enum Clifford : int {};

/// The state of `num_qubits` qubits by its generators (Aaronson and Gottesman, Physical Review A
/// 70, 052328, 2004), with letters and phases as `Stabilizer` has them.
///
/// A controlled Z leaves all phases alone, so it is not the full conjugation.
class StabilizerState {
    // The words of all rows, one behind the other, so that a walk over rows is a walk through
    // memory. Stands first because it outlives the rows.
    std::pmr::monotonic_buffer_resource arena;

  public:
    /// Bytes of a tableau.
    static unsigned long bytes_of(unsigned qubits);

    /// All qubits 0. The generator is seeded from the clock, so outcomes differ from run to run.
    explicit StabilizerState(unsigned qubits);
    StabilizerState(const StabilizerState&) = delete;
    StabilizerState& operator=(const StabilizerState&) = delete;

    // Each conjugates all rows by a gate.
    void px(unsigned long qubit);
    void py(unsigned long qubit);
    void pz(unsigned long qubit);
    void had(unsigned long qubit);
    void sgate(unsigned long qubit);
    void cnot(unsigned long control, unsigned long target);
    void cz(unsigned long a, unsigned long b);

    /// Measures Z. Bit 0 of the result is the outcome, bit 1 tells that it was drawn.
    template <Clifford Way>
    unsigned measure_qubit(unsigned long qubit);

    /// Makes `target`, a signed Z on `qubit`, an element of the state's group. Throws when its
    /// negative is one. A target that is independent of all generators becomes one more row.
    template <Clifford Way>
    void project_qubit(const Stabilizer& target, unsigned long qubit);

    /// Whether a measurement of the qubit would have to draw: some generator anticommutes with Z.
    bool has_anticommuting_row(unsigned long qubit) const;

    /// Z on the qubit, multiplied by the generators that make it up if its outcome is fixed. Then
    /// it is the identity, with phase 0 for outcome 0 and 2 for outcome 1.
    Stabilizer reduced_z(unsigned long qubit) const;

    unsigned num_qubits;
    unsigned num_rows;  ///< only grows
    std::vector<Stabilizer> stabilizers;
    std::vector<Stabilizer> destabilizers;  ///< row i anticommutes with generator i alone
    Stabilizer scratch;                     ///< work row of projections
    std::mt19937_64 rng;

  private:
    template <typename Rule>
    void for_each_row(Rule&& rule);

    unsigned first_anticommuting_row(unsigned long qubit) const;
    void multiply_by_partners(Stabilizer& row, unsigned long qubit) const;
    void replace_row(unsigned pivot, const Stabilizer& target, unsigned long qubit);
    void add_generator();
    void eliminate();
    bool take_pivot(unsigned row, unsigned long column, PauliBits Stabilizer::* part,
                    PauliBits Stabilizer::* partner_part);
};

extern template unsigned StabilizerState::measure_qubit<Clifford{3}>(unsigned long);
extern template void StabilizerState::project_qubit<Clifford{3}>(const Stabilizer&, unsigned long);
