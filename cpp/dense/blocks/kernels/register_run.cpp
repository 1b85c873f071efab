#include "dense/blocks/kernels/register_run.h"

#include <algorithm>
#include <bit>

#include "dense/blocks/kernels/width.h"
#include "support/bits.h"

namespace Nimbrel {
namespace {

constexpr unsigned long lane_mask = (1UL << group_lane_bits) - 1;
constexpr unsigned amplitudes_per_register = 1U << group_lane_bits;
constexpr unsigned long smallest_group = 1UL << group_bits;
constexpr unsigned char all_lanes = 0xFF;
/// Of a kind without a matrix.
constexpr MatrixEntries no_matrix{};

bool has_target(GateKind kind) { return kind != GateKind::phase && kind != GateKind::sign_flip; }

/// Whether the kernel of a kind looks for zeros and other special lanes.
bool is_tested(GateKind kind) {
    return kind == GateKind::complex_matrix || kind == GateKind::diagonal_matrix ||
           kind == GateKind::crossed_matrix || kind == GateKind::real_matrix;
}

/// Picoseconds for each slot of a tile, measured on Zen 4.
struct GateTimes {
    unsigned alone;
    unsigned in_registers;  ///< without loads and stores
};

GateTimes gate_times(GateKind kind) {
    switch (kind) {
        case GateKind::exchange:
        case GateKind::compared_exchange:
            return {.alone = 145, .in_registers = 30};
        case GateKind::hadamard:
            return {.alone = 145, .in_registers = 85};
        case GateKind::complex_matrix:
            return {.alone = 330, .in_registers = 300};
        case GateKind::diagonal_matrix:
        case GateKind::crossed_matrix:
            return {.alone = 206, .in_registers = 172};
        case GateKind::real_matrix:
            return {.alone = 183, .in_registers = 150};
        case GateKind::phase:
        case GateKind::sign_flip:
            return {.alone = 180, .in_registers = 180};
    }
    return {};
}

/// To find out whether a control holds.
constexpr unsigned choice_time = 25;

/// The slot of amplitude `index` of a group, counted from the group's first slot.
unsigned long slot_in_group(unsigned index, const RegisterRun& run) {
    unsigned long slot = index & lane_mask;
    for (unsigned bit = group_lane_bits; bit < group_bits; ++bit) {
        if ((index >> bit & 1) != 0) slot |= run.distances().at(bit - group_lane_bits);
    }
    return slot;
}

/// The group's bit that is a bit of the slot.
unsigned bit_in_group(unsigned long target, const RegisterRun& run) {
    unsigned bit = 0;
    while (bit < group_bits && slot_in_group(1U << bit, run) != target) ++bit;
    return bit;
}

/// Which amplitude of a group has a place of its own in a register of x. Inside a register,
/// amplitudes of two registers are sorted.
unsigned index_of_x(unsigned pair, unsigned place, unsigned bit) {
    if (bit == 0) return (2 * pair + (place >> 1)) * amplitudes_per_register + (place & 1) * 2;
    if (bit == 1) return (2 * pair + (place >> 1)) * amplitudes_per_register + (place & 1);
    const unsigned number_bit = bit - group_lane_bits;
    const unsigned low = (1U << number_bit) - 1;
    const unsigned lower = ((pair & ~low) << 1) | (pair & low);
    return lower * amplitudes_per_register + place;
}

void set_factor(RegisterGate& gate, unsigned place, double lane0, double lane1) {
    gate.factors[place][0] = lane0;
    gate.factors[place][1] = lane1;
}

void set_complex_factor(RegisterGate& gate, unsigned place, complex_t m) {
    set_factor(gate, place, m.re, m.re);
    set_factor(gate, place + 1, -m.im, m.im);
}

void set_factors(RegisterGate& gate, GateKind kind, const complex_t* m) {
    switch (kind) {
        case GateKind::complex_matrix:
            for (unsigned i = 0; i < 4; ++i) set_complex_factor(gate, 2 * i, m[i]);
            break;
        case GateKind::diagonal_matrix:
            set_complex_factor(gate, 0, m[0]);
            set_complex_factor(gate, 2, m[3]);
            break;
        case GateKind::crossed_matrix:
            set_factor(gate, 0, m[0].re, m[0].re);
            set_factor(gate, 1, m[3].re, m[3].re);
            set_factor(gate, 2, -m[1].im, m[1].im);
            set_factor(gate, 3, -m[2].im, m[2].im);
            break;
        case GateKind::real_matrix:
            for (unsigned i = 0; i < 4; ++i) set_factor(gate, i, m[i].re, m[i].re);
            break;
        case GateKind::phase:
            set_complex_factor(gate, 0, m[3]);
            break;
        case GateKind::hadamard:
            set_factor(gate, 0, one_over_root_two, one_over_root_two);
            break;
        case GateKind::exchange:
        case GateKind::compared_exchange:
        case GateKind::sign_flip:
            break;
    }
}

/// A product of zeros may be a negative zero, and a sign flip makes one.
bool keeps_zero_bits(GateKind kind, const complex_t* m) {
    if (kind == GateKind::sign_flip) return false;
    if (kind != GateKind::phase) return true;
    const double re = 0.0 * m[3].re + 0.0 * -m[3].im;
    const double im = 0.0 * m[3].re + 0.0 * m[3].im;
    return std::bit_cast<unsigned long>(re) == 0 && std::bit_cast<unsigned long>(im) == 0;
}

}  // namespace

bool RegisterRun::has(unsigned long bit) const {
    return bit <= lane_mask || std::ranges::find(bits_, bit) != bits_.end();
}

void RegisterRun::insert(unsigned long bit) {
    std::size_t place = num_bits_++;
    for (; place > 0 && bits_[place - 1] > bit; --place) bits_[place] = bits_[place - 1];
    bits_[place] = bit;
}

bool RegisterRun::add(const SlotGate& gate) {
    if (has_target(gate.kind) && !has(gate.target)) {
        if (num_bits_ == bits_.size()) return false;
        insert(gate.target);
    }
    const GateTimes times = gate_times(gate.kind);
    const int controls = std::popcount(gate.controls.mask);
    one_by_one_ += times.alone >> controls;
    arithmetic_ += (times.in_registers >> controls) + (controls == 0 ? 0 : choice_time);
    ++num_gates_;
    return true;
}

bool RegisterRun::pays() const {
    const unsigned loads_and_stores = 250 + 20 * num_gates_;
    const unsigned beginning = 60;
    return num_gates_ > 1 && one_by_one_ > std::max(loads_and_stores, beginning + arithmetic_);
}

void RegisterRun::complete(unsigned long n) {
    for (unsigned long bit = lane_mask + 1; num_bits_ < bits_.size() && bit < n; bit *= 2) {
        if (!has(bit)) insert(bit);
    }
}

bool suits_registers(const SlotGate& gate, unsigned long n) {
    if (!wide_kernels_in_use || n < smallest_group) return false;
    if (!gate.controls.can_hold(n)) return false;
    if (!has_target(gate.kind)) return true;
    return std::has_single_bit(gate.target) && gate.target < n &&
           (gate.controls.pattern & gate.target) == 0;
}

namespace {

/// The amplitudes of a register, or of the x of a pair, that qualify: two bits for each.
unsigned char chosen_lanes(const SlotCondition& inside, const RegisterRun& run,
                           const auto& index_of) {
    unsigned lanes = 0;
    for (unsigned place = 0; place < amplitudes_per_register; ++place) {
        if (inside.holds(slot_in_group(index_of(place), run))) lanes |= 3U << 2 * place;
    }
    return static_cast<unsigned char>(lanes);
}

/// The pairs of whole registers that qualify, as bits. 0 if part of a pair does.
unsigned whole_pairs(const RegisterGate& gate) {
    unsigned pairs = 0;
    for (unsigned pair = 0; pair < group_registers / 2; ++pair) {
        if (gate.chosen[pair] == all_lanes)
            pairs |= 1U << pair;
        else if (gate.chosen[pair] != 0)
            return 0;
    }
    return pairs;
}

bool is_exchange(GateKind kind) {
    return kind == GateKind::exchange || kind == GateKind::compared_exchange;
}

}  // namespace

RegisterGate prepare_for_registers(const SlotGate& gate, const RegisterRun& run) {
    const bool targets = has_target(gate.kind);
    const unsigned bit = targets ? bit_in_group(gate.target, run) : 0;
    const bool exchanges = is_exchange(gate.kind);
    const bool by_pairs = targets && (!exchanges || bit >= group_lane_bits);
    const complex_t* matrix = gate.matrix == nullptr ? no_matrix.data() : gate.matrix->data();
    const unsigned long group_mask = slot_in_group(smallest_group - 1, run);
    const unsigned long mask = gate.controls.mask & (targets ? ~gate.target : ~0UL);
    const SlotCondition inside = {.mask = mask & group_mask,
                                  .pattern = gate.controls.pattern & group_mask};
    RegisterGate prepared;
    prepared.outside_mask = mask & ~group_mask;
    prepared.outside_pattern = gate.controls.pattern & ~group_mask;
    for (unsigned i = 0; i < (by_pairs ? group_registers / 2 : group_registers); ++i) {
        prepared.chosen[i] = chosen_lanes(inside, run, [&](unsigned place) {
            return by_pairs ? index_of_x(i, place, bit) : i * amplitudes_per_register + place;
        });
    }
    prepared.chooses_all = inside.mask == 0;
    prepared.keeps_zeros = keeps_zero_bits(gate.kind, matrix);
    prepared.may_fail = prepared.chooses_all && is_tested(gate.kind);
    prepared.matrix = matrix;
    set_factors(prepared, gate.kind, matrix);
    const RegisterSteps steps = exchanges && by_pairs
                                    ? register_exchange(bit, whole_pairs(prepared))
                                    : register_steps(gate.kind, bit);
    prepared.quick_step = steps.quick;
    prepared.tested_step = steps.tested;
    return prepared;
}

}  // namespace Nimbrel
