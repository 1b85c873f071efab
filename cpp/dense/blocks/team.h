/// `BlockTeam`, what the workers of one register know of each other.
#pragma once

#include <atomic>
#include <memory>

namespace Nimbrel {

class CoreBlock;

/// Work that any number of threads may do together.
class SharedWork {
  public:
    /// Does parts of the work until none is left. Each thread calls it once or more.
    virtual void take_part() = 0;

  protected:
    ~SharedWork() = default;
};

/// Spreads the tasks of a register over the processors that there are.
///
/// Every block keeps its own worker, but a task waits in its block for whoever comes first: the
/// block's worker, the submitter, which runs what is left while it waits, or the worker of another
/// block that has nothing to do. No more workers are awake than there are processors beside the
/// submitter's, so that none of them takes the time of another. Which thread runs a task changes
/// no result: a task reads and writes its own block, or the two of its pair, and nothing else.
///
/// Owned by the register, made before its blocks and destroyed after them.
class BlockTeam {
  public:
    explicit BlockTeam(unsigned long num_blocks);
    ~BlockTeam();
    BlockTeam(const BlockTeam&) = delete;
    BlockTeam& operator=(const BlockTeam&) = delete;

    // The submitter's side.
    void join(CoreBlock* block);
    /// Leaves: no worker that looks at the blocks of others still sees this one.
    void leave(const CoreBlock* block);
    /// Notes a task of so many amplitudes, and wakes a worker when enough of them have come.
    void task_posted(unsigned long num_terms);

    /// Does the work on this thread and on the workers that are free, and returns when all of it is
    /// done. `amplitudes` is what it costs.
    void share(SharedWork& work, unsigned long amplitudes);

    /// Threads that can work at the same time, the submitter among them.
    unsigned long num_processors() const {
        return static_cast<unsigned long>(spare_processors_) + 1;
    }

    /// False in a child that was forked after the workers were made: it has the blocks and not the
    /// threads. Its submitter runs all tasks itself and touches no mutex, since a worker may have
    /// held one at the fork.
    bool has_workers() const;

    // Any thread's.
    void task_taken() { posted_.fetch_sub(1, std::memory_order_relaxed); }
    bool has_tasks() const { return posted_.load(std::memory_order_relaxed) > 0; }

    // The workers' side.
    /// Takes part in shared work, and runs tasks of any block, the highest first, until none is
    /// left unbegun: the submitter takes them from the lowest, so each processor keeps to the same
    /// blocks from gate to gate.
    void run_tasks();
    void worker_woke() { awake_.fetch_add(1, std::memory_order_relaxed); }
    void worker_sleeps() { awake_.fetch_sub(1, std::memory_order_relaxed); }

  private:
    void wake_one();
    void wait_until_nobody_looks() const;

    // Set once.
    const unsigned long num_blocks_;
    const unsigned long generation_;  ///< of the process, counted in forks
    const int spare_processors_;
    const std::unique_ptr<std::atomic<CoreBlock*>[]> blocks_;

    std::atomic<long> posted_{0};  ///< tasks that nobody has begun
    std::atomic<SharedWork*> shared_work_{nullptr};
    std::atomic<int> awake_{0};
    std::atomic<int> looking_{0};  ///< workers inside `run_tasks`

    unsigned long unanswered_ = 0;  ///< amplitudes posted while too few were awake; the submitter's
};

}  // namespace Nimbrel
