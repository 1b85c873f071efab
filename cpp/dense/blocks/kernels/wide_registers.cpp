// Compiled for AVX-512.
//
// A step applies one gate and calls the next gate's step with the registers as arguments. That call
// is its last action, so the compiler makes it a jump. The registers then stay where they are, and
// each step has a branch of its own to predict.
#include "dense/blocks/kernels/register_gate.h"
#include "dense/blocks/kernels/wide_ops.h"

namespace Nimbrel {
namespace {

using Registers = Lanes[group_registers];

/// The group at work.
struct Group {
    complex_t* first;
    unsigned long slot;
    const unsigned long* distances;
    bool* failed;  ///< set by a quick run that has stored nothing
};

using Step = void (*)(const RegisterGate* const* gate, const Group& group, Lanes r0, Lanes r1,
                      Lanes r2, Lanes r3, Lanes r4, Lanes r5, Lanes r6, Lanes r7);

/// A quick run leaves out the tests of each gate, and tests its result at the end. A zero of the
/// wrong sign can change the signs of zeros only, and an infinity or a not-a-number stays one. So a
/// result without zeros, infinities and not-a-numbers is that of a tested run.
enum class Mode { quick, tested };

template <Mode M>
NIMBREL_INLINE void next(const RegisterGate* const* at, const Group& group, const Registers& r) {
    const RegisterGate& gate = *at[1];
    const auto step = reinterpret_cast<Step>(M == Mode::quick ? gate.quick_step : gate.tested_step);
    return step(at + 1, group, r[0], r[1], r[2], r[3], r[4], r[5], r[6], r[7]);
}

NIMBREL_INLINE bool acts_on(const RegisterGate& gate, const Group& group) {
    return (group.slot & gate.outside_mask) == gate.outside_pattern;
}

constexpr unsigned num_pairs = group_registers / 2;

/// The lower register of a pair that differs in a bit of the register's number.
constexpr unsigned lower_of_pair(unsigned pair, unsigned number_bit) {
    return (pair >> number_bit << (number_bit + 1)) | (pair & ((1U << number_bit) - 1));
}

/// The two amplitudes of each pair that differs in the group's bit `Bit`. For a bit inside a
/// register the amplitudes of two registers are sorted.
template <unsigned Bit>
NIMBREL_INLINE void take_pair(const Registers& r, unsigned pair, Lanes& x, Lanes& y) {
    if constexpr (Bit < group_lane_bits) {
        split_pairs<1U << Bit>(r[2 * pair], r[2 * pair + 1], x, y);
    } else {
        const unsigned lower = lower_of_pair(pair, Bit - group_lane_bits);
        x = r[lower];
        y = r[lower | 1U << (Bit - group_lane_bits)];
    }
}

template <unsigned Bit>
NIMBREL_INLINE void put_pair(Registers& r, unsigned pair, Lanes x, Lanes y) {
    if constexpr (Bit < group_lane_bits) {
        join_pairs<1U << Bit>(x, y, r[2 * pair], r[2 * pair + 1]);
    } else {
        const unsigned lower = lower_of_pair(pair, Bit - group_lane_bits);
        r[lower] = x;
        r[lower | 1U << (Bit - group_lane_bits)] = y;
    }
}

/// All pairs, with one test in a tested run. Returns false, and leaves the registers unchanged, if
/// a pair needs care.
template <Mode M, typename Op, unsigned Bit>
NIMBREL_INLINE bool apply_to_all(const Op& op, Registers& r) {
    Lanes x[num_pairs];
    Lanes y[num_pairs];
    unsigned in_doubt = 0;
#pragma GCC unroll 4
    for (unsigned pair = 0; pair < num_pairs; ++pair) {
        take_pair<Bit>(r, pair, x[pair], y[pair]);
        in_doubt |= op.attempt(x[pair], y[pair]);
    }
    if (M == Mode::tested && in_doubt != 0) [[unlikely]]
        return false;
#pragma GCC unroll 4
    for (unsigned pair = 0; pair < num_pairs; ++pair) put_pair<Bit>(r, pair, x[pair], y[pair]);
    return true;
}

/// A gate that some pairs need care for, or that acts on some only. Apart from `pair_step`, which
/// then needs no stack.
template <Mode M, typename Op, unsigned Bit>
[[gnu::noinline]] void careful_step(const RegisterGate* const* at, const Group& group, Lanes r0,
                                    Lanes r1, Lanes r2, Lanes r3, Lanes r4, Lanes r5, Lanes r6,
                                    Lanes r7) {
    const RegisterGate& gate = **at;
    Registers r = {r0, r1, r2, r3, r4, r5, r6, r7};
    const Op op(gate);
#pragma GCC unroll 4
    for (unsigned pair = 0; pair < num_pairs; ++pair) {
        const Mask chosen = gate.chosen[pair];
        if (chosen == 0) continue;
        Lanes x;
        Lanes y;
        take_pair<Bit>(r, pair, x, y);
        apply_op(op, x, y, chosen);
        put_pair<Bit>(r, pair, x, y);
    }
    return next<M>(at, group, r);
}

template <Mode M, typename Op, unsigned Bit>
void pair_step(const RegisterGate* const* at, const Group& group, Lanes r0, Lanes r1, Lanes r2,
               Lanes r3, Lanes r4, Lanes r5, Lanes r6, Lanes r7) {
    const RegisterGate& gate = **at;
    Registers r = {r0, r1, r2, r3, r4, r5, r6, r7};
    if (acts_on(gate, group)) {
        if (!gate.chooses_all || !apply_to_all<M, Op, Bit>(Op(gate), r)) {
            return careful_step<M, Op, Bit>(at, group, r0, r1, r2, r3, r4, r5, r6, r7);
        }
    }
    return next<M>(at, group, r);
}

/// A gate that works on each register by itself.
template <Mode M, typename Op>
void register_step(const RegisterGate* const* at, const Group& group, Lanes r0, Lanes r1, Lanes r2,
                   Lanes r3, Lanes r4, Lanes r5, Lanes r6, Lanes r7) {
    const RegisterGate& gate = **at;
    Registers r = {r0, r1, r2, r3, r4, r5, r6, r7};
    if (acts_on(gate, group)) {
        const Op op(gate);
#pragma GCC unroll 8
        for (unsigned i = 0; i < group_registers; ++i) {
            const Mask chosen = gate.chosen[i];
            if (chosen != 0) r[i] = select(chosen, op(r[i]), r[i]);
        }
    }
    return next<M>(at, group, r);
}

struct Multiply {
    ComplexFactor factor;
    NIMBREL_INLINE explicit Multiply(const RegisterGate& gate) : factor(prepared(gate, 0)) {}
    NIMBREL_INLINE Lanes operator()(Lanes x) const { return factor.times(x); }
};

struct FlipSign {
    NIMBREL_INLINE explicit FlipSign(const RegisterGate& /*gate*/) {}
    NIMBREL_INLINE Lanes operator()(Lanes x) const { return signed_by(all(-0.0), x); }
};

template <unsigned Flip>
struct ExchangeInside {
    NIMBREL_INLINE explicit ExchangeInside(const RegisterGate& /*gate*/) {}
    NIMBREL_INLINE Lanes operator()(Lanes x) const { return exchanged<Flip>(x); }
};

/// An exchange of whole registers, of the pairs in `Pairs`.
template <Mode M, unsigned Bit, unsigned Pairs>
void exchange_step(const RegisterGate* const* at, const Group& group, Lanes r0, Lanes r1, Lanes r2,
                   Lanes r3, Lanes r4, Lanes r5, Lanes r6, Lanes r7) {
    Registers r = {r0, r1, r2, r3, r4, r5, r6, r7};
    if (acts_on(**at, group)) {
#pragma GCC unroll 4
        for (unsigned pair = 0; pair < num_pairs; ++pair) {
            Lanes x;
            Lanes y;
            if ((Pairs >> pair & 1) == 0) continue;
            take_pair<Bit>(r, pair, x, y);
            put_pair<Bit>(r, pair, y, x);
        }
    }
    return next<M>(at, group, r);
}

void store_step(const RegisterGate* const* /*at*/, const Group& group, Lanes r0, Lanes r1, Lanes r2,
                Lanes r3, Lanes r4, Lanes r5, Lanes r6, Lanes r7) {
    complex_t* const first = group.first;
    const unsigned long* const d = group.distances;
    complex_t* const fourth = first + d[2];
    store(first, r0);
    store(first + d[0], r1);
    store(first + d[1], r2);
    store(first + (d[0] | d[1]), r3);
    store(fourth, r4);
    store(fourth + d[0], r5);
    store(fourth + d[1], r6);
    store(fourth + (d[0] | d[1]), r7);
}

/// Ends a quick run. A special lane in any register shows in a product.
void checked_store_step(const RegisterGate* const* at, const Group& group, Lanes r0, Lanes r1,
                        Lanes r2, Lanes r3, Lanes r4, Lanes r5, Lanes r6, Lanes r7) {
    const unsigned special = special_lanes(product(r0, r1)) | special_lanes(product(r2, r3)) |
                             special_lanes(product(r4, r5)) | special_lanes(product(r6, r7));
    if (special != 0) [[unlikely]] {
        *group.failed = true;
        return;
    }
    return store_step(at, group, r0, r1, r2, r3, r4, r5, r6, r7);
}

void (*opaque(Step step))() { return reinterpret_cast<void (*)()>(step); }

RegisterSteps steps(Step quick, Step tested) { return {opaque(quick), opaque(tested)}; }

template <Mode M, typename Op>
Step step_on(unsigned bit) {
    static constexpr Step on_bit[group_bits] = {pair_step<M, Op, 0>, pair_step<M, Op, 1>,
                                                pair_step<M, Op, 2>, pair_step<M, Op, 3>,
                                                pair_step<M, Op, 4>};
    return on_bit[bit];
}

template <typename Op>
RegisterSteps steps_on(unsigned bit) {
    return steps(step_on<Mode::quick, Op>(bit), step_on<Mode::tested, Op>(bit));
}

template <typename Op>
RegisterSteps steps_of_registers() {
    return steps(register_step<Mode::quick, Op>, register_step<Mode::tested, Op>);
}

template <unsigned Bit>
RegisterSteps exchange_steps(unsigned pairs) {
    constexpr unsigned all_pairs = 15, lower_two = 3, upper_two = 12, even = 5, odd = 10;
    switch (pairs) {
        case all_pairs:
            return steps(exchange_step<Mode::quick, Bit, all_pairs>,
                         exchange_step<Mode::tested, Bit, all_pairs>);
        case lower_two:
            return steps(exchange_step<Mode::quick, Bit, lower_two>,
                         exchange_step<Mode::tested, Bit, lower_two>);
        case upper_two:
            return steps(exchange_step<Mode::quick, Bit, upper_two>,
                         exchange_step<Mode::tested, Bit, upper_two>);
        case even:
            return steps(exchange_step<Mode::quick, Bit, even>,
                         exchange_step<Mode::tested, Bit, even>);
        case odd:
            return steps(exchange_step<Mode::quick, Bit, odd>,
                         exchange_step<Mode::tested, Bit, odd>);
        default:
            return steps_on<Exchange>(Bit);
    }
}

NIMBREL_INLINE bool is_zero_group(const Registers& r) {
    if (!is_zero_bits(r[0])) return false;
    Lanes bits = r[1];
#pragma GCC unroll 8
    for (unsigned i = 2; i < group_registers; ++i) bits = joined_bits(bits, r[i]);
    return is_zero_bits(bits);
}

/// Loads the registers of a group.
NIMBREL_INLINE void load_group(const complex_t* first, const unsigned long* d, Registers& r) {
    const complex_t* const fourth = first + d[2];
    r[0] = load(first);
    r[1] = load(first + d[0]);
    r[2] = load(first + d[1]);
    r[3] = load(first + (d[0] | d[1]));
    r[4] = load(fourth);
    r[5] = load(fourth + d[0]);
    r[6] = load(fourth + d[1]);
    r[7] = load(fourth + (d[0] | d[1]));
}

}  // namespace

RegisterSteps register_steps(GateKind kind, unsigned bit) {
    switch (kind) {
        case GateKind::exchange:
        case GateKind::compared_exchange:
            return bit == 0 ? steps_of_registers<ExchangeInside<1>>()
                            : steps_of_registers<ExchangeInside<2>>();
        case GateKind::hadamard:
            return steps_on<Hadamard>(bit);
        case GateKind::complex_matrix:
            return steps_on<ComplexMatrix>(bit);
        case GateKind::diagonal_matrix:
            return steps_on<ShortMatrix<Diagonal>>(bit);
        case GateKind::crossed_matrix:
            return steps_on<ShortMatrix<Crossed>>(bit);
        case GateKind::real_matrix:
            return steps_on<RealMatrix>(bit);
        case GateKind::phase:
            return steps_of_registers<Multiply>();
        case GateKind::sign_flip:
            return steps_of_registers<FlipSign>();
    }
    return {};
}

RegisterSteps register_exchange(unsigned bit, unsigned pairs) {
    switch (bit) {
        case group_lane_bits:
            return exchange_steps<group_lane_bits>(pairs);
        case group_lane_bits + 1:
            return exchange_steps<group_lane_bits + 1>(pairs);
        default:
            return exchange_steps<group_lane_bits + 2>(pairs);
    }
}

void run_in_registers(const RegisterGroups& groups, const RegisterGate** gates,
                      unsigned long num_gates) {
    bool failed = false;
    bool quick = false;
    for (unsigned long i = 0; i < num_gates; ++i) quick = quick || gates[i]->may_fail;
    RegisterGate end;
    end.quick_step = opaque(checked_store_step);
    end.tested_step = opaque(store_step);
    gates[num_gates] = &end;
    const unsigned long* const d = groups.distances;
    const unsigned long held = (count - 1) | d[0] | d[1] | d[2];
    for (unsigned long slot = 0; slot < groups.n; slot = ((slot | held) + 1) & ~held) {
        complex_t* const first = groups.slots + slot;
        const Group group{.first = first, .slot = slot, .distances = d, .failed = &failed};
        Registers r;
        load_group(first, d, r);
        if (groups.skips_zeros && is_zero_group(r)) continue;
        if (quick) {
            const auto step = reinterpret_cast<Step>(gates[0]->quick_step);
            step(gates, group, r[0], r[1], r[2], r[3], r[4], r[5], r[6], r[7]);
            if (!failed) [[likely]]
                continue;
            // One special lane is seldom alone: a state without imaginary parts is full of them.
            quick = false;
            load_group(first, d, r);
        }
        const auto step = reinterpret_cast<Step>(gates[0]->tested_step);
        step(gates, group, r[0], r[1], r[2], r[3], r[4], r[5], r[6], r[7]);
    }
    gates[num_gates] = nullptr;
}

}  // namespace Nimbrel
