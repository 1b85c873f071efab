/// The interpreter of the boundary's target, with the engine's module compiled in.
#pragma once

#define PY_SSIZE_T_CLEAN
#include <Python.h>

#include <memory>

namespace Nimbrel::Fuzzing {

struct ReleaseReference {
    void operator()(PyObject* object) const { Py_XDECREF(object); }
};

/// Owns a reference.
using Object = std::unique_ptr<PyObject, ReleaseReference>;

/// The engine's module. Starts the interpreter when first called; ends the process if it cannot.
PyObject* engine_module();

}  // namespace Nimbrel::Fuzzing
