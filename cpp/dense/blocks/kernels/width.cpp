#include "dense/blocks/kernels/width.h"

namespace Nimbrel {
namespace {

bool processor_has_wide_vectors() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx512f") != 0 && __builtin_cpu_supports("avx512dq") != 0;
}

}  // namespace

bool wide_kernels_in_use = processor_has_wide_vectors();

void use_wide_kernels(bool wide) { wide_kernels_in_use = wide && processor_has_wide_vectors(); }

}  // namespace Nimbrel
