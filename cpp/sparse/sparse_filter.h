/// "StreamSparseQPU": a state-vector simulator that stores the terms of the state one by one.
#pragma once

#include <string>

#include "filter/op_filter.h"
#include "sparse/term.h"
#include "support/gate_matrices.h"
#include "support/sine_cosine.h"

namespace Nimbrel {

/// Holds a state on up to 63 qubits as a list of terms and costs what the list is long.
///
/// The order of the list is part of what can be observed: samples, partial sums and ties go by it.
/// A gate that mixes pairs of terms leaves the list in order of its marked keys, with the terms
/// that it adds behind them; every other operation keeps the order. No gate removes a term, and a
/// term whose amplitude has become 0 is kept and counted.
///
/// Masks are 64 bits wide; bits outside the register have no effect. Angles are in degrees. The
/// memory of the longest list so far, and as much again for ordering it, is kept until the filter
/// ends. Everything runs on the caller's thread.
class OpFilter_SparseSVSim : public OpFilter, private ArrayRules {
  public:
    OpFilter_SparseSVSim();
    ~OpFilter_SparseSVSim() override = default;

    void put_instructions(const QPUOp* ops, unsigned long num_ops) override;

    /// Writes each term at its index, zeros elsewhere; `length` 0 leaves the rest as it is.
    void pull_state(complex_t* dest, std::string& info, unsigned long length) override;

    /// The amplitudes of the qubits in `mask`, packed, for that setting of all other qubits which
    /// the largest term has; the first of equals counts. Not normalised.
    void pull_state_specific(std::string& message, complex_t* dest, unsigned long length,
                             unsigned long mask) override;

    /// Replaces the list by the amplitudes in order of their index, without those whose squared
    /// magnitude is below `prune_threshold`. Throws for a `mask`.
    void push_state(const complex_t* source, unsigned long mask, unsigned long length) override;

    /// 1 if every stored term is within `tolerance` of `expected` in both parts. Entries of
    /// `expected` that have no term are not looked at.
    int check_state(const complex_t* expected, double tolerance, bool flag) const override;

    unsigned long peek_num_nonzero_terms() override;
    void peek_value(unsigned long index, complex_t* dest) override;
    void peek_n_biggest_terms(unsigned long count, unsigned long* indices,
                              complex_t* amplitudes) override;
    double peek_read_probability(unsigned long value, unsigned long mask, double limit) override;
    void postselect(unsigned long value, unsigned long mask) override;
    double normalize() override;
    double pps(unsigned long x_mask, unsigned long z_mask) override;
    void finish() override;

    // What records and products of gates are made of. Each asks `cond_flag` first.
    void apply_phase(double angle, unsigned long target_mask, unsigned long cond_mask,
                     unsigned long cond_neg_mask, long cond_flag);
    void apply_hadamard(unsigned long target_mask, unsigned long cond_mask,
                        unsigned long cond_neg_mask, long cond_flag);
    /// `m` is m00, m01, m10, m11.
    void apply_matrix(const complex_t m[4], unsigned long target_mask, unsigned long cond_mask,
                      unsigned long cond_neg_mask, long cond_flag);

    /// Measures the targets and flips them to `value`; stores the measured bits from `read_flag`
    /// on. A write of the whole register replaces the state, with no draw and no flags.
    void apply_write(unsigned long value, unsigned long target_mask, long cond_flag,
                     long read_flag);

    /// Measures a Pauli product by turning it into one Z. A `sign` of -1 inverts the outcome. The
    /// masks lie inside the register.
    unsigned long ppm_as_gates(int sign, unsigned long x_mask, unsigned long z_mask);

    unsigned long num_qubits = 0;
    unsigned long qubit_mask = 0;
    double prune_threshold = 0.0;  ///< squared magnitude; no gate asks for it
    unsigned long index_bits = 0;  ///< bits that may be set in the index of a term
    unsigned long open_label = 0;  ///< label that an open jump looks for, 0 for none
    TermList terms;

  private:
    ArrayNeeds pull_state_needs(unsigned long length) const override;
    ArrayNeeds pull_state_specific_needs(unsigned long selector,
                                         unsigned long length) const override;
    ArrayNeeds check_state_needs(const complex_t* expected, unsigned long length,
                                 double tolerance) const override;
    ArrayNeeds peek_n_biggest_terms_needs(unsigned long count) const override;
    ArrayNeeds peek_value_needs() const override;
    /// Number of amplitudes in an array with a place for every stored term; may be more if an array
    /// of that `length` is given.
    unsigned long terms_spanned(unsigned long length) const;

    void dispatch(const QPUOp& op);
    void reset(unsigned long qubits);

    /// The qubits of a mask that the register has, as bits of a key.
    unsigned long key_bits(unsigned long mask) const { return (mask & qubit_mask) * 2; }
    KeyPattern condition_of(unsigned long cond_mask, unsigned long cond_neg_mask) const {
        return KeyPattern::condition(key_bits(cond_mask), key_bits(cond_neg_mask));
    }

    void flip(const QPUOp& op);
    void swap(const QPUOp& op);

    /// Calls `walk(pattern)` for each target of a diagonal gate, lowest first. Without a target the
    /// lowest condition takes its place.
    template <typename Walk>
    void for_each_phase_target(unsigned long target_mask, unsigned long cond_mask,
                               unsigned long cond_neg_mask, Walk&& walk) const;
    void negate_terms(const QPUOp& op);
    void multiply_terms(complex_t factor, const QPUOp& op);
    void multiply_terms(complex_t factor, unsigned long target_mask, unsigned long cond_mask,
                        unsigned long cond_neg_mask);

    /// The pair walk of one gate over all its targets, lowest first.
    template <typename Gate>
    void mix_pairs(const Gate& gate, unsigned long target_mask, unsigned long cond_mask,
                   unsigned long cond_neg_mask);
    void apply_matrix(const GateMatrix& m, const QPUOp& op);
    void rotate_x(const QPUOp& op);
    void rotate_y(const QPUOp& op);
    void rotate_z(const QPUOp& op);

    void rotate_pauli_product(const QPUOp& op);
    void measure_pauli_product(const QPUOp& op);

    /// Draws a term by its probability and gives its bits on `targets`.
    unsigned long sample(unsigned long targets) const;
    /// Samples the targets and projects the state on the outcome.
    unsigned long measure(unsigned long targets);
    void read(const QPUOp& op);
    void clear(unsigned long target_mask, long cond_flag);
    void store_flags(long first_flag, unsigned long targets, unsigned long values);
    void replace_by(unsigned long index);

    TermList sort_space;  ///< scratch of pair walks, kept for its storage
    SineCosineMemo turns;
};

}  // namespace Nimbrel
