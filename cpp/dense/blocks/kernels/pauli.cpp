/// The Pauli products on a block or a pair of blocks: rotation, measurement and its probability.
///
/// P takes the amplitude of slot j = i ^ x_mask to slot i, with a sign from the parity of i &
/// z_mask and a power of i from the number of Y factors. Three kinds of walk:
///
///     no X inside the block      j = i               each slot by itself
///     X inside the block         j = i ^ xl          each pair once, from the slot with w clear,
///                                                    w the lowest bit of xl
///     X among the block number   j = i ^ xl in the buddy, each slot of this block
#include <bit>

#include "dense/blocks/core_block.h"
#include "dense/blocks/kernels/slot_walk.h"

namespace Nimbrel {
namespace {

/// factor(v) = v * straight + swapped(v) * crossed: a product by 1, -i, -1 or i.
struct PauliPhase {
    __m256d straight;
    __m256d crossed;

    template <typename Amplitudes>
    Amplitudes times(Amplitudes v) const {
        return Amplitudes::fused(v, Amplitudes::of(straight),
                                 v.swapped() * Amplitudes::of(crossed));
    }
};

/// The powers of -i, from the zeroth.
PauliPhase power_of_minus_i(unsigned exponent) {
    switch (exponent % 4) {
        case 0:
            return {in_both(1, 1), in_both(0, 0)};
        case 1:
            return {in_both(0, 0), in_both(1, -1)};
        case 2:
            return {in_both(-1, -1), in_both(0, 0)};
        default:
            return {in_both(0, 0), in_both(-1, 1)};
    }
}

bool odd_parity(unsigned long bits) { return (std::popcount(bits) & 1) != 0; }

/// The signs of a block's slots, by the parity of their term index under the Z mask.
class SlotSigns {
  public:
    /// `exchanged` is what j differs from i in, for the signs of slots j by their i.
    SlotSigns(const CoreBlock& block, unsigned long z_mask, unsigned long exchanged)
        : z_mask_(z_mask) {
        const unsigned long first = (block.thread_id << block.num_block_qubits) | exchanged;
        const double even = odd_parity(first & z_mask) ? -0.0 : 0.0;
        const double odd = -even;
        // Of two neighbours the upper one has bit 0 set.
        const bool differ = (z_mask & 1) != 0;
        by_parity_[0] = _mm256_setr_pd(even, even, differ ? odd : even, differ ? odd : even);
        by_parity_[1] = _mm256_setr_pd(odd, odd, differ ? even : odd, differ ? even : odd);
    }

    template <typename Amplitudes>
    Amplitudes applied(unsigned long slot, Amplitudes v) const {
        return v ^ Amplitudes::of(by_parity_[odd_parity(slot & z_mask_)]);
    }

  private:
    unsigned long z_mask_;
    __m256d by_parity_[2];
};

/// Where one product works: the block's slots i and the slots j that they exchange with.
struct ProductPlace {
    complex_t* here;
    complex_t* there;  ///< the block of slot j
    bool across;       ///< `there` is the buddy
    unsigned long n;
    unsigned long xl;       ///< the X mask inside the block
    SlotSigns signs_here;   ///< of slots i, by i
    SlotSigns signs_there;  ///< of slots j, by i

    ProductPlace(const CoreBlock& block, const CoreBlock* buddy, unsigned long x_mask,
                 unsigned long z_mask)
        : here(block.block_data),
          there(buddy != nullptr ? buddy->block_data : block.block_data),
          across(buddy != nullptr),
          n(block.num_terms),
          xl(x_mask & slot_mask(block.num_block_qubits)),
          signs_here(block, z_mask, 0),
          signs_there(buddy != nullptr ? *buddy : block, z_mask, xl) {}

    /// The mask of the slot bits, with the block's qubits taken modulo 32: these kernels serve
    /// blocks of fewer than 2^31 terms.
    static unsigned long slot_mask(unsigned long block_qubits) {
        const auto mask = static_cast<int>((1U << (block_qubits % 32)) - 1U);
        return static_cast<unsigned long>(static_cast<long>(mask));
    }

    /// Whether two neighbouring slots exchange with two neighbours in the same order.
    bool takes_two() const { return n >= 2 && (xl & 1) == 0; }
};

/// Visits all slots or pairs of a product in ascending order of i: `op.alone<A>(i)` where j is i,
/// `op.pair<A>(i, j)` else. Where two are taken at a time they are i and i + 1.
template <typename Amplitudes, typename Op>
void visit_product(const ProductPlace& place, Op& op) {
    constexpr unsigned long step = Amplitudes::count;
    if (place.across) {
        for (unsigned long i = 0; i < place.n; i += step) {
            op.template pair<Amplitudes>(i, i ^ place.xl);
        }
    } else if (place.xl == 0) {
        for (unsigned long i = 0; i < place.n; i += step) op.template alone<Amplitudes>(i);
    } else {
        const unsigned long w = lowest_bit(place.xl);
        for (unsigned long base = 0; base < place.n; base += 2 * w) {
            for (unsigned long i = base; i < base + w; i += step) {
                op.template pair<Amplitudes>(i, i ^ place.xl);
            }
        }
    }
}

/// cos(t) - i sin(t) P.
struct ProductRotation {
    const ProductPlace& place;
    SlotCondition cond;
    PauliPhase phase;
    __m256d sine;
    __m256d cosine;

    template <typename Amplitudes>
    void alone(unsigned long i) const {
        if (!cond.holds(i)) return;
        const auto u = Amplitudes::load(place.here + i);
        turned(u, u, place.signs_here, i).store(place.here + i);
    }

    template <typename Amplitudes>
    void pair(unsigned long i, unsigned long j) const {
        if (!cond.holds(i)) return;
        const auto u = Amplitudes::load(place.here + i);
        const auto w = Amplitudes::load(place.there + j);
        turned(u, w, place.signs_here, i).store(place.here + i);
        turned(w, u, place.signs_there, i).store(place.there + j);
    }

  private:
    /// The sign comes after the product by the sine, and nothing here is fused but the phase.
    template <typename Amplitudes>
    Amplitudes turned(Amplitudes own, Amplitudes other, const SlotSigns& signs,
                      unsigned long slot) const {
        const Amplitudes part = other * Amplitudes::of(sine);
        return phase.times(signs.applied(slot, part)) + own * Amplitudes::of(cosine);
    }
};

/// 1 + P or 1 - P, not scaled.
struct ProductProjection {
    const ProductPlace& place;
    PauliPhase phase;
    __m256d outcome;

    template <typename Amplitudes>
    void alone(unsigned long i) const {
        const auto u = Amplitudes::load(place.here + i);
        projected(u, u, place.signs_here, i).store(place.here + i);
    }

    template <typename Amplitudes>
    void pair(unsigned long i, unsigned long j) const {
        const auto u = Amplitudes::load(place.here + i);
        const auto w = Amplitudes::load(place.there + j);
        projected(u, w, place.signs_here, i).store(place.here + i);
        projected(w, u, place.signs_there, i).store(place.there + j);
    }

  private:
    template <typename Amplitudes>
    Amplitudes projected(Amplitudes own, Amplitudes other, const SlotSigns& signs,
                         unsigned long slot) const {
        return Amplitudes::fused(Amplitudes::of(outcome), phase.times(signs.applied(slot, other)),
                                 own);
    }
};

/// The squared norm of (1 + P) on the state. One slot at a time: the order of the sum is part of
/// the result.
struct ProductNorm {
    PauliPhase phase;
    const ProductPlace& place;
    OneAmplitude sum{_mm_setzero_pd()};

    template <typename Amplitudes>
    void alone(unsigned long i) {
        const auto u = Amplitudes::load(place.here + i);
        add(u, u, place.signs_here, i);
    }

    template <typename Amplitudes>
    void pair(unsigned long i, unsigned long j) {
        const auto u = Amplitudes::load(place.here + i);
        const auto w = Amplitudes::load(place.there + j);
        add(u, w, place.signs_here, i);
        add(w, u, place.signs_there, i);
    }

    double quarter() const {
        const OneAmplitude part = sum * OneAmplitude::of(in_all_lanes(0.25));
        return _mm_cvtsd_f64(_mm_add_sd(part.lanes, part.swapped().lanes));
    }

  private:
    void add(OneAmplitude own, OneAmplitude other, const SlotSigns& signs, unsigned long slot) {
        const OneAmplitude v = own + phase.times(signs.applied(slot, other));
        sum = OneAmplitude::fused(v, v, sum);
    }
};

unsigned count_y_factors(unsigned long x_mask, unsigned long z_mask) {
    return static_cast<unsigned>(std::popcount(x_mask & z_mask));
}

}  // namespace

void CoreBlock::op_ppr_worker(unsigned long x_mask, unsigned long z_mask, unsigned long cond_mask,
                              double sine, double cosine, unsigned long cond_neg_mask) {
    CoreBlock* buddy = op_buddy;
    lock(true, buddy);
    const ProductPlace place(*this, buddy, x_mask, z_mask);
    // The rotation's own factor -i is one more power beside those of the Y factors.
    const ProductRotation rotation{place, SlotCondition(cond_mask, cond_neg_mask),
                                   power_of_minus_i(count_y_factors(x_mask, z_mask) + 1),
                                   in_all_lanes(sine), in_all_lanes(cosine)};
    if (place.takes_two() && ((cond_mask | cond_neg_mask) & 1) == 0) {
        visit_product<TwoAmplitudes>(place, rotation);
    } else {
        visit_product<OneAmplitude>(place, rotation);
    }
    unlock(true, buddy);
    if (buddy != nullptr) set_op_buddy(nullptr);
}

void CoreBlock::op_ppm_worker(unsigned long x_mask, unsigned long z_mask, unsigned long measured) {
    CoreBlock* buddy = op_buddy;
    lock(true, buddy);
    const ProductPlace place(*this, buddy, x_mask, z_mask);
    const ProductProjection projection{place, power_of_minus_i(count_y_factors(x_mask, z_mask)),
                                       in_all_lanes(measured != 0 ? -1.0 : 1.0)};
    if (place.takes_two()) {
        visit_product<TwoAmplitudes>(place, projection);
    } else {
        visit_product<OneAmplitude>(place, projection);
    }
    unlock(true, buddy);
    if (buddy != nullptr) set_op_buddy(nullptr);
}

void CoreBlock::op_pps_worker(unsigned long x_mask, unsigned long z_mask, double* result) {
    CoreBlock* buddy = op_buddy;
    lock(true, buddy);
    const ProductPlace place(*this, buddy, x_mask, z_mask);
    ProductNorm norm{power_of_minus_i(count_y_factors(x_mask, z_mask)), place};
    visit_product<OneAmplitude>(place, norm);
    unlock(false, buddy);
    if (buddy != nullptr) set_op_buddy(nullptr);
    *result = norm.quarter();
}

// The early way out leaves the lock counted, which no reader of the count minds.
void CoreBlock::op_x_multi_worker(unsigned long target_bits, unsigned long condition_bits) {
    CoreBlock* buddy = op_buddy;
    lock(true, buddy);
    const unsigned long tl = target_bits & ProductPlace::slot_mask(num_block_qubits);
    if (tl == 0) return;
    complex_t* there = buddy != nullptr ? buddy->block_data : block_data;
    const unsigned long once = buddy != nullptr ? 0 : lowest_bit(tl);
    for (unsigned long i = 0; i < num_terms; ++i) {
        if ((i & once) != 0 || (i & condition_bits) != condition_bits) continue;
        std::swap(block_data[i], there[i ^ tl]);
    }
    unlock(true, buddy);
    if (buddy != nullptr) set_op_buddy(nullptr);
}

}  // namespace Nimbrel
