/// The choice between the kernels of two vector widths.
#pragma once

namespace Nimbrel {

/// Whether gates use the 512-bit kernels. True from the start where the processor has them.
bool uses_wide_kernels();

/// For tests: both widths give the same bits. Has no effect where the processor has one width only.
/// Requires: no gate is at work.
void use_wide_kernels(bool wide);

}  // namespace Nimbrel
