/// The arithmetic of several gates in one pass over the state.
///
/// A tile holds the amplitudes whose places in the store differ only in the bits of a mask. Gates
/// whose targets all lie in the mask pair amplitudes of one tile only, so all of them are applied
/// to a tile while it lies in the cache, and then to the next tile. Every amplitude
/// meets the same operations in the same order as with one pass a gate.
///
///     tile mask 0b10011:   place     0  1  2  3  16 17 18 19 | 4  5  6  7  20 21 22 23 | ...
///                          in tile   0  1  2  3  4  5  6  7  | 0  1  2  3  4  5  6  7  | ...
///
/// For `GateQueue` and the tests. Any number of threads may run different tiles of one pass.
#pragma once

#include <span>
#include <vector>

#include "dense/blocks/kernels/pauli.h"
#include "dense/blocks/kernels/register_run.h"
#include "dense/blocks/waiting_gate.h"
#include "support/complex.h"

namespace Nimbrel {

/// The lowest bits of the place belong to every tile, so that it consists of rows of at least 256
/// contiguous bytes.
inline constexpr unsigned long row_qubits = 4;

/// Whether a tile of so many qubits can hold what the gate pairs.
bool fits_a_tile(const WaitingGate& gate, unsigned long num_block_qubits,
                 unsigned long tile_qubits);

/// Several gates, prepared for one pass over the state.
class TilePass {
  public:
    /// Most gates of a pass.
    static constexpr std::size_t most_gates = 256;

    /// Makes room for passes of up to `num_gates`, so that none allocates.
    TilePass(std::size_t num_gates, unsigned long tile_qubits) : tile_qubits_(tile_qubits) {
        gates_.reserve(num_gates);
        register_gates_.reserve(num_gates);
        steps_.reserve(num_gates);
    }

    /// Prepares a pass for as many of the gates, from the first on, as one tile mask allows, and
    /// returns their number, which is 1 or more. The gates must stay until the pass has run.
    /// Requires: not empty; each gate fits a tile.
    std::size_t prepare(const StoredState& state, std::span<const WaitingGate> gates);

    unsigned long num_tiles() const { return 1UL << (state_.num_qubits - qubits_); }

    /// Applies all gates to `count` tiles from number `first` on. `scratch` has room for a tile.
    void run(unsigned long first, unsigned long count, complex_t* scratch) const;

  private:
    class LinesAhead;

    /// A gate with its masks as bits of the index in a tile.
    struct TileGate {
        SlotGate gate;
        const WaitingGate* source;
        unsigned long outside_mask;  ///< controls among the place's bits that a tile fixes
        unsigned long outside_pattern;
        unsigned long piece_distance;  ///< of a gate on pairs of blocks
        unsigned long z_mask;          ///< of a product
        unsigned long outside_z_mask;  ///< of a product, bits of the place
        bool whole;                    ///< the gate is for whole tiles, else for their blocks
    };

    /// Consecutive gates: one, or several that act in registers.
    struct Step {
        std::size_t first;
        std::size_t count;
        RegisterRun run;
    };

    TileGate in_tile(const WaitingGate& source) const;
    void make_steps();
    std::size_t extend(Step& step) const;
    bool whole_tiles_do(const WaitingGate& source) const;
    bool acts_on(unsigned long base) const;
    bool acts_on(const TileGate& gate, unsigned long base) const {
        return (base & gate.outside_mask) == gate.outside_pattern;
    }
    void apply_step(const Step& step, complex_t* tile, unsigned long base) const;
    void apply(const TileGate& gate, complex_t* tile, unsigned long base) const;
    void apply_to_pieces(const TileGate& gate, complex_t* tile, unsigned long base) const;
    void rotate(const TileGate& gate, complex_t* here, complex_t* there, unsigned long base,
                unsigned long here_slot, unsigned long there_slot) const;
    void run_one(complex_t* tile, unsigned long base, unsigned long next) const;
    void run_in_scratch(complex_t* scratch, unsigned long base, unsigned long next) const;
    unsigned long next_base(unsigned long base) const { return ((base | mask_) + 1) & ~mask_; }

    const unsigned long tile_qubits_;
    StoredState state_{};
    unsigned long mask_ = 0;          ///< bits of the place in which a tile's amplitudes differ
    unsigned long qubits_ = 0;        ///< number of these bits
    unsigned long row_length_ = 0;    ///< contiguous amplitudes
    unsigned long row_mask_ = 0;      ///< the mask without the row's bits
    unsigned long piece_qubits_ = 0;  ///< bits of the mask inside a block
    unsigned long slot_mask_ = 0;     ///< the mask's bits of the store slot
    std::vector<TileGate> gates_;
    std::vector<RegisterGate> register_gates_;  ///< of the same gates, where they act in registers
    std::vector<Step> steps_;
};

}  // namespace Nimbrel
