/// NumPy arrays as plain memory: the checks that stand between a caller's array and the engine.
#pragma once

#include "module/numpy_api.h"

#include <vector>

#include "filter/qpu_op.h"
#include "support/complex.h"

namespace Nimbrel::Binding {

/// Length of the first dimension, 0 for an array without dimensions.
unsigned long array_length(PyArrayObject* array);

/// A caller's array of amplitudes.
struct Amplitudes {
    complex_t* data;
    unsigned long length;  ///< amplitudes that lie in the array's own memory, from `data` on
};

/// An array whose type is complex and whose first stride is one amplitude. Throws `refusal` for any
/// other. Only these two things are looked at, so the type may be a narrower complex one: `length`
/// then tells how much memory there really is.
Amplitudes require_amplitudes(PyArrayObject* array, const char* refusal);

/// The memory of an array of 64-bit numbers that are not complex, for `peek_n_biggest_terms`.
/// Throws `refusal` for any other.
unsigned long* require_indices(PyArrayObject* array, const char* refusal);

/// A caller's array of records, readable as such whatever its dtype.
///
/// The caller's memory is used as it stands where its alignment allows; where not, the records are
/// copied. Throws when the records do not lie back to back.
class Records {
  public:
    explicit Records(PyArrayObject* array);
    const QPUOp* data() const { return data_; }

  private:
    const QPUOp* data_;
    std::vector<QPUOp> aligned_copy_;
};

}  // namespace Nimbrel::Binding
