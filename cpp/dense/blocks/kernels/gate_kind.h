/// The kinds of gates, each with a kernel. Any thread.
#pragma once

namespace Nimbrel {

enum class GateKind {
    exchange,           ///< NOT and CNOT
    compared_exchange,  ///< NOT without controls that reports whether any pair differed; slower
    hadamard,
    complex_matrix,   ///< any complex 2x2 matrix
    diagonal_matrix,  ///< complex, zeros off the diagonal: rotations about Z
    crossed_matrix,   ///< complex, real diagonal, imaginary off the diagonal: rotations about X, Y
    real_matrix,      ///< any real 2x2 matrix
    phase,            ///< multiplies the amplitudes that meet the controls by entry 3 of the matrix
    sign_flip,        ///< Z: flips the signs of the amplitudes that meet the controls
};

}  // namespace Nimbrel
