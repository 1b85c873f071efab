// Compiled for AVX-512.
#include "dense/blocks/kernels/wide_gates.h"

#include "dense/blocks/kernels/wide_ops.h"

namespace Nimbrel {
namespace {

// Where a step of a walk finds its two registers. A place loads step k from itself and stores it.

/// Registers of four adjacent slots each, with steps at three given distances from the first.
template <unsigned long... Distances>
struct FarPlace {
    complex_t* at_x;
    complex_t* at_y;

    static constexpr unsigned long distances[] = {0, Distances...};

    NIMBREL_INLINE void load_step(unsigned long k, Lanes& x, Lanes& y) const {
        x = load(at_x + distances[k]);
        y = load(at_y + distances[k]);
    }
    NIMBREL_INLINE void store_step(unsigned long k, Lanes x, Lanes y) const {
        store(at_x + distances[k], x);
        store(at_y + distances[k], y);
    }
};

/// Two registers of adjacent slots, sorted into x and y for a target of 1 or 2.
template <unsigned long Target>
struct NearPlace {
    complex_t* data;

    NIMBREL_INLINE void load_step(unsigned long k, Lanes& x, Lanes& y) const {
        complex_t* const at = data + 2 * count * k;
        split_pairs<Target>(load(at), load(at + count), x, y);
    }
    NIMBREL_INLINE void store_step(unsigned long k, Lanes x, Lanes y) const {
        complex_t* const at = data + 2 * count * k;
        Lanes a;
        Lanes b;
        join_pairs<Target>(x, y, a, b);
        store(at, a);
        store(at + count, b);
    }
};

template <typename Op, typename Place>
NIMBREL_INLINE bool step(const Op& op, const Place& place, unsigned long k, Mask chosen) {
    Lanes x;
    Lanes y;
    place.load_step(k, x, y);
    // Most of a state may be zeros, and these are not stored.
    if (!apply_op(op, x, y, chosen)) return false;
    place.store_step(k, x, y);
    return true;
}

/// Four steps with one test for all, since a test and a branch at each took a third of the time.
/// Nothing is stored before the test, so that the steps can be done with care instead.
template <typename Op, typename Place>
NIMBREL_INLINE bool four_steps(const Op& op, const Place& place) {
    Lanes x0, x1, x2, x3, y0, y1, y2, y3;
    place.load_step(0, x0, y0);
    place.load_step(1, x1, y1);
    place.load_step(2, x2, y2);
    place.load_step(3, x3, y3);
    const unsigned in_doubt =
        op.attempt(x0, y0) | op.attempt(x1, y1) | op.attempt(x2, y2) | op.attempt(x3, y3);
    if (in_doubt != 0) [[unlikely]] {
        bool changed = false;
        for (unsigned long k = 0; k < 4; ++k) changed |= step(op, place, k, all_lanes);
        return changed;
    }
    place.store_step(0, x0, y0);
    place.store_step(1, x1, y1);
    place.store_step(2, x2, y2);
    place.store_step(3, x3, y3);
    return true;
}

/// Slots that four steps of a walk without controls cover.
constexpr unsigned long four_steps_slots = 8 * count;

/// All pairs of a target below 16, four steps at a time.
template <typename MakePlace, typename Op>
NIMBREL_INLINE bool walk_all(const WidePairs& p, const Op& op, MakePlace&& place_at) {
    bool changed = false;
    for (unsigned long i = 0; i < p.n; i += four_steps_slots) {
        changed |= four_steps(op, place_at(p.lower + i));
    }
    return changed;
}

/// Targets of 4 and more, and pairs of blocks.
template <typename Op>
NIMBREL_INLINE bool walk_far(const WidePairs& p, const Op& op) {
    const unsigned long low = p.mask & (count - 1);
    const Mask chosen = qualifying_lanes({{0, 1, 2, 3}}, low, p.pattern & low);
    complex_t* const at_x = p.lower;
    complex_t* const at_y = p.target != 0 ? p.lower + p.target : p.upper;
    const unsigned long n = p.n;
    const unsigned long fixed = (p.mask & ~low) | p.target;
    const unsigned long pattern = p.pattern & ~low;
    bool changed = false;
    constexpr unsigned long four = 4 * count;
    if (chosen == all_lanes && n >= four && (fixed & (four - 1)) == 0) {
        for_each_run(n, fixed, pattern, [&](unsigned long first, unsigned long length) {
            for (unsigned long i = first; i < first + length; i += four) {
                changed |= four_steps(op, FarPlace<4, 8, 12>{at_x + i, at_y + i});
            }
        });
        return changed;
    }
    for_each_run(n, fixed, pattern, [&](unsigned long first, unsigned long length) {
        for (unsigned long i = first; i < first + length; i += count) {
            changed |= step(op, FarPlace<>{at_x + i, at_y + i}, 0, chosen);
        }
    });
    return changed;
}

/// Targets of 1 and 2.
template <unsigned long Target, typename Op>
NIMBREL_INLINE bool walk_near(const WidePairs& p, const Op& op) {
    constexpr unsigned long group = 2 * count;
    constexpr RegisterSlots x_slots =
        Target == 1 ? RegisterSlots{{0, 2, 4, 6}} : RegisterSlots{{0, 1, 4, 5}};
    const unsigned long low = p.mask & (group - 1);
    const Mask chosen = qualifying_lanes(x_slots, low, p.pattern & low);
    bool changed = false;
    for_each_run(p.n, p.mask & ~low, p.pattern & ~low,
                 [&](unsigned long first, unsigned long length) {
                     for (unsigned long i = first; i < first + length; i += group) {
                         changed |= step(op, NearPlace<Target>{p.lower + i}, 0, chosen);
                     }
                 });
    return changed;
}

template <typename Op>
NIMBREL_INLINE bool walk(const WidePairs& pairs, const Op& op) {
    if (pairs.mask == 0 && pairs.n >= four_steps_slots) {
        switch (pairs.target) {
            case 1:
                return walk_all(pairs, op, [](complex_t* at) { return NearPlace<1>{at}; });
            case 2:
                return walk_all(pairs, op, [](complex_t* at) { return NearPlace<2>{at}; });
            case 4:
                return walk_all(pairs, op,
                                [](complex_t* at) { return FarPlace<8, 16, 24>{at, at + 4}; });
            case 8:
                return walk_all(pairs, op,
                                [](complex_t* at) { return FarPlace<4, 16, 20>{at, at + 8}; });
            default:
                break;
        }
    }
    if (pairs.target == 1) return walk_near<1>(pairs, op);
    if (pairs.target == 2) return walk_near<2>(pairs, op);
    return walk_far(pairs, op);
}

template <typename SlotOp>
NIMBREL_INLINE void walk_slots(const WidePairs& p, const SlotOp& op) {
    const unsigned long low = p.mask & (count - 1);
    const Mask chosen = qualifying_lanes({{0, 1, 2, 3}}, low, p.pattern & low);
    complex_t* const data = p.lower;
    for_each_run(p.n, p.mask & ~low, p.pattern & ~low,
                 [&](unsigned long first, unsigned long length) {
                     for (unsigned long i = first; i < first + length; i += count) {
                         const Lanes x = load(data + i);
                         store(data + i, select(chosen, op(x), x));
                     }
                 });
}

}  // namespace

void exchange_wide(const WidePairs& pairs) { walk(pairs, Exchange{}); }

bool apply_complex_wide(const WidePairs& pairs, const complex_t* matrix) {
    return walk(pairs, ComplexMatrix(matrix));
}

bool apply_diagonal_wide(const WidePairs& pairs, const complex_t* matrix) {
    return walk(pairs, ShortMatrix<Diagonal>(matrix));
}

bool apply_crossed_wide(const WidePairs& pairs, const complex_t* matrix) {
    return walk(pairs, ShortMatrix<Crossed>(matrix));
}

bool apply_real_wide(const WidePairs& pairs, const complex_t* matrix) {
    return walk(pairs, RealMatrix(matrix));
}

void multiply_wide(const WidePairs& slots, complex_t factor) {
    const ComplexFactor m(factor);
    walk_slots(slots, [m](Lanes x) { return m.times(x); });
}

void flip_signs_wide(const WidePairs& slots) {
    const Lanes signs = all(-0.0);
    walk_slots(slots, [signs](Lanes x) { return signed_by(signs, x); });
}

}  // namespace Nimbrel
