/// The common steps of all exported functions: parse, find the filter, check arrays, call, build.
///
/// Wrappers run on the Python thread that called them and do not release the interpreter lock.
#pragma once

#include "module/numpy_api.h"

#include <exception>
#include <stdexcept>

#include "filter/op_filter.h"
#include "module/owned_reference.h"

namespace Nimbrel::Binding {

/// Runs a wrapper's body. A `std::exception` sets RuntimeError and returns None all the same: the
/// interpreter then raises a SystemError with the RuntimeError attached, and front ends rely on
/// that. Other exceptions are not caught.
template <typename Body>
PyObject* run_wrapper(Body&& body) {
    try {
        return body();
    } catch (const std::exception& error) {
        // Made here, because without the memory for it CPython 3.10 would set a RuntimeError
        // without text.
        const OwnedReference text(PyUnicode_FromString(error.what()));
        if (text) PyErr_SetObject(PyExc_RuntimeError, text.get());
        // Without the memory for that error, the interpreter may have set another one or none.
        if (PyErr_Occurred() != PyExc_RuntimeError) return PyErr_NoMemory();
        Py_RETURN_NONE;
    }
}

/// Calls `PyArg_ParseTuple` and throws if it fails.
template <typename... Parsed>
void parse_arguments(PyObject* args, const char* format, Parsed*... parsed) {
    if (PyArg_ParseTuple(args, format, parsed...) == 0) {
        throw std::runtime_error("Error: argument parsing error.");
    }
}

/// The filter with this handle. Throws if there is none.
OpFilter& require_filter(unsigned int handle);

/// `None` as a new reference.
PyObject* none();

}  // namespace Nimbrel::Binding
