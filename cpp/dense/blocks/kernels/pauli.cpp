// Three walks, chosen by the X mask:
//
//     no X inside the block      j = i               each slot with itself
//     X inside the block         j = i ^ xl          each pair once, from the slot with w clear,
//                                                    w the lowest bit of xl
//     X among the block number   j = i ^ xl in the other block, for each slot of this block
#include "dense/blocks/kernels/pauli.h"

#include <bit>
#include <utility>

#include "dense/blocks/kernels/wide_gates.h"
#include "dense/blocks/kernels/width.h"
#include "support/amplitudes.h"
#include "support/bits.h"

namespace Nimbrel {
namespace {

/// Multiplies by 1, -i, -1 or i: v * straight + swapped(v) * crossed.
struct PauliPhase {
    WidestAmplitudes straight;
    WidestAmplitudes crossed;

    template <typename Amplitudes>
    Amplitudes times(Amplitudes v) const {
        return Amplitudes::fused(v, Amplitudes::of(straight),
                                 v.swapped() * Amplitudes::of(crossed));
    }
};

PauliPhase power_of_minus_i(unsigned exponent) {
    const auto lanes = [](double lane0, double lane1) {
        return WidestAmplitudes::broadcast(lane0, lane1);
    };
    switch (exponent % 4) {
        case 0:
            return {lanes(1, 1), lanes(0, 0)};
        case 1:
            return {lanes(0, 0), lanes(1, -1)};
        case 2:
            return {lanes(-1, -1), lanes(0, 0)};
        default:
            return {lanes(0, 0), lanes(-1, 1)};
    }
}

/// The signs of a block's slots: the parity of the term index under the Z mask.
class SlotSigns {
  public:
    /// `exchanged` is i ^ j, so that the signs of slots j can be asked by their i.
    SlotSigns(unsigned long block_number, unsigned long num_block_qubits, unsigned long z_mask,
              unsigned long exchanged)
        : z_mask_(z_mask) {
        const unsigned long first = (block_number << num_block_qubits) | exchanged;
        const double even = odd_parity(first & z_mask) ? -0.0 : 0.0;
        const double odd = -even;
        // Of two adjacent slots the upper one has bit 0 set.
        const bool differ = (z_mask & 1) != 0;
        by_parity_[0] = adjacent(even, differ ? odd : even);
        by_parity_[1] = adjacent(odd, differ ? even : odd);
    }

    template <typename Amplitudes>
    Amplitudes applied(unsigned long slot, Amplitudes v) const {
        return v ^ Amplitudes::of(by_parity_[odd_parity(slot & z_mask_)]);
    }

  private:
    static WidestAmplitudes adjacent(double lower, double upper) {
        return TwoAmplitudes::join(OneAmplitude::broadcast(lower), OneAmplitude::broadcast(upper));
    }

    unsigned long z_mask_;
    WidestAmplitudes by_parity_[2];
};

/// The slots i of a product and the slots j that they exchange with.
struct ProductSlots {
    complex_t* here;
    complex_t* there;  ///< the block of slot j
    bool across;       ///< `there` is another block
    unsigned long n;
    unsigned long xl;       ///< the X mask inside the block
    SlotSigns signs_here;   ///< of slots i, by i
    SlotSigns signs_there;  ///< of slots j, by i

    explicit ProductSlots(const PauliProduct& p)
        : here(p.here),
          there(p.there != nullptr ? p.there : p.here),
          across(p.there != nullptr),
          n(p.n),
          xl(p.x_mask & product_slot_mask(p.num_block_qubits)),
          signs_here(p.here_number, p.num_block_qubits, p.z_mask, 0),
          signs_there(across ? p.there_number : p.here_number, p.num_block_qubits, p.z_mask, xl) {}

    /// Whether two adjacent slots exchange with two adjacent slots in the same order.
    bool takes_two() const { return n >= 2 && (xl & 1) == 0; }
};

/// Visits all slots or pairs of a product in ascending order of i: `op.single<A>(i)` where j is i,
/// else `op.pair<A>(i, j)`. With two amplitudes a call stands for i and i + 1.
template <typename Amplitudes, typename Op>
void visit_product(const ProductSlots& slots, Op& op) {
    constexpr unsigned long step = Amplitudes::count;
    if (slots.across) {
        for (unsigned long i = 0; i < slots.n; i += step) {
            op.template pair<Amplitudes>(i, i ^ slots.xl);
        }
    } else if (slots.xl == 0) {
        for (unsigned long i = 0; i < slots.n; i += step) op.template single<Amplitudes>(i);
    } else {
        const unsigned long w = lowest_bit(slots.xl);
        for (unsigned long base = 0; base < slots.n; base += 2 * w) {
            for (unsigned long i = base; i < base + w; i += step) {
                op.template pair<Amplitudes>(i, i ^ slots.xl);
            }
        }
    }
}

/// cos(t) - i sin(t) P.
struct ProductRotation {
    const ProductSlots& slots;
    SlotCondition controls;
    PauliPhase phase;
    WidestAmplitudes sine;
    WidestAmplitudes cosine;

    template <typename Amplitudes>
    void single(unsigned long i) const {
        if (!controls.holds(i)) return;
        const auto u = Amplitudes::load(slots.here + i);
        turned(u, u, slots.signs_here, i).store(slots.here + i);
    }

    template <typename Amplitudes>
    void pair(unsigned long i, unsigned long j) const {
        if (!controls.holds(i)) return;
        const auto u = Amplitudes::load(slots.here + i);
        const auto w = Amplitudes::load(slots.there + j);
        turned(u, w, slots.signs_here, i).store(slots.here + i);
        turned(w, u, slots.signs_there, i).store(slots.there + j);
    }

  private:
    /// The sign is applied after the product by the sine. Only the phase is fused.
    template <typename Amplitudes>
    Amplitudes turned(Amplitudes own, Amplitudes other, const SlotSigns& signs,
                      unsigned long slot) const {
        const Amplitudes part = other * Amplitudes::of(sine);
        return phase.times(signs.applied(slot, part)) + own * Amplitudes::of(cosine);
    }
};

/// 1 + P or 1 - P, not normalised.
struct ProductProjection {
    const ProductSlots& slots;
    PauliPhase phase;
    WidestAmplitudes outcome;

    template <typename Amplitudes>
    void single(unsigned long i) const {
        const auto u = Amplitudes::load(slots.here + i);
        projected(u, u, slots.signs_here, i).store(slots.here + i);
    }

    template <typename Amplitudes>
    void pair(unsigned long i, unsigned long j) const {
        const auto u = Amplitudes::load(slots.here + i);
        const auto w = Amplitudes::load(slots.there + j);
        projected(u, w, slots.signs_here, i).store(slots.here + i);
        projected(w, u, slots.signs_there, i).store(slots.there + j);
    }

  private:
    template <typename Amplitudes>
    Amplitudes projected(Amplitudes own, Amplitudes other, const SlotSigns& signs,
                         unsigned long slot) const {
        return Amplitudes::fused(Amplitudes::of(outcome), phase.times(signs.applied(slot, other)),
                                 own);
    }
};

/// The squared norm of (1 + P) applied to the state. One slot at a time: the order of the sum is
/// part of the result.
struct ProductNorm {
    PauliPhase phase;
    const ProductSlots& slots;
    OneAmplitude sum = OneAmplitude::zero();

    template <typename Amplitudes>
    void single(unsigned long i) {
        const auto u = Amplitudes::load(slots.here + i);
        add(u, u, slots.signs_here, i);
    }

    template <typename Amplitudes>
    void pair(unsigned long i, unsigned long j) {
        const auto u = Amplitudes::load(slots.here + i);
        const auto w = Amplitudes::load(slots.there + j);
        add(u, w, slots.signs_here, i);
        add(w, u, slots.signs_there, i);
    }

    double quarter() const { return (sum * OneAmplitude::broadcast(0.25)).lane_sum(); }

  private:
    void add(OneAmplitude own, OneAmplitude other, const SlotSigns& signs, unsigned long slot) {
        const OneAmplitude v = own + phase.times(signs.applied(slot, other));
        sum = OneAmplitude::fused(v, v, sum);
    }
};

bool odd_block(const PauliProduct& product, unsigned long number) {
    return odd_parity(number << product.num_block_qubits & product.z_mask);
}

void rotate_wide(const PauliProduct& product, const ProductSlots& slots, SlotCondition controls,
                 double sine, double cosine) {
    rotate_product_wide(
        {.here = product.here,
         .there = product.there,
         .n = product.n,
         .x_mask = slots.xl,
         .z_mask = product.z_mask & (product.n - 1),
         .odd_here = odd_block(product, product.here_number),
         .odd_there = odd_block(product, slots.across ? product.there_number : product.here_number),
         .phase = product.y_factors + 1,
         .sine = sine,
         .cosine = cosine,
         .mask = controls.mask & (product.n - 1),
         .pattern = controls.pattern});
}

}  // namespace

unsigned long product_slot_mask(unsigned long num_block_qubits) {
    const auto mask = static_cast<int>((1U << (num_block_qubits % 32)) - 1U);
    return static_cast<unsigned long>(static_cast<long>(mask));
}

void rotate_product(const PauliProduct& product, SlotCondition controls, double sine,
                    double cosine) {
    const ProductSlots slots(product);
    if (product.n >= fewest_wide_slots && wide_kernels_in_use && controls.can_hold(product.n) &&
        slots.xl < product.n && (slots.xl & controls.mask) == 0) {
        return rotate_wide(product, slots, controls, sine, cosine);
    }
    // One more power of -i than the Y factors give: the rotation has a factor -i itself.
    const ProductRotation rotation{slots, controls, power_of_minus_i(product.y_factors + 1),
                                   WidestAmplitudes::broadcast(sine),
                                   WidestAmplitudes::broadcast(cosine)};
    if (slots.takes_two() && ((controls.mask | controls.pattern) & 1) == 0) {
        visit_product<TwoAmplitudes>(slots, rotation);
    } else {
        visit_product<OneAmplitude>(slots, rotation);
    }
}

void project_product(const PauliProduct& product, unsigned long measured) {
    const ProductSlots slots(product);
    const ProductProjection projection{slots, power_of_minus_i(product.y_factors),
                                       WidestAmplitudes::broadcast(measured != 0 ? -1.0 : 1.0)};
    if (slots.takes_two()) {
        visit_product<TwoAmplitudes>(slots, projection);
    } else {
        visit_product<OneAmplitude>(slots, projection);
    }
}

double product_probability(const PauliProduct& product) {
    const ProductSlots slots(product);
    ProductNorm norm{power_of_minus_i(product.y_factors), slots};
    visit_product<OneAmplitude>(slots, norm);
    return norm.quarter();
}

void exchange_slots(complex_t* here, complex_t* there, unsigned long n, unsigned long flips,
                    unsigned long controls) {
    // Inside one block each pair is exchanged from one of its slots only.
    const unsigned long skipped = there == nullptr ? lowest_bit(flips) : 0;
    complex_t* partner = there == nullptr ? here : there;
    for (unsigned long i = 0; i < n; ++i) {
        if ((i & skipped) != 0 || (i & controls) != controls) continue;
        std::swap(here[i], partner[i ^ flips]);
    }
}

}  // namespace Nimbrel
