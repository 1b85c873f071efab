// Transposition of blocks of rows into columns and back.
#include "clifford/tableau/bit_columns.h"

#include <numeric>

#include "clifford/tableau/clifford_support.h"

namespace {

using namespace Nimbrel::Testing;

using Words = std::pmr::vector<unsigned long>;

class BitColumnsTest : public DrawingTest {
  protected:
    /// Fills `rows` with random rows of 320 qubits, which use all bits of five words.
    void draw_rows(std::size_t count) {
        rows.assign(count, Stabilizer(320));
        for (Stabilizer& row : rows) {
            for (unsigned long& word : row.x.words) word = draws();
            for (unsigned long& word : row.z.words) word = draws();
        }
        pointers.resize(count);
        std::iota(pointers.begin(), pointers.end(), rows.data());
    }

    void expect_columns(const std::vector<unsigned>& words) {
        for (std::size_t i = 0; i < words.size(); ++i) {
            for (unsigned bit = 0; bit < 64; ++bit)
                expect_column(64 * i + bit, 64 * words[i] + bit);
        }
    }

    std::vector<Stabilizer> rows;
    std::vector<Stabilizer*> pointers;
    BitColumns columns;

  private:
    void expect_column(std::size_t column, unsigned qubit) {
        const auto bit_of_row = [](const auto& column_words, std::size_t row) {
            return (column_words[row / 64] >> row % 64 & 1) != 0;
        };
        for (std::size_t row = 0; row < rows.size(); ++row) {
            ASSERT_EQ(bit_of_row(columns[column].x, row), rows[row].x.test(qubit))
                << "x of qubit " << qubit << " in row " << row;
            ASSERT_EQ(bit_of_row(columns[column].z, row), rows[row].z.test(qubit))
                << "z of qubit " << qubit << " in row " << row;
        }
    }
};

constexpr std::size_t counts[] = {1, 2, 63, 64, 65, 127, 128, 129, 192, 193, 255, 256};

TEST_F(BitColumnsTest, AColumnIsAQubitAndABitOfItIsARow) {
    rows = {row_of("+XIZ"), row_of("-YYI"), row_of("+iIZX")};
    pointers = {&rows[0], &rows[1], &rows[2]};
    const std::array words{0U};
    columns.read_from_rows(pointers, words);
    EXPECT_EQ(columns[0].x[0], 0b011UL);
    EXPECT_EQ(columns[0].z[0], 0b010UL);
    EXPECT_EQ(columns[1].x[0], 0b010UL);
    EXPECT_EQ(columns[1].z[0], 0b110UL);
    EXPECT_EQ(columns[2].x[0], 0b100UL);
    EXPECT_EQ(columns[2].z[0], 0b001UL);
    for (std::size_t column = 3; column < 64; ++column) {
        EXPECT_EQ(columns[column].x[0] | columns[column].z[0], 0UL) << column;
    }
}

TEST_F(BitColumnsTest, ReadEveryBitOfTheirWords) {
    const std::vector<unsigned> words{0, 2, 3};
    for (const std::size_t count : counts) {
        draw_rows(count);
        columns.read_from_rows(pointers, words);
        expect_columns(words);
    }
}

/// Bits of missing rows in a group of 64 are 0, also after a larger block.
TEST_F(BitColumnsTest, HaveZerosForTheRowsThatAGroupLacks) {
    const std::vector<unsigned> words{1};
    draw_rows(256);
    columns.read_from_rows(pointers, words);
    draw_rows(70);
    columns.read_from_rows(pointers, words);
    expect_columns(words);
    for (std::size_t column = 0; column < 64; ++column) {
        EXPECT_EQ((columns[column].x[1] | columns[column].z[1]) >> 6, 0UL) << column;
    }
}

TEST_F(BitColumnsTest, WriteBackWhatTheyRead) {
    const std::vector<unsigned> words{1, 4};
    for (const std::size_t count : counts) {
        draw_rows(count);
        const std::vector<Stabilizer> before = rows;
        columns.read_from_rows(pointers, words);
        for (Stabilizer& row : rows) {
            for (const unsigned word : words) row.x.words[word] = row.z.words[word] = 0x5555;
        }
        columns.write_to_rows();
        for (std::size_t i = 0; i < count; ++i) {
            ASSERT_EQ(rows[i].x.words, before[i].x.words) << "row " << i << " of " << count;
            ASSERT_EQ(rows[i].z.words, before[i].z.words) << "row " << i << " of " << count;
        }
    }
}

TEST_F(BitColumnsTest, DoNotChangeOtherWordsOrPhases) {
    const std::vector<unsigned> words{1, 4};
    draw_rows(100);
    columns.read_from_rows(pointers, words);
    for (Stabilizer& row : rows) {
        row.phase = 3;
        for (const unsigned word : {0U, 2U, 3U}) row.x.words[word] = row.z.words[word] = 0x77;
    }
    columns.write_to_rows();
    for (const Stabilizer& row : rows) {
        EXPECT_EQ(row.phase, 3);
        for (const unsigned word : {0U, 2U, 3U}) {
            EXPECT_EQ(row.x.words[word], 0x77UL);
            EXPECT_EQ(row.z.words[word], 0x77UL);
        }
    }
}

TEST_F(BitColumnsTest, WriteChangesBack) {
    draw_rows(130);
    const std::vector<Stabilizer> before = rows;
    const std::array words{3U};
    columns.read_from_rows(pointers, words);
    std::swap(columns[5].x, columns[60].z);
    columns.write_to_rows();
    for (std::size_t i = 0; i < rows.size(); ++i) {
        ASSERT_EQ(rows[i].x.test(192 + 5), before[i].z.test(192 + 60)) << i;
        ASSERT_EQ(rows[i].z.test(192 + 60), before[i].x.test(192 + 5)) << i;
        ASSERT_EQ(rows[i].x.test(192 + 60), before[i].x.test(192 + 60)) << i;
    }
}

TEST_F(BitColumnsTest, AcceptNoRowsAndNoWords) {
    const std::array words{0U};
    columns.read_from_rows({}, words);
    columns.write_to_rows();
    draw_rows(3);
    columns.read_from_rows(pointers, {});
    columns.write_to_rows();
}

/// Vector operations on words that all differ.
TEST(RowBits, AreCombinedBitByBit) {
    alignas(64) const RowBits::Words a{0b0011, 1UL << 63, 0, ~0UL};
    alignas(64) const RowBits::Words b{0b0101, 0, 1UL << 63, ~0UL};
    const auto words_of = [](RowBits bits) {
        alignas(64) RowBits::Words words;
        bits.store(words);
        return words;
    };
    const RowBits left = RowBits::load(a);
    const RowBits right = RowBits::load(b);
    EXPECT_EQ(words_of(left ^ right), (RowBits::Words{0b0110, 1UL << 63, 1UL << 63, 0}));
    EXPECT_EQ(words_of(left & right), (RowBits::Words{0b0001, 0, 0, ~0UL}));
    EXPECT_EQ(words_of(left - right), (RowBits::Words{0b0010, 1UL << 63, 0, 0}));
    EXPECT_EQ(words_of(RowBits{}), RowBits::Words{});
}

}  // namespace
