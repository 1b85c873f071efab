#include "hostile_arrays.h"

#define NPY_NO_DEPRECATED_API NPY_1_25_API_VERSION
#define NPY_TARGET_VERSION NPY_1_25_API_VERSION
#include <numpy/arrayobject.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "filter_calls.h"

namespace Nimbrel::Fuzzing {
namespace {

/// Bytes of an array and where its first element lies in them.
struct Layout {
    int type;
    npy_intp dimensions[2];
    npy_intp strides[2];
    int num_dimensions;
    npy_intp offset;
    bool writable;

    npy_intp first_byte(npy_intp item) const { return extent(item, true); }
    npy_intp end_byte(npy_intp item) const { return extent(item, false); }

  private:
    /// The lowest byte, or the end, of all elements, counted from the first element.
    npy_intp extent(npy_intp item, bool lowest) const {
        npy_intp bytes = lowest ? 0 : item;
        for (int axis = 0; axis < num_dimensions; ++axis) {
            if (dimensions[axis] == 0) return 0;
            const npy_intp span = (dimensions[axis] - 1) * strides[axis];
            bytes += lowest ? std::min<npy_intp>(span, 0) : std::max<npy_intp>(span, 0);
        }
        return bytes;
    }
};

PyArrayObject* as_array(PyObject* object) { return reinterpret_cast<PyArrayObject*>(object); }

[[noreturn]] void stop() {
    PyErr_Print();
    std::abort();
}

Object bytes_array(npy_intp size) {
    PyObject* const array = PyArray_SimpleNew(1, &size, NPY_UINT8);
    if (array == nullptr) stop();
    return Object(array);
}

/// A view of new memory.
Object make_view(const Layout& layout, ByteReader& in) {
    PyArray_Descr* const type = PyArray_DescrFromType(layout.type);
    const auto item = static_cast<npy_intp>(PyDataType_ELSIZE(type));
    const npy_intp before = layout.offset - layout.first_byte(item);
    Object memory = bytes_array(before + layout.end_byte(item));
    auto* const data = static_cast<unsigned char*>(PyArray_DATA(as_array(memory.get())));
    const auto size = static_cast<std::size_t>(PyArray_NBYTES(as_array(memory.get())));
    std::memset(data, 0, size);
    const auto contents = in.bytes(std::min<std::size_t>(size, in.byte() % 32));
    if (!contents.empty()) std::memcpy(data, contents.data(), contents.size());
    PyObject* const view = PyArray_NewFromDescr(&PyArray_Type, type, layout.num_dimensions,
                                                layout.dimensions, layout.strides, data + before,
                                                layout.writable ? NPY_ARRAY_WRITEABLE : 0, nullptr);
    if (view == nullptr) stop();
    if (PyArray_SetBaseObject(as_array(view), memory.release()) != 0) stop();
    return Object(view);
}

}  // namespace

void load_numpy() {
    if (_import_array() < 0) stop();
}

Object decode_array(ByteReader& in) {
    constexpr int types[] = {NPY_CDOUBLE, NPY_CDOUBLE, NPY_CFLOAT, NPY_CLONGDOUBLE, NPY_DOUBLE,
                             NPY_UINT64,  NPY_INT64,   NPY_UINT8,  NPY_INT32,       NPY_BOOL};
    constexpr npy_intp strides[] = {16, 8, 0, -16, 32, 88, -8, 1, 4};
    Layout layout{};
    layout.type = in.one_of(types);
    const unsigned kind = in.byte();
    layout.num_dimensions = kind % 4 == 0 ? 0 : kind % 4 == 3 ? 2 : 1;
    layout.dimensions[0] = (kind & 0x10) != 0 ? in.below(20) : npy_intp{1} << in.below(6);
    layout.dimensions[1] = in.below(12);
    layout.strides[0] = in.one_of(strides);
    layout.strides[1] = in.one_of(strides);
    layout.offset = (kind & 0x20) != 0 ? in.below(16) : 0;
    layout.writable = (kind & 0x40) == 0;
    return make_view(layout, in);
}

Object decode_amplitude_array(ByteReader& in) {
    const unsigned kind = in.byte();
    const unsigned long length = (kind & 0x80) != 0 ? in.below(40) : 1UL << kind % 5;
    const std::vector<complex_t> amplitudes = decode_amplitudes(in, length);
    auto size = static_cast<npy_intp>(length);
    Object array(PyArray_SimpleNew(1, &size, NPY_CDOUBLE));
    if (!array) stop();
    if (length != 0) {
        std::memcpy(PyArray_DATA(as_array(array.get())), amplitudes.data(),
                    length * sizeof(complex_t));
    }
    return array;
}

Object decode_record_array(ByteReader& in, const RecordShape& shape) {
    const unsigned kind = in.byte();
    if (kind >= 0xF0) return decode_array(in);
    std::vector<QPUOp> records(kind % 8);
    for (QPUOp& op : records) op = decode_record(in.byte(), in, shape).op;
    // The bytes begin one further where a copy is to be made.
    const npy_intp offset = (kind & 0x40) != 0 ? 1 : 0;
    const auto count = static_cast<npy_intp>(records.size());
    const auto size = static_cast<npy_intp>(records.size() * sizeof(QPUOp));
    Object memory = bytes_array(size + offset);
    auto* const data = static_cast<unsigned char*>(PyArray_DATA(as_array(memory.get()))) + offset;
    if (size != 0) std::memcpy(data, records.data(), static_cast<std::size_t>(size));
    npy_intp dimensions[] = {count, (kind & 0x80) != 0 ? 11 : 88};
    const int type = (kind & 0x80) != 0 ? NPY_UINT64 : NPY_UINT8;
    PyObject* const view = PyArray_New(&PyArray_Type, 2, dimensions, type, nullptr, data, 0,
                                       NPY_ARRAY_WRITEABLE, nullptr);
    if (view == nullptr) stop();
    if (PyArray_SetBaseObject(as_array(view), memory.release()) != 0) stop();
    return Object(view);
}

Py_ssize_t first_length(PyObject* array) {
    if (PyArray_Check(array) == 0 || PyArray_NDIM(as_array(array)) == 0) return 0;
    return PyArray_DIM(as_array(array), 0);
}

}  // namespace Nimbrel::Fuzzing
