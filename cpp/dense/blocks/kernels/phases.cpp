#include "dense/blocks/kernels/phases.h"

#include "dense/blocks/kernels/slot_walk.h"

namespace Nimbrel {
namespace {

struct PhaseOp {
    // The switch over constant strides. A sign flip is bound by its memory and has none.
    static constexpr bool has_constant_strides = true;
    ComplexFactor factor;

    template <typename Amplitudes>
    Amplitudes operator()(Amplitudes x) const {
        return factor.times(x);
    }
};

struct SignFlipOp {
    static constexpr bool has_constant_strides = false;
    WidestAmplitudes signs = WidestAmplitudes::broadcast(-0.0);

    template <typename Amplitudes>
    Amplitudes operator()(Amplitudes x) const {
        return x ^ Amplitudes::of(signs);
    }
};

template <typename SlotOp>
[[gnu::always_inline]] inline void apply_to_run(complex_t* first, unsigned long length,
                                                const SlotOp& op) {
    unsigned long i = 0;
#pragma GCC unroll 4
    for (; i + 2 <= length; i += 2) op(TwoAmplitudes::load(first + i)).store(first + i);
    if (i < length) op(OneAmplitude::load(first + i)).store(first + i);
}

template <typename SlotOp>
[[gnu::noinline]] void apply_to_shared_run(complex_t* first, unsigned long length,
                                           const SlotOp& op) {
    const SlotOp local_op = op;
    apply_to_run(first, length, local_op);
}

/// The slots of a single-bit condition. A pattern bit outside the mask moves the start of the walk
/// to a slot other than 0 or the bit: the steps stay, and the walk ends at the end of the block.
template <typename Stride, typename SlotOp>
void walk_single_bit(complex_t* data, unsigned long n, Stride stride, unsigned long start,
                     const SlotOp& op) {
    const unsigned long bit = stride;
    if ((start == 0 || start == bit) && bit < n && bit < shared_run_stride) {
        const SlotOp local_op = op;
        for (unsigned long i = start; i < n; i += 2 * bit) apply_to_run(data + i, bit, local_op);
        return;
    }
    for (unsigned long i = start; i < n; i += 2 * bit) {
        apply_to_shared_run(data + i, std::min<unsigned long>(bit, n - i), op);
        if (bit >= n) break;  // the next step may wrap
    }
}

template <typename SlotOp>
void walk_slots(complex_t* data, unsigned long n, SlotCondition controls, const SlotOp& op) {
    if (controls.mask == 0) return apply_to_shared_run(data, n, op);
    if (std::has_single_bit(controls.mask)) {
        if constexpr (SlotOp::has_constant_strides) {
            return with_constant_stride(controls.mask, [&](auto stride) {
                walk_single_bit(data, n, stride, controls.pattern, op);
            });
        }
        return walk_single_bit(data, n, controls.mask, controls.pattern, op);
    }
    if (!controls.can_hold(n)) return;
    const unsigned long mask = controls.mask & (n - 1);
    const unsigned long length = mask == 0 ? n : lowest_bit(mask);
    const SlotOp local_op = op;
    for_each_run(n, mask, controls.pattern,
                 [&](unsigned long first) { apply_to_run(data + first, length, local_op); });
}

}  // namespace

void multiply_slots(complex_t* data, unsigned long n, SlotCondition controls, complex_t factor) {
    walk_slots(data, n, controls, PhaseOp{ComplexFactor(factor)});
}

void flip_slot_signs(complex_t* data, unsigned long n, SlotCondition controls) {
    walk_slots(data, n, controls, SignFlipOp{});
}

}  // namespace Nimbrel
