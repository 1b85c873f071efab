/// The vector layer: one type for each register width, with all intrinsics inside.
///
/// Every type has the same members and the same arithmetic per amplitude: each sum and product is
/// rounded separately, and only `fused` contracts a product and a sum. A kernel that is a template
/// over the type therefore gives the same bits at every width and on every processor.
#pragma once

#include "support/complex.h"
#include "support/vectors.h"

namespace Nimbrel {

/// A complex factor, each part in every lane of its own register.
struct ComplexFactor {
    WidestAmplitudes re;
    WidestAmplitudes im;

    explicit ComplexFactor(complex_t factor)
        : re(WidestAmplitudes::broadcast(factor.re)), im(WidestAmplitudes::broadcast(factor.im)) {}

    /// (x.re re - x.im im, x.re im + x.im re): two products, one subtraction and one addition, each
    /// rounded.
    template <typename Amplitudes>
    Amplitudes times(Amplitudes x) const {
        return Amplitudes::subtract_add(x * Amplitudes::of(re), x.swapped() * Amplitudes::of(im));
    }
};

}  // namespace Nimbrel
