#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <utility>

#include "core_register/layout.h"

namespace {

using Nimbrel::decide_layout;
using Nimbrel::depends_on_hardware;
using Nimbrel::is_over_limit;
using Nimbrel::LayoutRequest;
using Nimbrel::RegisterLayout;
using Nimbrel::state_gigabytes;

RegisterLayout automatic(unsigned long qubits, unsigned int hardware, unsigned long max_threads = 0,
                         bool async = true) {
    return decide_layout({.num_qubits = qubits, .max_num_threads = max_threads, .async = async},
                         hardware);
}

RegisterLayout by_hand(unsigned long qubits, unsigned long block_qubits,
                       unsigned long max_threads = 0, bool async = true) {
    return decide_layout({.num_qubits = qubits,
                          .num_block_qubits = block_qubits,
                          .max_num_threads = max_threads,
                          .async = async},
                         8);
}

std::string printed(LayoutRequest request, unsigned int hardware) {
    request.verbose = true;
    testing::internal::CaptureStdout();
    decide_layout(request, hardware);
    return testing::internal::GetCapturedStdout();
}

TEST(AutomaticLayout, TwelveQubitsOrFewerAreOneBlockWithoutAThread) {
    for (const unsigned long qubits : {0UL, 1UL, 11UL, 12UL}) {
        EXPECT_EQ(automatic(qubits, 8), (RegisterLayout{qubits, false}));
    }
}

TEST(AutomaticLayout, NoBlockHasLessThanTwelveQubits) {
    EXPECT_EQ(automatic(13, 8), (RegisterLayout{12, true}));
    EXPECT_EQ(automatic(15, 8), (RegisterLayout{12, true}));
    EXPECT_EQ(automatic(16, 8), (RegisterLayout{12, true}));
}

TEST(AutomaticLayout, LargeRegistersGetTwoBlocksAHardwareThread) {
    EXPECT_EQ(automatic(20, 8), (RegisterLayout{16, true}));
    EXPECT_EQ(automatic(20, 1), (RegisterLayout{19, true}));
    EXPECT_EQ(automatic(20, 2), (RegisterLayout{18, true}));
}

TEST(AutomaticLayout, TheAimIsRoundedUpToAPowerOfTwo) {
    EXPECT_EQ(automatic(20, 3), (RegisterLayout{17, true}));
    EXPECT_EQ(automatic(20, 6), (RegisterLayout{16, true}));
}

TEST(AutomaticLayout, AnUnknownMachineGetsEightBlocks) {
    EXPECT_EQ(automatic(20, 0), (RegisterLayout{17, true}));
}

TEST(AutomaticLayout, ThreadsAreHalvedToTheLimit) {
    EXPECT_EQ(automatic(20, 8, 3), (RegisterLayout{19, true}));
    EXPECT_EQ(automatic(20, 8, 4), (RegisterLayout{18, true}));
    EXPECT_EQ(automatic(20, 8, 15), (RegisterLayout{17, true}));
    EXPECT_EQ(automatic(20, 8, 16), (RegisterLayout{16, true}));
    EXPECT_EQ(automatic(20, 8, ~0UL), (RegisterLayout{16, true}));
}

TEST(AutomaticLayout, OneThreadIsOneBlockAndNone) {
    EXPECT_EQ(automatic(20, 8, 1), (RegisterLayout{20, false}));
}

TEST(AutomaticLayout, WithoutAsyncTheBlocksAreCutAllTheSame) {
    EXPECT_EQ(automatic(20, 8, 0, false), (RegisterLayout{16, false}));
}

TEST(AutomaticLayout, HugeMachinesStayInTheirBounds) {
    EXPECT_EQ(automatic(20, 1U << 30), (RegisterLayout{12, true}));
    EXPECT_EQ(automatic(50, (1U << 31) - 1), (RegisterLayout{18, true}));
    // Twice this many is 0 in 32 bits.
    EXPECT_EQ(automatic(20, 1U << 31), (RegisterLayout{20, false}));
    // Twice this many is 2 in 32 bits.
    EXPECT_EQ(automatic(20, (1U << 31) + 1), (RegisterLayout{19, true}));
}

TEST(AutomaticLayout, HugeRegistersLoseNoMoreQubitsThanThereAreBlocks) {
    EXPECT_EQ(automatic(~0UL, 8), (RegisterLayout{~0UL - 4, true}));
}

TEST(AutomaticLayout, TheMachineIsAskedWhereItHasASay) {
    EXPECT_FALSE(depends_on_hardware({.num_qubits = 12}));
    EXPECT_TRUE(depends_on_hardware({.num_qubits = 12, .verbose = true}));
    EXPECT_TRUE(depends_on_hardware({.num_qubits = 13}));
    EXPECT_FALSE(depends_on_hardware({.num_qubits = 13, .num_block_qubits = 5, .verbose = true}));
    for (const unsigned int hardware : {0U, 1U, 8U, 1U << 31}) {
        EXPECT_EQ(automatic(12, hardware), (RegisterLayout{12, false}));
    }
}

TEST(LayoutByHand, BlocksAreNoLargerThanTheRegister) {
    EXPECT_EQ(by_hand(20, 40), (RegisterLayout{20, true}));
    EXPECT_EQ(by_hand(20, 20), (RegisterLayout{20, true}));
    EXPECT_EQ(by_hand(20, 3), (RegisterLayout{3, true}));
    EXPECT_EQ(by_hand(0, 3), (RegisterLayout{0, true}));
}

TEST(LayoutByHand, ALimitOfOneThreadAndNoAsyncSwitchThreadsOff) {
    EXPECT_EQ(by_hand(20, 3, 1), (RegisterLayout{3, false}));
    EXPECT_EQ(by_hand(20, 3, 2), (RegisterLayout{3, true}));
    EXPECT_EQ(by_hand(20, 3, 0, false), (RegisterLayout{3, false}));
}

TEST(PrintedLayout, Automatic) {
    EXPECT_EQ(printed({.num_qubits = 13}, 8),
              "Automatically setting thread count...\n"
              "    Detected CPU hard-threads: 8\n"
              "    ...setting num_threads to 2\n");
    EXPECT_EQ(printed({.num_qubits = 20, .max_num_threads = 3}, 8),
              "Automatically setting thread count...\n"
              "    Detected CPU hard-threads: 8\n"
              "    User requested max_threads: 3\n"
              "    ...setting num_threads to 2\n");
    EXPECT_EQ(printed({.num_qubits = 20}, 1U << 31),
              "Automatically setting thread count...\n"
              "    Detected CPU hard-threads: -2147483648\n"
              "    ...setting num_threads to 1\n");
    EXPECT_EQ(printed({.num_qubits = 12}, 8),
              "Automatically setting thread count...\n"
              "    Detected CPU hard-threads: 8\n"
              "    ...setting num_threads to 1\n");
}

TEST(PrintedLayout, ByHand) {
    EXPECT_EQ(printed({.num_qubits = 20, .num_block_qubits = 40}, 8),
              "Setting thread count...\n"
              "    User requested num_qubits: 20\n"
              "    User requested num_block_qubits: 20\n"
              "    ...setting num_threads to 8\n");
    EXPECT_EQ(printed({.num_qubits = 20, .num_block_qubits = 3, .max_num_threads = 1}, 8),
              "Setting thread count...\n"
              "    User requested num_qubits: 20\n"
              "    User requested num_block_qubits: 3\n"
              "     (ignoring max_num_threads in favor of num_block_qubits)\n"
              "    ...setting num_threads to 2\n");
}

// The printed number n is the smallest power of two for which 2^n is at least the block's qubits.
TEST(PrintedLayout, TheThreadsOfALayoutByHand) {
    const std::pair<unsigned long, int> counts[] = {
        {1, 1},
        {2, 1},
        {3, 2},
        {4, 2},
        {5, 4},
        {16, 4},
        {17, 8},
        {256, 8},
        {257, 16},
        {65536, 16},
        // Here the power exceeds 32 bits, and the search ends.
        {65537, 32},
        {1UL << 40, 32}};
    for (const auto& [block_qubits, count] : counts) {
        const std::string text =
            printed({.num_qubits = 1UL << 50, .num_block_qubits = block_qubits}, 8);
        EXPECT_TRUE(text.ends_with("    ...setting num_threads to " + std::to_string(count) + "\n"))
            << block_qubits << ": " << text;
    }
}

TEST(PrintedLayout, WithoutVerboseThereIsNothing) {
    testing::internal::CaptureStdout();
    decide_layout({.num_qubits = 20}, 8);
    decide_layout({.num_qubits = 20, .num_block_qubits = 3, .max_num_threads = 1}, 8);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(MemoryLimit, TheLimitItselfIsAllowed) {
    EXPECT_EQ(state_gigabytes(26), 1.0);
    EXPECT_FALSE(is_over_limit(26, 1));
    EXPECT_TRUE(is_over_limit(27, 1));
    EXPECT_FALSE(is_over_limit(27, 2));
}

TEST(MemoryLimit, ZeroIsNone) { EXPECT_FALSE(is_over_limit(~0UL, 0)); }

TEST(MemoryLimit, NoRegisterIsLargeEnoughToWrap) {
    for (const unsigned long qubits : {60UL, 64UL, 1024UL, ~0UL}) {
        EXPECT_TRUE(is_over_limit(qubits, 1UL << 33)) << qubits;
    }
    EXPECT_EQ(state_gigabytes(~0UL), std::numeric_limits<double>::infinity());
}

}  // namespace
