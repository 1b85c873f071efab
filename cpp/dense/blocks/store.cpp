#include "dense/blocks/store.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <new>
#include <string>

#include "support/available_memory.h"
#include "support/byte_size.h"

namespace Nimbrel {

const char* const block_path = "./data/tau_core_blocks%d%d.tsu";

namespace {

// For speed alone: no vector then lies across two cache lines.
constexpr unsigned long alignment = 64;
constexpr unsigned long huge_page = 1UL << 21;

/// a * b, or the largest number when that does not fit. An allocation of it then fails, where a
/// wrapped product would give a buffer that is too small.
unsigned long saturated_product(unsigned long a, unsigned long b) {
    unsigned long product = 0;
    return __builtin_mul_overflow(a, b, &product) ? std::numeric_limits<unsigned long>::max()
                                                  : product;
}

/// Asks for large pages where the buffer has any: most of the first touch of a state vector is page
/// faults otherwise. A refusal costs nothing but speed.
void advise_huge_pages(void* memory, unsigned long size) {
    const auto address = reinterpret_cast<std::uintptr_t>(memory);
    const std::uintptr_t first = (address + huge_page - 1) & ~(huge_page - 1);
    const std::uintptr_t end = (address + size) & ~(huge_page - 1);
    if (first >= end) return;
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    madvise(reinterpret_cast<void*>(first), end - first, MADV_HUGEPAGE);
}

complex_t* allocate_amplitudes(unsigned long size) {
    // No object may be larger than this, and glibc would reject it with the same result.
    if (size > static_cast<unsigned long>(std::numeric_limits<long>::max())) return nullptr;
    // The system would give out more than it has, and kill the process when it is first written.
    if (find_shortage(size)) return nullptr;
    void* memory = nullptr;
    if (posix_memalign(&memory, alignment, size) != 0) return nullptr;
    if (memory != nullptr) advise_huge_pages(memory, size);
    return static_cast<complex_t*>(memory);
}

}  // namespace

CoreBlockStore::CoreBlockStore(unsigned long block_qubits, unsigned long ram_blocks,
                               unsigned long disk_blocks, complex_t* buffer, bool threads,
                               bool verbosely)
    : use_threads(threads),
      verbose(verbosely),
      num_block_qubits(block_qubits),
      terms_per_block(block_qubits < 64 ? 1UL << block_qubits
                                        : std::numeric_limits<unsigned long>::max()),
      num_ram_blocks(ram_blocks),
      num_disk_blocks(disk_blocks) {
    block_files.fill(-1);
    allocate_ram(buffer, verbosely);
    if (!all_in_ram()) allocate_disk(verbosely);
}

CoreBlockStore::~CoreBlockStore() {
    deallocate_ram();
    deallocate_disk();
}

void CoreBlockStore::allocate_ram(complex_t* buffer, bool verbosely) {
    if (block_data != nullptr) return;
    next_ram_block = 0;
    external_buffer = buffer != nullptr;
    const unsigned long size =
        saturated_product(saturated_product(terms_per_block, num_ram_blocks), sizeof(complex_t));
    const std::string size_text = verbosely ? human_byte_size(size) : std::string();
    block_data = external_buffer ? buffer : allocate_amplitudes(size);
    if (block_data == nullptr) return;
    ram_block_in_use = new (std::nothrow) bool[num_ram_blocks]();
    if (ram_block_in_use == nullptr) return deallocate_ram();
    if (verbosely) {
        std::printf("> Blockstore RAM alloc (%s) %p %p\n", size_text.c_str(),
                    static_cast<void*>(block_data), static_cast<void*>(ram_block_in_use));
    }
}

void CoreBlockStore::deallocate_ram() {
    if (block_data != nullptr) {
        if (!external_buffer) std::free(block_data);
        delete[] ram_block_in_use;
        block_data = nullptr;
        ram_block_in_use = nullptr;
    }
    external_buffer = false;
}

void CoreBlockStore::allocate_disk(bool /*verbose*/) {}

void CoreBlockStore::deallocate_disk() {
    for (int& file : block_files) {
        if (file == -1) continue;
        close(file);
        file = -1;
    }
}

complex_t* CoreBlockStore::find_block(unsigned long i) {
    self_check(0);
    if (all_in_ram()) return get_ram_block_ptr(i);
    while (ram_block_in_use[next_ram_block]) {
        if (++next_ram_block < num_ram_blocks) continue;
        next_ram_block = 0;
        usleep(1000);
    }
    ram_block_in_use[next_ram_block] = true;
    return get_ram_block_ptr(next_ram_block);
}

void CoreBlockStore::release_block(unsigned long /*i*/, const complex_t* ptr) const {
    if (all_in_ram()) return;
    const auto offset = static_cast<unsigned long>(ptr - block_data);
    ram_block_in_use[offset / terms_per_block] = false;
}

bool CoreBlockStore::self_check(int line) const {
    if (block_data == nullptr) {
        std::printf("Error: NULL block_data at line %d\n", line);
        return false;
    }
    if (!all_in_ram() && block_files[0] == -1) {
        std::printf("Error: no block file at line %d\n", line);
        return false;
    }
    return true;
}

unsigned long CoreBlockStore::get_disk_block_number(unsigned long i) const {
    return i / (num_disk_blocks >> 3);
}

// A count of amplitudes, although the calls below seek by it as if it were bytes.
unsigned long CoreBlockStore::get_disk_block_offset(unsigned long i) const {
    return terms_per_block * (i % (num_disk_blocks >> 3));
}

void CoreBlockStore::read_block(unsigned long i, complex_t* dst) const {
    const int file = block_files[get_disk_block_number(i)];
    lseek(file, static_cast<off_t>(get_disk_block_offset(i)), SEEK_SET);
    [[maybe_unused]] const ssize_t count = read(file, dst, terms_per_block * sizeof(complex_t));
}

void CoreBlockStore::write_block(unsigned long i, const complex_t* src) const {
    const int file = block_files[get_disk_block_number(i)];
    lseek(file, static_cast<off_t>(get_disk_block_offset(i)), SEEK_SET);
    [[maybe_unused]] const ssize_t count = write(file, src, terms_per_block * sizeof(complex_t));
    fsync(file);
}

}  // namespace Nimbrel
