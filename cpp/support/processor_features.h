/// The instruction sets that this x86-64 processor has and that the operating system supports.
///
/// Asks the processor itself, because a compiler's runtime may not know the answer: that of Zig has
/// none, and others have it only after their own initialisation. Safe to call on every processor,
/// also while the library is being loaded. Builds with plain vectors do not have it.
#pragma once

namespace Nimbrel {

/// What the processor tells. The values of CPUID are 0 if it does not have the leaf.
struct ProcessorRegisters {
    unsigned leaf_1_ecx;    ///< CPUID leaf 1, ECX
    unsigned leaf_7_ebx;    ///< CPUID leaf 7, subleaf 0, EBX
    unsigned saved_states;  ///< low half of XCR0: the register states that the system saves
};

/// Instruction sets that a program may use.
struct ProcessorFeatures {
    bool avx;
    bool fma;
    bool popcnt;
    bool avx512f;
    bool avx512dq;
};

/// Instructions on vectors are usable only if the system saves the registers that they change.
ProcessorFeatures usable_features(const ProcessorRegisters& registers);

ProcessorFeatures this_processor();

}  // namespace Nimbrel
