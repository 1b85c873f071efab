/// Sine and cosine of an angle, with the last one kept: programs turn by the same angle many times
/// in a row, and on a small register the two functions cost more than the gate.
#pragma once

#include <bit>
#include <cmath>
#include <numbers>

namespace Nimbrel {

struct SineCosine {
    double sine;
    double cosine;
};

/// Used by one thread at a time.
class SineCosineMemo {
  public:
    /// Of an angle in degrees.
    SineCosine of(double degrees) { return of_radians(degrees * std::numbers::pi / 180.0); }

    /// Of half an angle in degrees, halved in radians.
    SineCosine of_half(double degrees) {
        return of_radians(degrees * std::numbers::pi / 180.0 * 0.5);
    }

  private:
    SineCosine of_radians(double radians) {
        // Compared by bits: a negative zero has another sine, and a NaN differs from itself.
        const auto bits = std::bit_cast<unsigned long>(radians);
        if (bits != known_bits_) {
            ::sincos(radians, &known_.sine, &known_.cosine);
            known_bits_ = bits;
        }
        return known_;
    }

    unsigned long known_bits_ = 0;  ///< of an angle of zero
    SineCosine known_{0.0, 1.0};
};

}  // namespace Nimbrel
