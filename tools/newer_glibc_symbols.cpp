// What the C++ library of a newer system takes from its C library and an older one lacks.
// `tools/manylinux_wheel.sh` links it into the module.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

extern "C" {

// glibc 2.32. The C++ library leaves out atomic operations where this is not 0.
char __libc_single_threaded = 0;

// glibc 2.36. The C++ library seeds by it.
std::uint32_t arc4random() {
    std::uint32_t bits = 0;
    if (getentropy(&bits, sizeof bits) != 0) std::abort();
    return bits;
}
}
