#include "module/processor_check.h"

#define PY_SSIZE_T_CLEAN
#include <Python.h>

// Compiled without the instruction sets that it tests for. It calls no inline function that another
// source may use, because the linker keeps one copy of such a function and that copy may need them.

namespace Nimbrel::Binding {

bool require_processor() {
    const bool has_avx = __builtin_cpu_supports("avx") != 0;
    const bool has_fma = __builtin_cpu_supports("fma") != 0;
    const bool has_popcnt = __builtin_cpu_supports("popcnt") != 0;
    if (has_avx && has_fma && has_popcnt) return true;

    PyErr_Format(PyExc_ImportError,
                 "_lib_nb_sim needs a processor with AVX, FMA and POPCNT; this one is without"
                 "%s%s%s",
                 has_avx ? "" : " AVX", has_fma ? "" : " FMA", has_popcnt ? "" : " POPCNT");
    return false;
}

}  // namespace Nimbrel::Binding
