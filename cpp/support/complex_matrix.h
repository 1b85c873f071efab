/// Small dense complex matrices, for native callers that check matrices of gates. For any thread.
#pragma once

#include <vector>

#include "support/complex.h"
#include "support/exported.h"

/// A matrix in row-major order: element (i, j) is at `i * cols + j`.
///
/// The operations are for square matrices. They accept other shapes: a result has the shape of the
/// left operand, and elements past the end of `data` count as zero and are not written.
struct NIMBREL_EXPORTED ComplexMatrix {
    using complex_t = Nimbrel::complex_t;

    /// Whether each element differs from the identity by a squared magnitude below 1e-15. True for
    /// a matrix without elements.
    bool is_identity() const;

    /// Exchanges the elements above the diagonal with those below. The shape does not change.
    void transpose_in_place();

    /// The product. Adds in the order of the left operand's columns and rounds each operation
    /// separately.
    ComplexMatrix operator*(const ComplexMatrix& other) const;

    /// A transposed copy.
    ComplexMatrix transpose() const;

    /// A transposed copy with the imaginary parts negated, zeros included.
    ComplexMatrix conjugate_transpose() const;

    std::vector<complex_t> data;
    unsigned rows = 0;
    unsigned cols = 0;
};
