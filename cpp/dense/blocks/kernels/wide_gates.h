/// The gate kernels for processors with AVX-512: the same bits as the others, four amplitudes at a
/// time. For cpp/dense/blocks/kernels only, which chooses between the two.
///
/// The source files are compiled for AVX-512, and the linker keeps one copy of an inline function
/// that several files use. So these files define none: their helpers have internal linkage, and the
/// functions here take plain data.
#pragma once

#include "support/complex.h"

namespace Nimbrel {

/// A gate on `n` slots: the pairs (i, i + `target`) of `lower`, or for a target of 0 the pairs of
/// slot i of `lower` and slot i of `upper`. Slots qualify when slot & mask == pattern, x deciding
/// for its pair.
struct WidePairs {
    complex_t* lower;
    complex_t* upper;
    unsigned long n;  ///< a power of two, 8 or more
    unsigned long target;
    unsigned long mask;     ///< inside n, without the target
    unsigned long pattern;  ///< inside the mask
};

void exchange_wide(const WidePairs& pairs);
// These return whether any pair was not zero in all bits. `matrix` has four entries.
bool apply_complex_wide(const WidePairs& pairs, const complex_t* matrix);
bool apply_diagonal_wide(const WidePairs& pairs, const complex_t* matrix);
bool apply_crossed_wide(const WidePairs& pairs, const complex_t* matrix);
bool apply_real_wide(const WidePairs& pairs, const complex_t* matrix);

/// Diagonal kernels on the qualifying slots of `lower`; `upper` and `target` are not used.
void multiply_wide(const WidePairs& slots, complex_t factor);
void flip_signs_wide(const WidePairs& slots);

/// cos(t) - i sin(t) P on a block, or on two blocks, with P taking slot i ^ `x_mask` to slot i.
struct WideProduct {
    complex_t* here;
    complex_t* there;  ///< null when P stays in one block
    unsigned long n;   ///< a power of two, 8 or more
    unsigned long x_mask;
    unsigned long z_mask;
    bool odd_here;  ///< the sign that all slots of the block have in common
    bool odd_there;
    unsigned phase;  ///< power of -i
    double sine;
    double cosine;
    unsigned long mask;  ///< controls, none in the X mask
    unsigned long pattern;
};

void rotate_product_wide(const WideProduct& product);

}  // namespace Nimbrel
