/// Small dense complex matrices, for checking the matrices of gates. Any thread.
#pragma once

#include <vector>

#include "support/complex.h"
#include "support/exported.h"

/// A matrix in row-major order: element (i, j) stands at `i * cols + j`.
///
/// All operations take matrices as square. Another shape is not refused: results have the shape of
/// the (left) operand, and what would lie behind the end of `data` counts as zero or stays put.
struct NIMBREL_EXPORTED ComplexMatrix {
    using complex_t = Nimbrel::complex_t;

    /// Whether each element's difference from the identity has a squared magnitude below 1e-15. A
    /// matrix without elements is one.
    bool is_identity() const;

    /// Exchanges the elements above the diagonal with those below. The shape stays.
    void transpose_in_place();

    /// The product. Sums run from the first column of the left operand up, each operation rounded
    /// by itself.
    ComplexMatrix operator*(const ComplexMatrix& other) const;

    /// A transposed copy.
    ComplexMatrix transpose() const;

    /// A transposed copy with the imaginary parts negated, so that a zero changes its sign too.
    ComplexMatrix conjugate_transpose() const;

    std::vector<complex_t> data;
    unsigned rows = 0;
    unsigned cols = 0;
};
