/// Pending gates of a tableau. A batch of gates is applied to a block of rows at a time, which is
/// faster than one pass over all rows for each gate.
#pragma once

#include <array>
#include <vector>

#include "clifford/tableau/bit_columns.h"
#include "clifford/tableau/stabilizer_state.h"

/// A gate on one or two qubits.
struct CliffordGate {
    enum class Kind : unsigned char { x, y, z, had, s, cnot, cz };

    Kind kind;
    unsigned a;      ///< the qubit of a single-qubit gate; the control of a CNOT; a qubit of a CZ
    unsigned b = 0;  ///< the target of a CNOT; the other qubit of a CZ
};

/// Applies one gate to every row of both tables. Requires: the qubits lie in the register.
void apply_to_rows(StabilizerState& state, const CliffordGate& gate);

/// The gates that have been added since the last `run`, in order.
///
/// Conjugation changes each row independently of the others. So all gates may be applied to one
/// block of rows after another, with the same result as gate by gate. Not thread-safe.
class GateBatch {
  public:
    /// Requires: the qubits of the gate lie in the register of the tableau.
    void add(CliffordGate gate) { gates_.push_back(gate); }

    /// Whether the batch should be run before the next `add`. At this size the cost of transposing
    /// the rows is negligible.
    bool is_full() const { return gates_.size() >= capacity; }

    /// Applies the pending gates in order and removes them.
    void run(StabilizerState& state);

    /// Removes the pending gates without applying them.
    void clear() { gates_.clear(); }

  private:
    static constexpr std::size_t capacity = 1UL << 15;

    void find_words(std::size_t words_per_row);
    void rename_qubits_to_columns();
    void run_on_columns(StabilizerState& state);

    std::vector<CliffordGate> gates_;
    std::vector<unsigned> words_;     ///< numbers of the row words that the gates use, ascending
    std::vector<unsigned> place_of_;  ///< for each row word its place in `words_`, if it is in use
    std::array<Stabilizer*, rows_per_block> rows_{};
    BitColumns columns_;
};
