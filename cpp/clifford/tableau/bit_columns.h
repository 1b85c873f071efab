/// A block of tableau rows, transposed: for each qubit one vector with one bit for each row.
///
/// In this form a gate changes all rows of the block with a few vector operations. Not thread-safe.
#pragma once

#include <array>
#include <span>
#include <vector>

#include "clifford/tableau/stabilizer_row.h"
#include "support/vectors.h"

/// Maximum number of rows in a block.
inline constexpr std::size_t rows_per_block = 256;

/// The letters of one qubit in all rows of a block. Fills exactly one cache line.
struct alignas(64) BitColumn {
    std::array<unsigned long, rows_per_block / 64> x;
    std::array<unsigned long, rows_per_block / 64> z;
};

/// One bit for each row of a block, in vector registers.
struct RowBits {
    Nimbrel::FourWords bits = Nimbrel::FourWords::zero();

    using Words = std::array<unsigned long, rows_per_block / 64>;
    static_assert(std::tuple_size_v<Words> == Nimbrel::FourWords::count);
    static RowBits load(const Words& from) { return {Nimbrel::FourWords::load(from.data())}; }
    void store(Words& to) const { bits.store(to.data()); }

    friend RowBits operator^(RowBits a, RowBits b) { return {a.bits ^ b.bits}; }
    friend RowBits operator&(RowBits a, RowBits b) { return {a.bits & b.bits}; }
    /// The bits that are 1 in a and 0 in b.
    friend RowBits operator-(RowBits a, RowBits b) { return {a.bits - b.bits}; }
};

/// Transposes selected words of up to `rows_per_block` rows into columns, and back.
///
/// Column 64 i + b is bit b of the i-th selected word.
class BitColumns {
  public:
    /// Allocates the memory for this number of words.
    void reserve(std::size_t words);

    /// Copies the words with these numbers from the rows into the columns.
    /// Requires: both lists exist until `write_to_rows` has returned.
    void read_from_rows(std::span<Stabilizer* const> rows, std::span<const unsigned> words);

    /// Copies the columns back to the rows and words from which they were read.
    void write_to_rows() const;

    BitColumn& operator[](std::size_t column) { return columns_[column]; }

  private:
    std::span<Stabilizer* const> rows_;
    std::span<const unsigned> words_;
    std::vector<BitColumn> columns_;  ///< a member to keep its memory between calls
};
