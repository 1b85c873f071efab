/// The gates with a target bit: NOT, CNOT, Hadamard and the two kinds of 2x2 matrix.
#include "dense/blocks/core_block.h"
#include "dense/blocks/kernels/slot_walk.h"
#include "dense/blocks/store.h"

namespace Nimbrel {
namespace {

/// One unit in the last place below the double nearest to 1/sqrt(2); results are defined by it.
constexpr double one_over_root_two = 0x1.6a09e667f3bccp-1;
static_assert(std::bit_cast<unsigned long>(one_over_root_two) == 0x3FE6A09E667F3BCCUL);

// A pair operation takes x and y in registers and tells whether they changed. `changed` collects
// that over the whole walk.

/// NOT and CNOT. Equal amplitudes are exchanged like any: to compare them costs more than to store.
struct ExchangeOp {
    static constexpr bool changed = true;

    template <typename Amplitudes>
    bool operator()(Amplitudes& x, Amplitudes& y) const {
        std::swap(x, y);
        return true;
    }
};

/// NOT where it matters whether a block has changed.
struct WatchedExchangeOp {
    bool changed = false;

    template <typename Amplitudes>
    bool operator()(Amplitudes& x, Amplitudes& y) {
        if ((x ^ y).is_zero_bits()) return false;
        std::swap(x, y);
        return changed = true;
    }
};

struct HadamardOp {
    static constexpr bool changed = true;
    __m256d root = in_all_lanes(one_over_root_two);

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

struct ComplexMatrix2x2 {
    ComplexFactor m00, m01, m10, m11;

    explicit ComplexMatrix2x2(const complex_t* m) : m00(m[0]), m01(m[1]), m10(m[2]), m11(m[3]) {}

    template <typename Amplitudes>
    void apply(Amplitudes& x, Amplitudes& y) const {
        const Amplitudes old_x = x;
        x = m00.times(old_x) + m01.times(y);
        y = m10.times(old_x) + m11.times(y);
    }
};

struct RealMatrix2x2 {
    __m256d m0, m1, m2, m3;

    explicit RealMatrix2x2(const double* m)
        : m0(in_all_lanes(m[0])),
          m1(in_all_lanes(m[1])),
          m2(in_all_lanes(m[2])),
          m3(in_all_lanes(m[3])) {}

    template <typename Amplitudes>
    void apply(Amplitudes& x, Amplitudes& y) const {
        const Amplitudes old_x = x;
        x = Amplitudes::fused(Amplitudes::of(m0), old_x, Amplitudes::of(m1) * y);
        y = Amplitudes::fused(old_x, Amplitudes::of(m2), Amplitudes::of(m3) * y);
    }
};

/// x and y of a pair after an operation, and whether they are to be stored.
template <typename Amplitudes>
struct Applied {
    Amplitudes x;
    Amplitudes y;
    bool changed;
};

/// Puts a result into the registers of a walk and into its note of changes.
template <typename Amplitudes>
[[gnu::always_inline]] inline bool take(const Applied<Amplitudes>& applied, Amplitudes& x,
                                        Amplitudes& y, bool& changed) {
    x = applied.x;
    y = applied.y;
    changed = changed || applied.changed;
    return applied.changed;
}

/// A pair that is zero in all bits stays as it is: a product could turn it into a negative zero.
template <typename Matrix>
Applied<OneAmplitude> apply_to_one(const Matrix& matrix, OneAmplitude x, OneAmplitude y) {
    if ((x | y).is_zero_bits()) return {x, y, false};
    matrix.apply(x, y);
    return {x, y, true};
}

/// Two pairs of which any amplitude may be special. Out of line, and given the matrix in memory:
/// walks keep their own copy of it in registers.
template <typename Matrix>
[[gnu::noinline]] Applied<TwoAmplitudes> apply_with_care(const Matrix& matrix, TwoAmplitudes x,
                                                         TwoAmplitudes y) {
    if ((x | y).is_zero_bits()) return {x, y, false};
    if (!(x | y).may_have_zero_bits()) {
        matrix.apply(x, y);
        return {x, y, true};
    }
    const auto low = apply_to_one(matrix, x.low(), y.low());
    const auto high = apply_to_one(matrix, x.high(), y.high());
    return {TwoAmplitudes::join(low.x, high.x), TwoAmplitudes::join(low.y, high.y),
            low.changed || high.changed};
}

/// A 2x2 matrix as a pair operation.
template <typename Matrix>
struct MatrixOp {
    Matrix matrix;
    const Matrix* kept;
    bool changed = false;

    bool operator()(OneAmplitude& x, OneAmplitude& y) {
        return take(apply_to_one(matrix, x, y), x, y, changed);
    }

    [[gnu::always_inline]] bool operator()(TwoAmplitudes& x, TwoAmplitudes& y) {
        if ((x | y).may_have_zero_bits()) [[unlikely]] {
            return take(apply_with_care(*kept, x, y), x, y, changed);
        }
        matrix.apply(x, y);
        return changed = true;
    }
};

/// A complex matrix with zeros in it, as a pair operation. `Shape` leaves out the products by these
/// zeros. They would add a zero to each lane, which matters to a lane that is zero itself, for its
/// sign, and in the presence of infinities; where the short result may be either, `kept` gives the
/// full one.
template <typename Shape>
struct SparseMatrixOp {
    Shape shape;
    const ComplexMatrix2x2* kept;
    bool changed = false;

    bool operator()(OneAmplitude& x, OneAmplitude& y) {
        return take(apply_to_one(*kept, x, y), x, y, changed);
    }

    [[gnu::always_inline]] bool operator()(TwoAmplitudes& x, TwoAmplitudes& y) {
        TwoAmplitudes new_x = x;
        TwoAmplitudes new_y = y;
        shape.apply(new_x, new_y);
        // One look at both: a zero or an infinity in either shows in the product.
        if (!(new_x * new_y).has_plain_lanes()) [[unlikely]] {
            return take(apply_with_care(*kept, x, y), x, y, changed);
        }
        x = new_x;
        y = new_y;
        return changed = true;
    }
};

/// Zeros beside the diagonal: rotations about Z.
struct DiagonalShape {
    ComplexFactor m00, m11;

    explicit DiagonalShape(const complex_t* m) : m00(m[0]), m11(m[3]) {}

    static bool fits(const complex_t* m) {
        return m[1].re == 0.0 && m[1].im == 0.0 && m[2].re == 0.0 && m[2].im == 0.0;
    }

    void apply(TwoAmplitudes& x, TwoAmplitudes& y) const {
        x = m00.times(x);
        y = m11.times(y);
    }
};

/// Real numbers on the diagonal and imaginary ones beside it: rotations about X, and Y.
struct CrossedShape {
    __m256d m00, m01, m10, m11;  ///< m01 and m10 as what they multiply the exchanged lanes by

    explicit CrossedShape(const complex_t* m)
        : m00(in_all_lanes(m[0].re)),
          m01(in_both(-m[1].im, m[1].im)),
          m10(in_both(-m[2].im, m[2].im)),
          m11(in_all_lanes(m[3].re)) {}

    static bool fits(const complex_t* m) {
        return m[0].im == 0.0 && m[1].re == 0.0 && m[2].re == 0.0 && m[3].im == 0.0;
    }

    void apply(TwoAmplitudes& x, TwoAmplitudes& y) const {
        const TwoAmplitudes turned_x = x.swapped() * TwoAmplitudes::of(m10);
        const TwoAmplitudes turned_y = y.swapped() * TwoAmplitudes::of(m01);
        x = x * TwoAmplitudes::of(m00) + turned_y;
        y = turned_x + y * TwoAmplitudes::of(m11);
    }
};

}  // namespace

template <typename PairOp>
void CoreBlock::run_pair_gate(unsigned long target_mask, unsigned long cond_mask,
                              unsigned long cond_neg_mask, PairOp& op) {
    const SlotCondition cond(cond_mask, cond_neg_mask);
    CoreBlock* buddy = op_buddy;
    lock(true, buddy);
    if (target_mask != 0) {
        walk_target(block_data, num_terms, target_mask, cond, op);
        return unlock(op.changed, buddy);
    }
    if (buddy != nullptr) walk_two_blocks(block_data, buddy->block_data, num_terms, cond, op);
    unlock(op.changed, buddy);
    set_op_buddy(nullptr);
}

// A change matters to blocks on disk alone, which have to be written back for it.
void CoreBlock::op_not_worker(unsigned long target_mask) {
    if (block_store->all_in_ram()) {
        ExchangeOp op;
        run_pair_gate(target_mask, 0, 0, op);
    } else {
        WatchedExchangeOp op;
        run_pair_gate(target_mask, 0, 0, op);
    }
}

void CoreBlock::op_cnot_worker(unsigned long target_mask, unsigned long cond_mask,
                               unsigned long cond_neg_mask) {
    ExchangeOp op;
    run_pair_gate(target_mask, cond_mask, cond_neg_mask, op);
}

void CoreBlock::op_had_worker(unsigned long target_mask, unsigned long cond_mask,
                              unsigned long cond_neg_mask) {
    HadamardOp op;
    run_pair_gate(target_mask, cond_mask, cond_neg_mask, op);
}

void CoreBlock::op_complex2x2_worker(unsigned long target_mask, unsigned long cond_mask,
                                     const complex_t* matrix, unsigned long cond_neg_mask) {
    const ComplexMatrix2x2 factors(matrix);
    const auto run = [&](auto op) { run_pair_gate(target_mask, cond_mask, cond_neg_mask, op); };
    if (DiagonalShape::fits(matrix)) return run(SparseMatrixOp{DiagonalShape(matrix), &factors});
    if (CrossedShape::fits(matrix)) return run(SparseMatrixOp{CrossedShape(matrix), &factors});
    run(MatrixOp{factors, &factors});
}

void CoreBlock::op_real2x2_worker(unsigned long target_mask, unsigned long cond_mask,
                                  const double* matrix, unsigned long cond_neg_mask) {
    const RealMatrix2x2 factors(matrix);
    MatrixOp<RealMatrix2x2> op{factors, &factors};
    run_pair_gate(target_mask, cond_mask, cond_neg_mask, op);
}

}  // namespace Nimbrel
