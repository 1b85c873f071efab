#include "module/arrays.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>

namespace Nimbrel::Binding {
namespace {

bool is_complex(PyArrayObject* array) { return PyTypeNum_ISCOMPLEX(PyArray_TYPE(array)); }

bool has_first_stride(PyArrayObject* array, npy_intp stride) {
    return PyArray_NDIM(array) > 0 && PyArray_STRIDE(array, 0) == stride;
}

/// Bytes of the array's own memory from its first element upward.
unsigned long bytes_from_data(PyArrayObject* array) {
    if (PyArray_SIZE(array) == 0) return 0;
    npy_intp last_offset = 0;
    for (int axis = 0; axis < PyArray_NDIM(array); ++axis) {
        const npy_intp stride = PyArray_STRIDE(array, axis);
        last_offset += std::max<npy_intp>(0, stride) * (PyArray_DIM(array, axis) - 1);
    }
    return static_cast<unsigned long>(last_offset + PyArray_ITEMSIZE(array));
}

void require_back_to_back_records(PyArrayObject* array) {
    constexpr unsigned long record_size = sizeof(QPUOp);
    const std::string needs = "Error: put_instructions needs contiguous records of " +
                              std::to_string(record_size) + " bytes";
    const unsigned long count = array_length(array);
    const auto found = static_cast<unsigned long>(PyArray_NBYTES(array));
    if (found != count * record_size) {
        throw std::runtime_error(needs + ": " + std::to_string(count) + " records need " +
                                 std::to_string(count * record_size) +
                                 " bytes, but the array holds " + std::to_string(found) + ".");
    }
    if (PyArray_IS_C_CONTIGUOUS(array) == 0) {
        throw std::runtime_error(needs + ", but the array's are " +
                                 std::to_string(PyArray_STRIDE(array, 0)) + " bytes apart.");
    }
}

}  // namespace

unsigned long array_length(PyArrayObject* array) {
    return PyArray_NDIM(array) > 0 ? static_cast<unsigned long>(PyArray_DIM(array, 0)) : 0;
}

Amplitudes require_amplitudes(PyArrayObject* array, const char* refusal) {
    if (!is_complex(array) || !has_first_stride(array, sizeof(complex_t))) {
        throw std::runtime_error(refusal);
    }
    return {static_cast<complex_t*>(PyArray_DATA(array)),
            std::min(array_length(array), bytes_from_data(array) / sizeof(complex_t))};
}

unsigned long* require_indices(PyArrayObject* array, const char* refusal) {
    if (is_complex(array) || !has_first_stride(array, sizeof(unsigned long))) {
        throw std::runtime_error(refusal);
    }
    return static_cast<unsigned long*>(PyArray_DATA(array));
}

Records::Records(PyArrayObject* array) : data_(static_cast<const QPUOp*>(PyArray_DATA(array))) {
    const unsigned long count = array_length(array);
    if (count == 0) return;
    require_back_to_back_records(array);
    if (reinterpret_cast<std::uintptr_t>(PyArray_DATA(array)) % alignof(QPUOp) == 0) return;
    aligned_copy_.resize(count);
    std::memcpy(aligned_copy_.data(), PyArray_DATA(array), count * sizeof(QPUOp));
    data_ = aligned_copy_.data();
}

}  // namespace Nimbrel::Binding
