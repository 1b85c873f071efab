/// What an operation needs of the arrays that its caller brings.
///
/// The binding asks the filter before each call that brings an array, and refuses an array that has
/// less. The filter operations themselves check no array: other callers must meet the needs.
#pragma once

#include "support/complex.h"

namespace Nimbrel {

/// The least that the arrays of one call must have.
struct ArrayNeeds {
    unsigned long amplitudes = 0;  ///< number of amplitudes
    unsigned long indices = 0;     ///< number of term indices
    unsigned long alignment = 1;   ///< the address must be a multiple of this, in bytes
    bool writable = false;

    bool operator==(const ArrayNeeds&) const = default;
};

/// The needs of a filter's operations, one question for each operation that takes an array.
///
/// Each question throws first if the operation would throw because there is no register, so that a
/// missing register is reported before a short array. The default answer is that the operation
/// needs nothing of the array.
///
/// `length` is the number of amplitudes in the caller's array. A filter may compare it with an
/// upper bound and save the walk over its state: the answer is exact only if it is above `length`.
class ArrayRules {
  public:
    virtual ArrayNeeds pull_state_needs(unsigned long length) const;
    virtual ArrayNeeds pull_state_specific_needs(unsigned long selector,
                                                 unsigned long length) const;
    virtual ArrayNeeds push_state_needs(unsigned long selector) const;
    virtual ArrayNeeds check_state_needs(const complex_t* expected, unsigned long length,
                                         double tolerance) const;
    virtual ArrayNeeds override_state_buffer_needs(unsigned long num_qubits) const;
    virtual ArrayNeeds peek_n_biggest_terms_needs(unsigned long count) const;
    virtual ArrayNeeds peek_value_needs() const;

  protected:
    ~ArrayRules() = default;
};

/// The rules of a filter whose operations use no array.
const ArrayRules& no_array_rules();

}  // namespace Nimbrel
