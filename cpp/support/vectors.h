/// The one place that chooses between the vector types for AVX and those for any processor.
///
/// Both give the same bits, except for the signs of not-a-numbers. CMake's NIMBREL_VECTORS decides,
/// because a library must not hold both: they have the same names.
#pragma once

#ifdef NIMBREL_PLAIN_VECTORS
#include "support/plain_amplitudes.h"
#include "support/plain_words.h"
#else
#include "support/avx_amplitudes.h"
#include "support/avx_words.h"
#endif
