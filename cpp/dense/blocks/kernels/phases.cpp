/// The diagonal gates: phase and Z, on the slots that meet a condition.
#include "dense/blocks/core_block.h"
#include "dense/blocks/kernels/slot_walk.h"

namespace Nimbrel {
namespace {

struct PhaseOp {
    ComplexFactor factor;

    template <typename Amplitudes>
    Amplitudes operator()(Amplitudes x) const {
        return factor.times(x);
    }
};

/// Flips both signs exactly, of zeros too.
struct SignFlipOp {
    __m256d signs = in_all_lanes(-0.0);

    template <typename Amplitudes>
    Amplitudes operator()(Amplitudes x) const {
        return x ^ Amplitudes::of(signs);
    }
};

template <typename SlotOp>
inline void apply_to_run(complex_t* first, unsigned long length, const SlotOp& op) {
    unsigned long i = 0;
#pragma GCC unroll 4
    for (; i + 2 <= length; i += 2) op(TwoAmplitudes::load(first + i)).store(first + i);
    if (i < length) op(OneAmplitude::load(first + i)).store(first + i);
}

/// The slots of a single-bit condition. A negation outside the mask makes the walk begin somewhere
/// else than at 0 or at the bit: it keeps its steps and ends at the block's end.
template <typename Stride, typename SlotOp>
void walk_single_bit(complex_t* data, unsigned long n, Stride stride, unsigned long start,
                     const SlotOp& op) {
    const unsigned long bit = stride;
    if ((start == 0 || start == bit) && bit < n) {
        for (unsigned long i = start; i < n; i += 2 * bit) apply_to_run(data + i, bit, op);
        return;
    }
    for (unsigned long i = start; i < n; i += 2 * bit) {
        apply_to_run(data + i, std::min<unsigned long>(bit, n - i), op);
        if (bit >= n) break;  // the next step may wrap
    }
}

template <typename SlotOp>
void walk_slots(complex_t* data, unsigned long n, SlotCondition cond, const SlotOp& op) {
    if (cond.mask == 0) return apply_to_run(data, n, op);
    if (std::has_single_bit(cond.mask)) {
        return with_constant_stride(
            cond.mask, [&](auto stride) { walk_single_bit(data, n, stride, cond.pattern, op); });
    }
    if (!cond.can_hold(n)) return;
    const unsigned long mask = cond.mask & (n - 1);
    for_each_run(n, mask, cond.pattern, [&](unsigned long first) {
        apply_to_run(data + first, mask == 0 ? n : lowest_bit(mask), op);
    });
}

}  // namespace

void CoreBlock::op_cphase_worker(unsigned long cond_mask, double im, double re,
                                 unsigned long cond_neg_mask) {
    lock(true, nullptr);
    const PhaseOp op{ComplexFactor({re, im})};
    walk_slots(block_data, num_terms, SlotCondition(cond_mask, cond_neg_mask), op);
    unlock(true, nullptr);
}

void CoreBlock::op_cz_worker(unsigned long cond_mask, unsigned long cond_neg_mask) {
    lock(true, nullptr);
    walk_slots(block_data, num_terms, SlotCondition(cond_mask, cond_neg_mask), SignFlipOp{});
    unlock(true, nullptr);
}

}  // namespace Nimbrel
