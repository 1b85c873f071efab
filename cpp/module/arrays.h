/// NumPy arrays as plain memory: the checks that stand between a caller's array and the engine.
#pragma once

#include "module/numpy_api.h"

#include <vector>

#include "filter/op_filter.h"
#include "filter/qpu_op.h"
#include "support/complex.h"

namespace Nimbrel::Binding {

/// Length of the first dimension, 0 for an array without dimensions.
unsigned long array_length(PyArrayObject* array);

/// A caller's array of amplitudes.
struct Amplitudes {
    complex_t* data;
    unsigned long length;  ///< amplitudes that lie in the array's own memory, from `data` on
    bool writable;
};

/// A caller's array of term indices; the fields as above.
struct Indices {
    unsigned long* data;
    unsigned long length;
    bool writable;
};

/// An array whose type is complex and whose first stride is one amplitude. Throws `refusal` for any
/// other. Only these two things are looked at, so the type may be a narrower complex one: `length`
/// then tells how much memory there really is.
Amplitudes require_amplitudes(PyArrayObject* array, const char* refusal);

/// An array whose type is not complex and whose first stride is 8 bytes. Throws `refusal` for any
/// other.
Indices require_indices(PyArrayObject* array, const char* refusal);

/// Tells a filter what it can know of a call's arrays in this way only, for the time of the call.
class CallerArraysScope {
  public:
    CallerArraysScope(OpFilter& filter, const CallerArrays& arrays) : filter_(filter) {
        filter_.caller_arrays = arrays;
    }
    ~CallerArraysScope() { filter_.caller_arrays = {}; }
    CallerArraysScope(const CallerArraysScope&) = delete;
    CallerArraysScope& operator=(const CallerArraysScope&) = delete;

  private:
    OpFilter& filter_;
};

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
