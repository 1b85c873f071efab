#include "replaced_new.h"

#include <cstdlib>
#include <new>

using Nimbrel::Testing::allocate_for_new;

// Not inlined: where GCC inlines only one of new and delete, it warns of a mismatch.
[[gnu::noinline]] void* operator new(std::size_t bytes) {
    if (void* memory = allocate_for_new(bytes)) return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void* operator new(std::size_t bytes, const std::nothrow_t& /*tag*/) noexcept {
    return allocate_for_new(bytes);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t /*bytes*/) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept {
    std::free(memory);
}
