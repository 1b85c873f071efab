#include "dense/blocks/kernels/contents.h"

#include <cstring>

#include "support/amplitudes.h"
#include "support/bits.h"
#include "support/random.h"

namespace Nimbrel {
namespace {

/// Clears the slots for which `keeps(slot & mask)` is false. Slots that differ only below the
/// lowest bit of the mask are tested and cleared together.
template <typename Keeps>
bool clear_unless(complex_t* data, unsigned long n, unsigned long mask, Keeps&& keeps) {
    const unsigned long run = mask == 0 || lowest_bit(mask) >= n ? n : lowest_bit(mask);
    bool changed = false;
    for (unsigned long first = 0; first < n; first += run) {
        if (keeps(first & mask)) continue;
        clear_slots(data + first, run);
        changed = true;
    }
    return changed;
}

}  // namespace

void clear_slots(complex_t* data, unsigned long n) {
    std::memset(static_cast<void*>(data), 0, n * sizeof(complex_t));
}

bool clear_other_slots(complex_t* data, unsigned long n, unsigned long mask, unsigned long value) {
    return clear_unless(data, n, mask, [value](unsigned long bits) { return bits == value; });
}

bool clear_masked_slots(complex_t* data, unsigned long n, unsigned long mask) {
    return clear_unless(data, n, mask, [](unsigned long bits) { return bits == 0; });
}

void fill_slots_at_random(complex_t* data, unsigned long n) {
    for (unsigned long i = 0; i < n; ++i) {
        data[i].im = random_plus_minus();
        data[i].re = random_plus_minus();
    }
}

void scale_slots(complex_t* data, unsigned long n, double factor) {
    const auto scale = TwoAmplitudes::broadcast(factor);
    // An amplitude that is zero in all bits stays so; a negative factor or a NaN would change it.
    const auto scale_one = [factor](complex_t* at) {
        const OneAmplitude x = OneAmplitude::load(at);
        if (!x.is_zero_bits()) (x * OneAmplitude::broadcast(factor)).store(at);
    };
    unsigned long i = 0;
    for (; i + 2 <= n; i += 2) {
        const TwoAmplitudes x = TwoAmplitudes::load(data + i);
        if (x.may_have_zero_bits()) {
            scale_one(data + i);
            scale_one(data + i + 1);
        } else {
            (x * scale).store(data + i);
        }
    }
    if (i < n) scale_one(data + i);
}

}  // namespace Nimbrel
