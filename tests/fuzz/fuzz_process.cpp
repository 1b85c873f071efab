// What all native targets need of their process: no output, the same available memory and the same
// seeds in every run.
#include <cstdio>

#include "support/available_memory.h"

// `StabilizerState::seed_from_clock`, which the linker puts in the place of the original.
extern "C" unsigned long __wrap__ZN15StabilizerState15seed_from_clockEv() { return 20261122; }

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    if (std::freopen("/dev/null", "w", stdout) == nullptr) return 1;
    // A register that asks for more is refused, so that no input takes long.
    Nimbrel::ask_available_memory = [] { return 64UL << 20; };
    return 0;
}
