#include <gtest/gtest.h>

#include "core_register/core_register.h"
#include "core_register/state_support.h"
#include "dense/blocks/core_block.h"
#include "dense/blocks/store.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

class ResetShape : public testing::Test {
  protected:
    void reset(unsigned long qubits) { ASSERT_TRUE(qpu.reset(qubits, nullptr)); }

    QPU qpu{0, nullptr};
};

TEST_F(ResetShape, SizesFollowFromQubitsAndBlocks) {
    qpu.sim_params["num_block_qubits"] = 2;
    reset(5);
    EXPECT_EQ(qpu.num_qubits, 5UL);
    EXPECT_EQ(qpu.num_terms, 32UL);
    EXPECT_EQ(qpu.num_block_qubits, 2UL);
    EXPECT_EQ(qpu.terms_per_block, 4UL);
    EXPECT_EQ(qpu.num_blocks, 8UL);
    EXPECT_EQ(qpu.qubit_mask, 0b11111UL);
    EXPECT_EQ(qpu.block_slot_mask, 0b00011UL);
    EXPECT_EQ(qpu.block_number_mask, 0b11100UL);
    EXPECT_TRUE(qpu.use_threads);
    EXPECT_EQ(qpu.qint_table, std::vector<unsigned int>(5, 0));
    for (unsigned long i = 0; i < 8; ++i) {
        EXPECT_EQ(qpu.blocks[i]->thread_id, i);
        EXPECT_EQ(qpu.blocks[i]->store_slot, i);
        EXPECT_TRUE(qpu.blocks[i]->worker_ready);
        EXPECT_EQ(qpu.blocks[i]->all_zero, i != 0);
    }
    EXPECT_STATE(state_of(qpu), basis(32, 0));
}

TEST_F(ResetShape, ARegisterWithoutQubitsHasOneTerm) {
    reset(2);
    reset(0);
    EXPECT_EQ(qpu.num_blocks, 1UL);
    EXPECT_EQ(qpu.qubit_mask, 0UL);
    EXPECT_STATE(state_of(qpu), basis(1, 0));
}

TEST_F(ResetShape, TheSameShapeKeepsBlocksAndClearsTheState) {
    qpu.sim_params["num_block_qubits"] = 1;
    reset(3);
    CoreBlock** blocks = qpu.blocks;
    CoreBlockStore* store = qpu.block_store;
    CoreBlock* last = blocks[3];
    qpu.reserve_qubits(2);
    qpu.hadamard(0b111, 0, 0, 0);
    qpu.classical_qubits = 0b101;

    qpu.sim_params["async"] = 0;
    qpu.sim_params["max_ram_size_gb"] = 1;
    reset(3);
    EXPECT_EQ(qpu.blocks, blocks);
    EXPECT_EQ(qpu.block_store, store);
    EXPECT_EQ(qpu.blocks[3], last);
    EXPECT_TRUE(qpu.use_threads) << "the old choice stays";
    EXPECT_EQ(qpu.op_count, 0UL);
    EXPECT_EQ(qpu.qint_table, std::vector<unsigned int>(3, 0));
    EXPECT_EQ(qpu.classical_qubits, 0b101UL) << "only a new shape clears it";
    EXPECT_STATE(state_of(qpu), basis(8, 0));
}

TEST_F(ResetShape, TheSameShapeIsNotHeldAgainstALimit) {
    qpu.sim_params["num_block_qubits"] = 1;
    reset(3);
    qpu.num_qubits = 40;  // as if this were its size
    qpu.sim_params["max_ram_size_gb"] = 1;
    testing::internal::CaptureStdout();
    EXPECT_TRUE(qpu.reset(40, nullptr));
    testing::internal::GetCapturedStdout();
    qpu.num_qubits = 3;
    EXPECT_STATE(state_of(qpu), basis(8, 0));
}

TEST_F(ResetShape, AnotherShapeIsBuiltAnew) {
    reset(3);
    EXPECT_FALSE(qpu.use_threads);
    EXPECT_EQ(qpu.num_blocks, 1UL);
    qpu.classical_qubits = 1;
    qpu.sim_params["num_block_qubits"] = 2;
    reset(3);
    EXPECT_TRUE(qpu.use_threads);
    EXPECT_EQ(qpu.num_blocks, 2UL);
    EXPECT_EQ(qpu.classical_qubits, 0UL);
}

// The choice of an accelerator has only this effect.
TEST_F(ResetShape, AChangedAcceleratorSwitchRebuilds) {
    qpu.sim_params["num_block_qubits"] = 1;
    reset(2);
    ASSERT_TRUE(qpu.use_threads);
    qpu.sim_params["async"] = 0;
    qpu.sim_params["use_opencl"] = 1;
    reset(2);
    EXPECT_FALSE(qpu.use_threads);
    EXPECT_TRUE(qpu.use_opencl);
}

TEST_F(ResetShape, AnAbsentParameterIsZeroAndEntered) {
    qpu.sim_params.clear();
    reset(13);
    EXPECT_FALSE(qpu.use_threads);
    EXPECT_EQ(qpu.sim_params.size(), 7U);
    EXPECT_EQ(qpu.sim_params.at("num_block_qubits"), 0UL);
}

TEST_F(ResetShape, TheReservationTableGrowsAndShrinks) {
    reset(2);
    reset(6);
    EXPECT_EQ(qpu.reserve_qubits(6), 0);
    reset(3);
    EXPECT_EQ(qpu.qint_table, std::vector<unsigned int>(3, 0));
    EXPECT_EQ(qpu.reserve_qubits(3), 0);
}

TEST_F(ResetShape, ARandomStateIsNormalised) {
    qpu.sim_params["randomized"] = 1;
    qpu.sim_params["num_block_qubits"] = 1;
    reset(3);
    EXPECT_NEAR(qpu.peek_total_probability(), 1.0, 1e-12);
    for (unsigned long i = 0; i < 4; ++i) EXPECT_FALSE(qpu.blocks[i]->all_zero);
    qpu.sim_params["randomized"] = 0;
    reset(3);
    EXPECT_STATE(state_of(qpu), basis(8, 0));
}

TEST_F(ResetShape, ABufferIsTheStateAndIsNotFreed) {
    alignas(32) complex_t buffer[4] = {{0.6, 0.0}, {0.0, 0.0}, {0.0, 0.8}, {0.0, 0.0}};
    qpu.sim_params["num_block_qubits"] = 1;
    qpu.sim_params["randomized"] = 1;
    ASSERT_TRUE(qpu.reset(2, buffer));
    EXPECT_EQ(qpu.block_store->block_data, buffer);
    EXPECT_TRUE(qpu.block_store->external_buffer);
    EXPECT_STATE(state_of(qpu), (State{{0.6, 0.0}, {0.0, 0.0}, {0.0, 0.8}, {0.0, 0.0}}));
    for (unsigned long i = 0; i < 2; ++i) EXPECT_FALSE(qpu.blocks[i]->all_zero);

    qpu.op_not(0b01, 0, 0, 0);
    EXPECT_EQ(buffer[1].re, 0.6);
    qpu.deallocate();
    EXPECT_EQ(qpu.block_store, nullptr);
    EXPECT_EQ(buffer[3].im, 0.8);
}

TEST_F(ResetShape, ABufferOfTheSameShapeIsAdoptedAllTheSame) {
    alignas(32) complex_t buffer[4] = {{0.0, 0.0}, {1.0, 0.0}, {0.0, 0.0}, {0.0, 0.0}};
    reset(2);
    ASSERT_TRUE(qpu.reset(2, buffer));
    EXPECT_STATE(state_of(qpu), basis(4, 1));
}

TEST_F(ResetShape, ManyResetsInARowJoinTheirWorkers) {
    for (int round = 0; round < 100; ++round) {
        qpu.sim_params["num_block_qubits"] = static_cast<unsigned long>(1 + round % 2);
        reset(3);
    }
    qpu.deallocate();
    qpu.deallocate();
    EXPECT_EQ(qpu.blocks, nullptr);
}

}  // namespace
