// The switch `finish_each_op`: whether a gate returns with all blocks idle or leaves its tasks.

#include <gtest/gtest.h>

#include <functional>
#include <mutex>
#include <ostream>
#include <thread>

#include "core_register/state_support.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

/// Blocks just large enough for their tasks to be posted, and too small to wake a worker.
constexpr unsigned long block_qubits = 13;

constexpr complex_t matrix[] = {{0.6, 0.0}, {0.0, 0.8}, {0.0, 0.8}, {0.6, 0.0}};
constexpr double real_matrix[] = {0.6, -0.8, 0.8, 0.6};

struct Gate {
    TaskID task;
    std::function<void(QPU&)> run;

    friend void PrintTo(const Gate& gate, std::ostream* out) { *out << "task " << gate.task; }
};

class FinishEachOp : public testing::TestWithParam<Gate> {
  protected:
    void SetUp() override {
        shape(qpu, block_qubits + 1, {block_qubits, true});
        wait_until_all_workers_sleep();
    }

    /// After this a task stays in its block until the submitter waits for it.
    void wait_until_all_workers_sleep() {
        for (unsigned long i = 0; i < qpu.num_blocks; ++i) {
            CoreBlock& block = *qpu.blocks[i];
            // The reset may have signalled a worker that already sleeps. It is woken here, so that
            // the old signal does not wake it when there is a task.
            {
                const std::lock_guard guard(block.task_mutex);
                block.poked = true;
            }
            block.wake.notify_one();
            while (!sleeps(block)) std::this_thread::yield();
        }
    }

    static bool sleeps(CoreBlock& block) {
        const std::lock_guard guard(block.task_mutex);
        return !block.poked && !block.worker_awake;
    }

    int task_left() const { return qpu.blocks[0]->task_id; }

    QPU qpu{0, nullptr};
};

// One gate of each kind, on slots of block 0.
INSTANTIATE_TEST_SUITE_P(
    Gates, FinishEachOp,
    testing::Values(Gate{TASK_OP_HADAMARD, [](QPU& q) { q.hadamard(1, 0, 0, 0); }},
                    Gate{TASK_OP_COMPLEX2X2, [](QPU& q) { q.complex2x2(matrix, 1, 0, 0, 0); }},
                    Gate{TASK_OP_REAL2X2, [](QPU& q) { q.real2x2(real_matrix, 1, 0, 0, 0); }},
                    Gate{TASK_OP_NOT, [](QPU& q) { q.op_not(1, 0, 0, 0); }},
                    Gate{TASK_OP_CNOT, [](QPU& q) { q.cnot(1, 2, 2, 0); }},
                    Gate{TASK_OP_CZ, [](QPU& q) { q.cz(1, 2, 0, 0); }},
                    Gate{TASK_OP_CPHASE, [](QPU& q) { q.phase(31.0, 1, 0, 0, 0); }},
                    Gate{TASK_OP_PPR, [](QPU& q) { q.ppr(31.0, 1, 2, 0, 0, 0); }}));

TEST_P(FinishEachOp, LeavesAGatesTaskWhileFalse) {
    qpu.finish_each_op = false;
    GetParam().run(qpu);
    EXPECT_EQ(task_left(), GetParam().task);
    qpu.removable_finish();
    EXPECT_EQ(task_left(), GetParam().task);
    qpu.finish();
    EXPECT_EQ(task_left(), TASK_NONE) << "a plain finish waits all the same";
}

TEST_P(FinishEachOp, EndsAGateWithAllBlocksIdleWhileTrue) {
    EXPECT_TRUE(qpu.finish_each_op) << "as constructed";
    GetParam().run(qpu);
    EXPECT_EQ(task_left(), TASK_NONE);
}

}  // namespace
