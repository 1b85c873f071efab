#include <immintrin.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>

#include "dense/blocks/core_block.h"
#include "dense/blocks/team.h"

namespace Nimbrel {
namespace {

using Clock = std::chrono::steady_clock;

// A worker that has just worked stays awake for a moment, since a program's next gate comes within
// it; the submitter watches a running task for a moment before it sleeps in the mutex.
constexpr std::chrono::microseconds worker_patience{100};
constexpr std::chrono::microseconds submitter_patience{300};

/// Asks `done` again and again until it holds or the time is up; returns whether it held.
template <typename Done>
bool spin(std::chrono::microseconds patience, Done&& done) {
    constexpr int rounds_per_look_at_the_clock = 64;
    const Clock::time_point end = Clock::now() + patience;
    do {
        for (int round = 0; round < rounds_per_look_at_the_clock; ++round) {
            if (done()) return true;
            _mm_pause();
        }
    } while (Clock::now() < end);
    return false;
}

}  // namespace

void CoreBlock::start_worker(TaskID task) {
    if (!use_threads) return;
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
            // Whoever runs the task holds the mutex, so this sleeps until the task is over.
            const std::lock_guard guard(task_mutex);
            if (task_id.load(std::memory_order_acquire) == TASK_NONE) return;
        }
        wake.notify_one();
        usleep(10);
    }
}

void CoreBlock::finish() {
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

// Requires: the task's mutex. The release of `task_id` makes the task's work visible to a
// submitter that never takes the mutex.
void CoreBlock::run_posted_task() {
    if (team != nullptr) team->task_taken();
    run_task(task_id.load(std::memory_order_relaxed));
    task_id.store(TASK_NONE, std::memory_order_release);
}

void CoreBlock::worker_loop() {
    if (team != nullptr) team->worker_woke();
    // `task_id` stays as it is: a block that is destroyed at once already holds the exit.
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

void CoreBlock::prepare_submission() {
    if (!use_threads) return;
    finish();
    wait_for_worker(true);
}

bool CoreBlock::worth_handing_over() const {
    // Below, moving the amplitudes to another processor's cache takes as long as the work on them.
    constexpr unsigned long smallest_worth_handing_over = 1UL << 13;
    if (!use_threads || num_terms < smallest_worth_handing_over) return false;
    return team == nullptr || team->has_workers();
}

// Requires: an idle worker, the arguments in place.
void CoreBlock::submit(TaskID task) {
    if (worth_handing_over()) {
        start_worker(task);
    } else {
        run_task(task);
    }
}

void CoreBlock::run_task(int task) {
    const TaskArguments& a = arguments;
    switch (task) {
        case TASK_SELF_CHECK:
            return self_check_worker(a.line);
        case TASK_SET_ZERO:
            return set_zero_worker();
        case TASK_SET_RANDOM:
            return set_random_worker();
        case TASK_SET_ZERO_MASK:
            return set_zero_mask_worker(a.zero_mask);
        case TASK_COLLAPSE:
            return collapse_worker(a.mask, a.value);
        case TASK_PEEK_READ_PROBABILITY:
            if (a.split != nullptr) return peek_split_probability_worker(a.split, a.mask);
            return peek_read_probability_worker(a.result, a.value, a.mask, a.limit);
        case TASK_GET_INDEX_FROM_PROBABILITY:
            return get_index_from_probability_worker(a.probability_target, a.result_index);
        case TASK_SCALE_PROBABILITY:
            return scale_probability_worker(a.scale);
        default:
            return run_gate_task(task);
    }
}

void CoreBlock::run_gate_task(int task) {
    const TaskArguments& a = arguments;
    switch (task) {
        case TASK_OP_NOT:
            return op_not_worker(a.target_mask);
        case TASK_OP_X_MULTI:
            return op_x_multi_worker(a.target_mask, a.cond_mask);
        case TASK_OP_HADAMARD:
            return op_had_worker(a.target_mask, a.cond_mask, a.cond_neg_mask);
        case TASK_OP_PPR:
            return op_ppr_worker(a.x_mask, a.z_mask, a.cond_mask, a.first_factor, a.second_factor,
                                 a.cond_neg_mask);
        case TASK_OP_PPM:
            return op_ppm_worker(a.x_mask, a.z_mask, a.measured);
        case TASK_OP_PPS:
            return op_pps_worker(a.x_mask, a.z_mask, a.result);
        case TASK_OP_COMPLEX2X2:
            return op_complex2x2_worker(a.target_mask, a.cond_mask, a.complex_matrix,
                                        a.cond_neg_mask);
        case TASK_OP_REAL2X2:
            return op_real2x2_worker(a.target_mask, a.cond_mask, a.real_matrix, a.cond_neg_mask);
        case TASK_OP_CNOT:
            return op_cnot_worker(a.target_mask, a.cond_mask, a.cond_neg_mask);
        case TASK_OP_CPHASE:
            return op_cphase_worker(a.cond_mask, a.first_factor, a.second_factor, a.cond_neg_mask);
        case TASK_OP_CZ:
            return op_cz_worker(a.cond_mask, a.cond_neg_mask);
        default:
            std::printf("Thread %d got invalid task ID %d.\n", static_cast<int>(thread_id), task);
    }
}

}  // namespace Nimbrel
