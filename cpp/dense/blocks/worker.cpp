// The worker thread: posting a task to it, waiting for it, and the switch over task numbers.
#include <unistd.h>

#include <chrono>
#include <cstdio>

#include "dense/blocks/core_block.h"
#include "dense/blocks/gate_queue.h"
#include "dense/blocks/team.h"
#include "support/processor_pause.h"

namespace Nimbrel {
namespace {

using Clock = std::chrono::steady_clock;

// An idle worker polls this long before it sleeps, because the next gate of a program usually comes
// sooner. The submitter polls a running task this long before it sleeps in the mutex.
constexpr std::chrono::microseconds worker_patience{100};
constexpr std::chrono::microseconds submitter_patience{300};

/// Polls `done` until it is true or the time is over. Returns whether it was true.
template <typename Done>
bool spin(std::chrono::microseconds patience, Done&& done) {
    constexpr int polls_per_clock_reading = 64;
    const Clock::time_point end = Clock::now() + patience;
    do {
        for (int poll = 0; poll < polls_per_clock_reading; ++poll) {
            if (done()) return true;
            pause_processor();
        }
    } while (Clock::now() < end);
    return false;
}

}  // namespace

void CoreBlock::start_worker(TaskID task) {
    if (!use_threads) return;
    settle();
    std::unique_lock guard(task_mutex);
    while (task_id.load(std::memory_order_relaxed) != TASK_NONE) {
        guard.unlock();
        wake.notify_one();
        usleep(10);
        guard.lock();
    }
    task_id.store(task, std::memory_order_release);
    guard.unlock();
    if (team != nullptr && task != TASK_EXIT) {
        team->task_posted(num_terms);
    } else {
        wake.notify_one();
    }
}

void CoreBlock::wait_for_worker(bool wait_until_ready) {
    if (!use_threads) return;
    while (wait_until_ready && !worker_ready.load(std::memory_order_acquire)) {
        wake.notify_one();
        usleep(10);
    }
    if (task_id.load(std::memory_order_acquire) == TASK_NONE) return;
    if (run_if_posted() || spin_until_idle()) return;
    for (;;) {
        {
            // The thread that runs the task holds the mutex, so this sleeps until the task ends.
            const std::lock_guard guard(task_mutex);
            if (task_id.load(std::memory_order_acquire) == TASK_NONE) return;
        }
        wake.notify_one();
        usleep(10);
    }
}

void CoreBlock::settle() const {
    if (waiting_gates != nullptr) waiting_gates->settle();
}

void CoreBlock::finish() {
    settle();
    finish_tasks();
}

void CoreBlock::finish_tasks() {
    for (CoreBlock* block = this; block != nullptr; block = block->op_buddy) {
        block->wait_for_worker(true);
    }
}

bool CoreBlock::spin_until_idle() const {
    return spin(submitter_patience,
                [this] { return task_id.load(std::memory_order_acquire) == TASK_NONE; });
}

bool CoreBlock::run_if_posted() {
    if (task_id.load(std::memory_order_relaxed) <= TASK_EXIT) return false;
    const std::unique_lock guard(task_mutex, std::try_to_lock);
    if (!guard || task_id.load(std::memory_order_relaxed) <= TASK_EXIT) return false;
    run_posted_task();
    return true;
}

// Requires: `task_mutex` is held. The release store of `task_id` publishes the amplitudes to a
// submitter that does not take the mutex.
void CoreBlock::run_posted_task() {
    if (team != nullptr) team->task_taken();
    run_task(task_id.load(std::memory_order_relaxed), arguments);
    task_id.store(TASK_NONE, std::memory_order_release);
}

void CoreBlock::worker_loop() {
    if (team != nullptr) team->worker_woke();
    // `task_id` is not cleared: TASK_EXIT is already posted when the block is destroyed at once.
    worker_ready.store(true, std::memory_order_release);
    for (;;) {
        std::unique_lock guard(task_mutex);
        sleep_until_called(guard);
        const int task = task_id.load(std::memory_order_relaxed);
        if (task == TASK_EXIT) return;
        if (task != TASK_NONE) run_posted_task();
        guard.unlock();
        look_for_tasks();
    }
}

void CoreBlock::look_for_tasks() {
    if (team == nullptr) return;
    const auto must_exit = [this] { return task_id.load(std::memory_order_relaxed) == TASK_EXIT; };
    while (spin(worker_patience, [&] { return team->has_tasks() || must_exit(); })) {
        if (must_exit()) return;
        team->run_tasks();
    }
}

void CoreBlock::sleep_until_called(std::unique_lock<std::mutex>& guard) {
    if (task_id.load(std::memory_order_relaxed) != TASK_NONE) return;
    worker_awake.store(false, std::memory_order_relaxed);
    if (team != nullptr) team->worker_sleeps();
    while (task_id.load(std::memory_order_relaxed) == TASK_NONE && !poked) wake.wait(guard);
    poked = false;
    if (team != nullptr) team->worker_woke();
    worker_awake.store(true, std::memory_order_relaxed);
}

void CoreBlock::wait_until_idle() {
    settle();
    if (!use_threads) return;
    finish_tasks();
    wait_for_worker(true);
}

bool CoreBlock::worth_handing_over() const {
    // In smaller blocks, moving the amplitudes to another core's cache takes as long as the work.
    constexpr unsigned long smallest_worth_handing_over = 1UL << 13;
    if (!use_threads || num_terms < smallest_worth_handing_over) return false;
    return team == nullptr || team->has_workers();
}

void CoreBlock::post(TaskID task, const TaskArguments& task_arguments) {
    if (!worth_handing_over()) return run_task(task, task_arguments);
    arguments = task_arguments;
    start_worker(task);
}

void CoreBlock::submit(TaskID task, const TaskArguments& task_arguments) {
    wait_until_idle();
    post(task, task_arguments);
}

void CoreBlock::wait_until_pair_idle() {
    wait_until_idle();
    // Tested after the wait: the task that ended may have ended the pair.
    if (op_buddy == nullptr) return;
    all_zero = false;
    op_buddy->all_zero = false;
}

void CoreBlock::submit_pair(TaskID task, const TaskArguments& task_arguments) {
    wait_until_pair_idle();
    post(task, task_arguments);
}

// A worker may read the matrix after the caller's has gone, so it gets a copy. A task on this
// thread reads the caller's: the copy would take a tenth of a gate on four qubits.
void CoreBlock::submit_matrix(TaskID task, unsigned long target_mask, SlotCondition condition,
                              const GateMatrix& matrix) {
    wait_until_pair_idle();
    const bool handed_over = worth_handing_over();
    if (handed_over) posted_matrix = matrix;
    post(task, MatrixArguments{.target_mask = target_mask,
                               .condition = condition,
                               .matrix = handed_over ? &posted_matrix : &matrix});
}

void CoreBlock::run_task(int task, const TaskArguments& a) {
    switch (task) {
        case TASK_SELF_CHECK:
            return self_check_worker(a.self_check.line);
        case TASK_SET_ZERO:
            return set_zero_worker();
        case TASK_SET_RANDOM:
            return set_random_worker();
        case TASK_SET_ZERO_MASK:
            return set_zero_mask_worker(a.mask.mask);
        case TASK_COLLAPSE:
            return collapse_worker(a.mask.mask, a.mask.value);
        case TASK_PEEK_READ_PROBABILITY:
            if (a.read.split != nullptr) {
                return peek_split_probability_worker(a.read.split, a.read.mask);
            }
            return peek_read_probability_worker(a.read.result, a.read.value, a.read.mask,
                                                a.read.limit);
        case TASK_GET_INDEX_FROM_PROBABILITY:
            return get_index_from_probability_worker(a.index.target, a.index.result);
        case TASK_SCALE_PROBABILITY:
            return scale_probability_worker(a.scale.factor);
        default:
            return run_gate_task(task, a);
    }
}

void CoreBlock::run_gate_task(int task, const TaskArguments& a) {
    const ProductArguments& product = a.product;
    switch (task) {
        case TASK_OP_NOT:
            return op_not_worker(a.gate.target_mask);
        case TASK_OP_X_MULTI:
            return op_x_multi_worker(a.gate.target_mask, a.gate.condition.mask);
        case TASK_OP_HADAMARD:
            return op_had_worker(a.gate.target_mask, a.gate.condition);
        case TASK_OP_PPR:
            return op_ppr_worker(product.x_mask, product.z_mask, product.condition, product.sine,
                                 product.cosine);
        case TASK_OP_PPM:
            return op_ppm_worker(product.x_mask, product.z_mask, product.measured);
        case TASK_OP_PPS:
            return op_pps_worker(product.x_mask, product.z_mask, product.result);
        case TASK_OP_COMPLEX2X2:
            return op_complex2x2_worker(a.matrix.target_mask, a.matrix.condition, *a.matrix.matrix);
        case TASK_OP_REAL2X2:
            return op_real2x2_worker(a.matrix.target_mask, a.matrix.condition, *a.matrix.matrix);
        case TASK_OP_CNOT:
            return op_cnot_worker(a.gate.target_mask, a.gate.condition);
        case TASK_OP_CPHASE:
            return op_cphase_worker(a.phase.condition, a.phase.im, a.phase.re);
        case TASK_OP_CZ:
            return op_cz_worker(a.gate.condition);
        default:
            std::printf("Thread %d got invalid task ID %d.\n", static_cast<int>(thread_id), task);
    }
}

}  // namespace Nimbrel
