/// References to the caller's arrays that filters use as state buffers.
///
/// Called by the wrappers on the Python thread that holds the interpreter lock.
#pragma once

#include "module/numpy_api.h"

namespace Nimbrel::Binding {

/// Allocates what `hold_buffer` needs, so that it cannot fail once the filter uses the memory.
void prepare_to_hold_buffer(unsigned long handle);

/// Takes a reference to the array that a filter now uses and releases the filter's former one.
/// Requires: `prepare_to_hold_buffer` was called; the filter uses the new memory already.
void hold_buffer(unsigned long handle, PyArrayObject* buffer);

/// Releases the filter's reference. Requires: the filter is deleted.
void release_buffer(unsigned long handle);

}  // namespace Nimbrel::Binding
