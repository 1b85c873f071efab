/// NumPy arrays of every shape that a caller may bring, from the bytes of an input.
#pragma once

#include "embedded_python.h"

#include "record_decoder.h"

namespace Nimbrel::Fuzzing {

/// NumPy's functions for this file's users. Requires: the interpreter has started.
void load_numpy();

/// An array of any type, length, stride, alignment and writability. It views memory that ends with
/// its last element.
Object decode_array(ByteReader& in);

/// A contiguous array of complex numbers, as most calls need it.
Object decode_amplitude_array(ByteReader& in);

/// Records in one of the layouts that the engine takes, sometimes with a wrong one.
Object decode_record_array(ByteReader& in, const RecordShape& shape);

/// Length of the first dimension.
Py_ssize_t first_length(PyObject* array);

}  // namespace Nimbrel::Fuzzing
