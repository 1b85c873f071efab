#include "dense/blocks/kernels/probabilities.h"

#include "support/amplitudes.h"
#include "support/bits.h"

namespace Nimbrel {
namespace {

struct RoundedSquares {
    static OneAmplitude add(OneAmplitude sum, OneAmplitude x) { return sum + x * x; }
};

struct FusedSquares {
    static OneAmplitude add(OneAmplitude sum, OneAmplitude x) {
        return OneAmplitude::fused(x, x, sum);
    }
};

template <typename Squares>
double sum_slots(const complex_t* data, unsigned long n, unsigned long mask, unsigned long value,
                 double limit) {
    OneAmplitude sum = OneAmplitude::zero();
    const unsigned long run = mask == 0 || lowest_bit(mask) >= n ? n : lowest_bit(mask);
    for (unsigned long first = 0; first < n; first += run) {
        if (((first ^ value) & mask) != 0) continue;
        for (unsigned long i = first; i < first + run; ++i) {
            sum = Squares::add(sum, OneAmplitude::load(data + i));
            if (limit > 0.0 && sum.lane_sum() >= limit) return sum.lane_sum();
        }
    }
    return sum.lane_sum();
}

}  // namespace

double sum_probabilities(const complex_t* data, unsigned long n, unsigned long mask,
                         unsigned long value, double limit) {
    // A constant limit of 0 lets the compiler remove the test from the loop.
    if (mask != 0) {
        return limit > 0.0 ? sum_slots<FusedSquares>(data, n, mask, value, limit)
                           : sum_slots<FusedSquares>(data, n, mask, value, 0.0);
    }
    return limit > 0.0 ? sum_slots<RoundedSquares>(data, n, 0, 0, limit)
                       : sum_slots<RoundedSquares>(data, n, 0, 0, 0.0);
}

// A sum is bound by the latency of its own additions, so three sums take as long as one.
SplitProbability split_probabilities(const complex_t* data, unsigned long n, unsigned long bit) {
    OneAmplitude total = OneAmplitude::zero();
    OneAmplitude halves[2] = {total, total};
    for (unsigned long first = 0; first < n; first += bit) {
        OneAmplitude half = halves[(first & bit) != 0];
        for (unsigned long i = first; i < first + bit; ++i) {
            const OneAmplitude x = OneAmplitude::load(data + i);
            total = RoundedSquares::add(total, x);
            half = RoundedSquares::add(half, x);
        }
        halves[(first & bit) != 0] = half;
    }
    return {total.lane_sum(), halves[0].lane_sum(), halves[1].lane_sum()};
}

unsigned long find_slot(const complex_t* data, unsigned long n, double target) {
    double sum = 0.0;
    for (unsigned long i = 0; i < n; ++i) {
        const OneAmplitude x = OneAmplitude::load(data + i);
        if (x.is_zero_bits()) continue;
        sum += (x * x).lane_sum();
        if (sum >= target) return i;
    }
    return n - 1;
}

}  // namespace Nimbrel
