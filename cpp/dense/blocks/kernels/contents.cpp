/// Clearing, filling, scaling and collapsing a block.
#include <cstdio>
#include <cstring>
#include <mutex>

#include "dense/blocks/core_block.h"
#include "dense/blocks/kernels/slot_walk.h"
#include "support/amplitudes.h"
#include "support/random.h"

namespace Nimbrel {
namespace {

/// Zeroes the slots whose bits of `mask` do not meet `keeps(slot & mask)`; slots that differ below
/// the mask's lowest bit go together. Returns whether any slot was zeroed.
template <typename Keeps>
bool zero_unless(complex_t* data, unsigned long n, unsigned long mask, Keeps&& keeps) {
    const unsigned long run = mask == 0 || lowest_bit(mask) >= n ? n : lowest_bit(mask);
    bool changed = false;
    for (unsigned long first = 0; first < n; first += run) {
        if (keeps(first & mask)) continue;
        std::memset(static_cast<void*>(data + first), 0, run * sizeof(complex_t));
        changed = true;
    }
    return changed;
}

// The generator has no lock of its own, and the workers of a register may fill their blocks at the
// same time. The order in which they come to it is theirs, so only one thread's states repeat.
std::mutex filling_with_draws;

}  // namespace

void CoreBlock::self_check_worker(int line) {
    lock(true, nullptr);
    for (unsigned long i = 0; i < num_terms; ++i) {
        if (OneAmplitude::load(block_data + i).is_zero_bits()) continue;
        std::printf("Self-check all-zero inconsistency block %lu at line %d\n", i, line);
    }
    unlock(true, nullptr);
}

void CoreBlock::set_zero_worker() {
    lock(false, nullptr);
    std::memset(static_cast<void*>(block_data), 0, num_terms * sizeof(complex_t));
    unlock(true, nullptr);
}

void CoreBlock::set_zero_mask_worker(unsigned long mask) {
    lock(true, nullptr);
    const bool changed =
        zero_unless(block_data, num_terms, mask, [](unsigned long bits) { return bits == 0; });
    unlock(changed, nullptr);
}

void CoreBlock::collapse_worker(unsigned long mask, unsigned long value) {
    lock(true, nullptr);
    const bool changed = zero_unless(block_data, num_terms, mask,
                                     [value](unsigned long bits) { return bits == value; });
    unlock(changed, nullptr);
}

void CoreBlock::set_random_worker() {
    lock(false, nullptr);
    {
        const std::lock_guard guard(filling_with_draws);
        for (unsigned long i = 0; i < num_terms; ++i) {
            block_data[i].im = random_plus_minus();
            block_data[i].re = random_plus_minus();
        }
    }
    unlock(true, nullptr);
}

void CoreBlock::scale_probability_worker(double factor) {
    lock(true, nullptr);
    const auto scale = TwoAmplitudes::of(in_all_lanes(factor));
    // A zero in all bits stays one; a factor below zero or a NaN would change it.
    const auto scale_one = [factor](complex_t* at) {
        const OneAmplitude x = OneAmplitude::load(at);
        if (!x.is_zero_bits()) (x * OneAmplitude::of(in_all_lanes(factor))).store(at);
    };
    unsigned long i = 0;
    for (; i + 2 <= num_terms; i += 2) {
        const TwoAmplitudes x = TwoAmplitudes::load(block_data + i);
        if (x.may_have_zero_bits()) {
            scale_one(block_data + i);
            scale_one(block_data + i + 1);
        } else {
            (x * scale).store(block_data + i);
        }
    }
    if (i < num_terms) scale_one(block_data + i);
    unlock(true, nullptr);
}

}  // namespace Nimbrel
