#include "support/complex_matrix.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <complex>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using Nimbrel::complex_t;
using Bits = std::vector<unsigned long>;

constexpr double nan_value = std::numeric_limits<double>::quiet_NaN();

/// The bits of the elements, so that zeros of both signs differ.
Bits bits_of(const std::vector<complex_t>& values) {
    Bits bits;
    for (const complex_t& value : values) {
        bits.push_back(std::bit_cast<unsigned long>(value.re));
        bits.push_back(std::bit_cast<unsigned long>(value.im));
    }
    return bits;
}

void expect_matrix(const ComplexMatrix& matrix, unsigned rows, unsigned cols,
                   const std::vector<complex_t>& data) {
    EXPECT_EQ(matrix.rows, rows);
    EXPECT_EQ(matrix.cols, cols);
    EXPECT_EQ(bits_of(matrix.data), bits_of(data));
}

ComplexMatrix identity(unsigned size) {
    ComplexMatrix matrix{std::vector<complex_t>(std::size_t{size} * size), size, size};
    for (unsigned i = 0; i < size; ++i) matrix.data[i * size + i] = {1.0, 0.0};
    return matrix;
}

ComplexMatrix random_matrix(std::mt19937& generator, unsigned size) {
    std::uniform_real_distribution<double> parts(-1.0, 1.0);
    ComplexMatrix matrix = identity(size);
    for (complex_t& value : matrix.data) value = {parts(generator), parts(generator)};
    return matrix;
}

TEST(ComplexMatrix, StandsInRowsOneAfterTheOther) {
    const ComplexMatrix matrix{{{1.0, 2.0}, {3.0, 4.0}}, 1, 2};
    const auto& [data, rows, cols] = matrix;  // tests the order of the fields
    EXPECT_EQ(data[1].re, 3.0);
    EXPECT_EQ(rows, 1U);
    EXPECT_EQ(cols, 2U);
    const ComplexMatrix empty;
    EXPECT_EQ(empty.rows, 0U);
    EXPECT_EQ(empty.cols, 0U);
}

TEST(ComplexMatrix, IdentitiesOfAnySizeAreOnes) {
    for (const unsigned size : {1U, 2U, 3U, 8U}) EXPECT_TRUE(identity(size).is_identity()) << size;
}

TEST(ComplexMatrix, AMatrixWithoutElementsIsAnIdentity) {
    EXPECT_TRUE((ComplexMatrix{{}, 0, 0}).is_identity());
    EXPECT_TRUE((ComplexMatrix{{}, 0, 3}).is_identity());
    EXPECT_TRUE((ComplexMatrix{{}, 3, 0}).is_identity());
}

TEST(ComplexMatrix, EveryElementIsHeldToTheTolerance) {
    for (std::size_t place = 0; place < 9; ++place) {
        for (const complex_t step : {complex_t{1e-8, 0.0}, complex_t{0.0, -1e-8}}) {
            ComplexMatrix matrix = identity(3);
            matrix.data[place].re += step.re;
            matrix.data[place].im += step.im;
            EXPECT_TRUE(matrix.is_identity()) << place;
            matrix.data[place].re += 9.0 * step.re;
            matrix.data[place].im += 9.0 * step.im;
            EXPECT_FALSE(matrix.is_identity()) << place;
        }
    }
}

TEST(ComplexMatrix, TheToleranceIsOfTheSquaredMagnitude) {
    const double edge = std::sqrt(1e-15);
    const auto with_corner = [](complex_t corner) {
        ComplexMatrix matrix = identity(2);
        matrix.data[1] = corner;
        return matrix;
    };
    EXPECT_TRUE(with_corner({edge * 0.999, 0.0}).is_identity());
    EXPECT_FALSE(with_corner({edge * 1.001, 0.0}).is_identity());
    EXPECT_TRUE(with_corner({edge * 0.7, edge * 0.7}).is_identity());
    EXPECT_FALSE(with_corner({edge * 0.71, edge * 0.71}).is_identity());
    EXPECT_TRUE(with_corner({-0.0, -0.0}).is_identity());
    EXPECT_TRUE(with_corner({5e-324, 0.0}).is_identity());
}

TEST(ComplexMatrix, WhatIsNoNumberIsNoIdentity) {
    for (const double bad : {nan_value, HUGE_VAL, -HUGE_VAL}) {
        for (std::size_t place = 0; place < 4; ++place) {
            ComplexMatrix matrix = identity(2);
            matrix.data[place].im = bad;
            EXPECT_FALSE(matrix.is_identity()) << place;
            matrix = identity(2);
            matrix.data[place].re = bad;
            EXPECT_FALSE(matrix.is_identity()) << place;
        }
    }
}

TEST(ComplexMatrix, APhaseOrASignIsNoIdentity) {
    EXPECT_FALSE((ComplexMatrix{{{-1.0, 0.0}}, 1, 1}).is_identity());
    EXPECT_FALSE((ComplexMatrix{{{0.0, 1.0}}, 1, 1}).is_identity());
    EXPECT_FALSE((ComplexMatrix{{{0.0, 0.0}}, 1, 1}).is_identity());
}

const std::vector<complex_t> nine{{1.0, 0.0}, {2.0, -2.0}, {3.0, 0.5},  {4.0, 1.0}, {5.0, -0.0},
                                  {6.0, 2.0}, {7.0, 7.0},  {-0.0, 8.0}, {9.0, 0.25}};
const std::vector<complex_t> nine_transposed{{1.0, 0.0},  {4.0, 1.0},  {7.0, 7.0},
                                             {2.0, -2.0}, {5.0, -0.0}, {-0.0, 8.0},
                                             {3.0, 0.5},  {6.0, 2.0},  {9.0, 0.25}};

TEST(ComplexMatrix, TransposesInPlaceAndAsACopy) {
    ComplexMatrix matrix{nine, 3, 3};
    expect_matrix(matrix.transpose(), 3, 3, nine_transposed);
    expect_matrix(matrix, 3, 3, nine);
    matrix.transpose_in_place();
    expect_matrix(matrix, 3, 3, nine_transposed);
    matrix.transpose_in_place();
    expect_matrix(matrix, 3, 3, nine);
}

TEST(ComplexMatrix, ConjugatingFlipsTheSignOfZeroToo) {
    const ComplexMatrix matrix{nine, 3, 3};
    std::vector<complex_t> expected = nine_transposed;
    for (complex_t& value : expected) value.im = -value.im;
    expect_matrix(matrix.conjugate_transpose(), 3, 3, expected);
    expect_matrix(matrix, 3, 3, nine);
    const ComplexMatrix zeros{{{0.0, 0.0}, {0.0, 0.0}, {0.0, -0.0}, {-0.0, 0.0}}, 2, 2};
    expect_matrix(zeros.conjugate_transpose(), 2, 2,
                  {{0.0, -0.0}, {0.0, 0.0}, {0.0, -0.0}, {-0.0, -0.0}});
}

TEST(ComplexMatrix, MultipliesRowsByColumns) {
    const ComplexMatrix a{{{1.0, 1.0}, {2.0, 0.0}, {0.0, -1.0}, {3.0, 0.5}}, 2, 2};
    const ComplexMatrix b{{{0.0, 2.0}, {1.0, 0.0}, {4.0, -1.0}, {0.0, 0.0}}, 2, 2};
    expect_matrix(a * b, 2, 2, {{6.0, 0.0}, {1.0, 1.0}, {14.5, -1.0}, {0.0, -1.0}});
    expect_matrix(b * a, 2, 2, {{-2.0, 1.0}, {3.0, 4.5}, {5.0, 3.0}, {8.0, -2.0}});
}

TEST(ComplexMatrix, AgreesWithComplexArithmetic) {
    std::mt19937 generator(8);
    for (const unsigned size : {1U, 2U, 3U, 5U, 8U}) {
        const ComplexMatrix a = random_matrix(generator, size);
        const ComplexMatrix b = random_matrix(generator, size);
        const ComplexMatrix product = a * b;
        for (unsigned i = 0; i < size; ++i) {
            for (unsigned j = 0; j < size; ++j) {
                std::complex<double> sum;
                for (unsigned k = 0; k < size; ++k) {
                    const complex_t& left = a.data[i * size + k];
                    const complex_t& right = b.data[k * size + j];
                    sum += std::complex(left.re, left.im) * std::complex(right.re, right.im);
                }
                EXPECT_NEAR(product.data[i * size + j].re, sum.real(), 1e-14);
                EXPECT_NEAR(product.data[i * size + j].im, sum.imag(), 1e-14);
            }
        }
    }
}

TEST(ComplexMatrix, SumsFromTheFirstColumnUpFromZero) {
    const ComplexMatrix row{{{1.0, 0.0}, {1.0, 0.0}, {1.0, 0.0}}, 1, 3};
    const auto sum_of = [&](double a, double b, double c) {
        const ComplexMatrix column{{{a, 0.0}, {b, 0.0}, {c, 0.0}}, 3, 1};
        return (row * column).data[0];
    };
    // The product is a row, so its first element is the sum; the column has one element in a row.
    EXPECT_EQ(sum_of(1e100, 1.0, -1e100).re, 0.0);
    EXPECT_EQ(sum_of(1e100, -1e100, 1.0).re, 1.0);
    const ComplexMatrix minus_zero{{{-0.0, 0.0}}, 1, 1};
    const ComplexMatrix one{{{1.0, 0.0}}, 1, 1};
    expect_matrix(minus_zero * one, 1, 1, {{0.0, 0.0}});
}

TEST(ComplexMatrix, AUnitaryTimesItsAdjointIsAnIdentity) {
    const double half = std::sqrt(0.5);
    const ComplexMatrix unitary{{{half, 0.0}, {0.0, half}, {0.0, half}, {half, 0.0}}, 2, 2};
    EXPECT_TRUE((unitary * unitary.conjugate_transpose()).is_identity());
    EXPECT_TRUE((unitary.conjugate_transpose() * unitary).is_identity());
    EXPECT_FALSE((unitary * unitary).is_identity());
    EXPECT_FALSE((unitary * unitary.transpose()).is_identity());
}

TEST(ComplexMatrix, OperationsOnNothingGiveNothing) {
    ComplexMatrix nothing;
    expect_matrix(nothing * nothing, 0, 0, {});
    expect_matrix(nothing.transpose(), 0, 0, {});
    expect_matrix(nothing.conjugate_transpose(), 0, 0, {});
    nothing.transpose_in_place();
    expect_matrix(nothing, 0, 0, {});
}

// Shapes that are not square are accepted: the result has the shape of the left operand, and
// elements past the end of the data count as zero.
class OtherShapes : public testing::TestWithParam<std::pair<unsigned, unsigned>> {};

TEST_P(OtherShapes, KeepTheirShapeAndStayInsideTheirData) {
    const auto [rows, cols] = GetParam();
    ComplexMatrix matrix{std::vector<complex_t>(std::size_t{rows} * cols), rows, cols};
    for (std::size_t i = 0; i < matrix.data.size(); ++i) {
        matrix.data[i] = {static_cast<double>(i) + 1.0, 1.0};
    }
    const ComplexMatrix flipped = matrix.transpose();
    EXPECT_EQ(flipped.rows, rows);
    EXPECT_EQ(flipped.cols, cols);
    ASSERT_EQ(flipped.data.size(), matrix.data.size());
    for (std::size_t i = 0; i < rows; ++i) {
        for (std::size_t j = 0; j < cols; ++j) {
            const std::size_t source = j * cols + i;
            const double expected =
                source < matrix.data.size() ? static_cast<double>(source) + 1.0 : 0.0;
            EXPECT_EQ(flipped.data[i * cols + j].re, expected) << i << ", " << j;
        }
    }
    const ComplexMatrix product = matrix * identity(cols);
    expect_matrix(product, rows, cols, matrix.data);
    EXPECT_EQ(matrix.conjugate_transpose().data.size(), matrix.data.size());
    const ComplexMatrix before = matrix;
    matrix.transpose_in_place();
    EXPECT_EQ(matrix.rows, rows);
    EXPECT_EQ(matrix.cols, cols);
    matrix.transpose_in_place();
    expect_matrix(matrix, rows, cols, before.data);
    EXPECT_EQ(matrix.is_identity(), false);
}

INSTANTIATE_TEST_SUITE_P(ByShape, OtherShapes,
                         testing::Values(std::pair{1U, 4U}, std::pair{4U, 1U}, std::pair{2U, 3U},
                                         std::pair{3U, 2U}, std::pair{2U, 7U}),
                         [](const auto& param_info) {
                             return std::to_string(param_info.param.first) + "by" +
                                    std::to_string(param_info.param.second);
                         });

TEST(ComplexMatrix, ARightOperandOfAnotherShapeIsIndexedByItsOwnColumns) {
    const ComplexMatrix left{{{1.0, 0.0}, {10.0, 0.0}}, 1, 2};
    const ComplexMatrix wide{
        {{1.0, 0.0}, {2.0, 0.0}, {3.0, 0.0}, {4.0, 0.0}, {5.0, 0.0}, {6.0, 0.0}}, 2, 3};
    expect_matrix(left * wide, 1, 2, {{41.0, 0.0}, {52.0, 0.0}});
    const ComplexMatrix small{{{7.0, 0.0}}, 1, 1};
    expect_matrix(left * small, 1, 2, {{7.0, 0.0}, {0.0, 0.0}});
}

TEST(ComplexMatrix, DataShorterThanItsShapeCountsAsZeros) {
    ComplexMatrix matrix{{{1.0, 0.0}, {2.0, 0.0}}, 2, 2};
    EXPECT_FALSE(matrix.is_identity());
    expect_matrix(matrix.transpose(), 2, 2, {{1.0, 0.0}, {0.0, 0.0}, {2.0, 0.0}, {0.0, 0.0}});
    expect_matrix(matrix * matrix, 2, 2, {{1.0, 0.0}, {2.0, 0.0}, {0.0, 0.0}, {0.0, 0.0}});
    matrix.transpose_in_place();
    EXPECT_EQ(matrix.data.size(), 2UL);
}

}  // namespace
