/// Sums of probabilities over a block, and the draw of a slot from them.
///
/// Sums go in ascending slot order with one accumulator of two lanes, squares of real parts in one
/// and of imaginary parts in the other. Their order is part of the result.
#include "dense/blocks/core_block.h"
#include "dense/blocks/kernels/slot_walk.h"
#include "support/amplitudes.h"

namespace Nimbrel {
namespace {

double lane_sum(OneAmplitude sum) {
    return _mm_cvtsd_f64(_mm_add_sd(sum.lanes, sum.swapped().lanes));
}

struct RoundedSquares {
    static OneAmplitude add(OneAmplitude sum, OneAmplitude x) { return sum + x * x; }
};

struct FusedSquares {
    static OneAmplitude add(OneAmplitude sum, OneAmplitude x) {
        return OneAmplitude::fused(x, x, sum);
    }
};

/// Adds up the slots that hold the condition. With a limit the sum ends as soon as it reaches it.
template <typename Squares>
double sum_slots(const complex_t* data, unsigned long n, unsigned long mask, unsigned long value,
                 double limit) {
    OneAmplitude sum{_mm_setzero_pd()};
    const unsigned long run = mask == 0 || lowest_bit(mask) >= n ? n : lowest_bit(mask);
    for (unsigned long first = 0; first < n; first += run) {
        if (((first ^ value) & mask) != 0) continue;
        for (unsigned long i = first; i < first + run; ++i) {
            sum = Squares::add(sum, OneAmplitude::load(data + i));
            if (limit > 0.0 && lane_sum(sum) >= limit) return lane_sum(sum);
        }
    }
    return lane_sum(sum);
}

}  // namespace

void CoreBlock::peek_read_probability_worker(double* out, unsigned long value, unsigned long mask,
                                             double limit) {
    lock(true, nullptr);
    // A constant limit lets the compiler leave the test out of the loop.
    if (mask != 0) {
        *out = limit > 0.0 ? sum_slots<FusedSquares>(block_data, num_terms, mask, value, limit)
                           : sum_slots<FusedSquares>(block_data, num_terms, mask, value, 0.0);
    } else {
        *out = limit > 0.0 ? sum_slots<RoundedSquares>(block_data, num_terms, 0, 0, limit)
                           : sum_slots<RoundedSquares>(block_data, num_terms, 0, 0, 0.0);
    }
    unlock(false, nullptr);
}

// The sums wait for their own last addition and not for each other, so three take as long as one.
void CoreBlock::peek_split_probability_worker(SplitProbability* out, unsigned long bit) {
    lock(true, nullptr);
    OneAmplitude total{_mm_setzero_pd()};
    OneAmplitude halves[2] = {total, total};
    for (unsigned long first = 0; first < num_terms; first += bit) {
        OneAmplitude half = halves[(first & bit) != 0];
        for (unsigned long i = first; i < first + bit; ++i) {
            const OneAmplitude x = OneAmplitude::load(block_data + i);
            total = RoundedSquares::add(total, x);
            half = RoundedSquares::add(half, x);
        }
        halves[(first & bit) != 0] = half;
    }
    *out = {lane_sum(total), lane_sum(halves[0]), lane_sum(halves[1])};
    unlock(false, nullptr);
}

// Zeros are never drawn, and rounding in the total never makes a draw fall off the block's end.
void CoreBlock::get_index_from_probability_worker(double target, unsigned long* out) {
    lock(true, nullptr);
    *out = num_terms - 1;
    double sum = 0.0;
    for (unsigned long i = 0; i < num_terms; ++i) {
        const OneAmplitude x = OneAmplitude::load(block_data + i);
        if (x.is_zero_bits()) continue;
        sum += lane_sum(x * x);
        if (sum >= target) {
            *out = i;
            break;
        }
    }
    unlock(false, nullptr);
}

}  // namespace Nimbrel
