/// Python and NumPy as the binding sees them. Every source of the module includes this header
/// first; the one that binds the table defines NIMBREL_BINDS_NUMPY before it.
#pragma once

#define PY_SSIZE_T_CLEAN
#include <Python.h>

// One table for the whole module, set by the entry function.
#define PY_ARRAY_UNIQUE_SYMBOL nimbrel_numpy_api
#ifndef NIMBREL_BINDS_NUMPY
#define NO_IMPORT_ARRAY
#endif
#define NPY_NO_DEPRECATED_API NPY_1_25_API_VERSION
// NumPy's import code then asks for 1.25 or newer, and one build serves NumPy 1 and 2.
#define NPY_TARGET_VERSION NPY_1_25_API_VERSION
#include <numpy/arrayobject.h>
