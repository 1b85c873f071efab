// When a single waiting gate acts, and when it does not.

#include "dense/blocks/gate_queue.h"
#include "dense/blocks/store.h"
#include "dense/dense_fixture.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

class OneWaitingGate : public DenseFilter {
  protected:
    void SetUp() override {
        filter.qpu->waits_from_qubits = 1;
        reset(qubits);
    }

    bool waits() const { return !filter.qpu->waiting_gates->empty(); }
    void let_a_gate_wait() {
        run(OP_H, {.target_mask = 0b10});
        ASSERT_TRUE(waits());
    }

    static constexpr unsigned long qubits = 4;
};

TEST_F(OneWaitingGate, ActsBeforeAnythingLooksAtAmplitudes) {
    QPU& qpu = *filter.qpu;
    State state(qpu.num_terms);
    complex_t one{};
    unsigned long index = 0;
    const std::vector<std::function<void()>> looks{
        [&] { qpu.finish(); },
        [&] { qpu.self_check(0); },
        [&] { qpu.peek_total_probability(); },
        [&] { qpu.normalize(); },
        [&] { qpu.scale_probability(1.0); },
        [&] { qpu.set_value(3, {0.0, 0.0}); },
        [&] { qpu.get_value(0); },
        [&] { qpu.pps(1, 0); },
        [&] { qpu.ppm(1, 1, 0, 0, 0); },
        [&] { qpu.read(1, 0, 0); },
        [&] {
            qpu.collapse(0, 1);
            qpu.get_value(0);
        },
        [&] { qpu.peek_read_probability_sv(0, 1, 0.0); },
        [&] { qpu.get_random_term_index(); },
        [&] { qpu.assert_value(0, 1, "name", 0, 0); },
        [&] { qpu.pull_state_sv(state.data(), state.size()); },
        [&] {
            std::string text;
            qpu.pull_state_specific_sv(text, state.data(), 1, 2);
        },
        [&] {
            state = basis(qpu.num_terms, 1);
            qpu.push_state_sv(state.data(), 0, state.size());
        },
        [&] { qpu.check_state(state.data(), 0.1, false); },
        [&] { qpu.peek_n_biggest_terms(1, &index, &one); },
        [&] { qpu.peek_value(0, &one); },
        [&] { qpu.print_state_vector_to_string(0, 0.0, 100); },
        [&] { qpu.blocks[0]->finish(); },
        [&] { qpu.blocks[0]->get_value(0); },
        [&] { qpu.blocks[0]->set_value(0, {1.0, 0.0}); },
        [&] {
            qpu.blocks[0]->op_cz({});
            qpu.blocks[0]->finish();
        },
    };
    for (std::size_t i = 0; i < looks.size(); ++i) {
        SCOPED_TRACE("look " + std::to_string(i));
        reset(qubits);
        let_a_gate_wait();
        looks[i]();
        EXPECT_FALSE(waits());
    }
}

TEST_F(OneWaitingGate, ActsBeforeANativeGate) {
    let_a_gate_wait();
    filter.qpu->hadamard(0b10, 0, 0, 0);
    EXPECT_FALSE(waits());
    EXPECT_NEAR_STATE(state_of(*filter.qpu), basis(1UL << qubits, 0));
}

TEST_F(OneWaitingGate, IsDroppedWithTheStateThatItWouldChange) {
    let_a_gate_wait();
    reset(qubits);
    EXPECT_STATE(state_of(*filter.qpu), basis(1UL << qubits, 0));
    let_a_gate_wait();
    reset(qubits + 1);
    EXPECT_STATE(state_of(*filter.qpu), basis(2UL << qubits, 0));
}

TEST_F(OneWaitingGate, DoesNotWaitOnLentMemoryWhenACallEnds) {
    State memory = basis(1UL << qubits, 0);
    filter.override_state_buffer(memory.data(), qubits);
    run(OP_X, {.target_mask = 0b10});
    EXPECT_STATE(memory, basis(1UL << qubits, 0b10));
    // A later record of the call fails.
    const QPUOp program[] = {record(OP_X, {.target_mask = 0b01}),
                             record(OP_WRITE, {.target_mask = 0b1111, .cond_mask = ~0UL})};
    EXPECT_THROW(filter.put_instructions(program, 2), std::runtime_error);
    EXPECT_STATE(memory, basis(1UL << qubits, 0b11));
}

TEST_F(OneWaitingGate, ActsBeforeABlockIsUsedByItsNativeOperations) {
    CoreBlock& block = *filter.qpu->blocks[0];
    let_a_gate_wait();
    block.lock(true, nullptr);
    EXPECT_FALSE(waits());
    block.unlock(false, nullptr);
    let_a_gate_wait();
    block.start_worker(TASK_SET_ZERO);
    EXPECT_FALSE(waits());
    block.finish();
    EXPECT_EQ(block.get_value(0).re, 0.0);
}

TEST_F(OneWaitingGate, LeavesEachBlockWithAPointerToItsAmplitudes) {
    run(OP_H, {.target_mask = 0b1111});
    run(OP_X, {.target_mask = 0b1000});
    run(OP_H, {.target_mask = 0b0001});
    filter.qpu->finish();
    for (unsigned long i = 0; i < filter.qpu->num_blocks; ++i) {
        const CoreBlock& block = *filter.qpu->blocks[i];
        EXPECT_EQ(block.block_data, block.block_store->get_ram_block_ptr(block.store_slot));
    }
}

TEST_F(OneWaitingGate, IsNotKeptForAnotherRegister) {
    QPU& qpu = *filter.qpu;
    shape(qpu, qubits + 1, {2, false});
    let_a_gate_wait();
    // A register with pinned memory leaves it to whoever holds it.
    const std::unique_ptr<CoreBlockStore> store(qpu.block_store);
    const std::unique_ptr<CoreBlock*[]> array(qpu.blocks);
    std::vector<std::unique_ptr<CoreBlock>> blocks;
    for (unsigned long i = 0; i < qpu.num_blocks; ++i) blocks.emplace_back(array[i]);
    qpu.memory_pinned = true;
    qpu.waits_from_qubits = 9;
    shape(qpu, 3, {2, false});
    qpu.memory_pinned = false;
    EXPECT_EQ(qpu.waiting_gates, nullptr);
    run(OP_X, {.target_mask = 0b1});
    EXPECT_STATE(state_of(qpu), basis(8, 1));
}

TEST_F(OneWaitingGate, GoesOnWaitingWhileBlocksAreExchanged) {
    let_a_gate_wait();
    run(OP_X, {.target_mask = 0b1000});
    EXPECT_TRUE(waits());
    run(OP_H, {.target_mask = 0b1000});
    EXPECT_TRUE(waits());
}

TEST_F(OneWaitingGate, DoesNotWaitWhenTheSwitchIsOff) {
    filter.qpu->gates_wait = false;
    run(OP_H, {.target_mask = 0b10});
    EXPECT_FALSE(waits());
}

TEST_F(OneWaitingGate, WaitsForNoMoreThanATenthOfASecondsWork) {
    constexpr std::size_t most = 256;  // on a small register
    std::size_t longest = 0;
    for (int i = 0; i < 10'000; ++i) {
        run(OP_H, {.target_mask = 0b10});
        longest = std::max(longest, filter.qpu->waiting_gates->size());
    }
    EXPECT_EQ(longest, most);
    EXPECT_NEAR_STATE(state_of(*filter.qpu), basis(1UL << qubits, 0));
}

}  // namespace
