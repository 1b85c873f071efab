#include "dense/blocks/kernels/width.h"

#include "dense/blocks/kernels/wide_gates.h"

namespace Nimbrel {
namespace {

bool& chosen() {
    static bool wide = has_wide_kernels();
    return wide;
}

}  // namespace

bool uses_wide_kernels() { return chosen(); }

void use_wide_kernels(bool wide) { chosen() = wide && has_wide_kernels(); }

}  // namespace Nimbrel
