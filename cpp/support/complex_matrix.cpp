#include "support/complex_matrix.h"

#include <utility>

namespace {

using Nimbrel::complex_t;

/// The element at a position, zero past the end.
complex_t element_at(const ComplexMatrix& matrix, std::size_t place) {
    return place < matrix.data.size() ? matrix.data[place] : complex_t{0.0, 0.0};
}

std::size_t place_of(const ComplexMatrix& matrix, std::size_t row, std::size_t col) {
    return row * matrix.cols + col;
}

/// A matrix of zeros with the shape of another.
ComplexMatrix zeros_like(const ComplexMatrix& matrix) {
    const std::size_t size = std::size_t{matrix.rows} * matrix.cols;
    return {std::vector<complex_t>(size), matrix.rows, matrix.cols};
}

bool is_near_zero(complex_t value) {
    constexpr double tolerance = 1e-15;
    return value.re * value.re + value.im * value.im < tolerance;
}

}  // namespace

bool ComplexMatrix::is_identity() const {
    for (std::size_t i = 0; i < rows; ++i) {
        for (std::size_t j = 0; j < cols; ++j) {
            complex_t rest = element_at(*this, place_of(*this, i, j));
            if (i == j) rest.re -= 1.0;
            if (!is_near_zero(rest)) return false;
        }
    }
    return true;
}

void ComplexMatrix::transpose_in_place() {
    for (std::size_t i = 0; i < rows; ++i) {
        for (std::size_t j = i + 1; j < cols; ++j) {
            const std::size_t above = place_of(*this, i, j);
            const std::size_t below = place_of(*this, j, i);
            if (above < data.size() && below < data.size()) std::swap(data[above], data[below]);
        }
    }
}

ComplexMatrix ComplexMatrix::operator*(const ComplexMatrix& other) const {
    ComplexMatrix product = zeros_like(*this);
    for (std::size_t i = 0; i < rows; ++i) {
        for (std::size_t j = 0; j < cols; ++j) {
            complex_t& sum = product.data[place_of(*this, i, j)];
            for (std::size_t k = 0; k < cols; ++k) {
                const complex_t a = element_at(*this, place_of(*this, i, k));
                const complex_t b = element_at(other, place_of(other, k, j));
                sum.re += a.re * b.re - a.im * b.im;
                sum.im += a.re * b.im + a.im * b.re;
            }
        }
    }
    return product;
}

ComplexMatrix ComplexMatrix::transpose() const {
    ComplexMatrix result = zeros_like(*this);
    for (std::size_t i = 0; i < rows; ++i) {
        for (std::size_t j = 0; j < cols; ++j) {
            result.data[place_of(*this, i, j)] = element_at(*this, place_of(*this, j, i));
        }
    }
    return result;
}

ComplexMatrix ComplexMatrix::conjugate_transpose() const {
    ComplexMatrix result = transpose();
    for (complex_t& value : result.data) value.im = -value.im;
    return result;
}
