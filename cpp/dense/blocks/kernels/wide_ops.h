/// The gates on registers of four amplitudes. For the sources that are compiled for AVX-512 only,
/// any thread. Internal linkage, as in `wide_lanes.h`.
///
/// An operation is made from the entries of its matrix or from `Factors`, which have the same
/// numbers ready for loading.
#pragma once

#include "dense/blocks/kernels/register_gate.h"
#include "dense/blocks/kernels/wide_lanes.h"

namespace Nimbrel {
namespace {  // NOLINT: internal linkage is the point, see wide_lanes.h

/// A pair of factors, in every amplitude's two lanes.
NIMBREL_INLINE Lanes both(const RegisterGate& g, unsigned place) {
    return load_repeated(g.factors[place]);
}

NIMBREL_INLINE ComplexFactor prepared(const RegisterGate& g, unsigned place) {
    return ComplexFactor(both(g, place), both(g, place + 1));
}

// The pair operations: `apply` replaces x and y. With `keeps_zeros`, a pair that is zero in all
// bits has to stay as it is. `attempt` computes x and y as if there were none, and returns lanes in
// which that may be wrong.

struct Exchange {
    static constexpr bool keeps_zeros = false;
    Exchange() = default;
    NIMBREL_INLINE explicit Exchange(const RegisterGate& /*g*/) {}
    NIMBREL_INLINE void apply(Lanes& x, Lanes& y) const {
        const Lanes old_x = x;
        x = y;
        y = old_x;
    }
    NIMBREL_INLINE Mask attempt(Lanes& x, Lanes& y) const {
        apply(x, y);
        return 0;
    }
};

struct Hadamard {
    static constexpr bool keeps_zeros = false;
    Lanes root;
    NIMBREL_INLINE explicit Hadamard(const RegisterGate& g) : root(both(g, 0)) {}
    NIMBREL_INLINE void apply(Lanes& x, Lanes& y) const {
        const Lanes old_x = x;
        x = product(sum(old_x, y), root);
        y = product(difference(old_x, y), root);
    }
    NIMBREL_INLINE Mask attempt(Lanes& x, Lanes& y) const {
        apply(x, y);
        return 0;
    }
};

struct ComplexMatrix {
    static constexpr bool keeps_zeros = true;
    ComplexFactor m00, m01, m10, m11;
    NIMBREL_INLINE explicit ComplexMatrix(const complex_t* m)
        : m00(m[0]), m01(m[1]), m10(m[2]), m11(m[3]) {}
    NIMBREL_INLINE explicit ComplexMatrix(const RegisterGate& g)
        : m00(prepared(g, 0)), m01(prepared(g, 2)), m10(prepared(g, 4)), m11(prepared(g, 6)) {}
    NIMBREL_INLINE void apply(Lanes& x, Lanes& y) const {
        const Lanes old_x = x;
        x = sum(m00.times(old_x), m01.times(y));
        y = sum(m10.times(old_x), m11.times(y));
    }
    NIMBREL_INLINE Mask attempt(Lanes& x, Lanes& y) const {
        const Mask zero = zero_amplitudes(x, y);
        apply(x, y);
        return zero;
    }
};

struct RealMatrix {
    static constexpr bool keeps_zeros = true;
    Lanes m00, m01, m10, m11;
    NIMBREL_INLINE explicit RealMatrix(const complex_t* m)
        : m00(all(m[0].re)), m01(all(m[1].re)), m10(all(m[2].re)), m11(all(m[3].re)) {}
    NIMBREL_INLINE explicit RealMatrix(const RegisterGate& g)
        : m00(both(g, 0)), m01(both(g, 1)), m10(both(g, 2)), m11(both(g, 3)) {}
    NIMBREL_INLINE void apply(Lanes& x, Lanes& y) const {
        const Lanes old_x = x;
        x = fused(m00, old_x, product(m01, y));
        y = fused(old_x, m10, product(m11, y));
    }
    NIMBREL_INLINE Mask attempt(Lanes& x, Lanes& y) const {
        const Mask zero = zero_amplitudes(x, y);
        apply(x, y);
        return zero;
    }
};

/// One row of a matrix. Rare and out of line, so that its constants take no registers elsewhere.
[[gnu::noinline, gnu::cold]] Lanes row_in_full(const complex_t* row, Lanes x, Lanes y) {
    return sum(ComplexFactor(row[0]).times(x), ComplexFactor(row[1]).times(y));
}

/// A matrix with zeros in it, without the products by these zeros. Such a product adds a zero,
/// which matters where the sum is a zero, and it is not a number for an infinity.
template <typename Shape>
struct ShortMatrix {
    static constexpr bool keeps_zeros = true;
    Shape shape;
    const complex_t* entries;
    NIMBREL_INLINE explicit ShortMatrix(const complex_t* m) : shape(m), entries(m) {}
    NIMBREL_INLINE explicit ShortMatrix(const RegisterGate& g) : shape(g), entries(g.matrix) {}
    NIMBREL_INLINE Mask attempt(Lanes& x, Lanes& y) const {
        const Lanes old_x = x;
        x = shape.row_x(old_x, y);
        y = shape.row_y(old_x, y);
        // One test for both: a special lane in either shows in the product. A pair of zeros gives
        // zeros.
        return special_lanes(product(x, y));
    }
    NIMBREL_INLINE void apply(Lanes& x, Lanes& y) const {
        const Lanes old_x = x;
        const Lanes old_y = y;
        if (attempt(x, y) == 0) [[likely]]
            return;
        x = row_in_full(entries, old_x, old_y);
        y = row_in_full(entries + 2, old_x, old_y);
    }
};

struct Diagonal {
    ComplexFactor m00, m11;
    NIMBREL_INLINE explicit Diagonal(const complex_t* m) : m00(m[0]), m11(m[3]) {}
    NIMBREL_INLINE explicit Diagonal(const RegisterGate& g)
        : m00(prepared(g, 0)), m11(prepared(g, 2)) {}
    NIMBREL_INLINE Lanes row_x(Lanes x, Lanes /*y*/) const { return m00.times(x); }
    NIMBREL_INLINE Lanes row_y(Lanes /*x*/, Lanes y) const { return m11.times(y); }
};

struct Crossed {
    Lanes m00, m11, m01, m10;
    NIMBREL_INLINE explicit Crossed(const complex_t* m)
        : m00(all(m[0].re)),
          m11(all(m[3].re)),
          m01(alternating(-m[1].im, m[1].im)),
          m10(alternating(-m[2].im, m[2].im)) {}
    NIMBREL_INLINE explicit Crossed(const RegisterGate& g)
        : m00(both(g, 0)), m11(both(g, 1)), m01(both(g, 2)), m10(both(g, 3)) {}
    NIMBREL_INLINE Lanes row_x(Lanes x, Lanes y) const {
        return sum(product(x, m00), product(swapped(y), m01));
    }
    NIMBREL_INLINE Lanes row_y(Lanes x, Lanes y) const {
        return sum(product(swapped(x), m10), product(y, m11));
    }
};

/// One register of x and one of y, of which the lanes of `chosen` qualify. Returns whether any pair
/// may have changed.
template <typename Op>
NIMBREL_INLINE bool apply_op(const Op& op, Lanes& x, Lanes& y, Mask chosen) {
    const Lanes old_x = x;
    const Lanes old_y = y;
    if constexpr (Op::keeps_zeros) {
        chosen = static_cast<Mask>(chosen & nonzero_amplitudes(x, y));
        if (chosen == 0) return false;
    }
    op.apply(x, y);
    if (chosen != all_lanes) [[unlikely]] {
        x = select(chosen, x, old_x);
        y = select(chosen, y, old_y);
    }
    return chosen != 0;
}

}  // namespace
}  // namespace Nimbrel
