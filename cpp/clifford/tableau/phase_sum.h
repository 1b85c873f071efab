/// The phase of a product of Pauli strings, summed over words of bits.
///
/// Plain values, callable from any thread.
#pragma once

#include <bit>
#include <cstddef>

#include "support/vectors.h"

using Nimbrel::FourWords;
using Nimbrel::TwoWords;

/// One word, with the members of `FourWords`.
struct OneWord {
    static constexpr std::size_t count = 1;
    unsigned long bits;

    static OneWord zero() { return {0}; }
    static OneWord load(const unsigned long* from) { return {*from}; }
    void store(unsigned long* to) const { *to = bits; }
    bool is_zero() const { return bits == 0; }
    friend OneWord operator^(OneWord a, OneWord b) { return {a.bits ^ b.bits}; }
    friend OneWord operator&(OneWord a, OneWord b) { return {a.bits & b.bits}; }
};

/// The exponents of i that the qubits of a product contribute, summed modulo 4.
///
/// Each bit position has a sum of two bits, `ones` and `twos`, over all words. So the population
/// count is needed once for each row and not once for each word.
///
/// Two letters that commute contribute 0. XZ, ZY and YX contribute 3; ZX, YZ and XY contribute 1.
template <typename Words>
struct PhaseSum {
    Words ones = Words::zero();
    Words twos = Words::zero();

    void add(Words left_x, Words left_z, Words right_x, Words right_z) {
        const Words x_before_z = left_x & right_z;
        const Words odd = x_before_z ^ (left_z & right_x);
        const Words three = x_before_z ^ (left_x ^ right_x) ^ (left_z ^ right_z);
        twos = twos ^ ((three ^ ones) & odd);
        ones = ones ^ odd;
    }
    void add(PhaseSum other) {
        twos = twos ^ other.twos ^ (ones & other.ones);
        ones = ones ^ other.ones;
    }
};

/// Adds the sums of the four words to one sum: first the two halves, then the two words left.
inline PhaseSum<OneWord> folded(const PhaseSum<FourWords>& sum) {
    const TwoWords carries = sum.ones.low() & sum.ones.high();
    const TwoWords ones = sum.ones.low() ^ sum.ones.high();
    const TwoWords twos = carries ^ (sum.twos.low() ^ sum.twos.high());
    PhaseSum<OneWord> total{OneWord{ones.low()}, OneWord{twos.low()}};
    total.add({OneWord{ones.high()}, OneWord{twos.high()}});
    return total;
}

/// The exponent of i that the words of a sum contribute, modulo 4.
inline unsigned exponent_of(const PhaseSum<OneWord>& sum) {
    return static_cast<unsigned>(std::popcount(sum.ones.bits) + 2 * std::popcount(sum.twos.bits)) &
           3U;
}
