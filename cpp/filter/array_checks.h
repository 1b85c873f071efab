/// Refusals of caller's arrays that an operation would write or read past; each throws before
/// anything has changed.
#pragma once

#include "filter/op_filter.h"

namespace Nimbrel {

/// Throws unless an array of `elements` ("amplitudes", "indices") holds at least `needed` of them.
void require_length(const char* operation, const char* elements, unsigned long needed,
                    unsigned long given);

/// The same for an array of amplitudes.
void require_amplitudes(const char* operation, unsigned long needed, unsigned long given);

/// Throws for an array that the caller may only read.
void require_writable(const char* operation, const CallerArrays& arrays);

/// Throws unless the arrays of `peek_n_biggest_terms` hold `count` entries and may be written.
void require_biggest_arrays(unsigned long count, const CallerArrays& arrays);

/// Throws unless the array of `peek_value` holds an amplitude and may be written.
void require_peek_array(const CallerArrays& arrays);

}  // namespace Nimbrel
