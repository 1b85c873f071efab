/// Gates that wait for the tableau, so that many of them can pass over its rows together.
#pragma once

#include <array>
#include <vector>

#include "clifford/tableau/bit_columns.h"
#include "clifford/tableau/stabilizer_state.h"

/// A gate of the tableau by its number.
struct CliffordGate {
    enum class Kind : unsigned char { x, y, z, had, s, cnot, cz };

    Kind kind;
    unsigned a;      ///< the qubit, the control
    unsigned b = 0;  ///< the target, or the other qubit
};

/// Applies one gate to every row of both tables. Qubit numbers are trusted.
void apply_to_rows(StabilizerState& state, const CliffordGate& gate);

/// The gates since the tableau was last looked at.
///
/// Conjugation treats each row by itself, so a run of gates may be applied row by row, or block of
/// rows by block, with the same result as gate by gate. Qubit numbers are trusted. Used by one
/// thread at a time.
class GateBatch {
  public:
    void add(CliffordGate gate) { gates_.push_back(gate); }

    /// Whether enough wait for the cost of turning the rows to have vanished.
    bool is_full() const { return gates_.size() >= capacity; }

    /// Applies what waits, in order.
    void run(StabilizerState& state);

    /// Forgets what waits.
    void clear() { gates_.clear(); }

  private:
    static constexpr std::size_t capacity = 1UL << 15;

    void find_words(std::size_t words_per_row);
    void number_columns();
    void run_on_columns(StabilizerState& state);

    std::vector<CliffordGate> gates_;
    std::vector<unsigned> words_;     ///< words of a row that the gates touch, ascending
    std::vector<unsigned> place_of_;  ///< of each word of a row in `words_`, if it is there
    std::array<Stabilizer*, rows_per_block> rows_{};
    BitColumns columns_;
};
