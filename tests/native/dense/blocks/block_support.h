/// Blocks with known contents, for each kind of thread that can run their tasks.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "dense/blocks/core_block.h"
#include "dense/blocks/store.h"
#include "dense/blocks/team.h"
#include "dense/scalar_gates.h"
#include "dense/states.h"

namespace Nimbrel::Testing {

/// Who runs the tasks of a block: the caller if there are no threads, the block's own worker, or
/// any worker of a team.
enum class Hands { caller, own_worker, team };

inline void PrintTo(Hands hands, std::ostream* out) {
    *out << (hands == Hands::caller       ? "threads off"
             : hands == Hands::own_worker ? "threads on"
                                          : "a team");
}

inline const auto all_hands = testing::Values(Hands::caller, Hands::own_worker, Hands::team);
inline const auto threaded_hands = testing::Values(Hands::own_worker, Hands::team);

/// Tasks of blocks from this size on are posted for the workers. The caller runs smaller ones.
inline constexpr unsigned long handed_over_qubits = 13;

inline constexpr unsigned long small_qubits = 11;  // sizes 0 to 10 are all tested

/// Random numbers, masks and amplitudes from one seed.
class Draws {
  public:
    explicit Draws(std::uint64_t seed) : generator_(seed) {}

    unsigned long bits() { return generator_(); }
    unsigned long below(unsigned long n) { return bits() % n; }
    bool one_in(unsigned long n) { return below(n) == 0; }
    unsigned long mask(unsigned long qubits) { return bits() & ((1UL << qubits) - 1); }

    /// From -1 up to 1.
    double number() { return static_cast<double>(static_cast<long>(bits()) >> 11) * 0x1p-52; }

    /// Of either sign.
    double zero() { return one_in(2) ? 0.0 : -0.0; }

    /// One lane in eight is a zero of either sign, and one amplitude in six is zero in all bits.
    complex_t amplitude() {
        if (one_in(6)) return {0.0, 0.0};
        return {lane(), lane()};
    }

    State state(unsigned long terms) {
        State state(terms);
        for (complex_t& term : state) term = amplitude();
        return state;
    }

    /// Mostly bits of the block; sometimes one above it, or a negation outside the mask.
    Condition condition(unsigned long block_qubits) {
        if (one_in(4)) return {};
        Condition cond{mask(block_qubits), 0};
        if (one_in(2)) cond.mask &= mask(block_qubits);
        if (one_in(5)) cond.mask |= 1UL << (block_qubits + below(40));
        cond.negation = cond.mask & bits();
        if (one_in(6)) cond.negation ^= 1UL << below(block_qubits + 3);
        return cond;
    }

  private:
    double lane() {
        if (one_in(8)) return zero();
        return number();
    }

    std::mt19937_64 generator_;
};

/// A test that draws random numbers and prints its seed on failure.
class DrawingTest : public testing::Test {
  protected:
    const std::uint64_t seed = seed_of_this_test();
    Draws draws{seed};

  private:
    testing::ScopedTrace trace_{__FILE__, __LINE__, "seed " + std::to_string(seed)};
};

/// The same, once for each value of `Hands`.
class HandedTest : public DrawingTest, public testing::WithParamInterface<Hands> {
  protected:
    /// Sizes whose tasks the caller runs, and sizes whose tasks are posted.
    static std::vector<unsigned long> block_sizes() {
        std::vector<unsigned long> sizes;
        for (unsigned long b = 0; b < small_qubits; ++b) sizes.push_back(b);
        sizes.push_back(handed_over_qubits);
        return sizes;
    }
};

/// Four blocks in one buffer. Two of them have exchanged their slots, as after a NOT on a qubit of
/// the block number, so a block's number is not its slot.
class Blocks {
  public:
    static constexpr unsigned long count = 4;

    Blocks(unsigned long qubits, Hands hands)
        : num_terms(1UL << qubits),
          store(qubits, count, 0, nullptr, hands != Hands::caller, false),
          team_(hands == Hands::team ? std::make_unique<BlockTeam>(count) : nullptr) {
        for (unsigned long i = 0; i < count; ++i) {
            blocks_[i] = std::make_unique<CoreBlock>(i, qubits, &store, nullptr,
                                                     hands != Hands::caller, false, team_.get());
        }
        blocks_[0]->swap_blocks(blocks_[3].get());
    }

    CoreBlock& operator[](unsigned long number) { return *blocks_[number]; }

    /// Pairs two blocks for the next operation of the lower one, and returns that.
    CoreBlock& paired(unsigned long lower, unsigned long upper) {
        blocks_[lower]->set_op_buddy(blocks_[upper].get());
        return *blocks_[lower];
    }

    void finish() {
        for (const auto& block : blocks_) block->finish();
    }

    /// The whole buffer, in the order of the memory.
    State contents() {
        finish();
        return {store.block_data, store.block_data + count * num_terms};
    }

    void fill(const State& state) {
        finish();
        std::memcpy(static_cast<void*>(store.block_data), state.data(),
                    state.size() * sizeof(complex_t));
    }

    State fill(Draws& draws) {
        State state = draws.state(count * num_terms);
        fill(state);
        return state;
    }

    /// A block's amplitudes in a copy of the buffer.
    complex_t* slots(State& state, unsigned long number) const {
        return state.data() + blocks_[number]->store_slot * num_terms;
    }

    const unsigned long num_terms;
    CoreBlockStore store;

  private:
    std::unique_ptr<BlockTeam> team_;
    std::array<std::unique_ptr<CoreBlock>, count> blocks_;
};

/// The same controls as an argument of the kernels.
inline SlotCondition slots_of(Condition cond) { return {cond.mask, cond.pattern()}; }

inline std::ostream& operator<<(std::ostream& out, const Condition& cond) {
    return out << " condition " << cond.mask << " negated " << cond.negation;
}

/// What a statement prints.
template <typename Statement>
std::string printed_by(Statement&& statement) {
    testing::internal::CaptureStdout();
    statement();
    return testing::internal::GetCapturedStdout();
}

}  // namespace Nimbrel::Testing
