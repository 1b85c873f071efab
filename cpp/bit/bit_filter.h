/// "StreamBitQPU": a simulator that holds one classical bit per qubit.
#pragma once

#include <string>
#include <vector>

#include "filter/op_filter.h"

namespace Nimbrel {

/// Runs programs of X-like and swap-like gates, reads and writes on any number of qubits. Gates
/// that would need a superposition are refused by name; a Hadamard is passed over.
///
/// All state lies in the filter; of its register it uses the read flags, the mask extensions, the
/// qubit table and the qubit count. Everything runs on the caller's thread.
///
/// A mask acts on the word that its offset names, offset >> 6; the offset's low six bits have no
/// effect. A used mask whose word lies outside the register is refused before anything changes.
class OpFilter_BitQPUSim : public OpFilter {
  public:
    ~OpFilter_BitQPUSim() override = default;

    void put_instructions(const QPUOp* ops, unsigned long num_ops) override;

    /// Appends one character per qubit to `text`, "0" or "1", qubit 0 first. The buffer stays as it
    /// is.
    void pull_state(complex_t* buffer, std::string& text, unsigned long count) override;

    /// Always throws: a classical register takes no amplitudes.
    void push_state(const complex_t* src, unsigned long selector, unsigned long num_terms) override;

    /// 1.0 if the masked qubits hold `value`, else 0.0. Sees qubits 0 to 63.
    double peek_read_probability(unsigned long value, unsigned long mask, double limit) override;

    /// Throws unless the masked qubits hold `value`; changes nothing. Sees qubits 0 to 63.
    void postselect(unsigned long value, unsigned long mask) override;

    /// Fixes the masked qubits to the bits of `value` and stores the new values from `read_flag`
    /// on. `cond_offset` is the offset of the value word. With `assert_zero` each mask that still
    /// has a qubit at 1 by a gate queues an event named `label` with the code `event_word`.
    void write(unsigned long value, unsigned long target_mask, long cond_flag, long read_flag,
               unsigned long target_offset, unsigned long cond_offset, bool assert_zero,
               unsigned long event_word, const char* label);

  private:
    void dispatch(const QPUOp& op);

    void reset(unsigned long qubits);
    /// Throws if a register of so many qubits does not fit into the memory that is left.
    void require_memory(unsigned long qubits) const;
    void flip(const QPUOp& op);
    void swap(const QPUOp& op);
    void read(const QPUOp& op);
    void free_qubits(const QPUOp& op);

    /// Throws when there is no register. Every operation on state asks this first.
    void require_register() const;

    /// Throws when a mask of the list lies outside the register.
    void require_inside(const std::vector<unsigned long>& list) const;

    /// Fills the three lists with the record's masks and, behind them, the pending extensions.
    void build_lists(const QPUOp& op);
    void build_lists(unsigned long target_mask, unsigned long target_offset,
                     unsigned long cond_mask, unsigned long cond_neg_mask,
                     unsigned long cond_offset);
    void take_extensions();

    /// The common head of all gates. Leaves: the lists filled, every mask inside the register.
    /// Returns whether the gate acts.
    bool prepare_gate(const QPUOp& op);
    bool condition_holds() const;

    /// Stores the target qubits' values in consecutive read flags.
    void publish_targets(long read_flag);
    void queue_unclean(unsigned long mask, unsigned long word, unsigned long event_word,
                       const char* label);

    unsigned long num_qubits = 0;
    std::vector<unsigned long>
        bit_values;  ///< qubit 64 w + k is bit k of word w; empty: no register
    std::vector<unsigned long>
        settled_bits;  ///< qubits last fixed by a read or write, not by a gate

    // Scratch of the current record, flat pairs of mask and bit offset; kept for its storage. The
    // last two go in step.
    std::vector<unsigned long> target_list;
    std::vector<unsigned long> cond_list;
    std::vector<unsigned long> cond_neg_list;

    unsigned long open_label = 0;  ///< label that an open jump looks for, 0 for none
};

}  // namespace Nimbrel
