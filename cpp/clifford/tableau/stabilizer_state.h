/// `StabilizerState`, a stabilizer tableau with destabilizer rows.
///
/// Does not depend on records or filters. Not thread-safe.
#pragma once

#include <memory_resource>
#include <random>
#include <vector>

#include "clifford/tableau/stabilizer_row.h"

/// Template argument of `measure_qubit` and `project_qubit`. Only the value 3 exists.
enum Clifford : int {};

/// The state of `num_qubits` qubits, given by its generators (Aaronson and Gottesman, Physical
/// Review A 70, 052328, 2004). Letters and phases are those of `Stabilizer`.
///
/// The tableau owns its rows and its random generator, which is independent of the process-wide
/// one. Requires of every operation: qubit numbers are below `num_qubits`; they are not checked.
class StabilizerState {
    // Memory of the words of all rows, in row order: walks over rows read memory in order. Declared
    // first, so that it is destroyed after the rows.
    std::pmr::monotonic_buffer_resource arena;

  public:
    /// Number of bytes that a tableau needs.
    static unsigned long bytes_of(unsigned qubits);

    /// A seed for a generator of outcomes: the ticks of the system's clock.
    static unsigned long seed_from_clock();

    /// All qubits are 0. The generator is seeded from the clock, so outcomes differ between runs.
    explicit StabilizerState(unsigned qubits);
    StabilizerState(const StabilizerState&) = delete;
    StabilizerState& operator=(const StabilizerState&) = delete;

    // Conjugation of all rows by a gate. `cz` does not change phases, so it is not the full
    // conjugation by a controlled Z.
    void px(unsigned long qubit);
    void py(unsigned long qubit);
    void pz(unsigned long qubit);
    void had(unsigned long qubit);
    void sgate(unsigned long qubit);
    void cnot(unsigned long control, unsigned long target);
    void cz(unsigned long a, unsigned long b);

    /// Measures Z. Bit 0 of the result is the outcome; bit 1 is 1 if the outcome was drawn.
    template <Clifford Variant>
    unsigned measure_qubit(unsigned long qubit);

    /// Projects on `target`, which is plus or minus Z on `qubit`. Throws if minus `target` is in
    /// the stabilizer group. A target that is independent of all generators is added as a row.
    template <Clifford Variant>
    void project_qubit(const Stabilizer& target, unsigned long qubit);

    /// Whether some generator anticommutes with Z on the qubit. If so, a measurement draws.
    bool has_anticommuting_row(unsigned long qubit) const;

    /// Z on the qubit if some generator anticommutes with it; otherwise its product with the
    /// generators that make up Z. For a fixed outcome that product is the identity, with phase 0
    /// for outcome 0 and phase 2 for outcome 1.
    Stabilizer reduced_z(unsigned long qubit) const;

    unsigned num_qubits;
    unsigned num_rows;  ///< never decreases
    std::vector<Stabilizer> stabilizers;
    std::vector<Stabilizer> destabilizers;  ///< row i anticommutes with generator i only
    Stabilizer scratch;                     ///< work row of projections
    std::mt19937_64 rng;

  private:
    template <typename Rule>
    void for_each_row(Rule&& rule);

    /// `num_rows` if there is none.
    unsigned first_anticommuting_row(unsigned long qubit) const;
    /// Multiplies by the generators whose destabilizers anticommute with Z on the qubit.
    void multiply_by_generators(Stabilizer& row, unsigned long qubit) const;
    void replace_row(unsigned pivot, const Stabilizer& target, unsigned long qubit);
    /// Adds `scratch` as a generator and restores the tables by Gaussian elimination.
    void add_generator();
    void eliminate();

    /// Makes a row from `row` on, whose bit of `part` in this column is 1, the row `row`, and
    /// clears the bit in all other rows. Returns false if there is no such row.
    bool eliminate_column(unsigned row, unsigned long column, PauliBits Stabilizer::* part,
                          PauliBits Stabilizer::* destabilizer_part);
};

extern template unsigned StabilizerState::measure_qubit<Clifford{3}>(unsigned long);
extern template void StabilizerState::project_qubit<Clifford{3}>(const Stabilizer&, unsigned long);
