// The allocator of these tests. The linker passes the engine's calls of the C
// library's functions to the `__wrap_` functions here; see the CMakeLists.txt of the native tests.
#include "faults/failing_memory.h"

#include <sys/mman.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>

#include "replaced_new.h"

namespace {

constexpr long never = -1;

// Workers free what the submitter has allocated.
std::atomic<long> allocations_left{never};
std::atomic<bool> failure_lasts{false};
std::atomic<bool> failed{false};
std::atomic<long> alive{0};

bool must_fail() {
    const long left = allocations_left.load();
    if (left == never) return false;
    if (left > 0) {
        allocations_left.store(left - 1);
        return false;
    }
    failed.store(true);
    if (!failure_lasts.load()) allocations_left.store(never);
    return true;
}

void* counted(void* memory) {
    if (memory != nullptr) ++alive;
    return memory;
}

}  // namespace

extern "C" {
// The linker's `--wrap` fixes these names.
// NOLINTBEGIN(bugprone-reserved-identifier)
void __real_free(void* memory);
void* __real_calloc(std::size_t count, std::size_t size);
int __real_posix_memalign(void** memory, std::size_t alignment, std::size_t bytes);
void* __real_aligned_alloc(std::size_t alignment, std::size_t bytes);
void* __real_mmap(void* address, std::size_t bytes, int protection, int flags, int file, off_t at);
int __real_munmap(void* address, std::size_t bytes);

void __wrap_free(void* memory) {
    if (memory != nullptr) --alive;
    __real_free(memory);
}

void* __wrap_calloc(std::size_t count, std::size_t size) {
    return must_fail() ? nullptr : counted(__real_calloc(count, size));
}

int __wrap_posix_memalign(void** memory, std::size_t alignment, std::size_t bytes) {
    if (must_fail()) return ENOMEM;
    const int result = __real_posix_memalign(memory, alignment, bytes);
    if (result == 0) ++alive;
    return result;
}

void* __wrap_aligned_alloc(std::size_t alignment, std::size_t bytes) {
    return must_fail() ? nullptr : counted(__real_aligned_alloc(alignment, bytes));
}

void* __wrap_mmap(void* address, std::size_t bytes, int protection, int flags, int file, off_t at) {
    if (must_fail()) return MAP_FAILED;
    void* const memory = __real_mmap(address, bytes, protection, flags, file, at);
    if (memory != MAP_FAILED) ++alive;
    return memory;
}

int __wrap_munmap(void* address, std::size_t bytes) {
    --alive;
    return __real_munmap(address, bytes);
}
// NOLINTEND(bugprone-reserved-identifier)
}

namespace Nimbrel::Testing {

void* allocate_for_new(std::size_t bytes) {
    return must_fail() ? nullptr : counted(std::malloc(bytes != 0 ? bytes : 1));
}

FailingMemory::FailingMemory(long first, Shortage shortage) {
    failed.store(false);
    failure_lasts.store(shortage == Shortage::lasting);
    allocations_left.store(first);
}

FailingMemory::~FailingMemory() { allocations_left.store(never); }

bool FailingMemory::has_failed() { return failed.load(); }

long live_allocations() { return alive.load(); }

}  // namespace Nimbrel::Testing
