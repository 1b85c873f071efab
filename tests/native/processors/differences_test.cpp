// What differs between processors, each within its bound: sine and cosine of another C library, and
// the signs of not-a-numbers.
#include <gtest/gtest.h>

#include "processors/differences.h"
#include "support/sine_cosine.h"

namespace Nimbrel::Testing {
namespace {

// More bits than a double has: the truth that sine and cosine are compared with.
static_assert(std::numeric_limits<long double>::digits >= 64);

/// The distance in units of the last place of `value`.
double units_off(double value, long double truth) {
    const double unit = std::nextafter(std::abs(value), HUGE_VAL) - std::abs(value);
    return static_cast<double>(std::abs(truth - static_cast<long double>(value)) /
                               static_cast<long double>(unit));
}

long double radians_of(double degrees) { return degrees * std::numbers::pi / 180.0; }

// The rest of these tests and `SameBits` stand on this.
TEST(SinesAndCosines, OfTheExactAnglesAreFarFromTheMiddleOfTwoDoubles) {
    for (const double angle : exact_angles) {
        for (const long double radians : {radians_of(angle), radians_of(angle) * 0.5L}) {
            for (const long double truth : {std::sin(radians), std::cos(radians)}) {
                EXPECT_LT(units_off(static_cast<double>(truth), truth), 0.44) << angle;
            }
        }
    }
}

TEST(SinesAndCosines, OfTheExactAnglesAreTheNearestDoubles) {
    SineCosineMemo memo;
    for (const double angle : exact_angles) {
        const SineCosine whole = memo.of(angle);
        EXPECT_EQ(whole.sine, static_cast<double>(std::sin(radians_of(angle)))) << angle;
        EXPECT_EQ(whole.cosine, static_cast<double>(std::cos(radians_of(angle)))) << angle;
        const SineCosine half = memo.of_half(angle);
        EXPECT_EQ(half.sine, static_cast<double>(std::sin(radians_of(angle) * 0.5L))) << angle;
        EXPECT_EQ(half.cosine, static_cast<double>(std::cos(radians_of(angle) * 0.5L))) << angle;
    }
}

TEST(SinesAndCosines, OfAnyAngleAreWithinOneUnitInTheLastPlace) {
    SineCosineMemo memo;
    RandomWords random(1);
    for (unsigned i = 0; i < 20000; ++i) {
        const double angle = random.plus_minus() * 100000.0;
        const SineCosine found = memo.of(angle);
        EXPECT_LT(units_off(found.sine, std::sin(radians_of(angle))), 1.0) << angle;
        EXPECT_LT(units_off(found.cosine, std::cos(radians_of(angle))), 1.0) << angle;
    }
}

struct StoredAmplitudes {
    unsigned long input;
    complex_t amplitudes[any_angle_amplitudes];
};

// Both lists are made by `make program-fingerprints`.
constexpr StoredAmplitudes any_angle[] = {
#include "processors/any_angle_amplitudes.inc"
};
static_assert(std::size(any_angle) == num_any_angle_programs);

// A record changes an amplitude of modulus 1 or less by the error of a few products, each with a
// factor that may be one unit off.
TEST(AnyAngle, GivesAmplitudesWithinTheErrorOfSineAndCosine) {
    constexpr double error_of_a_record = 8 * 0x1p-53;
    for (unsigned number = 0; number < num_any_angle_programs; ++number) {
        const Program program = make_any_angle_program(number);
        ASSERT_EQ(fingerprint_of_input(program), any_angle[number].input) << number;
        std::size_t records = 0;
        for (const Program::Chunk& chunk : program.chunks) records += chunk.records.size();
        const double bound = static_cast<double>(records) * error_of_a_record;
        const auto found = pulled_amplitudes(*run_program(program), program.qubits);
        for (unsigned long i = 0; i < any_angle_amplitudes; ++i) {
            EXPECT_NEAR(found[i].re, any_angle[number].amplitudes[i].re, bound) << number;
            EXPECT_NEAR(found[i].im, any_angle[number].amplitudes[i].im, bound) << number;
        }
    }
}

struct Fingerprints {
    unsigned long input;
    unsigned long results;
};

constexpr Fingerprints special[] = {
#include "processors/special_fingerprints.inc"
};
static_assert(std::size(special) == num_special_programs);

// x86-64 makes not-a-numbers with a sign, and AArch64 makes them without one.
TEST(SpecialNumbers, GiveTheSameBitsButForThoseOfNotANumbers) {
    unsigned long not_numbers = 0;
    for (unsigned number = 0; number < num_special_programs; ++number) {
        const Program program = make_special_program(number);
        ASSERT_EQ(fingerprint_of_input(program), special[number].input) << number;
        const auto found = pulled_amplitudes(*run_program(program), program.qubits);
        EXPECT_EQ(fingerprint_without_nan_bits(found), special[number].results) << number;
        for (const complex_t& amplitude : found)
            not_numbers += std::isnan(amplitude.re) ? 1UL : 0UL;
    }
    EXPECT_GT(not_numbers, 0UL);
}

}  // namespace
}  // namespace Nimbrel::Testing
