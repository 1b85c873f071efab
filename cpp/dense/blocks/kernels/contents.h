/// Clearing, filling and scaling the slots of a block. The caller owns the amplitudes for the call.
#pragma once

#include "support/complex.h"

namespace Nimbrel {

void clear_slots(complex_t* data, unsigned long n);

/// Clears the slots with slot & mask != value. Returns whether there was any.
bool clear_other_slots(complex_t* data, unsigned long n, unsigned long mask, unsigned long value);

/// Clears the slots with any bit of `mask` set. Returns whether there was any.
bool clear_masked_slots(complex_t* data, unsigned long n, unsigned long mask);

/// Multiplies both parts of each amplitude that is not zero in all bits.
void scale_slots(complex_t* data, unsigned long n, double factor);

/// Draws each imaginary part and then the real part. Not thread-safe: the generator has no lock.
void fill_slots_at_random(complex_t* data, unsigned long n);

}  // namespace Nimbrel
