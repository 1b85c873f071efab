/// A block of tableau rows turned on its side: one register for each qubit, one bit for each row.
///
/// A gate then changes all rows of the block with a few operations, whatever the width of the
/// register. Used by one thread at a time.
#pragma once

#include <immintrin.h>

#include <array>
#include <span>
#include <vector>

#include "clifford/tableau/stabilizer.h"

/// Rows of a block.
inline constexpr std::size_t rows_per_block = 256;

/// The letters of one qubit in all rows of a block, on a cache line of their own.
struct alignas(64) BitColumn {
    std::array<unsigned long, rows_per_block / 64> x;
    std::array<unsigned long, rows_per_block / 64> z;
};

/// One bit for each row of a block, in a register. AVX has these operations on its floating-point
/// side only.
struct RowBits {
    __m256d bits = _mm256_setzero_pd();

    using Words = std::array<unsigned long, rows_per_block / 64>;
    static RowBits load(const Words& from) {
        return {_mm256_load_pd(reinterpret_cast<const double*>(from.data()))};
    }
    void store(Words& to) const { _mm256_store_pd(reinterpret_cast<double*>(to.data()), bits); }

    friend RowBits operator^(RowBits a, RowBits b) { return {_mm256_xor_pd(a.bits, b.bits)}; }
    friend RowBits operator&(RowBits a, RowBits b) { return {_mm256_and_pd(a.bits, b.bits)}; }
    /// The bits of a that are not in b.
    friend RowBits operator-(RowBits a, RowBits b) { return {_mm256_andnot_pd(b.bits, a.bits)}; }
};

/// Turns some words of up to `rows_per_block` rows into columns and back.
///
/// Column 64 i + b is bit b of the i-th word.
class BitColumns {
  public:
    /// Claims the memory that so many words need.
    void reserve(std::size_t words);

    /// Takes the words' contents from the rows. The lists must live as long as they are in use.
    void take(std::span<Stabilizer* const> rows, std::span<const unsigned> words);

    /// Writes the columns back to where they came from.
    void give_back() const;

    BitColumn& operator[](std::size_t column) { return columns_[column]; }

  private:
    std::span<Stabilizer* const> rows_;
    std::span<const unsigned> words_;
    std::vector<BitColumn> columns_;  ///< kept for its storage
};
