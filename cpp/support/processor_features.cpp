#include "support/processor_features.h"

#include <cpuid.h>

// Compiled without the instruction sets that it tests for. It calls no inline function that another
// source may use, because the linker keeps one copy of such a function and that copy may need them.
// The functions of <cpuid.h> are local to each source.

namespace Nimbrel {
namespace {

// Bits of XCR0.
constexpr unsigned avx_states = 0x06;     // XMM and the upper halves of YMM
constexpr unsigned avx512_states = 0xE6;  // these, masks, and both parts of ZMM

/// Requires: CPUID has the bit OSXSAVE. Without it the instruction is illegal.
unsigned read_saved_states() {
    unsigned low = 0;
    unsigned high = 0;
    // The compiler's own function for it needs an option that this source must do without.
    asm volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    return low;
}

ProcessorRegisters read_registers() {
    ProcessorRegisters registers{0, 0, 0};
    unsigned eax = 0;
    unsigned ebx = 0;
    unsigned ecx = 0;
    unsigned edx = 0;
    if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) != 0) registers.leaf_1_ecx = ecx;
    if (__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) != 0) registers.leaf_7_ebx = ebx;
    if ((registers.leaf_1_ecx & bit_OSXSAVE) != 0) registers.saved_states = read_saved_states();
    return registers;
}

}  // namespace

ProcessorFeatures usable_features(const ProcessorRegisters& registers) {
    const unsigned leaf_1 = registers.leaf_1_ecx;
    const unsigned leaf_7 = registers.leaf_7_ebx;
    const unsigned saved = (leaf_1 & bit_OSXSAVE) != 0 ? registers.saved_states : 0;
    const bool saves_avx = (saved & avx_states) == avx_states;
    const bool saves_avx512 = (saved & avx512_states) == avx512_states;
    return {saves_avx && (leaf_1 & bit_AVX) != 0, saves_avx && (leaf_1 & bit_FMA) != 0,
            (leaf_1 & bit_POPCNT) != 0, saves_avx512 && (leaf_7 & bit_AVX512F) != 0,
            saves_avx512 && (leaf_7 & bit_AVX512DQ) != 0};
}

ProcessorFeatures this_processor() { return usable_features(read_registers()); }

}  // namespace Nimbrel
