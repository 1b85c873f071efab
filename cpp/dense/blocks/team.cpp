#include "dense/blocks/team.h"

#include <pthread.h>

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
    while (looking_.load() != 0) std::this_thread::yield();
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
    task_posted(amplitudes);
    work.take_part();
    shared_work_.store(nullptr);
    task_taken();
    while (looking_.load() != 0) pause_processor();
}

void BlockTeam::wake_one() {
    for (unsigned long i = num_blocks_; i-- > 0;) {
        CoreBlock* block = blocks_[i].load();
        if (block == nullptr || block->worker_awake.load(std::memory_order_relaxed)) continue;
        std::unique_lock guard(block->task_mutex, std::try_to_lock);
        if (!guard) continue;
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
