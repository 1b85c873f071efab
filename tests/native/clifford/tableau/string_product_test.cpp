// Products of strings of words, with both vector widths, compared with the product of rows.
#include "clifford/tableau/string_product.h"

#include <algorithm>

#include "clifford/tableau/clifford_support.h"
#include "support/bits.h"

namespace {

using namespace Nimbrel::Testing;

using Words = std::vector<unsigned long>;

/// The blocks in which a part of a string has a bit.
unsigned short blocks_of(const StringShape& shape, const unsigned long* part) {
    unsigned blocks = 0;
    for (unsigned word = 0; word < shape.words; ++word) {
        if (part[word] != 0) blocks |= 1U << shape.block_of(word);
    }
    return static_cast<unsigned short>(blocks);
}

struct String {
    Words words;
    StringBlocks blocks;

    String(const StringShape& shape, Words all)
        : words(std::move(all)),
          blocks{blocks_of(shape, words.data()), blocks_of(shape, words.data() + shape.words)} {}

    Stabilizer row(const StringShape& shape) const {
        Stabilizer row(64 * shape.words);
        std::copy_n(words.begin(), shape.words, row.x.words.begin());
        std::copy_n(words.begin() + shape.words, shape.words, row.z.words.begin());
        return row;
    }
};

/// Restores the choice of the processor.
class StringProducts : public DrawingTest, public testing::WithParamInterface<bool> {
  protected:
    void SetUp() override { use_wide_strings(GetParam()); }
    void TearDown() override { use_wide_strings(true); }

    /// A string whose words are zero, but for about one in `sparsity`.
    String draw(const StringShape& shape, unsigned long sparsity) {
        Words words(2UL * shape.words);
        for (unsigned long& word : words) word = below(sparsity) == 0 ? draws() : 0;
        return {shape, words};
    }

    void expect_product(unsigned words, unsigned long sparsity) {
        const StringShape shape(words);
        String left = draw(shape, sparsity);
        const String right = draw(shape, sparsity);
        Stabilizer expected = left.row(shape);
        expected.multiply(right.row(shape));
        const StringProduct product = fastest_product(shape)(shape, left.words.data(), left.blocks,
                                                             right.words.data(), right.blocks);
        const String made(shape, left.words);
        ASSERT_EQ(product.exponent, expected.phase);
        ASSERT_EQ(made.row(shape).x.words, expected.x.words);
        ASSERT_EQ(made.row(shape).z.words, expected.z.words);
        ASSERT_EQ(product.blocks.x, made.blocks.x);
        ASSERT_EQ(product.blocks.z, made.blocks.z);
    }
};

TEST_P(StringProducts, AreThoseOfRows) {
    for (unsigned words = 1; words <= 40; ++words) {
        SCOPED_TRACE(words);
        for (const unsigned long sparsity : {1UL, 4UL, 40UL}) expect_product(words, sparsity);
    }
}

/// From 129 words on a block has more than one vector.
TEST_P(StringProducts, OfLongStringsAreThoseOfRows) {
    for (const unsigned words : {127U, 128U, 129U, 135U, 136U, 157U, 256U, 257U, 600U}) {
        SCOPED_TRACE(words);
        for (const unsigned long sparsity : {1UL, 10UL, 300UL}) expect_product(words, sparsity);
    }
}

TEST_P(StringProducts, ByTheIdentityChangeNothing) {
    for (const unsigned words : {1U, 3U, 8U, 9U, 21U}) {
        const StringShape shape(words);
        String left = draw(shape, 1);
        const Words before = left.words;
        const String identity(shape, Words(2UL * words));
        const StringProduct product = fastest_product(shape)(
            shape, left.words.data(), left.blocks, identity.words.data(), identity.blocks);
        EXPECT_EQ(product.exponent, 0U);
        EXPECT_EQ(left.words, before);
        EXPECT_EQ(product.blocks.x, left.blocks.x);
    }
}

TEST_P(StringProducts, WithThemselvesHaveNoBlocks) {
    for (const unsigned words : {1U, 2U, 5U, 8U, 9U, 21U, 157U}) {
        const StringShape shape(words);
        String left = draw(shape, 1);
        const String right = left;
        const StringProduct product = fastest_product(shape)(shape, left.words.data(), left.blocks,
                                                             right.words.data(), right.blocks);
        EXPECT_EQ(product.exponent, 0U) << words;
        EXPECT_EQ(left.words, Words(2UL * words)) << words;
        EXPECT_EQ(product.blocks.x | product.blocks.z, 0) << words;
    }
}

INSTANTIATE_TEST_SUITE_P(Widths, StringProducts, testing::Bool(),
                         [](const auto& wide) { return wide.param ? "Wide" : "Narrow"; });

TEST(StringShape, HasBlocksOfAtLeastOneVectorAndAtMostSixteen) {
    for (const unsigned words : {1U, 7U, 8U, 9U, 128U, 129U, 256U, 257U, 5000U}) {
        const StringShape shape(words);
        const unsigned last = shape.block_of(words - 1);
        EXPECT_LT(last, StringShape::max_blocks) << words;
        EXPECT_EQ(shape.end_word(last), words);
        EXPECT_GE(shape.first_word(1), 8U);
        EXPECT_EQ(shape.first_word(last) / shape.first_word(1), last);
    }
}

}  // namespace
