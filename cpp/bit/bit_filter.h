/// "StreamBitQPU": a simulator that holds one classical bit per qubit.
///
/// The factory creates it. All operations run on the caller's thread.
#pragma once

#include <string>
#include <vector>

#include "filter/op_filter.h"

namespace Nimbrel {

/// Runs programs of X, swap, elbows, reads and writes on any number of qubits. Refuses gates that
/// need a superposition by name, but ignores a Hadamard.
///
/// The filter owns its whole state. It uses the read flags, the mask extensions, the table of
/// reserved qubits and the qubit count of its register.
///
/// A mask acts on the word offset >> 6; the low six bits of the offset have no effect. A non-zero
/// mask whose word is outside the register throws before anything changes.
class OpFilter_BitQPUSim : public OpFilter {
  public:
    ~OpFilter_BitQPUSim() override = default;

    void put_instructions(const QPUOp* ops, unsigned long num_ops) override;

    /// Appends one character per qubit to `text`, "0" or "1", qubit 0 first. Does not use `buffer`.
    void pull_state(complex_t* buffer, std::string& text, unsigned long count) override;

    /// Always throws: a classical register has no amplitudes.
    void push_state(const complex_t* src, unsigned long selector, unsigned long num_terms) override;

    /// 1.0 if the masked qubits hold `value`, else 0.0. For qubits 0 to 63 only.
    double peek_read_probability(unsigned long value, unsigned long mask, double limit) override;

    /// Throws unless the masked qubits hold `value`; changes nothing. For qubits 0 to 63 only.
    void postselect(unsigned long value, unsigned long mask) override;

    /// Sets the masked qubits to the bits of `value` and stores the new values in consecutive flags
    /// from `read_flag` on. `cond_offset` is the offset of the value word. With `assert_zero`, each
    /// mask with a qubit that a gate has left at 1 queues an event named `label` with the code
    /// `event_word`.
    void write(unsigned long value, unsigned long target_mask, long cond_flag, long read_flag,
               unsigned long target_offset, unsigned long cond_offset, bool assert_zero,
               unsigned long event_word, const char* label);

  private:
    void dispatch(const QPUOp& op);

    void reset(unsigned long qubits);
    /// Throws if the available memory cannot hold a register of this size.
    void require_memory(unsigned long qubits) const;
    void flip(const QPUOp& op);
    void swap(const QPUOp& op);
    void read(const QPUOp& op);
    void free_qubits(const QPUOp& op);

    /// Throws if there is no register. Every operation on the state calls it first.
    void require_register() const;

    /// Throws if a mask of the list is outside the register.
    void require_inside(const std::vector<unsigned long>& list) const;

    /// Fills the three lists with the record's masks, followed by the pending extensions.
    void build_lists(const QPUOp& op);
    void build_lists(unsigned long target_mask, unsigned long target_offset,
                     unsigned long cond_mask, unsigned long cond_neg_mask,
                     unsigned long cond_offset);
    void append_extensions();

    /// Tests register, classical condition and controls of a gate. Returns whether the gate acts.
    /// Leaves: the lists filled, every mask inside the register.
    bool prepare_gate(const QPUOp& op);
    bool controls_hold() const;

    /// Allocates the flags that the targets take, before anything changes.
    void prepare_flags(long read_flag);
    /// Stores the values of the targets in consecutive read flags.
    void publish_targets(long read_flag);
    void report_leaked_ones(unsigned long mask, unsigned long word, unsigned long event_word,
                            const char* label);

    unsigned long num_qubits = 0;
    /// Qubit 64 w + k is bit k of word w. Empty without a register.
    std::vector<unsigned long> bit_values;
    /// Qubits whose value was last set by a read or a write and not by a gate.
    std::vector<unsigned long> settled_bits;

    // Masks of the current record, flat pairs of mask and bit offset. Members, so that a record
    // allocates nothing. Pair p of `cond_neg_list` belongs to pair p of `cond_list`.
    std::vector<unsigned long> target_list;
    std::vector<unsigned long> cond_list;
    std::vector<unsigned long> cond_neg_list;

    unsigned long open_label = 0;  ///< label at which the open jump ends, 0 if none is open
};

}  // namespace Nimbrel
