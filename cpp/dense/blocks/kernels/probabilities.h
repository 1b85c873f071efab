/// Sums of probabilities over the slots of a block, and the draw of a slot from them.
///
/// Each sum adds the slots in ascending order, squared real parts in one lane and squared imaginary
/// parts in the other. The order is part of the result. Pure functions of their arguments.
#pragma once

#include "support/complex.h"

namespace Nimbrel {

/// Sums over all slots, and over the slots with one bit clear or set.
struct SplitProbability {
    double total;
    double clear;
    double set;
};

/// The sum over the slots that agree with `value` on `mask`. A positive `limit` ends the sum as
/// soon as it is reached. Squares are fused into the sum when there is a mask.
double sum_probabilities(const complex_t* data, unsigned long n, unsigned long mask,
                         unsigned long value, double limit);

/// The three sums in one pass; each has the bits of a separate sum. Requires: `bit` below `n`.
SplitProbability split_probabilities(const complex_t* data, unsigned long n, unsigned long bit);

/// The first slot, not zero in all bits, at which the running sum reaches `target`; the last slot
/// when it does not reach it.
unsigned long find_slot(const complex_t* data, unsigned long n, double target);

}  // namespace Nimbrel
