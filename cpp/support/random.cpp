#include "support/random.h"

#include <cmath>
#include <cstdint>

namespace {

std::uint32_t draw() { return static_cast<std::uint32_t>(random_gen()); }

constexpr double largest_below_one = 0x1.fffffffffffffp-1;

/// A double in [0, 1) from two 32-bit outputs, low half first. The sum is rounded to 53 bits, which
/// can give 1.0; that becomes the largest double below 1.
double draw_canonical() {
    const double low_half = draw();
    const double high_half = draw();
    const double canonical = (low_half + high_half * 0x1p32) * 0x1p-64;
    return canonical >= 1.0 ? largest_below_one : canonical;
}

/// Does not call the distribution, because a seed must give the same bits with every standard
/// library. The step is one fused multiply-add.
double draw_from(const std::uniform_real_distribution<double>& range) {
    return std::fma(draw_canonical(), range.b() - range.a(), range.a());
}

}  // namespace

double random_zero_to_one() { return draw_from(random_dist_0_to_1); }

double random_plus_minus() { return draw_from(random_dist_plus_minus); }

// Multiply-and-shift with rejection: D. Lemire, "Fast Random Integer Generation in an Interval",
// ACM Transactions on Modeling and Computer Simulation 29 (2019).
unsigned int random_int_inclusive(unsigned int low, unsigned int high) {
    const std::uint32_t range = high - low;
    if (range == 0xFFFFFFFFU) return low + draw();

    const std::uint32_t count = range + 1;
    std::uint64_t product = std::uint64_t{draw()} * count;
    if (static_cast<std::uint32_t>(product) < count) {
        const std::uint32_t threshold = (0U - count) % count;
        while (static_cast<std::uint32_t>(product) < threshold) {
            product = std::uint64_t{draw()} * count;
        }
    }
    return low + static_cast<std::uint32_t>(product >> 32);
}
