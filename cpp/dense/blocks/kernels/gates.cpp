#include "dense/blocks/kernels/gates.h"

#include <cstring>

#include "dense/blocks/kernels/phases.h"
#include "dense/blocks/kernels/slot_walk.h"
#include "dense/blocks/kernels/width.h"

namespace Nimbrel {
namespace {

/// NOT and CNOT. Equal amplitudes are exchanged too: comparing them costs more than the store.
struct ExchangeOp {
    template <typename Amplitudes>
    bool operator()(Amplitudes& x, Amplitudes& y) const {
        std::swap(x, y);
        return true;
    }
};

struct HadamardOp {
    WidestAmplitudes root = WidestAmplitudes::broadcast(one_over_root_two);

    template <typename Amplitudes>
    bool operator()(Amplitudes& x, Amplitudes& y) const {
        const Amplitudes scale = Amplitudes::of(root);
        const Amplitudes sum = x + y;
        const Amplitudes difference = x - y;
        x = sum * scale;
        y = difference * scale;
        return true;
    }
};

struct ComplexFactors {
    ComplexFactor m00, m01, m10, m11;

    explicit ComplexFactors(const MatrixEntries& m) : m00(m[0]), m01(m[1]), m10(m[2]), m11(m[3]) {}

    template <typename Amplitudes>
    void apply(Amplitudes& x, Amplitudes& y) const {
        const Amplitudes old_x = x;
        x = m00.times(old_x) + m01.times(y);
        y = m10.times(old_x) + m11.times(y);
    }
};

struct RealFactors {
    WidestAmplitudes m00, m01, m10, m11;

    explicit RealFactors(const MatrixEntries& m)
        : m00(WidestAmplitudes::broadcast(m[0].re)),
          m01(WidestAmplitudes::broadcast(m[1].re)),
          m10(WidestAmplitudes::broadcast(m[2].re)),
          m11(WidestAmplitudes::broadcast(m[3].re)) {}

    template <typename Amplitudes>
    void apply(Amplitudes& x, Amplitudes& y) const {
        const Amplitudes old_x = x;
        x = Amplitudes::fused(Amplitudes::of(m00), old_x, Amplitudes::of(m01) * y);
        y = Amplitudes::fused(old_x, Amplitudes::of(m10), Amplitudes::of(m11) * y);
    }
};

/// A pair after an operation, and whether it has to be stored.
template <typename Amplitudes>
struct Applied {
    Amplitudes x;
    Amplitudes y;
    bool changed;

    [[gnu::always_inline]] bool store_in(Amplitudes& to_x, Amplitudes& to_y) const {
        to_x = x;
        to_y = y;
        return changed;
    }
};

/// A pair that is zero in all bits stays as it is: a product could make it a negative zero.
template <typename Factors>
Applied<OneAmplitude> apply_to_one(const Factors& factors, OneAmplitude x, OneAmplitude y) {
    if ((x | y).is_zero_bits()) return {x, y, false};
    factors.apply(x, y);
    return {x, y, true};
}

/// Two pairs in which any amplitude may be zero. Out of line and rare, so it makes its own factors.
template <typename Factors>
[[gnu::noinline]] Applied<TwoAmplitudes> apply_with_care(const MatrixEntries& entries,
                                                         TwoAmplitudes x, TwoAmplitudes y) {
    if ((x | y).is_zero_bits()) return {x, y, false};
    const Factors factors(entries);
    if (!(x | y).may_have_zero_bits()) {
        factors.apply(x, y);
        return {x, y, true};
    }
    const auto low = apply_to_one(factors, x.low(), y.low());
    const auto high = apply_to_one(factors, x.high(), y.high());
    return {TwoAmplitudes::join(low.x, high.x), TwoAmplitudes::join(low.y, high.y),
            low.changed || high.changed};
}

/// A 2x2 matrix as a pair operation.
template <typename Factors>
struct MatrixOp {
    Factors factors;
    const MatrixEntries* entries;

    explicit MatrixOp(const MatrixEntries* matrix) : factors(*matrix), entries(matrix) {}

    bool operator()(OneAmplitude& x, OneAmplitude& y) const {
        return apply_to_one(factors, x, y).store_in(x, y);
    }

    [[gnu::always_inline]] bool operator()(TwoAmplitudes& x, TwoAmplitudes& y) const {
        if ((x | y).may_have_zero_bits()) [[unlikely]] {
            return apply_with_care<Factors>(*entries, x, y).store_in(x, y);
        }
        factors.apply(x, y);
        return true;
    }
};

/// A complex matrix with zeros in it, as a pair operation. `Shape` leaves out the products by these
/// zeros. Such a product adds a zero to each lane, which matters for the sign of a lane that is
/// zero and for infinities. Where the short result may differ, the full matrix is applied.
template <typename Shape>
struct SparseMatrixOp {
    Shape shape;
    const MatrixEntries* entries;

    explicit SparseMatrixOp(const MatrixEntries* matrix) : shape(*matrix), entries(matrix) {}

    bool operator()(OneAmplitude& x, OneAmplitude& y) const {
        return apply_to_one(ComplexFactors(*entries), x, y).store_in(x, y);
    }

    [[gnu::always_inline]] bool operator()(TwoAmplitudes& x, TwoAmplitudes& y) const {
        TwoAmplitudes new_x = x;
        TwoAmplitudes new_y = y;
        shape.apply(new_x, new_y);
        // One test for both: a zero or an infinity in either shows in the product.
        if (!(new_x * new_y).has_plain_lanes()) [[unlikely]] {
            return apply_with_care<ComplexFactors>(*entries, x, y).store_in(x, y);
        }
        x = new_x;
        y = new_y;
        return true;
    }
};

struct DiagonalShape {
    ComplexFactor m00, m11;

    explicit DiagonalShape(const MatrixEntries& m) : m00(m[0]), m11(m[3]) {}

    void apply(TwoAmplitudes& x, TwoAmplitudes& y) const {
        x = m00.times(x);
        y = m11.times(y);
    }
};

struct CrossedShape {
    WidestAmplitudes m00, m11;
    WidestAmplitudes m01, m10;  ///< factors of the swapped lanes

    explicit CrossedShape(const MatrixEntries& m)
        : m00(WidestAmplitudes::broadcast(m[0].re)),
          m11(WidestAmplitudes::broadcast(m[3].re)),
          m01(WidestAmplitudes::broadcast(-m[1].im, m[1].im)),
          m10(WidestAmplitudes::broadcast(-m[2].im, m[2].im)) {}

    void apply(TwoAmplitudes& x, TwoAmplitudes& y) const {
        const TwoAmplitudes turned_x = x.swapped() * TwoAmplitudes::of(m10);
        const TwoAmplitudes turned_y = y.swapped() * TwoAmplitudes::of(m01);
        x = x * TwoAmplitudes::of(m00) + turned_y;
        y = turned_x + y * TwoAmplitudes::of(m11);
    }
};

/// A source of an operation without a matrix, which counts as a change whatever it meets.
template <typename Op>
struct OpWithoutMatrix {
    static constexpr bool always_changes = true;

    static Op operation() { return {}; }
};

template <typename Op>
struct OpOfMatrix {
    static constexpr bool always_changes = false;
    const MatrixEntries* entries;

    Op operation() const { return Op(entries); }
};

// Out of line for each source: the switch over the kinds is then a jump without a stack frame,
// which a gate on a few qubits notices. The functions below that `apply_gate` calls are out of line
// for the same reason.
template <typename Source>
[[gnu::noinline]] bool walk_gate(const SlotGate& gate, complex_t* lower, complex_t* upper,
                                 unsigned long n, Source source) {
    bool changed = false;
    if (gate.target != 0) {
        changed = walk_target(lower, n, gate.target, gate.controls, source);
    } else if (upper != nullptr) {
        changed = walk_two_blocks(lower, upper, n, gate.controls, source);
    }
    return Source::always_changes || changed;
}

template <typename Op>
bool walk_matrix(const SlotGate& gate, complex_t* lower, complex_t* upper, unsigned long n) {
    return walk_gate(gate, lower, upper, n, OpOfMatrix<Op>{gate.matrix});
}

/// Whether the two amplitudes of any pair differ in any bit.
bool any_pair_differs(unsigned long target, const complex_t* lower, const complex_t* upper,
                      unsigned long n) {
    if (target == 0) return upper != nullptr && std::memcmp(lower, upper, n * sizeof *lower) != 0;
    for (unsigned long x = 0; x < n && target < n; x += 2 * target) {
        const unsigned long y = x + target;
        const unsigned long length = y < n ? std::min(target, n - y) : 0;
        if (std::memcmp(lower + x, lower + y, length * sizeof *lower) != 0) return true;
    }
    return false;
}

bool exchange_pairs(const SlotGate& gate, complex_t* lower, complex_t* upper, unsigned long n) {
    return walk_gate(gate, lower, upper, n, OpWithoutMatrix<ExchangeOp>{});
}

[[gnu::noinline]] bool exchange_different_pairs(const SlotGate& gate, complex_t* lower,
                                                complex_t* upper, unsigned long n) {
    return any_pair_differs(gate.target, lower, upper, n) && exchange_pairs(gate, lower, upper, n);
}

[[gnu::noinline]] bool apply_diagonal(const SlotGate& gate, complex_t* data, unsigned long n) {
    if (gate.kind == GateKind::phase) {
        multiply_slots(data, n, gate.controls, (*gate.matrix)[3]);
    } else {
        flip_slot_signs(data, n, gate.controls);
    }
    return true;
}

bool is_zero(complex_t entry) { return entry.re == 0.0 && entry.im == 0.0; }

}  // namespace

GateMatrix GateMatrix::complex(const complex_t* m) {
    const bool diagonal = is_zero(m[1]) && is_zero(m[2]);
    const bool crossed = m[0].im == 0.0 && m[1].re == 0.0 && m[2].re == 0.0 && m[3].im == 0.0;
    return {.kind = diagonal  ? GateKind::diagonal_matrix
                    : crossed ? GateKind::crossed_matrix
                              : GateKind::complex_matrix,
            .entries = {m[0], m[1], m[2], m[3]}};
}

GateMatrix GateMatrix::real(const double* m) {
    return {.kind = GateKind::real_matrix,
            .entries = {{{m[0], 0.0}, {m[1], 0.0}, {m[2], 0.0}, {m[3], 0.0}}}};
}

bool apply_gate(const SlotGate& gate, complex_t* lower, complex_t* upper, unsigned long n) {
    if (suits_wide_kernels(gate, n)) return apply_wide(gate, lower, upper, n);
    switch (gate.kind) {
        case GateKind::exchange:
            return exchange_pairs(gate, lower, upper, n);
        case GateKind::compared_exchange:
            return exchange_different_pairs(gate, lower, upper, n);
        case GateKind::hadamard:
            return walk_gate(gate, lower, upper, n, OpWithoutMatrix<HadamardOp>{});
        case GateKind::complex_matrix:
            return walk_matrix<MatrixOp<ComplexFactors>>(gate, lower, upper, n);
        case GateKind::diagonal_matrix:
            return walk_matrix<SparseMatrixOp<DiagonalShape>>(gate, lower, upper, n);
        case GateKind::crossed_matrix:
            return walk_matrix<SparseMatrixOp<CrossedShape>>(gate, lower, upper, n);
        case GateKind::real_matrix:
            return walk_matrix<MatrixOp<RealFactors>>(gate, lower, upper, n);
        case GateKind::phase:
        case GateKind::sign_flip:
            return apply_diagonal(gate, lower, n);
    }
    return false;
}

}  // namespace Nimbrel
