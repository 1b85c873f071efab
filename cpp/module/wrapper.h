/// The shape that all exported functions share: parse, find the filter, check arrays, call, build.
///
/// Wrappers run on the Python thread that called them and keep the interpreter lock throughout.
#pragma once

#include "module/numpy_api.h"

#include <exception>
#include <stdexcept>

#include "filter/op_filter.h"

namespace Nimbrel::Binding {

/// Runs a wrapper's body. A failure sets RuntimeError and still returns None: the interpreter then
/// reports a SystemError with the RuntimeError attached, which front ends rely on. Exceptions that
/// are no `std::exception` are not caught.
template <typename Body>
PyObject* run_wrapper(Body&& body) {
    try {
        return body();
    } catch (const std::exception& error) {
        PyErr_SetString(PyExc_RuntimeError, error.what());
        Py_RETURN_NONE;
    }
}

/// `PyArg_ParseTuple`, throwing on a failure.
template <typename... Parsed>
void parse_arguments(PyObject* args, const char* format, Parsed*... parsed) {
    if (PyArg_ParseTuple(args, format, parsed...) == 0) {
        throw std::runtime_error("Error: argument parsing error.");
    }
}

/// The filter of a handle. Throws when there is none.
OpFilter& require_filter(unsigned int handle);

/// `None` as a new reference.
PyObject* none();

}  // namespace Nimbrel::Binding
