/// The amplitude types on the compiler's own vectors, for `support/vectors.h`. Any thread.
///
/// A register has 128 bits, which every 64-bit processor has: NEON of AArch64, SSE2 of x86-64. The
/// members are those of `avx_amplitudes.h`, which describes them.
#pragma once

#include <bit>
#include <cmath>
#include <cstring>

#include "support/complex.h"

namespace Nimbrel {

struct TwoAmplitudes;

/// The widest type. Kernels build their constants at this width once; a narrower type takes the
/// low part of a constant with `of`.
using WidestAmplitudes = TwoAmplitudes;

/// One amplitude, real part in lane 0.
struct OneAmplitude {
    static constexpr unsigned long count = 1;
    using Lanes = double __attribute__((vector_size(16)));
    using Bits = long __attribute__((vector_size(16)));
    Lanes lanes;

    static OneAmplitude load(const complex_t* from) {
        OneAmplitude loaded;
        std::memcpy(&loaded.lanes, from, sizeof loaded.lanes);
        return loaded;
    }
    void store(complex_t* to) const { std::memcpy(to, &lanes, sizeof lanes); }

    static OneAmplitude zero() { return {Lanes{0.0, 0.0}}; }
    static OneAmplitude broadcast(double number) { return {Lanes{number, number}}; }
    static OneAmplitude of(WidestAmplitudes constant);

    OneAmplitude swapped() const { return {__builtin_shufflevector(lanes, lanes, 1, 0)}; }
    double lane_sum() const { return lanes[0] + lanes[1]; }
    bool is_zero_bits() const { return (bits()[0] | bits()[1]) == 0; }
    bool may_have_zero_bits() const { return lanes[0] == 0.0 && lanes[1] == 0.0; }
    bool has_plain_lanes() const {
        const Lanes nothing = lanes - lanes;
        const Bits plain = (lanes < nothing) | (lanes > nothing);
        return (plain[0] & plain[1]) != 0;
    }
    Bits bits() const { return std::bit_cast<Bits>(lanes); }
    static OneAmplitude of_bits(Bits bits) { return {std::bit_cast<Lanes>(bits)}; }

    friend OneAmplitude operator+(OneAmplitude a, OneAmplitude b) { return {a.lanes + b.lanes}; }
    friend OneAmplitude operator-(OneAmplitude a, OneAmplitude b) { return {a.lanes - b.lanes}; }
    friend OneAmplitude operator*(OneAmplitude a, OneAmplitude b) { return {a.lanes * b.lanes}; }
    friend OneAmplitude operator^(OneAmplitude a, OneAmplitude b) {
        return of_bits(a.bits() ^ b.bits());
    }
    friend OneAmplitude operator|(OneAmplitude a, OneAmplitude b) {
        return of_bits(a.bits() | b.bits());
    }
    friend OneAmplitude operator&(OneAmplitude a, OneAmplitude b) {
        return of_bits(a.bits() & b.bits());
    }
    /// Lane by lane, since the compilers have no such operation on a whole vector.
    static OneAmplitude fused(OneAmplitude a, OneAmplitude b, OneAmplitude c) {
        return {Lanes{std::fma(a.lanes[0], b.lanes[0], c.lanes[0]),
                      std::fma(a.lanes[1], b.lanes[1], c.lanes[1])}};
    }
    static OneAmplitude subtract_add(OneAmplitude a, OneAmplitude b) {
        return {__builtin_shufflevector(a.lanes - b.lanes, a.lanes + b.lanes, 0, 3)};
    }
    static OneAmplitude select(OneAmplitude mask, OneAmplitude set, OneAmplitude clear) {
        const Bits chosen = mask.bits() >> 63;
        return of_bits((set.bits() & chosen) | (clear.bits() & ~chosen));
    }
};

/// Two amplitudes of neighbouring slots in two registers.
struct TwoAmplitudes {
    static constexpr unsigned long count = 2;

    static TwoAmplitudes load(const complex_t* from) {
        return {OneAmplitude::load(from), OneAmplitude::load(from + 1)};
    }
    void store(complex_t* to) const {
        low_half.store(to);
        high_half.store(to + 1);
    }

    static TwoAmplitudes broadcast(double number) { return broadcast(number, number); }
    static TwoAmplitudes broadcast(double lane0, double lane1) {
        const OneAmplitude both{OneAmplitude::Lanes{lane0, lane1}};
        return {both, both};
    }
    static TwoAmplitudes of(WidestAmplitudes constant) { return constant; }

    static TwoAmplitudes join(OneAmplitude low, OneAmplitude high) { return {low, high}; }
    OneAmplitude low() const { return low_half; }
    OneAmplitude high() const { return high_half; }

    static TwoAmplitudes join_low(TwoAmplitudes a, TwoAmplitudes b) {
        return {a.low_half, b.low_half};
    }
    static TwoAmplitudes join_high(TwoAmplitudes a, TwoAmplitudes b) {
        return {a.high_half, b.high_half};
    }

    TwoAmplitudes swapped() const { return {low_half.swapped(), high_half.swapped()}; }
    bool is_zero_bits() const { return (low_half | high_half).is_zero_bits(); }
    bool may_have_zero_bits() const {
        return low_half.may_have_zero_bits() || high_half.may_have_zero_bits();
    }
    bool has_plain_lanes() const {
        return low_half.has_plain_lanes() && high_half.has_plain_lanes();
    }

    friend TwoAmplitudes operator+(TwoAmplitudes a, TwoAmplitudes b) {
        return {a.low_half + b.low_half, a.high_half + b.high_half};
    }
    friend TwoAmplitudes operator-(TwoAmplitudes a, TwoAmplitudes b) {
        return {a.low_half - b.low_half, a.high_half - b.high_half};
    }
    friend TwoAmplitudes operator*(TwoAmplitudes a, TwoAmplitudes b) {
        return {a.low_half * b.low_half, a.high_half * b.high_half};
    }
    friend TwoAmplitudes operator^(TwoAmplitudes a, TwoAmplitudes b) {
        return {a.low_half ^ b.low_half, a.high_half ^ b.high_half};
    }
    friend TwoAmplitudes operator|(TwoAmplitudes a, TwoAmplitudes b) {
        return {a.low_half | b.low_half, a.high_half | b.high_half};
    }
    static TwoAmplitudes fused(TwoAmplitudes a, TwoAmplitudes b, TwoAmplitudes c) {
        return {OneAmplitude::fused(a.low_half, b.low_half, c.low_half),
                OneAmplitude::fused(a.high_half, b.high_half, c.high_half)};
    }
    static TwoAmplitudes subtract_add(TwoAmplitudes a, TwoAmplitudes b) {
        return {OneAmplitude::subtract_add(a.low_half, b.low_half),
                OneAmplitude::subtract_add(a.high_half, b.high_half)};
    }

    OneAmplitude low_half;
    OneAmplitude high_half;
};

inline OneAmplitude OneAmplitude::of(WidestAmplitudes constant) { return constant.low(); }

/// A 64-bit word in every lane, for masks over the lanes of one amplitude.
struct WordLanes {
    OneAmplitude::Bits lanes;

    static WordLanes broadcast(unsigned long word) {
        const long lane = static_cast<long>(word);
        return {OneAmplitude::Bits{lane, lane}};
    }
    friend WordLanes operator&(WordLanes a, WordLanes b) { return {a.lanes & b.lanes}; }
    /// All bits of a lane where the words are equal, no bit where they differ.
    static OneAmplitude equal(WordLanes a, WordLanes b) {
        return OneAmplitude::of_bits(a.lanes == b.lanes);
    }
};

}  // namespace Nimbrel
