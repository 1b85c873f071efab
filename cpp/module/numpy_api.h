/// The headers of Python and NumPy with the settings of this module. Every source of the module
/// includes this header first. The source that imports NumPy defines NIMBREL_BINDS_NUMPY before it.
#pragma once

#define PY_SSIZE_T_CLEAN
#include <Python.h>

// NumPy's function table, one for the whole module. The entry function sets it.
#define PY_ARRAY_UNIQUE_SYMBOL nimbrel_numpy_api
#ifndef NIMBREL_BINDS_NUMPY
#define NO_IMPORT_ARRAY
#endif
#define NPY_NO_DEPRECATED_API NPY_1_25_API_VERSION
// With this target NumPy's import code requires 1.25 or newer, and one build runs on NumPy 1 and 2.
#define NPY_TARGET_VERSION NPY_1_25_API_VERSION
#include <numpy/arrayobject.h>
