#include "clifford/tableau/bit_columns.h"

#include <algorithm>

#include "clifford/tableau/bit_square.h"

namespace {

constexpr std::size_t side = square_side;

using Part = PauliBits Stabilizer::*;
using ColumnPart = RowBits::Words BitColumn::*;

/// One word of each row of a group of up to 64 rows. Words without a row are 0.
BitSquare gather(std::span<Stabilizer* const> rows, Part part, unsigned word) {
    BitSquare square{};
    for (std::size_t i = 0; i < rows.size(); ++i) square[i] = (rows[i]->*part).words[word];
    return square;
}

void scatter(const BitSquare& square, std::span<Stabilizer* const> rows, Part part, unsigned word) {
    for (std::size_t i = 0; i < rows.size(); ++i) (rows[i]->*part).words[word] = square[i];
}

/// Calls `visit(rows, group)` for each group of up to 64 rows.
template <typename Visit>
void for_each_group(std::span<Stabilizer* const> rows, Visit&& visit) {
    for (std::size_t first = 0; first < rows.size(); first += side) {
        visit(rows.subspan(first, std::min(side, rows.size() - first)), first / side);
    }
}

void read_square(std::span<Stabilizer* const> rows, Part part, unsigned word, BitColumn* columns,
                 ColumnPart column_part, std::size_t group) {
    BitSquare square = gather(rows, part, word);
    transpose(square);
    for (std::size_t i = 0; i < side; ++i) (columns[i].*column_part)[group] = square[i];
}

void write_square(std::span<Stabilizer* const> rows, Part part, unsigned word,
                  const BitColumn* columns, ColumnPart column_part, std::size_t group) {
    BitSquare square;
    for (std::size_t i = 0; i < side; ++i) square[i] = (columns[i].*column_part)[group];
    transpose(square);
    scatter(square, rows, part, word);
}

}  // namespace

void BitColumns::reserve(std::size_t words) { columns_.reserve(words * side); }

void BitColumns::read_from_rows(std::span<Stabilizer* const> rows,
                                std::span<const unsigned> words) {
    rows_ = rows;
    words_ = words;
    columns_.resize(words.size() * side);
    for_each_group(rows, [&](std::span<Stabilizer* const> group_rows, std::size_t group) {
        for (std::size_t i = 0; i < words.size(); ++i) {
            BitColumn* const columns = &columns_[i * side];
            read_square(group_rows, &Stabilizer::x, words[i], columns, &BitColumn::x, group);
            read_square(group_rows, &Stabilizer::z, words[i], columns, &BitColumn::z, group);
        }
    });
}

void BitColumns::write_to_rows() const {
    for_each_group(rows_, [&](std::span<Stabilizer* const> group_rows, std::size_t group) {
        for (std::size_t i = 0; i < words_.size(); ++i) {
            const BitColumn* const columns = &columns_[i * side];
            write_square(group_rows, &Stabilizer::x, words_[i], columns, &BitColumn::x, group);
            write_square(group_rows, &Stabilizer::z, words_[i], columns, &BitColumn::z, group);
        }
    });
}
