#include "dense/blocks/gate_queue.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>

#include "dense/blocks/store.h"
#include "dense/blocks/team.h"
#include "support/bits.h"

namespace Nimbrel {
namespace {

/// Qubits of a tile: 128 KiB of amplitudes, so that the next tile has room beside it in a
/// second-level cache. Smaller with many threads, because all tiles together are limited.
unsigned long choose_tile_qubits(unsigned long num_threads) {
    constexpr unsigned long most = 13;
    constexpr unsigned long fewest = 10;
    constexpr unsigned long all_tiles = (768UL << 10) / sizeof(complex_t);
    unsigned long qubits = most;
    while (qubits > fewest && num_threads << qubits > all_tiles) --qubits;
    return qubits;
}

/// With fewer gates, to gather and scatter the tiles takes longer than a pass for each.
constexpr std::size_t fewest_gates_of_a_pass = 3;

/// Waiting gates act before they are more than about a tenth of a second's work.
std::size_t gates_of_a_tenth_second(unsigned long num_qubits) {
    constexpr unsigned long amplitudes = 1UL << 30;
    constexpr std::size_t fewest = 2;
    return std::clamp<std::size_t>(amplitudes >> num_qubits, fewest, TilePass::most_gates);
}

complex_t* allocate_scratch(unsigned long amplitudes) {
    constexpr std::size_t cache_line = 64;
    void* memory = std::aligned_alloc(cache_line, amplitudes * sizeof(complex_t));
    if (memory == nullptr) throw std::bad_alloc();
    return static_cast<complex_t*>(memory);
}

/// One pass, shared by the threads that come.
class SharedPass final : public SharedWork {
  public:
    SharedPass(const TilePass& pass, complex_t* scratch, unsigned long tile_size,
               unsigned long num_threads)
        : pass_(pass),
          scratch_(scratch),
          tile_size_(tile_size),
          num_threads_(num_threads),
          num_tiles_(pass.num_tiles()),
          share_(std::max(1UL, num_tiles_ / (shares_per_thread * num_threads))) {}

    void take_part() override {
        const unsigned long thread = threads_.fetch_add(1, std::memory_order_relaxed);
        if (thread >= num_threads_) return;
        complex_t* scratch = scratch_ + thread * tile_size_;
        for (;;) {
            const unsigned long first = next_.fetch_add(share_, std::memory_order_relaxed);
            if (first >= num_tiles_) return;
            pass_.run(first, std::min(share_, num_tiles_ - first), scratch);
        }
    }

  private:
    // Enough that the threads end at about the same time, although one may begin late.
    static constexpr unsigned long shares_per_thread = 16;

    const TilePass& pass_;
    complex_t* const scratch_;
    const unsigned long tile_size_;
    const unsigned long num_threads_;
    const unsigned long num_tiles_;
    const unsigned long share_;
    std::atomic<unsigned long> threads_{0};
    std::atomic<unsigned long> next_{0};
};

/// One gate on all its blocks, shared by the threads that come.
class SharedGate final : public SharedWork {
  public:
    SharedGate(const WaitingGate& gate, const StoredState& state) : gate_(gate), state_(state) {}

    void take_part() override {
        for (;;) {
            const unsigned long slot = next_.fetch_add(1, std::memory_order_relaxed);
            if (slot >= state_.num_slots()) return;
            if ((gate_.slots >> slot & 1) != 0) act_on_block(gate_, state_, slot);
        }
    }

  private:
    const WaitingGate& gate_;
    const StoredState& state_;
    std::atomic<unsigned long> next_{0};
};

}  // namespace

void GateQueue::Free::operator()(complex_t* memory) const { std::free(memory); }

bool GateQueue::can_hold(unsigned long num_qubits, unsigned long num_block_qubits) {
    // Store slots are bits of a word.
    constexpr unsigned long most_block_number_qubits = 6;
    return num_qubits - num_block_qubits <= most_block_number_qubits;
}

GateQueue::GateQueue(const CoreBlockStore& store, BlockTeam* team, unsigned long num_qubits,
                     unsigned long num_threads)
    : store_(store),
      team_(team),
      num_qubits_(num_qubits),
      num_threads_(num_threads),
      most_gates_(gates_of_a_tenth_second(num_qubits)),
      tile_qubits_(choose_tile_qubits(num_threads)),
      tile_size_(1UL << std::clamp(num_qubits, row_qubits, tile_qubits_)),
      pass_(most_gates_, tile_qubits_),
      scratch_(allocate_scratch(num_threads * tile_size_)) {
    gates_.reserve(most_gates_);
}

bool GateQueue::takes(const WaitingGate& gate) const {
    // A pattern with a bit outside its mask is left to the kernels, which give it a meaning.
    return (gate.controls.pattern & ~gate.controls.mask) == 0 &&
           fits_a_tile(gate, store_.num_block_qubits, tile_qubits_);
}

void GateQueue::add(const WaitingGate& gate) {
    if (gates_.size() == most_gates_) act();
    gates_.push_back(gate);
}

void GateQueue::act() {
    const StoredState state{.amplitudes = store_.block_data,
                            .num_qubits = num_qubits_,
                            .num_block_qubits = store_.num_block_qubits};
    std::span<const WaitingGate> rest = gates_;
    while (!rest.empty()) {
        const std::size_t count = pass_.prepare(state, rest);
        if (count < fewest_gates_of_a_pass) {
            for (const WaitingGate& gate : rest.first(count)) {
                SharedGate alone(gate, state);
                share(alone, 1);
            }
        } else {
            SharedPass pass(pass_, scratch_.get(), tile_size_, num_threads_);
            share(pass, count);
        }
        rest = rest.subspan(count);
    }
    gates_.clear();
}

void GateQueue::share(SharedWork& work, std::size_t num_gates) const {
    if (team_ != nullptr && team_->has_workers()) {
        team_->share(work, num_gates << num_qubits_);
    } else {
        work.take_part();
    }
}

}  // namespace Nimbrel
