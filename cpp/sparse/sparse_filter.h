/// "StreamSparseQPU", the sparse state-vector simulator: a filter whose state is a list of terms.
///
/// Everything runs on the caller's thread. Nothing here is thread-safe.
#pragma once

#include <string>

#include "filter/op_filter.h"
#include "sparse/term.h"
#include "support/gate_matrices.h"
#include "support/sine_cosine.h"

namespace Nimbrel {

/// Simulates up to 63 qubits. Time and memory grow with the number of stored terms.
///
/// The order of the list is observable: it decides samples, the rounding of sums, sums that end at
/// a limit, and ties between terms of equal size. A gate on pairs of terms sorts the list by its
/// marked keys and appends the terms that it creates. All other operations keep the order. No gate
/// removes a term: a term whose amplitude becomes 0 stays in the list and is counted.
///
/// Masks have 64 bits; bits outside the register have no effect. Angles are in degrees. The filter
/// keeps the memory of its longest list, and of a scratch list, until it is destroyed.
class OpFilter_SparseSVSim : public OpFilter, private ArrayRules {
  public:
    OpFilter_SparseSVSim();
    ~OpFilter_SparseSVSim() override = default;

    void put_instructions(const QPUOp* ops, unsigned long num_ops) override;

    /// Sets the first `length` amplitudes of `dest` to 0, then writes each stored term at its
    /// index.
    void pull_state(complex_t* dest, std::string& info, unsigned long length) override;

    /// Writes the amplitudes of the qubits in `mask`, for the values that the other qubits have in
    /// the largest term (the first in the list among equally large ones). The index in `dest` is
    /// made of the masked bits, packed. The amplitudes are not normalised.
    void pull_state_specific(std::string& message, complex_t* dest, unsigned long length,
                             unsigned long mask) override;

    /// Replaces the list by the amplitudes of `source`, in order of their index. Amplitudes of zero
    /// bits and those whose squared magnitude is below `prune_threshold` are not stored.
    /// Throws if `mask` is not 0.
    void push_state(const complex_t* source, unsigned long mask, unsigned long length) override;

    /// Returns 1 if the real and imaginary part of every stored term differ from `expected` by at
    /// most `tolerance`, else 0. Entries of `expected` without a stored term are not compared.
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

    // Gates of which records and Pauli products consist. A gate does nothing if the classical
    // condition `cond_flag` fails.
    void apply_phase(double angle, unsigned long target_mask, unsigned long cond_mask,
                     unsigned long cond_neg_mask, long cond_flag);
    void apply_hadamard(unsigned long target_mask, unsigned long cond_mask,
                        unsigned long cond_neg_mask, long cond_flag);
    /// `m` is the matrix m00, m01, m10, m11.
    void apply_matrix(const complex_t m[4], unsigned long target_mask, unsigned long cond_mask,
                      unsigned long cond_neg_mask, long cond_flag);

    /// Measures the targets, stores the outcomes in the read flags from `read_flag` on and flips
    /// the targets to `value`. If the targets are the whole register, the state is replaced by the
    /// basis state `value`; nothing is drawn and no flag is stored.
    void apply_write(unsigned long value, unsigned long target_mask, long cond_flag,
                     long read_flag);

    /// Measures a Pauli product and returns the outcome, 0 or 1. A `sign` of -1 inverts it.
    /// Requires: the masks lie inside the register.
    unsigned long ppm_as_gates(int sign, unsigned long x_mask, unsigned long z_mask);

    unsigned long num_qubits = 0;
    unsigned long qubit_mask = 0;
    double prune_threshold = 0.0;  ///< squared magnitude; used by `push_state` only
    unsigned long index_bits = 0;  ///< bits that may be 1 in the index of a stored term
    unsigned long open_label = 0;  ///< label at which an open jump ends, 0 if no jump is open
    TermList terms;

  private:
    ArrayNeeds pull_state_needs(unsigned long length) const override;
    ArrayNeeds pull_state_specific_needs(unsigned long selector,
                                         unsigned long length) const override;
    ArrayNeeds check_state_needs(const complex_t* expected, unsigned long length,
                                 double tolerance) const override;
    ArrayNeeds peek_n_biggest_terms_needs(unsigned long count) const override;
    ArrayNeeds peek_value_needs() const override;
    /// Number of amplitudes that an array needs to have a place for every stored term. If an array
    /// of `length` is long enough for any state, an upper bound that needs no walk over the list.
    unsigned long terms_spanned(unsigned long length) const;

    void dispatch(const QPUOp& op);
    void reset(unsigned long qubits);

    /// The bits of a mask that lie in the register, as key bits.
    unsigned long key_bits(unsigned long mask) const { return (mask & qubit_mask) * 2; }
    KeyPattern pattern_of_controls(unsigned long cond_mask, unsigned long cond_neg_mask) const {
        return KeyPattern::of_controls(key_bits(cond_mask), key_bits(cond_neg_mask));
    }

    void flip(const QPUOp& op);
    void swap(const QPUOp& op);

    /// Calls `walk(pattern)` for each target of a diagonal gate, lowest first; the pattern matches
    /// the terms that the gate changes. Without a target the lowest control is the target.
    template <typename Walk>
    void for_each_phase_target(unsigned long target_mask, unsigned long cond_mask,
                               unsigned long cond_neg_mask, Walk&& walk) const;
    void negate_terms(const QPUOp& op);
    void multiply_terms(complex_t factor, const QPUOp& op);
    void multiply_terms(complex_t factor, unsigned long target_mask, unsigned long cond_mask,
                        unsigned long cond_neg_mask);

    /// Applies a gate that mixes the two terms of a pair to each target, lowest first.
    template <typename Gate>
    void mix_pairs(const Gate& gate, unsigned long target_mask, unsigned long cond_mask,
                   unsigned long cond_neg_mask);
    void apply_matrix(const MatrixEntries& m, const QPUOp& op);
    void rotate_x(const QPUOp& op);
    void rotate_y(const QPUOp& op);
    void rotate_z(const QPUOp& op);

    void rotate_pauli_product(const QPUOp& op);
    void measure_pauli_product(const QPUOp& op);

    /// Draws a term by its probability and returns its values of the target qubits.
    unsigned long sample(unsigned long targets) const;
    /// Samples the targets, projects the state on the outcome and returns it.
    unsigned long measure(unsigned long targets);
    void read(const QPUOp& op);
    void clear(unsigned long target_mask, long cond_flag);
    /// Allocates the flags of a measurement before it changes the state.
    void prepare_flags(long first_flag, unsigned long targets);
    /// Stores the values of the target qubits in consecutive read flags.
    void store_flags(long first_flag, unsigned long targets, unsigned long values);
    /// Replaces the state by one basis state.
    void replace_by(unsigned long index);

    TermList sort_scratch;  ///< a member to keep its memory between gates
    SineCosineMemo sine_cosines;
};

}  // namespace Nimbrel
