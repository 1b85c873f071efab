/// "StreamCliffordQPU", the stabilizer simulator: a filter whose state is a tableau.
///
/// Everything runs on the caller's thread. Nothing here is thread-safe.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "clifford/qubit_list.h"
#include "clifford/tableau/tableau.h"
#include "filter/op_filter.h"
#include "filter/shared_records.h"
#include "support/bits.h"

namespace Nimbrel {

/// Runs Clifford gates, Pauli products and measurements on registers of any width. An operation
/// that is not a Clifford operation is refused by name.
///
/// The filter owns the tableau. An operation on a qubit outside the register throws before it
/// changes anything. Negated controls act like controls.
///
/// Bit k of a mask is qubit offset + k; the offset need not be a multiple of 64.
class OpFilter_CliffordQPUSim : public OpFilter {
  public:
    ~OpFilter_CliffordQPUSim() override = default;

    void put_instructions(const QPUOp* ops, unsigned long num_ops) override;

    /// Appends the tableau to `text`: a line for each destabilizer, a line of dashes, and a line
    /// for each generator. `buffer` is not used. Throws if the memory is too small for the text and
    /// a copy.
    void pull_state(complex_t* buffer, std::string& text, unsigned long size) override;

    /// Always throws, because the state of this filter has no amplitudes.
    void push_state(const complex_t* src, unsigned long selector, unsigned long num_terms) override;

    /// Returns the probability, 0.0, 0.5 or 1.0, that the one qubit in `mask` has the value of its
    /// bit in `value`. Does not change the state and draws nothing.
    double peek_read_probability(unsigned long value, unsigned long mask, double limit) override;

    /// Projects the one qubit in `mask` on the value of its bit in `value`. Draws nothing.
    /// Throws if that outcome has probability 0.
    void postselect(unsigned long value, unsigned long mask) override;

    void s(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
           unsigned long cond_flag, unsigned long target_offset, unsigned long cond_offset);
    void s_inv(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
               unsigned long cond_flag, unsigned long target_offset, unsigned long cond_offset);
    void x(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
           unsigned long cond_flag, unsigned long target_offset, unsigned long cond_offset);
    void z(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
           unsigned long cond_flag, unsigned long target_offset, unsigned long cond_offset);

    /// Rotates about a Pauli product by a multiple of 45 degrees. Any other angle throws after the
    /// product has been folded onto its pivot; the fold is not undone.
    void ppr(double angle, unsigned long target_mask, unsigned long cond_mask,
             unsigned long read_flag, long cond_flag, unsigned long target_offset,
             unsigned long cond_offset);

    /// Measures each target, stores the outcomes in the read flags from `read_flag` on and flips
    /// the targets whose outcome differs from their bit of `value`.
    void write(unsigned long value, unsigned long target_mask, unsigned long cond_flag,
               unsigned long read_flag, unsigned long target_offset, unsigned long cond_offset);

  private:
    using GateKind = Tableau::Gate;

    /// One factor of a Pauli product. A Y has both bits.
    struct PauliLetter {
        unsigned long qubit;
        bool x;
        bool z;
    };

    /// A part of a Pauli product: the qubits of one X mask and one Z mask.
    struct PauliEntry {
        unsigned long base;  ///< qubit of bit 0 of the masks
        unsigned long x_mask;
        unsigned long z_mask;

        PauliLetter letter_of(unsigned long bit) const {
            return {base + bit_number(bit), (x_mask & bit) != 0, (z_mask & bit) != 0};
        }
    };

    void dispatch(const QPUOp& op);
    void reset(unsigned long qubits);
    /// Runs a phase or rz record as S, inverse S or Z. `operation` is its name in the refusal of
    /// other angles.
    void rotate_about_z(const QPUOp& op, const char* operation);
    void y(const QPUOp& op);
    void hadamard(const QPUOp& op);
    void swap(const QPUOp& op);
    void read(const QPUOp& op);
    void measure_pauli_product(const QPUOp& op);

    /// Throws before the first reset.
    void require_state() const {
        if (state == nullptr) refuse_before_reset();
    }
    /// Throws for a qubit outside the register.
    void require_inside(unsigned long qubit) const {
        if (qubit >= state->num_qubits()) refuse_outside(qubit);
    }
    void require_inside(const QubitList& list) const {
        if (!list.is_below(state->num_qubits())) require_each_inside(list);
    }
    void require_each_inside(const QubitList& list) const;
    [[noreturn]] void refuse_outside(unsigned long qubit) const;

    /// Whether a classical condition holds.
    bool holds(unsigned long cond_flag) const {
        return cond_flag <= 1 || qpu_base().flag_condition(static_cast<long>(cond_flag));
    }

    /// Fills both lists with the masks and, after them, the pending mask extensions.
    void collect_gate_masks(unsigned long target_mask, unsigned long cond_mask,
                            unsigned long target_offset, unsigned long cond_offset) {
        target_list.set(target_mask, target_offset);
        condition_list.set(cond_mask, cond_offset);
        if (qpu_base().has_extensions()) collect_extensions();
    }
    void collect_extensions();
    /// The first steps of every gate. Returns whether the classical condition holds.
    /// Throws `refusal`, unless it is null, for a gate with controls.
    /// Leaves: both lists filled. Their qubits have not been checked.
    bool prepare_gate(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_flag,
                      unsigned long target_offset, unsigned long cond_offset, const char* refusal);
    /// The same for a record.
    bool prepare_gate(const QPUOp& op, const char* refusal);
    /// Applies a gate to each qubit of the target list. Throws if one lies outside the register.
    void apply_to_targets(GateKind kind);
    /// Applies the inverse of S: Z, then S.
    void apply_s_inv(unsigned long qubit);
    /// Allocates the flags of all targets from `flag` on, before a measurement changes the state.
    void prepare_flags(long flag);
    /// Stores an outcome and increments the flag. At flag 0 nothing is stored and the flag stays 0.
    void store_outcome(long& flag, unsigned outcome);
    /// The value that a write gives a qubit: its bit in the first value mask that covers the qubit.
    unsigned wanted_bit(unsigned long qubit) const;

    void collect_pauli_masks(unsigned long x_mask, unsigned long z_mask,
                             unsigned long target_offset, unsigned long cond_offset);
    /// Sets one mask of the entry with this base. Adds an entry if there is none and `mask` is not
    /// 0.
    void put_pauli_mask(unsigned long base, unsigned long mask, unsigned long PauliEntry::* part);
    /// Applies gates that turn the product into Z on its pivot. Returns the pivot.
    unsigned long fold_product();
    /// Applies the inverse of `fold_product`.
    void unfold_product(unsigned long pivot);
    void fold_letter(const PauliLetter& letter, unsigned long pivot);
    void unfold_letter(const PauliLetter& letter, unsigned long pivot);
    /// Applies a rotation about Z by 0, 90, 180 or 270 degrees. Throws for another angle.
    void rotate_qubit(int degrees, unsigned long qubit);

    std::unique_ptr<Tableau> state;  ///< null before the first reset

    // Masks of the current record. Members, so that they keep their memory.
    QubitList target_list;
    QubitList condition_list;
    std::vector<PauliEntry> pauli_entries;

    unsigned long open_label = 0;  ///< label at which an open jump ends, 0 if no jump is open
};

}  // namespace Nimbrel
