// The bit vectors of a row; creation and copies of rows.
#include "clifford/tableau/stabilizer_row.h"

#include "clifford/tableau/clifford_support.h"

namespace {

using namespace Nimbrel::Testing;

using Words = std::pmr::vector<unsigned long>;

PauliBits bits_of(unsigned count) { return {count, std::pmr::get_default_resource()}; }

TEST(PauliBits, HasAWordForEverySixtyFourBitsBegun) {
    const std::pair<unsigned, std::size_t> sizes[] = {{0, 0},  {1, 1},   {63, 1},  {64, 1},
                                                      {65, 2}, {128, 2}, {129, 3}, {600, 10}};
    for (const auto& [count, words] : sizes) {
        const PauliBits bits = bits_of(count);
        EXPECT_EQ(bits.words, Words(words, 0)) << count;
        EXPECT_EQ(bits.bit_count, count);
        EXPECT_FALSE(bits.any()) << count;
    }
}

TEST(PauliBits, TheTailMaskHasTheUsedBitsOfAPartialLastWord) {
    EXPECT_EQ(bits_of(0).tail_mask, 0UL);
    EXPECT_EQ(bits_of(1).tail_mask, 1UL);
    EXPECT_EQ(bits_of(5).tail_mask, 0x1FUL);
    EXPECT_EQ(bits_of(63).tail_mask, 0x7FFFFFFFFFFFFFFFUL);
    EXPECT_EQ(bits_of(64).tail_mask, 0UL);
    EXPECT_EQ(bits_of(65).tail_mask, 1UL);
    EXPECT_EQ(bits_of(128).tail_mask, 0UL);
    EXPECT_EQ(bits_of(130).tail_mask, 3UL);
}

TEST(PauliBits, AQubitIsABitOfAWord) {
    PauliBits bits = bits_of(130);
    for (const unsigned long qubit : {0UL, 63UL, 64UL, 129UL}) bits.set(qubit);
    EXPECT_EQ(bits.words, (Words{1UL << 63 | 1, 1, 2}));
    for (unsigned long qubit = 0; qubit < 130; ++qubit) {
        const bool expected = qubit == 0 || qubit == 63 || qubit == 64 || qubit == 129;
        EXPECT_EQ(bits.test(qubit), expected) << qubit;
    }
    bits.set(64);
    EXPECT_EQ(bits.words[1], 1UL);
}

TEST(PauliBits, AnyTestsEveryWord) {
    for (const unsigned long qubit : {0UL, 63UL, 64UL, 127UL, 128UL, 199UL}) {
        PauliBits bits = bits_of(200);
        bits.set(qubit);
        EXPECT_TRUE(bits.any()) << qubit;
        bits.clear();
        EXPECT_FALSE(bits.any()) << qubit;
        EXPECT_EQ(bits.words, Words(4, 0)) << qubit;
    }
}

TEST(Stabilizer, StartsAsTheIdentity) {
    for (const unsigned length : {1U, 64U, 65U, 1000U}) {
        const Stabilizer row(length);
        EXPECT_EQ(row.length, length);
        EXPECT_EQ(row.phase, 0);
        EXPECT_TRUE(row.is_identity());
        EXPECT_EQ(row.x.bit_count, length);
        EXPECT_EQ(row.z.bit_count, length);
        EXPECT_EQ(text_of(row), uniform_row(length, 'I'));
    }
}

TEST(Stabilizer, OfNoQubitsHasNoWords) {
    Stabilizer row(0);
    EXPECT_TRUE(row.x.words.empty());
    EXPECT_TRUE(row.z.words.empty());
    EXPECT_TRUE(row.is_identity());
    row.phase = 3;
    row.multiply(row_of("-"));
    EXPECT_EQ(text_of(row), "+i");
}

TEST(Stabilizer, OfSixtyFiveQubitsHasQubit64InItsSecondWord) {
    const Stabilizer row = row_of(one_letter_row(65, 64, 'Y'));
    EXPECT_EQ(row.x.words, (Words{0, 1}));
    EXPECT_EQ(row.z.words, (Words{0, 1}));
}

TEST(Stabilizer, LettersAreTheTwoBits) {
    const Stabilizer row = row_of("-iIXZY");
    EXPECT_EQ(row.x.words, (Words{0b1010}));
    EXPECT_EQ(row.z.words, (Words{0b1100}));
    EXPECT_EQ(row.phase, 3);
    EXPECT_EQ(text_of(row), "-iIXZY");
}

TEST(Stabilizer, IsTheIdentityWhateverItsPhase) {
    for (const std::string_view sign : signs) {
        EXPECT_TRUE(row_of(std::string(sign) + "III").is_identity());
        EXPECT_FALSE(row_of(std::string(sign) + "IXI").is_identity());
        EXPECT_FALSE(row_of(std::string(sign) + "IIZ").is_identity());
    }
    EXPECT_FALSE(row_of(one_letter_row(65, 64, 'X')).is_identity());
    EXPECT_FALSE(row_of(one_letter_row(65, 64, 'Z')).is_identity());
}

TEST(Stabilizer, ACopyHasItsOwnWords) {
    Stabilizer row = row_of("-iXYZ");
    const Stabilizer copy = row;
    Stabilizer assigned(3);
    assigned = row;
    row.x.clear();
    row.z.clear();
    row.phase = 0;
    EXPECT_EQ(text_of(copy), "-iXYZ");
    EXPECT_EQ(text_of(assigned), "-iXYZ");
    EXPECT_EQ(copy.x.tail_mask, 7UL);
    EXPECT_EQ(copy.x.bit_count, 3UL);
}

TEST(Stabilizer, AssigningTakesTheLengthOver) {
    Stabilizer row = row_of("+XX");
    row = row_of(uniform_row(70, 'Y', '-'));
    EXPECT_EQ(row.length, 70U);
    EXPECT_EQ(row.x.bit_count, 70UL);
    EXPECT_EQ(row.x.tail_mask, 63UL);
    EXPECT_EQ(text_of(row), uniform_row(70, 'Y', '-'));
}

}  // namespace
