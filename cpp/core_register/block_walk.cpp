#include "core_register/block_walk.h"

#include <array>
#include <cstddef>

#include "dense/blocks/gate_queue.h"

namespace Nimbrel {
namespace {

/// The pairs of blocks of one gate, by their store slots.
class SlotPairs {
  public:
    void add(unsigned long lower, unsigned long upper) {
        lowers_[count_] = lower;
        distances_[count_] = lower ^ upper;
        ++count_;
    }

    /// Calls `visit(distance, lower_slots)` for each distance that occurs. Exchanges of some of the
    /// blocks can bring partners to different distances.
    template <typename Visit>
    void for_each_distance(Visit&& visit) const {
        unsigned long visited = 0;
        for (std::size_t i = 0; i < count_; ++i) {
            if ((visited >> lowers_[i] & 1) != 0) continue;
            unsigned long lower_slots = 0;
            for (std::size_t j = i; j < count_; ++j) {
                if (distances_[j] == distances_[i]) lower_slots |= 1UL << lowers_[j];
            }
            visited |= lower_slots;
            visit(distances_[i], lower_slots);
        }
    }

  private:
    static constexpr std::size_t most_pairs = 32;

    std::array<unsigned long, most_pairs> lowers_;
    std::array<unsigned long, most_pairs> distances_;
    std::size_t count_ = 0;
};

SlotPairs slot_pairs(QPU& qpu, unsigned long distance, const GateCondition& condition) {
    SlotPairs pairs;
    for_each_live_pair(qpu, distance, condition, [&](CoreBlock& lower, CoreBlock& upper) {
        pairs.add(lower.store_slot, upper.store_slot);
    });
    return pairs;
}

bool let_pairs_wait(QPU& qpu, unsigned long distance, const GateCondition& condition,
                    WaitingGate& gate) {
    GateQueue& queue = *qpu.waiting_gates;
    const SlotPairs pairs = slot_pairs(qpu, distance, condition);
    bool taken = true;
    pairs.for_each_distance([&](unsigned long slot_distance, unsigned long /*lower_slots*/) {
        gate.distance = slot_distance;
        taken = taken && queue.takes(gate);
    });
    if (!taken) return false;
    for_each_live_pair(qpu, distance, condition, [](CoreBlock& lower, CoreBlock& upper) {
        lower.all_zero = false;
        upper.all_zero = false;
        lower.locate();
        upper.locate();
    });
    pairs.for_each_distance([&](unsigned long slot_distance, unsigned long lower_slots) {
        gate.distance = slot_distance;
        gate.slots = lower_slots;
        queue.add(gate);
    });
    return true;
}

}  // namespace

bool let_wait(QPU& qpu, unsigned long flipped, const GateCondition& condition, WaitingGate gate) {
    GateQueue& queue = *qpu.waiting_gates;
    if (queue.empty()) qpu.finish();
    gate.target = flipped & qpu.block_slot_mask;
    gate.controls = condition.slots;
    const unsigned long distance = flipped >> qpu.num_block_qubits;
    if (distance != 0) return let_pairs_wait(qpu, distance, condition, gate);
    if (!queue.takes(gate)) return false;
    for_each_live_block(qpu, condition, [&](CoreBlock& block) {
        gate.slots |= 1UL << block.store_slot;
        block.locate();
    });
    if (gate.slots != 0) queue.add(gate);
    return true;
}

}  // namespace Nimbrel
