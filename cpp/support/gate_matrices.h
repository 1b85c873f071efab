/// Matrices of the single-qubit gates that the dense register and the sparse filter apply by
/// matrix.
///
/// Tests compare results bit for bit, so the sign of each zero counts. Pure data and functions,
/// callable from any thread.
#pragma once

#include <array>

#include "support/complex.h"
#include "support/sine_cosine.h"

namespace Nimbrel {

/// Row-major entries of a 2x2 matrix: m00, m01, m10, m11. A real matrix uses the real parts.
using MatrixEntries = std::array<complex_t, 4>;

inline constexpr MatrixEntries y_matrix{{{0.0, 0.0}, {0.0, -1.0}, {0.0, 1.0}, {0.0, 0.0}}};
inline constexpr MatrixEntries rootx_matrix{{{0.5, 0.5}, {0.5, -0.5}, {0.5, -0.5}, {0.5, 0.5}}};
inline constexpr MatrixEntries rootx_inv_matrix{{{0.5, -0.5}, {0.5, 0.5}, {0.5, 0.5}, {0.5, -0.5}}};
inline constexpr MatrixEntries rooty_matrix{{{0.5, 0.5}, {-0.5, -0.5}, {0.5, 0.5}, {0.5, 0.5}}};
inline constexpr MatrixEntries rooty_inv_matrix{
    {{0.5, -0.5}, {0.5, -0.5}, {-0.5, 0.5}, {0.5, -0.5}}};

/// Rotation about X, from sine and cosine of half its angle.
constexpr MatrixEntries rx_matrix(SineCosine half) {
    return {{{half.cosine, 0.0}, {0.0, -half.sine}, {0.0, -half.sine}, {half.cosine, 0.0}}};
}

/// Rotation about Z, from sine and cosine of half its angle.
constexpr MatrixEntries rz_matrix(SineCosine half) {
    return {{{half.cosine, -half.sine}, {0.0, 0.0}, {0.0, 0.0}, {half.cosine, half.sine}}};
}

}  // namespace Nimbrel
