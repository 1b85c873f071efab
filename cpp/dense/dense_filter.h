/// "StreamQPU": the dense state-vector simulator.
#pragma once

#include <string>

#include "filter/op_filter.h"

namespace Nimbrel {

/// Turns each record into one call of the register and hands the state operations on to it. All
/// state but the open jump lies in the register.
///
/// The register does not check the caller's arrays, so this class tells what they need. Runs on the
/// caller's thread.
class OpFilter_QPUSim : public OpFilter, private ArrayRules {
  public:
    OpFilter_QPUSim();
    ~OpFilter_QPUSim() override = default;

    void put_instructions(const QPUOp* ops, unsigned long num_ops) override;

    /// `info` stays as it is.
    void pull_state(complex_t* dest, std::string& info, unsigned long num_terms) override;
    void pull_state_specific(std::string& info, complex_t* dest, unsigned long num_terms,
                             unsigned long selector) override;
    void push_state(const complex_t* src, unsigned long selector, unsigned long num_terms) override;

    /// Resets the register onto the caller's memory of 2^`num_qubits` amplitudes, whose contents
    /// become the state.
    void override_state_buffer(complex_t* buffer, unsigned long num_qubits) override;

    /// Throws for an empty mask; so does `postselect`.
    double peek_read_probability(unsigned long value, unsigned long mask, double limit) override;
    void postselect(unsigned long value, unsigned long mask) override;
    double normalize() override;
    int check_state(const complex_t* expected, double tolerance, bool flag) const override;
    double pps(unsigned long x_mask, unsigned long z_mask) override;
    void peek_n_biggest_terms(unsigned long count, unsigned long* indices,
                              complex_t* amplitudes) override;
    void peek_value(unsigned long index, complex_t* dest) override;

    void finish() override;
    void set_random() override;

  private:
    ArrayNeeds pull_state_needs(unsigned long length) const override;
    ArrayNeeds pull_state_specific_needs(unsigned long selector,
                                         unsigned long length) const override;
    ArrayNeeds push_state_needs(unsigned long selector) const override;
    ArrayNeeds check_state_needs(const complex_t* expected, unsigned long length,
                                 double tolerance) const override;
    ArrayNeeds override_state_buffer_needs(unsigned long num_qubits) const override;
    ArrayNeeds peek_n_biggest_terms_needs(unsigned long count) const override;
    ArrayNeeds peek_value_needs() const override;

    void dispatch(const QPUOp& op);
    void free_qubits(const QPUOp& op);

    unsigned long open_label = 0;  ///< label that an open jump looks for, 0 for none
};

}  // namespace Nimbrel
