#include "dense/blocks/core_block.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "dense/blocks/store.h"
#include "dense/blocks/team.h"

namespace Nimbrel {

CoreBlock::CoreBlock(unsigned long number, unsigned long block_qubits, CoreBlockStore* store,
                     CoreBlockOpsOCLContext* context, bool threads, bool verbosely,
                     BlockTeam* block_team)
    : thread_id(number),
      store_slot(number),
      num_block_qubits(block_qubits),
      block_store(store),
      ocl_context(context),
      use_threads(threads),
      verbose(verbosely),
      num_terms(1UL << block_qubits),
      team(threads ? block_team : nullptr) {
    if (!use_threads) return;
    worker_thread = std::thread([this] { worker_loop(); });
    if (team != nullptr) team->join(this);
}

CoreBlock::~CoreBlock() {
    if (!use_threads) return;
    start_worker(TASK_EXIT);
    if (worker_thread.joinable()) worker_thread.join();
    if (team != nullptr) team->leave(this);
}

void CoreBlock::set_op_buddy(CoreBlock* buddy) {
    if (buddy != nullptr) finish();
    op_buddy = buddy;
}

// Waiting gates know the memory that they work on, so they need not act before.
void CoreBlock::swap_blocks(CoreBlock* other) {
    finish_tasks();
    other->finish_tasks();
    std::swap(store_slot, other->store_slot);
    std::swap(all_zero, other->all_zero);
    locate();
}

void CoreBlock::locate() {
    lock_memory(true, nullptr);
    unlock(true, nullptr);
}

namespace {

// Two mutexes, so that a block that is paged out does not wait for one that is paged in. Neither is
// taken while the other is held.
std::mutex paging_in;
std::mutex paging_out;

/// Requests memory for a block and its buddy and, with `read`, reads them from the disk tier.
void page_in(CoreBlock& block, CoreBlock* buddy, bool read) {
    const auto request = [](CoreBlock& one) {
        one.block_data = one.block_store->request_block(one.store_slot);
    };
    {
        const std::lock_guard guard(paging_in);
        request(block);
        if (buddy != nullptr) request(*buddy);
    }
    if (!read) return;
    block.block_store->read_block(block.store_slot, block.block_data);
    if (buddy != nullptr) buddy->block_store->read_block(buddy->store_slot, buddy->block_data);
}

void page_out(CoreBlock& block, CoreBlock* buddy, bool write_back) {
    const auto write = [](const CoreBlock& one) {
        one.block_store->write_block(one.store_slot, one.block_data);
    };
    const auto release = [](CoreBlock& one) {
        one.block_store->release_block(one.store_slot, one.block_data);
        one.block_data = nullptr;
    };
    if (write_back) {
        write(block);
        if (buddy != nullptr) write(*buddy);
    }
    if (block.block_data == nullptr) return;
    const std::lock_guard guard(paging_out);
    release(block);
    if (buddy != nullptr) release(*buddy);
}

}  // namespace

void CoreBlock::lock_paged(bool read, CoreBlock* buddy) {
    if (ocl_context == nullptr && lock_count == 0) page_in(*this, buddy, read);
    ++lock_count;
}

void CoreBlock::unlock_paged(bool write_back, CoreBlock* buddy) {
    if (lock_count == 0 && ocl_context == nullptr) page_out(*this, buddy, write_back);
}

bool CoreBlock::self_check(int line) {
    finish();
    lock(true, nullptr);
    if (block_data == nullptr && ocl_context == nullptr) {
        std::printf("Error: NULL block_data at line %d\n", line);
    }
    if (verbose) {
        std::printf("Core Block %d ok (ocl=%d, %d qubits, %.0f terms, %.3f MB)\n",
                    static_cast<int>(thread_id), ocl_context != nullptr ? 1 : 0,
                    static_cast<int>(num_block_qubits), static_cast<double>(num_terms),
                    static_cast<double>(num_terms) * 16.0 * 9.5367431640625e-7);
    }
    unlock(true, nullptr);
    if (all_zero) submit(TASK_SELF_CHECK, LineArguments{.line = line});
    return true;
}

}  // namespace Nimbrel
