/// Runs of gates that act on a tile in vector registers, see `register_gate.h`. For `TilePass` and
/// the tests. Any thread.
#pragma once

#include <array>
#include <cstddef>

#include "dense/blocks/kernels/gates.h"
#include "dense/blocks/kernels/register_gate.h"

namespace Nimbrel {

/// The slot bits of a run's groups, and an estimate of its time, while gates are added to the run.
class RegisterRun {
  public:
    using Distances = std::array<unsigned long, group_bits - group_lane_bits>;

    /// Adds a gate. Returns false, and changes nothing, if the groups have no bit left for its
    /// target.
    bool add(const SlotGate& gate);

    /// Fills the bits that are left with the lowest ones. Requires: `n` slots, 32 or more.
    void complete(unsigned long n);

    /// From the lowest up. Requires: complete.
    const Distances& distances() const { return bits_; }

    /// Whether the gates take less time together in registers than one by one.
    bool pays() const;

  private:
    bool has(unsigned long bit) const;
    void insert(unsigned long bit);

    std::size_t num_bits_ = 0;
    Distances bits_ = {};
    // Picoseconds for each slot.
    unsigned one_by_one_ = 0;
    unsigned arithmetic_ = 0;
    unsigned num_gates_ = 0;
};

/// Whether the registers can hold what a gate pairs, on `n` slots of this processor.
bool suits_registers(const SlotGate& gate, unsigned long n);

/// Prepares a gate for a run. Its matrix must stay. Requires: `suits_registers`, and its target is
/// among the group's bits.
RegisterGate prepare_for_registers(const SlotGate& gate, const RegisterRun& run);

}  // namespace Nimbrel
