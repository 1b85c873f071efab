// Compiled for AVX-512.
#include "dense/blocks/kernels/wide_gates.h"
#include "dense/blocks/kernels/wide_lanes.h"

namespace Nimbrel {
namespace {

struct PauliPhase {
    Lanes straight;
    Lanes crossed;

    NIMBREL_INLINE Lanes times(Lanes v) const {
        return _mm512_fmadd_pd(v, straight, product(swapped(v), crossed));
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
    alignas(64) double signs[2 * count];
    for (unsigned i = 0; i < count; ++i) {
        signs[2 * i] = signs[2 * i + 1] = odd_parity(i & z_mask) ? -0.0 : 0.0;
    }
    return _mm512_load_pd(signs);
}

/// Amplitude i of the result is amplitude i ^ flip.
template <unsigned Flip>
NIMBREL_INLINE Lanes exchanged(Lanes lanes) {
    if constexpr (Flip == 1) return _mm512_shuffle_f64x2(lanes, lanes, 0xB1);
    if constexpr (Flip == 2) return _mm512_shuffle_f64x2(lanes, lanes, 0x4E);
    if constexpr (Flip == 3) return _mm512_shuffle_f64x2(lanes, lanes, 0x1B);
    return lanes;
}

struct Rotation {
    PauliPhase phase;
    Lanes sine;
    Lanes cosine;
    Lanes signs[2];  // for registers of even and of odd parity
    unsigned long z_mask;

    /// New amplitudes of the register at `slot`; `other` are those that P takes there.
    NIMBREL_INLINE Lanes turned(Lanes own, Lanes other, unsigned long slot, bool odd) const {
        const Lanes sign = signs[odd_parity(slot & z_mask) != odd ? 1 : 0];
        const Lanes part = _mm512_xor_pd(product(other, sine), sign);
        return sum(phase.times(part), product(own, cosine));
    }
};

template <unsigned Flip>
void rotate(const WideProduct& p, const Rotation& rotation, Mask chosen) {
    const unsigned long low = p.mask & (count - 1);
    const unsigned long far = p.x_mask & ~(count - 1);
    complex_t* const here = p.here;
    complex_t* const there = p.there != nullptr ? p.there : p.here;
    const bool alone = p.there == nullptr && far == 0;
    // Inside a block each pair of registers is visited from the one with the lowest flipped bit 0.
    const unsigned long selector = p.there == nullptr ? lowest_of(far) : 0;
    for_each_run(p.n, (p.mask & ~low) | selector, p.pattern & ~low,
                 [&](unsigned long first, unsigned long length) {
                     for (unsigned long i = first; i < first + length; i += count) {
                         const unsigned long j = i ^ far;
                         const Lanes u = load(here + i);
                         const Lanes w = alone ? u : load(there + j);
                         const Lanes new_u = rotation.turned(u, exchanged<Flip>(w), i, p.odd_here);
                         store(here + i, _mm512_mask_blend_pd(chosen, u, new_u));
                         if (alone) continue;
                         const Lanes new_w = rotation.turned(w, exchanged<Flip>(u), j, p.odd_there);
                         store(there + j, _mm512_mask_blend_pd(chosen, w, new_w));
                     }
                 });
}

}  // namespace

void rotate_product_wide(const WideProduct& p) {
    const unsigned long low = p.mask & (count - 1);
    const Mask chosen = qualifying_lanes({{0, 1, 2, 3}}, low, p.pattern & low);
    const Lanes even = lane_signs(p.z_mask & (count - 1));
    const Rotation rotation{.phase = power_of_minus_i(p.phase),
                            .sine = all(p.sine),
                            .cosine = all(p.cosine),
                            .signs = {even, _mm512_xor_pd(even, all(-0.0))},
                            .z_mask = p.z_mask};
    switch (p.x_mask & (count - 1)) {
        case 0:
            return rotate<0>(p, rotation, chosen);
        case 1:
            return rotate<1>(p, rotation, chosen);
        case 2:
            return rotate<2>(p, rotation, chosen);
        default:
            return rotate<3>(p, rotation, chosen);
    }
}

}  // namespace Nimbrel
