#include "support/processor_features.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace Nimbrel {
namespace {

// Bits as the processor's maker numbers them, not as the compiler's header names them.
constexpr unsigned fma = 1U << 12;
constexpr unsigned popcnt = 1U << 23;
constexpr unsigned os_saves = 1U << 27;
constexpr unsigned avx = 1U << 28;
constexpr unsigned all_of_leaf_1 = fma | popcnt | os_saves | avx;

constexpr unsigned avx512f = 1U << 16;
constexpr unsigned avx512dq = 1U << 17;
constexpr unsigned all_of_leaf_7 = avx512f | avx512dq;

constexpr unsigned sse_state = 1U << 1;
constexpr unsigned ymm_state = 1U << 2;
constexpr unsigned mask_state = 1U << 5;
constexpr unsigned zmm_upper_state = 1U << 6;
constexpr unsigned zmm_16_to_31_state = 1U << 7;
constexpr unsigned ymm_states = 1U | sse_state | ymm_state;
constexpr unsigned zmm_states = ymm_states | mask_state | zmm_upper_state | zmm_16_to_31_state;

std::string names(const ProcessorFeatures& has) {
    std::string text;
    if (has.avx) text += "avx ";
    if (has.fma) text += "fma ";
    if (has.popcnt) text += "popcnt ";
    if (has.avx512f) text += "avx512f ";
    if (has.avx512dq) text += "avx512dq ";
    return text;
}

struct Case {
    const char* name;
    ProcessorRegisters registers;
    const char* usable;
};

constexpr std::array cases{
    Case{"all", {all_of_leaf_1, all_of_leaf_7, zmm_states}, "avx fma popcnt avx512f avx512dq "},
    Case{"every bit", {~0U, ~0U, ~0U}, "avx fma popcnt avx512f avx512dq "},
    Case{"none", {0, 0, 0}, ""},
    Case{"every other bit of CPUID", {~all_of_leaf_1 | os_saves, ~all_of_leaf_7, ~0U}, ""},
    Case{"no leaf 7", {all_of_leaf_1, 0, ymm_states}, "avx fma popcnt "},
    Case{"no AVX-512DQ", {all_of_leaf_1, avx512f, zmm_states}, "avx fma popcnt avx512f "},
    Case{"no FMA", {all_of_leaf_1 & ~fma, 0, ymm_states}, "avx popcnt "},
    Case{"no AVX", {all_of_leaf_1 & ~avx, 0, ymm_states}, "fma popcnt "},
    Case{"no POPCNT", {all_of_leaf_1 & ~popcnt, 0, ymm_states}, "avx fma "},
    Case{"no OSXSAVE", {all_of_leaf_1 & ~os_saves, all_of_leaf_7, zmm_states}, "popcnt "},
    Case{"no SSE state", {all_of_leaf_1, all_of_leaf_7, zmm_states & ~sse_state}, "popcnt "},
    Case{"no YMM state", {all_of_leaf_1, all_of_leaf_7, zmm_states & ~ymm_state}, "popcnt "},
    Case{"no state of masks",
         {all_of_leaf_1, all_of_leaf_7, zmm_states & ~mask_state},
         "avx fma popcnt "},
    Case{"no state of upper halves",
         {all_of_leaf_1, all_of_leaf_7, zmm_states & ~zmm_upper_state},
         "avx fma popcnt "},
    Case{"no state of ZMM 16 to 31",
         {all_of_leaf_1, all_of_leaf_7, zmm_states & ~zmm_16_to_31_state},
         "avx fma popcnt "},
};

TEST(ProcessorFeatures, AreUsableIfTheProcessorHasThemAndTheSystemSavesTheirRegisters) {
    for (const Case& given : cases) {
        EXPECT_EQ(names(usable_features(given.registers)), given.usable) << given.name;
    }
}

/// The runtime of GCC, which Clang uses too on Linux, asks the processor by code of its own.
TEST(ProcessorFeatures, OfThisProcessorAreThoseOfTheCompilersRuntime) {
    __builtin_cpu_init();
    const ProcessorFeatures expected{
        __builtin_cpu_supports("avx") != 0, __builtin_cpu_supports("fma") != 0,
        __builtin_cpu_supports("popcnt") != 0, __builtin_cpu_supports("avx512f") != 0,
        __builtin_cpu_supports("avx512dq") != 0};
    EXPECT_EQ(names(this_processor()), names(expected));
}

}  // namespace
}  // namespace Nimbrel
