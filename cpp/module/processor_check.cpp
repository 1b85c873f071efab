#include "module/processor_check.h"

#define PY_SSIZE_T_CLEAN
#include <Python.h>

#include "support/processor_features.h"

// Compiled without the instruction sets that it tests for. It calls no inline function that another
// source may use, because the linker keeps one copy of such a function and that copy may need them.

namespace Nimbrel::Binding {

bool require_processor() {
    const ProcessorFeatures has = this_processor();
    if (has.avx && has.fma && has.popcnt) return true;

    PyErr_Format(PyExc_ImportError,
                 "_lib_nb_sim needs a processor with AVX, FMA and POPCNT; this one is without"
                 "%s%s%s",
                 has.avx ? "" : " AVX", has.fma ? "" : " FMA", has.popcnt ? "" : " POPCNT");
    return false;
}

}  // namespace Nimbrel::Binding
