#include "clifford/tableau/zeroed_words.h"

#include <sys/mman.h>

#include <cstdlib>
#include <memory>
#include <new>

namespace {

constexpr std::size_t cache_line = 64;
constexpr std::size_t fewest_mapped_bytes = 1UL << 20;

}  // namespace

ZeroedWords::ZeroedWords(std::size_t words) {
    const std::size_t bytes = words * sizeof(unsigned long);
    if (bytes >= fewest_mapped_bytes) {
        map(bytes);
    } else {
        allocate(bytes);
    }
}

void ZeroedWords::allocate(std::size_t bytes) {
    std::size_t space = bytes + cache_line;
    memory_ = std::calloc(space, 1);
    if (memory_ == nullptr) throw std::bad_alloc();
    void* aligned = memory_;
    first_ = static_cast<unsigned long*>(std::align(cache_line, bytes, aligned, space));
}

void ZeroedWords::map(std::size_t bytes) {
    void* const memory =
        mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::bad_alloc();
    madvise(memory, bytes, MADV_HUGEPAGE);  // a refusal costs nothing but speed
    memory_ = memory;
    mapped_bytes_ = bytes;
    first_ = static_cast<unsigned long*>(memory);
}

ZeroedWords::~ZeroedWords() {
    if (mapped_bytes_ != 0) {
        munmap(memory_, mapped_bytes_);
    } else {
        std::free(memory_);
    }
}
