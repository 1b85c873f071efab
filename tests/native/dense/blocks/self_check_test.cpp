#include "dense/blocks/block_support.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

/// The text that the check of a single block prints.
std::string printed_by_check(Hands hands, unsigned long number, unsigned long qubits) {
    const bool threads = hands != Hands::caller;
    CoreBlockStore store(qubits, 1, 0, nullptr, threads, false);
    const auto team = hands == Hands::team ? std::make_unique<BlockTeam>(number + 1) : nullptr;
    CoreBlock block(number, qubits, &store, nullptr, threads, true, team.get());
    block.store_slot = 0;
    return printed_by([&] {
        EXPECT_TRUE(block.self_check(240));
        block.finish();
    });
}

class SelfCheck : public HandedTest {
  protected:
    static std::string printed(unsigned long number, unsigned long qubits) {
        return printed_by_check(GetParam(), number, qubits);
    }
};

INSTANTIATE_TEST_SUITE_P(Hands, SelfCheck, all_hands);

TEST_P(SelfCheck, TellsOfEachBlockWhenVerbose) {
    EXPECT_EQ(printed(0, 0), "Core Block 0 ok (ocl=0, 0 qubits, 1 terms, 0.000 MB)\n");
    EXPECT_EQ(printed(5, 10), "Core Block 5 ok (ocl=0, 10 qubits, 1024 terms, 0.016 MB)\n");
    EXPECT_EQ(printed(63, 12), "Core Block 63 ok (ocl=0, 12 qubits, 4096 terms, 0.062 MB)\n");
    EXPECT_EQ(printed(1, 16), "Core Block 1 ok (ocl=0, 16 qubits, 65536 terms, 1.000 MB)\n");
}

TEST(SelfCheckText, HasTheNumberInThirtyTwoBits) {
    EXPECT_EQ(printed_by_check(Hands::caller, (1UL << 32) + 7, 1),
              "Core Block 7 ok (ocl=0, 1 qubits, 2 terms, 0.000 MB)\n");
}

TEST_P(SelfCheck, IsSilentOtherwise) {
    for (const unsigned long b : {2UL, handed_over_qubits}) {
        Blocks blocks(b, GetParam());
        blocks.fill(draws);
        blocks[0].set_zero();
        blocks.finish();
        EXPECT_EQ(printed_by([&] {
                      EXPECT_TRUE(blocks[0].self_check(1));
                      EXPECT_TRUE(blocks[1].self_check(1));
                      blocks.finish();
                  }),
                  "");
        EXPECT_EQ(blocks[0].lock_count, 0);
    }
}

TEST_P(SelfCheck, NamesTheSlotsThatBreakThePromiseOfZeros) {
    for (const unsigned long b : {3UL, handed_over_qubits}) {
        Blocks blocks(b, GetParam());
        blocks[2].set_zero();
        blocks[2].set_value(1, {-0.0, 0.0});  // a negative zero breaks it too
        blocks[2].set_value(6, {0.0, 1e-300});
        blocks[2].all_zero = true;
        EXPECT_EQ(printed_by([&] {
                      EXPECT_TRUE(blocks[2].self_check(77));
                      blocks.finish();
                  }),
                  "Self-check all-zero inconsistency block 1 at line 77\n"
                  "Self-check all-zero inconsistency block 6 at line 77\n");
    }
}

TEST_P(SelfCheck, LooksAtNoAmplitudeWithoutThePromise) {
    Blocks blocks(2, GetParam());
    blocks.fill(draws);
    EXPECT_EQ(printed_by([&] { EXPECT_TRUE(blocks[1].self_check(5)); }), "");
}

// The store tells first, at its own line 0.
TEST_P(SelfCheck, TellsOfMissingMemoryAndIsTrueAllTheSame) {
    const bool threads = GetParam() != Hands::caller;
    CoreBlockStore store(59, 1, 0, nullptr, threads, false);
    CoreBlock block(0, 2, &store, nullptr, threads, false);
    EXPECT_EQ(printed_by([&] { EXPECT_TRUE(block.self_check(12)); }),
              "Error: NULL block_data at line 0\n"
              "Error: NULL block_data at line 12\n");
    EXPECT_EQ(block.lock_count, 0);
}

}  // namespace
