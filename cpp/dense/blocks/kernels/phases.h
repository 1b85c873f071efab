/// The diagonal kernels on the slots that meet a condition. Pure functions of their arguments.
#pragma once

#include "dense/blocks/kernels/slot_condition.h"
#include "support/complex.h"

namespace Nimbrel {

/// Multiplies the qualifying amplitudes by `factor`.
void multiply_slots(complex_t* data, unsigned long n, SlotCondition controls, complex_t factor);

/// Flips both signs of the qualifying amplitudes, also of zeros.
void flip_slot_signs(complex_t* data, unsigned long n, SlotCondition controls);

}  // namespace Nimbrel
