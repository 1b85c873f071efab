#include "dense/blocks/kernels/width.h"

#include "support/processor_features.h"

namespace Nimbrel {
namespace {

bool processor_has_wide_vectors() {
    const ProcessorFeatures has = this_processor();
    return has.avx512f && has.avx512dq;
}

}  // namespace

bool wide_kernels_in_use = processor_has_wide_vectors();

void use_wide_kernels(bool wide) { wide_kernels_in_use = wide && processor_has_wide_vectors(); }

}  // namespace Nimbrel
