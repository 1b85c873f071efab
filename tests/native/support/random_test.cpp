#include "support/random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <random>
#include <sstream>
#include <utility>
#include <vector>

namespace {

/// Seeding and outputs of the 32-bit Mersenne Twister, implemented here so that the generator of
/// the standard library is not compared with itself.
class Twister {
  public:
    explicit Twister(std::uint32_t seed) {
        state_[0] = seed;
        for (std::uint32_t i = 1; i < size; ++i) {
            state_[i] = (state_[i - 1] ^ (state_[i - 1] >> 30)) * 1812433253U + i;
        }
    }

    std::uint32_t next() {
        if (position_ == size) regenerate();
        std::uint32_t y = state_[position_++];
        y ^= y >> 11;
        y ^= (y << 7) & 0x9D2C5680U;
        y ^= (y << 15) & 0xEFC60000U;
        return y ^ (y >> 18);
    }

    /// A double in [0, 1) from two outputs, in exact integers: rounds the 64-bit number to 53 bits
    /// once, ties to even, and scales it.
    double next_canonical() {
        const std::uint64_t low = next();
        const std::uint64_t high = next();
        const double sum = static_cast<double>((high << 32) + low);
        return std::min(std::ldexp(sum, -64), std::bit_cast<double>(0x3FEFFFFFFFFFFFFFULL));
    }

  private:
    static constexpr std::uint32_t size = 624;

    void regenerate() {
        for (std::uint32_t i = 0; i < size; ++i) {
            const std::uint32_t y =
                (state_[i] & 0x80000000U) | (state_[(i + 1) % size] & 0x7FFFFFFFU);
            state_[i] = state_[(i + 397) % size] ^ (y >> 1) ^ ((y & 1) != 0 ? 0x9908B0DFU : 0U);
        }
        position_ = 0;
    }

    std::uint32_t state_[size] = {};
    std::uint32_t position_ = size;
};

class Seeds : public testing::TestWithParam<unsigned int> {};

TEST_P(Seeds, ZeroToOneDrawsTwoOutputsLowHalfFirst) {
    Twister twister(GetParam());
    set_random_seed(GetParam());
    for (int i = 0; i < 2000; ++i) ASSERT_EQ(random_zero_to_one(), twister.next_canonical()) << i;
}

TEST_P(Seeds, PlusMinusScalesTheSameDrawWithOneRounding) {
    Twister twister(GetParam());
    set_random_seed(GetParam());
    for (int i = 0; i < 2000; ++i) {
        ASSERT_EQ(random_plus_minus(), std::fma(twister.next_canonical(), 2.0, -1.0)) << i;
    }
}

TEST_P(Seeds, IntegersFollowTheMultiplyAndShiftRule) {
    Twister twister(GetParam());
    set_random_seed(GetParam());
    // The wide range rejects a quarter of all outputs, so a second draw is frequent.
    for (const unsigned int range : {1U, 5U, 1000U, 0xBFFFFFFFU, 0xFFFFFFFEU}) {
        for (int i = 0; i < 500; ++i) {
            const std::uint64_t count = std::uint64_t{range} + 1;
            const std::uint64_t threshold = (std::uint64_t{1} << 32) % count;
            std::uint64_t product = twister.next() * count;
            while ((product & 0xFFFFFFFFU) < threshold) product = twister.next() * count;
            ASSERT_EQ(random_int_inclusive(7, 7 + range), 7 + static_cast<unsigned>(product >> 32));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Random, Seeds, testing::Values(0U, 1U, 5489U, 0xFFFFFFFFU));

TEST(Random, TheWholeRangeAddsOneRawOutput) {
    Twister twister(3);
    set_random_seed(3);
    EXPECT_EQ(random_int_inclusive(0, 0xFFFFFFFFU), twister.next());
}

TEST(Random, AnEmptyRangeStillConsumesOneOutput) {
    Twister twister(11);
    set_random_seed(11);
    EXPECT_EQ(random_int_inclusive(5, 5), 5U);
    twister.next();
    EXPECT_EQ(random_zero_to_one(), twister.next_canonical());
}

TEST(Random, ReseedingStartsTheSequenceAgain) {
    set_random_seed(42);
    const std::vector<double> first{random_zero_to_one(), random_plus_minus()};
    set_random_seed(42);
    EXPECT_EQ(first, (std::vector<double>{random_zero_to_one(), random_plus_minus()}));
}

TEST(Random, DrawsStayInsideTheirRanges) {
    set_random_seed(1);
    for (int i = 0; i < 100000; ++i) {
        const double unit = random_zero_to_one();
        const double symmetric = random_plus_minus();
        ASSERT_TRUE(unit >= 0.0 && unit < 1.0);
        ASSERT_TRUE(symmetric >= -1.0 && symmetric < 1.0);
    }
}

/// Sets the state of the generator so that its next two outputs have all bits set.
TEST(Random, ADrawThatRoundsToOneStepsBackBelowIt) {
    // The state word whose tempered output is 0xFFFFFFFF.
    const auto tempered = [](std::uint32_t y) {
        y ^= y >> 11;
        y ^= (y << 7) & 0x9D2C5680U;
        y ^= (y << 15) & 0xEFC60000U;
        return y ^ (y >> 18);
    };
    // Tempering is linear over bits, so Gaussian elimination finds the word.
    std::vector<std::pair<std::uint32_t, std::uint32_t>> basis;  // (output, input)
    for (int bit = 0; bit < 32; ++bit) {
        std::uint32_t input = 1U << bit;
        std::uint32_t output = tempered(input);
        for (const auto& [known, source] : basis) {
            if ((output ^ known) < output) {
                output ^= known;
                input ^= source;
            }
        }
        basis.emplace_back(output, input);
        std::sort(basis.rbegin(), basis.rend());
    }
    std::uint32_t word = 0;
    std::uint32_t rest = 0xFFFFFFFFU;
    for (const auto& [output, input] : basis) {
        if ((rest ^ output) < rest) {
            rest ^= output;
            word ^= input;
        }
    }
    ASSERT_EQ(rest, 0U);
    ASSERT_EQ(tempered(word), 0xFFFFFFFFU);

    std::stringstream state;
    for (int i = 0; i < 624; ++i) state << word << ' ';
    state << 0;
    state >> random_gen;
    EXPECT_EQ(std::bit_cast<std::uint64_t>(random_zero_to_one()), 0x3FEFFFFFFFFFFFFFULL);
    EXPECT_LT(random_plus_minus(), 1.0);
    set_random_seed(0);
}

}  // namespace
