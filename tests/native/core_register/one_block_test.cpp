// A register of one block: every target is a slot bit, so no pair of blocks ever forms.

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <string>
#include <vector>

#include "core_register/block_walk.h"
#include "core_register/gate_support.h"
#include "dense/blocks/store.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

constexpr unsigned long num_qubits = 4;

/// A register whose array of blocks has a second, empty block behind its only one. A gate that
/// paired blocks by mistake would use it.
class OneBlock : public testing::TestWithParam<Layout> {
  protected:
    void SetUp() override {
        shape(qpu, num_qubits, GetParam());
        ASSERT_EQ(qpu.num_blocks, 1UL);
        neighbour.set_zero();
        own_array = qpu.blocks;
        longer_array.fill(&neighbour);
        longer_array[0] = own_array[0];
        qpu.blocks = longer_array.data();
    }

    void TearDown() override { qpu.blocks = own_array; }

    void expect_no_pair_has_formed() {
        EXPECT_EQ(longer_array[0]->store_slot, 0UL);
        EXPECT_EQ(longer_array[0]->op_buddy, nullptr);
        EXPECT_EQ(neighbour.store_slot, 1UL) << "its memory has been exchanged";
        EXPECT_TRUE(neighbour.all_zero) << "it has been in a pair";
        for (unsigned long slot = 0; slot < neighbour.num_terms; ++slot) {
            const complex_t value = neighbour.get_value(slot);
            EXPECT_TRUE(value.re == 0.0 && value.im == 0.0) << "slot " << slot;
        }
    }

    QPU qpu{0, nullptr};
    CoreBlockStore store{num_qubits, 2, 0, nullptr, false, false};
    CoreBlock neighbour{1, num_qubits, &store, nullptr, false, false};
    CoreBlock** own_array = nullptr;
    std::array<CoreBlock*, 1 << num_qubits> longer_array{};
};

INSTANTIATE_TEST_SUITE_P(Layouts, OneBlock,
                         testing::Values(Layout{0, true}, Layout{num_qubits, false},
                                         Layout{num_qubits, true}, Layout{40, true}));

TEST_P(OneBlock, GivesEveryTargetToTheBlockAsASlotBit) {
    std::vector<unsigned long> targets;
    const auto unused = [] { return WaitingGate{}; };
    run_on_targets(qpu, ~0UL, 0, 0, unused,
                   [&](CoreBlock& block, unsigned long target, SlotCondition) {
                       EXPECT_EQ(&block, longer_array[0]);
                       EXPECT_EQ(block.op_buddy, nullptr);
                       targets.push_back(target);
                   });
    EXPECT_EQ(targets, (std::vector<unsigned long>{0b1000, 0b0100, 0b0010, 0b0001}));
    expect_no_pair_has_formed();
}

struct NamedOperation {
    std::string name;
    std::function<void(QPU&, unsigned long targets, unsigned long controls)> run;
};

constexpr complex_t matrix[] = {{0.6, 0.0}, {0.0, 0.8}, {0.0, 0.8}, {0.6, 0.0}};
constexpr double real_matrix[] = {0.6, -0.8, 0.8, 0.6};

const std::vector<NamedOperation> operations{
    {"hadamard", [](QPU& q, auto t, auto c) { q.hadamard(t, c, 0, 0); }},
    {"complex2x2", [](QPU& q, auto t, auto c) { q.complex2x2(matrix, t, c, 0, 0); }},
    {"real2x2", [](QPU& q, auto t, auto c) { q.real2x2(real_matrix, t, c, 0, 0); }},
    {"cnot", [](QPU& q, auto t, auto c) { q.cnot(t, c, 0, 0); }},
    {"op_not", [](QPU& q, auto t, auto /*c*/) { q.op_not(t, 0, 0, 0); }},
    {"cswap", [](QPU& q, auto t, auto c) { q.cswap(t, c, 0, 0); }},
    {"cz", [](QPU& q, auto t, auto c) { q.cz(t, c, 0, 0); }},
    {"phase", [](QPU& q, auto t, auto c) { q.phase(31.0, t, c, 0, 0); }},
    {"ppr", [](QPU& q, auto t, auto c) { q.ppr(31.0, t, 0b0110, c & ~t, 0, 0); }},
    {"pps", [](QPU& q, auto t, auto c) { q.pps(t, c); }},
    {"ppm", [](QPU& q, auto t, auto c) { q.ppm(1, t, c, 0, 0); }},
    {"read", [](QPU& q, auto t, auto /*c*/) { q.read(t, 0, 0); }},
};

TEST_P(OneBlock, FormsNoPairForAnyOperation) {
    const State start = random_state(num_qubits, seed_of_this_test());
    for (const NamedOperation& operation : operations) {
        for (const unsigned long targets :
             {0b0001UL, 0b0010UL, 0b0100UL, 0b1000UL, 0b1111UL, ~0UL}) {
            for (const unsigned long controls :
                 {0b0000UL, 0b0001UL, 0b1000UL, ~0UL << num_qubits}) {
                SCOPED_TRACE(testing::Message() << operation.name << " targets " << targets
                                                << " controls " << controls);
                load(qpu, start);
                operation.run(qpu, targets, controls & ~targets);
                expect_no_pair_has_formed();
                if (HasFailure()) return;
            }
        }
    }
}

}  // namespace
