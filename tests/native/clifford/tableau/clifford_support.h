/// Rows and tableaus as text, qubit 0 first, and random rows from a seeded generator.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "clifford/tableau/stabilizer_state.h"
#include "expect_failure.h"

namespace Nimbrel::Testing {

/// Signs of the phases 0 to 3.
inline constexpr std::array<std::string_view, 4> signs{"+", "+i", "-", "-i"};

/// The letter of the bits x and z is at x + 2 z.
inline constexpr std::string_view letters = "IXZY";

inline std::string text_of(const Stabilizer& row) {
    std::string text(signs.at(row.phase));
    for (unsigned qubit = 0; qubit < row.length; ++qubit) {
        text += letters[(row.x.test(qubit) ? 1U : 0U) + (row.z.test(qubit) ? 2U : 0U)];
    }
    return text;
}

/// The row of a text such as "+XIZ" or "-iYY".
inline Stabilizer row_of(std::string_view text) {
    const bool odd = text.size() > 1 && text[1] == 'i';
    const std::string_view word = text.substr(odd ? 2 : 1);
    Stabilizer row(static_cast<unsigned>(word.size()));
    row.phase = static_cast<unsigned short>((text[0] == '-' ? 2 : 0) + (odd ? 1 : 0));
    for (unsigned qubit = 0; qubit < row.length; ++qubit) {
        const auto bits = letters.find(word[qubit]);
        if ((bits & 1) != 0) row.x.set(qubit);
        if ((bits & 2) != 0) row.z.set(qubit);
    }
    return row;
}

/// The text of a row with the same letter on every qubit. (GCC 12 has a false warning for "+"
/// before a long string.)
inline std::string uniform_row(unsigned long length, char letter, char sign = '+') {
    std::string text(length + 1, letter);
    text[0] = sign;
    return text;
}

/// The text of a row with a letter on one qubit and I on all others.
inline std::string one_letter_row(unsigned long length, unsigned long qubit, char letter) {
    std::string text = uniform_row(length, 'I');
    text[1 + qubit] = letter;
    return text;
}

using Rows = std::vector<std::string>;

inline Rows texts_of(const std::vector<Stabilizer>& rows) {
    Rows texts;
    for (const Stabilizer& row : rows) texts.push_back(text_of(row));
    return texts;
}

/// Both tables of a tableau.
struct Tables {
    Rows stabilizers;
    Rows destabilizers;

    bool operator==(const Tables&) const = default;
};

inline void PrintTo(const Tables& tables, std::ostream* out) {
    *out << "generators " << testing::PrintToString(tables.stabilizers) << ", destabilizers "
         << testing::PrintToString(tables.destabilizers);
}

inline Tables tables_of(const StabilizerState& state) {
    return {texts_of(state.stabilizers), texts_of(state.destabilizers)};
}

/// Replaces all rows by these. Requires: both tables have the same number of rows.
inline void set_tables(StabilizerState& state, const Tables& tables) {
    state.stabilizers.clear();
    state.destabilizers.clear();
    for (const std::string& row : tables.stabilizers) state.stabilizers.push_back(row_of(row));
    for (const std::string& row : tables.destabilizers) state.destabilizers.push_back(row_of(row));
    state.num_rows = static_cast<unsigned>(tables.stabilizers.size());
}

inline void measure(StabilizerState& state, unsigned long qubit, unsigned expected) {
    EXPECT_EQ(state.measure_qubit<Clifford{3}>(qubit), expected) << "qubit " << qubit;
}

inline void project(StabilizerState& state, const Stabilizer& target, unsigned long qubit) {
    state.project_qubit<Clifford{3}>(target, qubit);
}

/// Plus or minus Z on one qubit of `length`.
inline Stabilizer signed_z(unsigned length, unsigned long qubit, bool minus) {
    Stabilizer row(length);
    row.z.set(qubit);
    row.phase = minus ? 2 : 0;
    return row;
}

/// A test with a random generator, which is seeded from the name of the test. Failures print the
/// seed.
class DrawingTest : public testing::Test {
  protected:
    unsigned long below(unsigned long limit) { return draws() % limit; }

    std::string draw_row(unsigned length) {
        std::string text(signs[below(signs.size())]);
        for (unsigned qubit = 0; qubit < length; ++qubit) text += letters[below(letters.size())];
        return text;
    }

    Tables draw_tables(unsigned length, unsigned rows) {
        Tables tables;
        for (unsigned i = 0; i < rows; ++i) {
            tables.stabilizers.push_back(draw_row(length));
            tables.destabilizers.push_back(draw_row(length));
        }
        return tables;
    }

  private:
    static std::uint64_t seed_of_this_test() {
        const auto* info = testing::UnitTest::GetInstance()->current_test_info();
        std::uint64_t hash = 14695981039346656037U;
        for (const char* name = info->name(); *name != 0; ++name) {
            hash = (hash ^ static_cast<unsigned char>(*name)) * 1099511628211U;
        }
        return hash;
    }

    const std::uint64_t seed_ = seed_of_this_test();
    testing::ScopedTrace trace_{__FILE__, __LINE__, "seed " + std::to_string(seed_)};

  protected:
    std::mt19937_64 draws{seed_};
};

}  // namespace Nimbrel::Testing
