/// NumPy arrays as plain memory: the checks that every array of a caller must pass before the
/// engine may use it.
///
/// Called by the wrappers on the Python thread that holds the interpreter lock.
#pragma once

#include "module/numpy_api.h"

#include <vector>

#include "filter/array_needs.h"
#include "filter/qpu_op.h"

namespace Nimbrel::Binding {

/// Length of the first dimension, 0 for an array without dimensions.
unsigned long array_length(PyArrayObject* array);

/// A caller's array of amplitudes.
struct Amplitudes {
    complex_t* data;
    unsigned long length;  ///< amplitudes in the array's own memory, counted from `data`
    bool writable;
};

/// A caller's array of term indices; the fields as above.
struct Indices {
    unsigned long* data;
    unsigned long length;
    bool writable;
};

/// Returns the memory of an array whose type is complex and whose first stride is one amplitude.
/// Throws `refusal` for any other array. The type may be a narrower complex type, because only its
/// kind and the stride are compared; `length` counts the memory that exists.
Amplitudes require_amplitudes(PyArrayObject* array, const char* refusal);

/// Returns the memory of an array whose type is not complex and whose first stride is 8 bytes.
/// Throws `refusal` for any other array.
Indices require_indices(PyArrayObject* array, const char* refusal);

/// Throws unless the array meets the needs of the filter's operation.
void require_needs(const char* operation, const ArrayNeeds& needs, const Amplitudes& amplitudes);

/// Throws unless both arrays meet the needs. Checks the length of the indices first.
void require_needs(const char* operation, const ArrayNeeds& needs, const Indices& indices,
                   const Amplitudes& amplitudes);

/// A caller's array of records, of any dtype.
///
/// Refers to the caller's memory, or to a copy if that memory is not aligned. Throws unless the
/// records are contiguous.
class Records {
  public:
    explicit Records(PyArrayObject* array);
    const QPUOp* data() const { return data_; }

  private:
    const QPUOp* data_;
    std::vector<QPUOp> aligned_copy_;
};

}  // namespace Nimbrel::Binding
