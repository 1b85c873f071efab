/// The choice between the kernels of two vector widths. Both give the same bits.
#pragma once

namespace Nimbrel {

/// Pieces of the state below this size are left to the narrow kernels, which begin sooner.
inline constexpr unsigned long fewest_wide_slots = 128;

/// Whether gates use the 512-bit kernels. True from the start where the processor has them. For
/// the kernels to read.
extern bool wide_kernels_in_use;

/// For tests. Has no effect where the processor has one width only.
/// Requires: no gate is at work.
void use_wide_kernels(bool wide);

}  // namespace Nimbrel
