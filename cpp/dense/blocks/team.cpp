#include "dense/blocks/team.h"

#include <pthread.h>

#include <algorithm>
#include <thread>

#include "dense/blocks/core_block.h"
#include "support/processor_pause.h"

namespace Nimbrel {
namespace {

/// Work that pays for waking a sleeping thread, which takes the submitter some microseconds.
constexpr unsigned long worth_a_wake = 1UL << 17;

/// Forks between the first process and this one.
std::atomic<unsigned long> forks_to_here{0};

unsigned long current_generation() {
    [[maybe_unused]] static const int watching =
        pthread_atfork(nullptr, nullptr, [] { forks_to_here.fetch_add(1); });
    return forks_to_here.load();
}

int processors_beside_the_submitter() {
    const auto processors = static_cast<int>(std::thread::hardware_concurrency());
    return processors > 1 ? processors - 1 : 0;
}

}  // namespace

BlockTeam::BlockTeam(unsigned long num_blocks)
    : num_blocks_(num_blocks),
      generation_(current_generation()),
      spare_processors_(processors_beside_the_submitter()),
      blocks_(new std::atomic<CoreBlock*>[num_blocks]()) {}

BlockTeam::~BlockTeam() = default;

bool BlockTeam::has_workers() const { return generation_ == forks_to_here.load(); }

void BlockTeam::join(CoreBlock* block) { blocks_[block->thread_id].store(block); }

// A worker raises `looking_` before it reads a block's entry, so one that read this entry in time
// to see the block is waited for here, and any later one finds nothing.
void BlockTeam::leave(const CoreBlock* block) {
    blocks_[block->thread_id].store(nullptr);
    wait_until_nobody_looks();
}

void BlockTeam::task_posted(unsigned long num_terms) {
    posted_.fetch_add(1, std::memory_order_relaxed);
    if (awake_.load(std::memory_order_relaxed) >= spare_processors_) return;
    unanswered_ += num_terms;
    if (unanswered_ < worth_a_wake) return;
    unanswered_ = 0;
    wake_one();
}

// A worker raises `looking_` before it reads the pointer, so one that has read it is waited for.
void BlockTeam::share(SharedWork& work, unsigned long amplitudes) {
    shared_work_.store(&work);
    posted_.fetch_add(1, std::memory_order_relaxed);
    const int asleep = spare_processors_ - awake_.load(std::memory_order_relaxed);
    const auto paid = static_cast<long>(amplitudes / worth_a_wake);
    for (long i = 0; i < std::min<long>(asleep, paid); ++i) wake_one();
    work.take_part();
    shared_work_.store(nullptr);
    task_taken();
    wait_until_nobody_looks();
}

void BlockTeam::wait_until_nobody_looks() const {
    // A worker that the system has taken the processor from would be waited for in vain.
    constexpr int polls_before_yielding = 1000;
    for (int poll = 0; looking_.load() != 0; ++poll) {
        if (poll < polls_before_yielding) {
            pause_processor();
        } else {
            std::this_thread::yield();
        }
    }
}

void BlockTeam::wake_one() {
    for (unsigned long i = num_blocks_; i-- > 0;) {
        CoreBlock* block = blocks_[i].load();
        if (block == nullptr || block->worker_awake.load(std::memory_order_relaxed)) continue;
        std::unique_lock guard(block->task_mutex, std::try_to_lock);
        if (!guard || block->poked) continue;
        block->poked = true;
        guard.unlock();
        block->wake.notify_one();
        return;
    }
}

void BlockTeam::run_tasks() {
    looking_.fetch_add(1);
    if (SharedWork* work = shared_work_.load()) work->take_part();
    for (unsigned long i = num_blocks_; i-- > 0 && has_tasks();) {
        if (CoreBlock* block = blocks_[i].load()) block->run_if_posted();
    }
    looking_.fetch_sub(1);
}

}  // namespace Nimbrel
