/// `CoreBlockStore`, the owner of the memory behind all blocks of a dense register.
#pragma once

#include <array>

#include "support/complex.h"

namespace Nimbrel {

/// File name template of the inactive disk tier; nothing formats it.
extern const char* const block_path;

/// One contiguous buffer of amplitudes in equal slots, one slot a block.
///
/// A register makes its store before its blocks and destroys it after them; blocks borrow their
/// memory. The store owns the buffer unless the caller supplied it. After construction only
/// constant fields are read, so any thread may ask for a slot.
///
/// A second tier, block files on disk, is laid out here and never active: a register asks for
/// every block in memory, and nothing creates a file.
class CoreBlockStore {
  public:
    /// Allocates, or adopts `buffer` when it is not null. A failed allocation, or more memory than
    /// the process may have, shows in `self_check` only. Requires: a buffer of `num_ram_blocks` *
    /// 2^`num_block_qubits` amplitudes.
    CoreBlockStore(unsigned long num_block_qubits, unsigned long num_ram_blocks,
                   unsigned long num_disk_blocks, complex_t* buffer, bool use_threads,
                   bool verbose);
    ~CoreBlockStore();
    CoreBlockStore(const CoreBlockStore&) = delete;
    CoreBlockStore& operator=(const CoreBlockStore&) = delete;

    /// Does nothing when there is a buffer already. The memory is not initialised.
    void allocate_ram(complex_t* buffer, bool verbose);
    void deallocate_ram();

    /// Empty: the disk tier has no files.
    void allocate_disk(bool verbose);
    void deallocate_disk();

    /// First amplitude of slot `i`.
    complex_t* get_ram_block_ptr(unsigned long i) const { return block_data + i * terms_per_block; }

    /// Memory of slot `i` for the time of one task.
    complex_t* request_block(unsigned long i) {
        return all_in_ram() && block_data != nullptr ? get_ram_block_ptr(i) : find_block(i);
    }

    /// Gives a slot back; has nothing to do while all blocks are in memory.
    void release_block(unsigned long i, const complex_t* ptr) const;

    /// Whether there is memory to work on. A false result has printed why, with `line` as it is.
    bool self_check(int line) const;

    // The inactive tier: blocks spread over the files in runs, at offsets within each.
    unsigned long get_disk_block_number(unsigned long i) const;
    unsigned long get_disk_block_offset(unsigned long i) const;
    void read_block(unsigned long i, complex_t* dst) const;
    void write_block(unsigned long i, const complex_t* src) const;

    /// Whether every block has a slot in memory, which is the only form in use.
    bool all_in_ram() const { return num_ram_blocks >= num_disk_blocks; }

    bool use_threads;
    bool verbose;
    unsigned long num_block_qubits;
    unsigned long terms_per_block;
    unsigned long num_ram_blocks;
    unsigned long num_disk_blocks;
    complex_t* block_data = nullptr;   ///< null until allocated or after a failed allocation
    std::array<int, 8> block_files{};  ///< descriptors of the disk tier, -1 when closed
    bool* ram_block_in_use = nullptr;  ///< one flag a slot, owned
    unsigned long next_ram_block = 0;  ///< cursor of the free-slot search
    bool external_buffer = false;      ///< `block_data` is the caller's and not freed here

  private:
    /// `request_block` without its fast path: reports a missing buffer, or takes a free slot of the
    /// disk tier.
    complex_t* find_block(unsigned long i);
};

}  // namespace Nimbrel
