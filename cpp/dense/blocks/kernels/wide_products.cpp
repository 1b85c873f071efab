// Compiled for AVX-512.
#include "dense/blocks/kernels/wide_gates.h"
#include "dense/blocks/kernels/wide_lanes.h"

namespace Nimbrel {
namespace {

struct PauliPhase {
    Lanes straight;
    Lanes crossed;

    NIMBREL_INLINE Lanes times(Lanes v) const {
        return fused(v, straight, product(swapped(v), crossed));
    }
};

PauliPhase power_of_minus_i(unsigned exponent) {
    switch (exponent % 4) {
        case 0:
            return {alternating(1, 1), alternating(0, 0)};
        case 1:
            return {alternating(0, 0), alternating(1, -1)};
        case 2:
            return {alternating(-1, -1), alternating(0, 0)};
        default:
            return {alternating(0, 0), alternating(-1, 1)};
    }
}

bool odd_parity(unsigned long bits) { return (__builtin_popcountl(bits) & 1) != 0; }

/// Negative zeros in the lanes of the slots of a register that are odd under a mask of its slots.
Lanes lane_signs(unsigned long z_mask) {
    double signs[count];
    for (unsigned long i = 0; i < count; ++i) signs[i] = odd_parity(i & z_mask) ? -0.0 : 0.0;
    return for_each_amplitude(signs);
}

struct Rotation {
    PauliPhase phase;
    Lanes sine;
    Lanes cosine;
    // For registers of even and of odd parity: the signs that P gives, and these times the phase.
    Lanes signs[2];
    Lanes short_signs[2];
    bool swaps;  ///< the phase is i or -i
    unsigned long z_mask;

    NIMBREL_INLINE int parity(unsigned long slot, bool odd) const {
        return odd_parity(slot & z_mask) != odd ? 1 : 0;
    }

    /// New amplitudes of the register at `slot`; `other` are those that P takes there.
    NIMBREL_INLINE Lanes turned(Lanes own, Lanes other, unsigned long slot, bool odd) const {
        const Lanes part = signed_by(signs[parity(slot, odd)], product(other, sine));
        return sum(phase.times(part), product(own, cosine));
    }

    /// The same without the products by the zeros and ones of the phase. The zeros matter where
    /// the result is a special lane, and `in_doubt` then gets that lane.
    template <bool Swaps>
    NIMBREL_INLINE Lanes turned_short(Lanes own, Lanes other, unsigned long slot, bool odd,
                                      Mask& in_doubt) const {
        const Lanes part = product(other, sine);
        const Lanes placed =
            signed_by(short_signs[parity(slot, odd)], Swaps ? swapped(part) : part);
        const Lanes result = sum(placed, product(own, cosine));
        in_doubt = static_cast<Mask>(in_doubt | special_lanes(result));
        return result;
    }
};

/// A rotation as the walks use it: the registers at slot i of one block and at slot j of the same
/// or another one, which P exchanges up to the order of their amplitudes.
template <unsigned Flip, bool Swaps>
struct ProductWalk {
    const Rotation rotation;  ///< a copy: its constants then stay in registers
    const WideProduct& p;
    unsigned long far = p.x_mask & ~(count - 1);
    complex_t* here = p.here;
    complex_t* there = p.there != nullptr ? p.there : p.here;

    /// Requires: P leaves every register in its place.
    NIMBREL_INLINE void step_alone(unsigned long i, Mask chosen) const {
        const Lanes u = load(here + i);
        const Lanes new_u = rotation.turned(u, exchanged<Flip>(u), i, p.odd_here);
        store(here + i, select(chosen, new_u, u));
    }

    NIMBREL_INLINE void step(unsigned long i, Mask chosen) const {
        const unsigned long j = i ^ far;
        const Lanes u = load(here + i);
        const Lanes w = load(there + j);
        const Lanes new_u = rotation.turned(u, exchanged<Flip>(w), i, p.odd_here);
        const Lanes new_w = rotation.turned(w, exchanged<Flip>(u), j, p.odd_there);
        store(here + i, select(chosen, new_u, u));
        store(there + j, select(chosen, new_w, w));
    }

    NIMBREL_INLINE Lanes short_alone(unsigned long i, Mask& in_doubt) const {
        const Lanes u = load(here + i);
        return rotation.turned_short<Swaps>(u, exchanged<Flip>(u), i, p.odd_here, in_doubt);
    }

    /// Four steps with one test for all; nothing is stored before it.
    NIMBREL_INLINE void four_alone(unsigned long i) const {
        Mask in_doubt = 0;
        const Lanes u0 = short_alone(i, in_doubt);
        const Lanes u1 = short_alone(i + 4, in_doubt);
        const Lanes u2 = short_alone(i + 8, in_doubt);
        const Lanes u3 = short_alone(i + 12, in_doubt);
        if (in_doubt != 0) [[unlikely]] {
            for (unsigned long k = 0; k < 4 * count; k += count) step_alone(i + k, all_lanes);
            return;
        }
        store(here + i, u0);
        store(here + i + 4, u1);
        store(here + i + 8, u2);
        store(here + i + 12, u3);
    }

    NIMBREL_INLINE void run() const {
        const unsigned long low = p.mask & (count - 1);
        const Mask chosen = qualifying_lanes({{0, 1, 2, 3}}, low, p.pattern & low);
        const bool alone = p.there == nullptr && far == 0;
        // Inside a block each pair of registers is visited from the one with the lowest flipped
        // bit 0.
        const unsigned long selector = p.there == nullptr ? lowest_of(far) : 0;
        const unsigned long fixed = (p.mask & ~low) | selector;
        const unsigned long pattern = p.pattern & ~low;
        const unsigned long longest = fixed == 0 ? p.n : lowest_of(fixed);
        if (alone && chosen == all_lanes && longest >= 4 * count) {
            for_each_run(p.n, fixed, pattern, [&](unsigned long first, unsigned long length) {
                for (unsigned long i = first; i < first + length; i += 4 * count) four_alone(i);
            });
            return;
        }
        for_each_run(p.n, fixed, pattern, [&](unsigned long first, unsigned long length) {
            for (unsigned long i = first; i < first + length; i += count) {
                if (alone) {
                    step_alone(i, chosen);
                } else {
                    step(i, chosen);
                }
            }
        });
    }
};

template <unsigned Flip>
void rotate(const WideProduct& p, const Rotation& rotation) {
    if (rotation.swaps) {
        ProductWalk<Flip, true>{rotation, p}.run();
    } else {
        ProductWalk<Flip, false>{rotation, p}.run();
    }
}

/// The signs of a power of -i, in lanes that were swapped for an odd power.
Lanes phase_signs(unsigned exponent) {
    switch (exponent % 4) {
        case 0:
            return alternating(0.0, 0.0);
        case 1:
            return alternating(0.0, -0.0);
        case 2:
            return alternating(-0.0, -0.0);
        default:
            return alternating(-0.0, 0.0);
    }
}

}  // namespace

void rotate_product_wide(const WideProduct& p) {
    const Lanes even = lane_signs(p.z_mask & (count - 1));
    const Lanes odd = signed_by(all(-0.0), even);
    const Lanes phase = phase_signs(p.phase);
    const Rotation rotation{.phase = power_of_minus_i(p.phase),
                            .sine = all(p.sine),
                            .cosine = all(p.cosine),
                            .signs = {even, odd},
                            .short_signs = {signed_by(phase, even), signed_by(phase, odd)},
                            .swaps = p.phase % 2 != 0,
                            .z_mask = p.z_mask};
    switch (p.x_mask & (count - 1)) {
        case 0:
            return rotate<0>(p, rotation);
        case 1:
            return rotate<1>(p, rotation);
        case 2:
            return rotate<2>(p, rotation);
        default:
            return rotate<3>(p, rotation);
    }
}

}  // namespace Nimbrel
