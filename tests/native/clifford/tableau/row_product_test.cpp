// The product of two rows: all pairs of letters, all phases, and rows of one to nine words.
#include "clifford/tableau/clifford_support.h"

namespace {

using namespace Nimbrel::Testing;

std::string product(std::string_view left, std::string_view right) {
    Stabilizer row = row_of(left);
    row.multiply(row_of(right));
    return text_of(row);
}

TEST(RowProduct, OfEveryPairOfLetters) {
    const std::string_view table[][3] = {
        {"+I", "+I", "+I"}, {"+I", "+X", "+X"},  {"+I", "+Y", "+Y"},  {"+I", "+Z", "+Z"},
        {"+X", "+I", "+X"}, {"+X", "+X", "+I"},  {"+X", "+Y", "+iZ"}, {"+X", "+Z", "-iY"},
        {"+Y", "+I", "+Y"}, {"+Y", "+X", "-iZ"}, {"+Y", "+Y", "+I"},  {"+Y", "+Z", "+iX"},
        {"+Z", "+I", "+Z"}, {"+Z", "+X", "+iY"}, {"+Z", "+Y", "-iX"}, {"+Z", "+Z", "+I"},
    };
    for (const auto& [left, right, expected] : table) {
        EXPECT_EQ(product(left, right), expected) << left << " times " << right;
    }
}

TEST(RowProduct, AddsThePhases) {
    for (unsigned left = 0; left < 4; ++left) {
        for (unsigned right = 0; right < 4; ++right) {
            const auto text = [](unsigned phase, std::string_view letter) {
                return std::string(signs[phase % 4]) + std::string(letter);
            };
            EXPECT_EQ(product(text(left, "X"), text(right, "X")), text(left + right, "I"));
            EXPECT_EQ(product(text(left, "X"), text(right, "Z")), text(left + right + 3, "Y"));
            EXPECT_EQ(product(text(left, "Z"), text(right, "X")), text(left + right + 1, "Y"));
        }
    }
}

TEST(RowProduct, CountsThePhasesOfAllQubits) {
    EXPECT_EQ(product("+XX", "+ZZ"), "-YY");        // two times -i
    EXPECT_EQ(product("+XZ", "+ZX"), "+YY");        // -i and i
    EXPECT_EQ(product("+XXX", "+ZZZ"), "+iYYY");    // three times -i
    EXPECT_EQ(product("+XXXX", "+ZZZZ"), "+YYYY");  // four times -i
    EXPECT_EQ(product("-XYZI", "+iYYXZ"), "+iZIYZ");
}

TEST(RowProduct, OfARowWithItselfIsTheIdentityWithTwiceThePhase) {
    EXPECT_EQ(product("+XYZIYY", "+XYZIYY"), "+IIIIII");
    EXPECT_EQ(product("-XYZIYY", "-XYZIYY"), "+IIIIII");
    EXPECT_EQ(product("+iXYZIYY", "+iXYZIYY"), "-IIIIII");
    EXPECT_EQ(product("-iXYZIYY", "-iXYZIYY"), "-IIIIII");
    const std::string wide = uniform_row(70, 'Y', '-');
    EXPECT_EQ(product(wide, wide), uniform_row(70, 'I'));
}

TEST(RowProduct, OfARowWithItselfInPlace) {
    for (const std::string_view text : {"+XYZI", "-YYYX", "+iXZYI", "-iZYXX"}) {
        Stabilizer row = row_of(text);
        const unsigned twice = 2U * row.phase % 4;
        row.multiply(row);
        EXPECT_EQ(text_of(row), std::string(signs[twice]) + "IIII") << text;
    }
}

TEST(RowProduct, LeavesTheRightFactorAlone) {
    Stabilizer left = row_of("+XYZ");
    const Stabilizer right = row_of("-ZZX");
    left.multiply(right);
    EXPECT_EQ(text_of(left), "-iYXY");
    EXPECT_EQ(text_of(right), "-ZZX");
}

TEST(RowProduct, ExchangedFactorsDifferInSignWhereTheyAnticommute) {
    EXPECT_EQ(product("+XI", "+ZX"), "-iYX");
    EXPECT_EQ(product("+ZX", "+XI"), "+iYX");
    EXPECT_EQ(product("+XX", "+ZY"), "+YZ");
    EXPECT_EQ(product("+ZY", "+XX"), "+YZ");
}

TEST(RowProduct, OfDifferentLengthsIsRefusedBeforeAnythingChanges) {
    const std::pair<unsigned, unsigned> lengths[] = {
        {3, 2}, {2, 3}, {3, 0}, {0, 3}, {64, 63}, {64, 65}, {65, 64}, {65, 66}, {300, 301}};
    for (const auto& [left_length, right_length] : lengths) {
        Stabilizer left(left_length);
        if (left_length != 0) left.x.set(left_length - 1);
        left.phase = 2;
        const std::string before = text_of(left);
        Stabilizer right(right_length);
        right.phase = 1;
        EXPECT_FAILURE(left.multiply(right), "Incompatible stabilizer lengths");
        EXPECT_EQ(text_of(left), before);
    }
}

/// The product letter by letter, from the multiplication table of the Pauli matrices.
std::string product_by_letters(const std::string& left, const std::string& right) {
    const auto phase_of = [](const std::string& text) { return row_of(text).phase; };
    const auto word_of = [](const std::string& text) {
        return text.substr(text[1] == 'i' ? 2 : 1);
    };
    const std::string a = word_of(left);
    const std::string b = word_of(right);
    unsigned phase = phase_of(left) + phase_of(right);
    std::string word;
    const std::string_view cycle = "XYZ";
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (a[i] == 'I' || b[i] == 'I' || a[i] == b[i]) {
            word += a[i] == 'I' ? b[i] : b[i] == 'I' ? a[i] : 'I';
            continue;
        }
        // XY = iZ, YZ = iX and ZX = iY; the reversed products have -i.
        const std::size_t from = cycle.find(a[i]);
        const bool forward = cycle[(from + 1) % 3] == b[i];
        word += cycle[(from + (forward ? 2 : 1)) % 3];
        phase += forward ? 1 : 3;
    }
    return std::string(signs[phase % 4]) + word;
}

class RowProducts : public DrawingTest {};

/// One to nine words: groups of four words with every possible remainder.
TEST_F(RowProducts, OfEveryWidth) {
    for (unsigned words = 1; words <= 9; ++words) {
        for (const unsigned length : {64 * words - 63, 64 * words - 1, 64 * words}) {
            for (int repeat = 0; repeat < 8; ++repeat) {
                const std::string left = draw_row(length);
                const std::string right = draw_row(length);
                ASSERT_EQ(product(left, right), product_by_letters(left, right))
                    << left << " times " << right;
            }
        }
    }
}

/// A pair of letters at a single qubit, for every qubit.
TEST_F(RowProducts, SeeEveryPlace) {
    constexpr unsigned length = 64 * 9;
    for (unsigned place = 0; place < length; ++place) {
        const auto row = [place](char letter) { return one_letter_row(length, place, letter); };
        ASSERT_EQ(product(row('X'), row('Z')), "-i" + row('Y').substr(1)) << place;
        ASSERT_EQ(product(row('Y'), row('Z')), "+i" + row('X').substr(1)) << place;
    }
}

/// Qubits with the same bit position in different words, whose phases are summed in one bit
/// position.
TEST_F(RowProducts, AddUpPlacesThatShareABitPosition) {
    for (unsigned words = 1; words <= 9; ++words) {
        for (unsigned mask = 1; mask < 1U << words; ++mask) {
            std::string left = uniform_row(64UL * words, 'I');
            std::string right = left;
            for (unsigned word = 0; word < words; ++word) {
                if ((mask >> word & 1) == 0) continue;
                left[1 + 64UL * word + 17] = "XYZ"[below(3)];
                right[1 + 64UL * word + 17] = "XYZ"[below(3)];
            }
            ASSERT_EQ(product(left, right), product_by_letters(left, right)) << mask;
        }
    }
}

TEST_F(RowProducts, KeepTheBitsAboveTheLastQubitZero) {
    for (const unsigned length : {1U, 70U, 129U, 300U}) {
        Stabilizer row = row_of(draw_row(length));
        row.multiply(row_of(draw_row(length)));
        EXPECT_EQ(row.x.words.back() & ~row.x.tail_mask, 0UL) << length;
        EXPECT_EQ(row.z.words.back() & ~row.z.tail_mask, 0UL) << length;
    }
}

}  // namespace
