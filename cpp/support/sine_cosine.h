/// Sine and cosine of the last angle. Programs often rotate by the same angle many times in a row,
/// and on a small register the two functions cost more than the gate.
#pragma once

#include <bit>
#include <cmath>
#include <numbers>

namespace Nimbrel {

struct SineCosine {
    double sine;
    double cosine;
};

/// Remembers one angle. For one thread at a time.
class SineCosineMemo {
  public:
    /// Sine and cosine of an angle in degrees.
    SineCosine of(double degrees) { return of_radians(degrees * std::numbers::pi / 180.0); }

    /// Sine and cosine of half an angle in degrees. Halves the angle in radians.
    SineCosine of_half(double degrees) {
        return of_radians(degrees * std::numbers::pi / 180.0 * 0.5);
    }

  private:
    SineCosine of_radians(double radians) {
        // Compares bits: the sine of a negative zero differs, and a NaN is not equal to itself.
        const auto bits = std::bit_cast<unsigned long>(radians);
        if (bits != known_bits_) {
            ::sincos(radians, &known_.sine, &known_.cosine);
            known_bits_ = bits;
        }
        return known_;
    }

    unsigned long known_bits_ = 0;  ///< bits of the angle of `known_`
    SineCosine known_{0.0, 1.0};
};

}  // namespace Nimbrel
