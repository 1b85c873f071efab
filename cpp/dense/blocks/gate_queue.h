/// `GateQueue`, the gates of a register that wait for their arithmetic.
#pragma once

#include <memory>
#include <vector>

#include "dense/blocks/tiles.h"
#include "dense/blocks/waiting_gate.h"
#include "support/complex.h"

namespace Nimbrel {

class BlockTeam;
class CoreBlockStore;
class SharedWork;

/// A list of gates in program order, on the blocks of one register.
///
/// A gate costs a pass over the state when it acts alone. Waiting gates share passes: `settle`
/// applies as many as it can to one tile of the state after the other. All that a gate does beside
/// arithmetic on amplitudes was done before it was added.
///
/// Owned by the register and used by the submitting thread alone; the team's workers help while
/// `settle` runs. Acting allocates nothing and cannot fail.
class GateQueue {
  public:
    /// A smaller register is one tile, so its gates would share neither a pass nor the threads.
    static constexpr unsigned long fewest_qubits = 14;

    /// Whether a register's gates can wait at all: it may have at most 64 blocks.
    static bool can_hold(unsigned long num_qubits, unsigned long num_block_qubits);

    /// `team` is null for blocks without workers. `num_threads` may work on one pass.
    GateQueue(const CoreBlockStore& store, BlockTeam* team, unsigned long num_qubits,
              unsigned long num_threads);

    bool empty() const { return gates_.empty(); }
    std::size_t size() const { return gates_.size(); }
    bool takes(const WaitingGate& gate) const;

    /// Adds a gate, after the waiting ones have acted if there are too many.
    /// Requires: `takes` it; blocks are idle.
    void add(const WaitingGate& gate);

    /// Applies the waiting gates, in order.
    void settle() {
        if (!empty()) act();
    }
    void drop() { gates_.clear(); }

  private:
    void act();
    void share(SharedWork& work, std::size_t num_gates) const;

    const CoreBlockStore& store_;
    BlockTeam* const team_;
    const unsigned long num_qubits_;
    const unsigned long num_threads_;
    const std::size_t most_gates_;
    const unsigned long tile_qubits_;
    /// Amplitudes. A register smaller than a tile is one tile, of a row or more.
    const unsigned long tile_size_;
    std::vector<WaitingGate> gates_;
    TilePass pass_;
    struct Free {
        void operator()(complex_t* memory) const;
    };
    std::unique_ptr<complex_t[], Free> scratch_;  ///< a tile for each thread
};

}  // namespace Nimbrel
