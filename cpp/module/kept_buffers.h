/// The arrays that filters keep their amplitudes in, kept alive while they may be in use.
#pragma once

#include "module/numpy_api.h"

namespace Nimbrel::Binding {

/// Takes a reference to the array whose memory a filter now works on, and gives back that to the
/// one before. Call it when the filter has taken the new memory, and not earlier.
void keep_buffer(unsigned long handle, PyArrayObject* buffer);

/// Gives the reference back. Call it when the filter is gone.
void drop_buffer(unsigned long handle);

}  // namespace Nimbrel::Binding
