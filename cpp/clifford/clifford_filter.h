/// "StreamCliffordQPU": a stabilizer simulator for registers of any width.
#pragma once

#include <bit>
#include <memory>
#include <string>
#include <vector>

#include "clifford/tableau/gate_batch.h"
#include "clifford/tableau/stabilizer_state.h"
#include "filter/op_filter.h"

namespace Nimbrel {

/// Runs programs of Clifford gates, Pauli products and measurements on one tableau. What cannot be
/// done on a tableau is refused by name.
///
/// Gates first wait in a batch; whatever looks at the tableau lets them act before. A record,
/// peek or postselection that would act on a qubit outside the register is refused before it
/// changes anything. A condition's negated bits have no effect: each condition qubit is a plain
/// control.
///
/// A mask stands for the qubits from its offset on, the offset's low bits included. Everything runs
/// on the caller's thread.
class OpFilter_CliffordQPUSim : public OpFilter {
  public:
    ~OpFilter_CliffordQPUSim() override = default;

    void put_instructions(const QPUOp* ops, unsigned long num_ops) override;

    /// Appends the tableau as text: a line for each destabilizer, a line of dashes, and a line for
    /// each generator. `buffer` stays as it is.
    void pull_state(complex_t* buffer, std::string& text, unsigned long size) override;

    /// Always throws: a tableau takes no amplitudes.
    void push_state(const complex_t* src, unsigned long selector, unsigned long num_terms) override;

    /// The probability of one qubit below 64: 0.0, 0.5 or 1.0. Changes and draws nothing.
    double peek_read_probability(unsigned long value, unsigned long mask, double limit) override;

    /// Projects one qubit below 64 on a value. Draws nothing.
    void postselect(unsigned long value, unsigned long mask) override;

    void s(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
           unsigned long cond_flag, unsigned long target_offset, unsigned long cond_offset);
    void s_inv(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
               unsigned long cond_flag, unsigned long target_offset, unsigned long cond_offset);
    void x(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
           unsigned long cond_flag, unsigned long target_offset, unsigned long cond_offset);
    void z(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
           unsigned long cond_flag, unsigned long target_offset, unsigned long cond_offset);

    /// Rotates about a Pauli product by a multiple of 45 degrees. A refused angle leaves the
    /// product folded onto its pivot.
    void ppr(double angle, unsigned long target_mask, unsigned long cond_mask,
             unsigned long read_flag, long cond_flag, unsigned long target_offset,
             unsigned long cond_offset);

    /// Measures each target and flips it where the outcome is not the value's bit. Flags take the
    /// outcomes.
    void write(unsigned long value, unsigned long target_mask, unsigned long cond_flag,
               unsigned long read_flag, unsigned long target_offset, unsigned long cond_offset);

  private:
    using GateKind = CliffordGate::Kind;

    /// One factor of a Pauli product; Y has both bits.
    struct PauliLetter {
        unsigned long qubit;
        bool x;
        bool z;
    };

    /// The qubits of a Pauli product that one pair of masks names.
    struct PauliEntry {
        unsigned long base;  ///< qubit of bit 0 of the masks
        unsigned long x_mask;
        unsigned long z_mask;

        PauliLetter letter_of(unsigned long bit) const {
            return {base + static_cast<unsigned long>(std::countr_zero(bit)), (x_mask & bit) != 0,
                    (z_mask & bit) != 0};
        }
    };

    void dispatch(const QPUOp& op);
    void reset(unsigned long qubits);
    /// A record that turns by an angle about Z. `operation` is its name in the refusal.
    void turn(const QPUOp& op, const char* operation);
    void y(const QPUOp& op);
    void hadamard(const QPUOp& op);
    void swap(const QPUOp& op);
    void read(const QPUOp& op);
    void measure_pauli_product(const QPUOp& op);

    void require_state() const;
    void require_inside(unsigned long qubit) const;
    void require_inside(const std::vector<unsigned long>& list) const;

    /// Fills both lists with the masks given and, behind them, the pending extensions.
    void collect_gate_masks(unsigned long target_mask, unsigned long cond_mask,
                            unsigned long target_offset, unsigned long cond_offset);
    /// The common head of the gates. With a `refusal` a condition mask is refused by that text.
    /// Leaves the lists filled, their qubits not looked at yet. Returns whether the gate acts.
    bool prepare_gate(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_flag,
                      unsigned long target_offset, unsigned long cond_offset, const char* refusal);
    /// The same by a record's words.
    bool prepare_gate(const QPUOp& op, const char* refusal);
    /// Queues a gate on each qubit of the target list, all of which must lie in the register.
    void queue_on_targets(GateKind kind);
    /// Queues the inverse of S on a qubit: a half turn and a quarter turn.
    void queue_s_inv(unsigned long qubit);
    void queue(GateKind kind, unsigned long a, unsigned long b = 0);

    /// The tableau with all gates applied.
    StabilizerState& tableau();
    unsigned measure(unsigned long qubit);
    /// Stores an outcome and counts the flag on, up to 0, where counting ends.
    void store_outcome(long& flag, unsigned outcome);
    /// The bit that a write wants a qubit to have, from the first value word that spans it.
    unsigned wanted_bit(unsigned long qubit) const;

    void collect_pauli_masks(unsigned long x_mask, unsigned long z_mask,
                             unsigned long target_offset, unsigned long cond_offset);
    void put_pauli_mask(unsigned long base, unsigned long mask, unsigned long PauliEntry::* part);
    /// Turns the product into Z on its pivot, whose number it returns, and back.
    unsigned long fold_product();
    void unfold_product(unsigned long pivot);
    void queue_fold_letter(const PauliLetter& letter, unsigned long pivot);
    void queue_unfold_letter(const PauliLetter& letter, unsigned long pivot);
    /// Queues a rotation about Z by a quarter, a half or three quarters of a turn, or by none.
    void turn_about_z(int angle, unsigned long qubit);

    std::unique_ptr<StabilizerState> state;  ///< none before the first reset
    GateBatch batch;                         ///< gates that have not reached the tableau yet

    // Scratch of the current record, kept for its storage: flat pairs of a mask and the qubit of
    // its bit 0, and the entries of a Pauli product.
    std::vector<unsigned long> target_list;
    std::vector<unsigned long> condition_list;
    std::vector<PauliEntry> pauli_entries;

    unsigned long open_label = 0;  ///< label that an open jump looks for, 0 for none
};

}  // namespace Nimbrel
