#include "module/arrays.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>

namespace Nimbrel::Binding {
namespace {

bool is_complex(PyArrayObject* array) { return PyTypeNum_ISCOMPLEX(PyArray_TYPE(array)); }

bool is_writable(PyArrayObject* array) { return PyArray_ISWRITEABLE(array) != 0; }

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

/// Number of contiguous elements of `size` bytes in the array's own memory.
unsigned long elements_in(PyArrayObject* array, unsigned long size) {
    return std::min(array_length(array), bytes_from_data(array) / size);
}

void require_length(const char* operation, const char* elements, unsigned long needed,
                    unsigned long given) {
    if (given >= needed) return;
    throw std::runtime_error(std::string("Error: ") + operation + "() needs an array of " +
                             std::to_string(needed) + " " + elements + ", but was given " +
                             std::to_string(given) + ".");
}

void require_alignment(const char* operation, unsigned long alignment, const void* data) {
    if (reinterpret_cast<std::uintptr_t>(data) % alignment == 0) return;
    throw std::runtime_error(std::string("Error: ") + operation +
                             "() needs a buffer that begins at a multiple of " +
                             std::to_string(alignment) + " bytes.");
}

void require_writable(const char* operation, bool needed, bool writable) {
    if (writable || !needed) return;
    throw std::runtime_error(std::string("Error: ") + operation +
                             "() needs an array that it may write to.");
}

[[noreturn]] void refuse_records(const std::string& found) {
    throw std::runtime_error("Error: put_instructions needs contiguous records of " +
                             std::to_string(sizeof(QPUOp)) + " bytes" + found);
}

void require_contiguous_records(PyArrayObject* array) {
    const unsigned long count = array_length(array);
    const unsigned long needed = count * sizeof(QPUOp);
    const auto found = static_cast<unsigned long>(PyArray_NBYTES(array));
    if (found != needed) {
        refuse_records(": " + std::to_string(count) + " records need " + std::to_string(needed) +
                       " bytes, but the array holds " + std::to_string(found) + ".");
    }
    if (PyArray_IS_C_CONTIGUOUS(array) == 0) {
        refuse_records(", but the array's are " + std::to_string(PyArray_STRIDE(array, 0)) +
                       " bytes apart.");
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
    return {static_cast<complex_t*>(PyArray_DATA(array)), elements_in(array, sizeof(complex_t)),
            is_writable(array)};
}

Indices require_indices(PyArrayObject* array, const char* refusal) {
    if (is_complex(array) || !has_first_stride(array, sizeof(unsigned long))) {
        throw std::runtime_error(refusal);
    }
    return {static_cast<unsigned long*>(PyArray_DATA(array)),
            elements_in(array, sizeof(unsigned long)), is_writable(array)};
}

void require_needs(const char* operation, const ArrayNeeds& needs, const Amplitudes& amplitudes) {
    require_length(operation, "amplitudes", needs.amplitudes, amplitudes.length);
    require_alignment(operation, needs.alignment, amplitudes.data);
    require_writable(operation, needs.writable, amplitudes.writable);
}

void require_needs(const char* operation, const ArrayNeeds& needs, const Indices& indices,
                   const Amplitudes& amplitudes) {
    require_length(operation, "indices", needs.indices, indices.length);
    require_needs(operation, needs, amplitudes);
    require_writable(operation, needs.writable, indices.writable);
}

Records::Records(PyArrayObject* array) : data_(static_cast<const QPUOp*>(PyArray_DATA(array))) {
    const unsigned long count = array_length(array);
    if (count == 0) return;
    require_contiguous_records(array);
    if (reinterpret_cast<std::uintptr_t>(PyArray_DATA(array)) % alignof(QPUOp) == 0) return;
    aligned_copy_.resize(count);
    std::memcpy(aligned_copy_.data(), PyArray_DATA(array), count * sizeof(QPUOp));
    data_ = aligned_copy_.data();
}

}  // namespace Nimbrel::Binding
