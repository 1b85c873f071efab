#include "dense/blocks/tiles.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "support/bits.h"

namespace Nimbrel {
namespace {

unsigned long count_bits(unsigned long mask) {
    return static_cast<unsigned long>(std::popcount(mask));
}

/// The bits of `value` at the places of `mask`, moved together at the low end.
unsigned long gather_bits(unsigned long value, unsigned long mask) {
    unsigned long gathered = 0;
    for_each_bit(value & mask,
                 [&](unsigned long bit) { gathered |= 1UL << count_bits(mask & (bit - 1)); });
    return gathered;
}

/// The low bits of `value`, moved to the places of `mask`.
unsigned long scatter_bits(unsigned long value, unsigned long mask) {
    unsigned long scattered = 0;
    for_each_bit(mask, [&](unsigned long bit) {
        if ((value & 1) != 0) scattered |= bit;
        value >>= 1;
    });
    return scattered;
}

// A state up to this size stays in the second-level cache.
constexpr unsigned long second_level_qubits = 16;

constexpr unsigned long low_bits(unsigned long count) { return (1UL << count) - 1; }

}  // namespace

bool fits_a_tile(const WaitingGate& gate, unsigned long num_block_qubits,
                 unsigned long tile_qubits) {
    const unsigned long paired = gate.paired_bits(num_block_qubits) & ~low_bits(row_qubits);
    return count_bits(paired) <= tile_qubits - row_qubits;
}

std::size_t TilePass::prepare(const StoredState& state, std::span<const WaitingGate> gates) {
    state_ = state;
    qubits_ = std::min(tile_qubits_, state.num_qubits);
    mask_ = low_bits(std::min(row_qubits, qubits_));
    std::size_t count = 0;
    for (; count < gates.size(); ++count) {
        const unsigned long mask = mask_ | gates[count].paired_bits(state.num_block_qubits);
        if (count_bits(mask) > qubits_) break;
        mask_ = mask;
    }
    // The bits that are left make the rows longer.
    while (count_bits(mask_) < qubits_) mask_ |= mask_ + 1;
    row_length_ = lowest_bit(~mask_);
    row_mask_ = mask_ & ~(row_length_ - 1);
    slot_mask_ = mask_ >> state.num_block_qubits;
    piece_qubits_ = qubits_ - count_bits(slot_mask_);
    gates_.clear();
    for (const WaitingGate& gate : gates.first(count)) gates_.push_back(in_tile(gate));
    make_steps();
    return count;
}

void TilePass::make_steps() {
    steps_.clear();
    register_gates_.clear();
    for (std::size_t first = 0; first < gates_.size();) {
        Step step{.first = first, .count = 1, .run = {}};
        step.count = extend(step);
        for (std::size_t i = first; i < first + step.count; ++i) {
            register_gates_.push_back(
                step.count == 1 ? RegisterGate{} : prepare_for_registers(gates_[i].gate, step.run));
        }
        steps_.push_back(step);
        first += step.count;
    }
}

/// How many gates from the step's first on act together, in registers if there are several.
std::size_t TilePass::extend(Step& step) const {
    const unsigned long size = 1UL << qubits_;
    std::size_t end = step.first;
    for (; end < gates_.size(); ++end) {
        const TileGate& gate = gates_[end];
        if (!gate.whole || !suits_registers(gate.gate, size) || !step.run.add(gate.gate)) break;
    }
    if (!step.run.pays()) return 1;
    step.run.complete(size);
    return end - step.first;
}

TilePass::TileGate TilePass::in_tile(const WaitingGate& source) const {
    const unsigned long block_bits = low_bits(state_.num_block_qubits);
    TileGate gate{.gate = {.kind = source.kind,
                           .target = gather_bits(source.target, mask_),
                           .controls = {.mask = gather_bits(source.controls.mask, mask_),
                                        .pattern = gather_bits(source.controls.pattern, mask_)},
                           .matrix = &source.matrix},
                  .source = &source,
                  .outside_mask = source.controls.mask & ~mask_,
                  .outside_pattern = source.controls.pattern & ~mask_,
                  .piece_distance = gather_bits(source.distance, slot_mask_),
                  .z_mask = gather_bits(source.z_mask, mask_ & block_bits),
                  .outside_z_mask = source.z_mask & ~mask_,
                  .whole = false};
    gate.whole = whole_tiles_do(source);
    if (gate.whole && source.distance != 0) {
        gate.gate.target = gate.piece_distance << piece_qubits_;
    }
    return gate;
}

// A gate on pairs of blocks is one on a bit of the place, unless blocks were exchanged: then the
// first of a pair may be the one that has the bit.
bool TilePass::whole_tiles_do(const WaitingGate& source) const {
    if (source.is_product) return false;
    const unsigned long num_slots = state_.num_slots();
    if (source.distance == 0) return source.slots == ~0UL >> (bits_per_word - num_slots);
    unsigned long lower_slots = 0;
    for (unsigned long slot = 0; slot < num_slots; ++slot) {
        if ((slot & source.distance) == 0) lower_slots |= 1UL << slot;
    }
    return std::has_single_bit(source.distance) && source.slots == lower_slots;
}

// Controls and blocks outside a tile may leave nothing to do in it.
bool TilePass::acts_on(unsigned long base) const {
    const unsigned long slot = base >> state_.num_block_qubits;
    return std::ranges::any_of(gates_, [&](const TileGate& gate) {
        return (base & gate.outside_mask) == gate.outside_pattern &&
               (slot_mask_ != 0 || (gate.source->slots >> slot & 1) != 0);
    });
}

void TilePass::run(unsigned long first, unsigned long count, complex_t* scratch) const {
    unsigned long base = scatter_bits(first, ~mask_);
    for (unsigned long tile = 0; tile < count; ++tile) {
        const unsigned long next = next_base(base);
        if (!acts_on(base)) {
            base = next;
            continue;
        }
        if (row_mask_ == 0) {
            run_one(state_.amplitudes + base, base, next);
        } else {
            run_in_scratch(scratch, base, next);
        }
        base = next;
    }
}

// The rows of a tile lie at distances of powers of two, so they would fall on a few sets of the
// cache and displace each other.
void TilePass::run_in_scratch(complex_t* scratch, unsigned long base, unsigned long next) const {
    complex_t* const amplitudes = state_.amplitudes;
    const unsigned long size = row_length_ * sizeof(complex_t);
    const unsigned long end = 1UL << qubits_;
    const unsigned long held = ~row_mask_;
    unsigned long row = 0;
    for (unsigned long i = 0; i < end; i += row_length_) {
        std::memcpy(scratch + i, amplitudes + (base | row), size);
        row = ((row | held) + 1) & row_mask_;
    }
    run_one(scratch, base, next);
    row = 0;
    for (unsigned long i = 0; i < end; i += row_length_) {
        std::memcpy(amplitudes + (base | row), scratch + i, size);
        row = ((row | held) + 1) & row_mask_;
    }
}

/// The cache lines of a tile, which are fetched while another tile is worked on.
class TilePass::LinesAhead {
  public:
    LinesAhead(const TilePass& pass, unsigned long base)
        : first_(pass.state_.amplitudes + base),
          row_length_(pass.row_length_),
          row_mask_(pass.row_mask_) {}

    void fetch(unsigned long count) {
        for (; count != 0; --count) {
            __builtin_prefetch(first_ + (row_ | offset_), for_writing, second_level);
            offset_ += amplitudes_per_line;
            if (offset_ < row_length_) continue;
            offset_ = 0;
            row_ = ((row_ | ~row_mask_) + 1) & row_mask_;
        }
    }

    static constexpr unsigned long amplitudes_per_line = 64 / sizeof(complex_t);

  private:
    static constexpr int for_writing = 1;
    static constexpr int second_level = 2;

    const complex_t* const first_;
    const unsigned long row_length_;
    const unsigned long row_mask_;
    unsigned long row_ = 0;
    unsigned long offset_ = 0;
};

void TilePass::run_one(complex_t* tile, unsigned long base, unsigned long next) const {
    const bool last = (next >> state_.num_qubits) != 0;
    if (last || state_.num_qubits <= second_level_qubits || !acts_on(next)) {
        for (const Step& step : steps_) apply_step(step, tile, base);
        return;
    }
    LinesAhead lines(*this, next);
    const unsigned long count = (1UL << qubits_) / LinesAhead::amplitudes_per_line;
    const unsigned long share = count / steps_.size();
    lines.fetch(count - share * (steps_.size() - 1));
    for (const Step& step : steps_) {
        apply_step(step, tile, base);
        if (&step != &steps_.back()) lines.fetch(share);
    }
}

void TilePass::apply_step(const Step& step, complex_t* tile, unsigned long base) const {
    if (step.count == 1) return apply(gates_[step.first], tile, base);
    const RegisterGate* acting[most_gates + 1];
    unsigned long num_acting = 0;
    bool keep_zeros = true;
    for (std::size_t i = step.first; i < step.first + step.count; ++i) {
        if (!acts_on(gates_[i], base)) continue;
        acting[num_acting++] = &register_gates_[i];
        keep_zeros = keep_zeros && register_gates_[i].keeps_zeros;
    }
    if (num_acting == 0) return;
    RegisterGroups groups{
        .slots = tile, .n = 1UL << qubits_, .distances = {}, .skips_zeros = keep_zeros};
    std::ranges::copy(step.run.distances(), groups.distances);
    run_in_registers(groups, acting, num_acting);
}

void TilePass::apply(const TileGate& gate, complex_t* tile, unsigned long base) const {
    if (!acts_on(gate, base)) return;
    if (!gate.whole) return apply_to_pieces(gate, tile, base);
    apply_gate(gate.gate, tile, nullptr, 1UL << qubits_);
}

void TilePass::apply_to_pieces(const TileGate& gate, complex_t* tile, unsigned long base) const {
    const unsigned long size = 1UL << piece_qubits_;
    const unsigned long pieces = 1UL << (qubits_ - piece_qubits_);
    const unsigned long first_slot = base >> state_.num_block_qubits;
    const unsigned long distance = gate.piece_distance;
    unsigned long offset = 0;
    for (unsigned long piece = 0; piece < pieces; ++piece) {
        const unsigned long slot = first_slot | offset;
        offset = ((offset | ~slot_mask_) + 1) & slot_mask_;
        if ((gate.source->slots >> slot & 1) == 0) continue;
        complex_t* here = tile + piece * size;
        complex_t* there = distance == 0 ? nullptr : tile + (piece ^ distance) * size;
        if (gate.source->is_product) {
            rotate(gate, here, there, base, slot, slot ^ gate.source->distance);
        } else {
            apply_gate(gate.gate, here, there, size);
        }
    }
}

// The kernel takes the sign of a piece from a block number under the Z mask: here the number is the
// parity of all bits outside the piece, and the mask has one bit for it.
void TilePass::rotate(const TileGate& gate, complex_t* here, complex_t* there, unsigned long base,
                      unsigned long here_slot, unsigned long there_slot) const {
    const WaitingGate& source = *gate.source;
    const unsigned long size = 1UL << piece_qubits_;
    const unsigned long odd = odd_parity(base & gate.outside_z_mask) ? 1 : 0;
    const PauliProduct product{.here = here,
                               .there = there,
                               .n = size,
                               .num_block_qubits = piece_qubits_,
                               .here_number = odd ^ (source.odd_slots >> here_slot & 1),
                               .there_number = odd ^ (source.odd_slots >> there_slot & 1),
                               .x_mask = gate.gate.target,
                               .z_mask = gate.z_mask | size,
                               .y_factors = source.y_factors};
    rotate_product(product, gate.gate.controls, source.sine, source.cosine);
}

}  // namespace Nimbrel
