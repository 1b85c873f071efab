#include "faults/failing_memory.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <new>
#include <vector>

namespace {

using namespace Nimbrel::Testing;

TEST(FailingMemoryTest, FailsTheChosenAllocationOnceOrFromThereOn) {
    for (const Shortage shortage : {Shortage::once, Shortage::lasting}) {
        const FailingMemory memory(1, shortage);
        const std::unique_ptr<char> first(new (std::nothrow) char);
        EXPECT_FALSE(FailingMemory::has_failed());
        const std::unique_ptr<char> second(new (std::nothrow) char);
        const std::unique_ptr<char> third(new (std::nothrow) char);
        EXPECT_TRUE(FailingMemory::has_failed());
        EXPECT_NE(first, nullptr);
        EXPECT_EQ(second, nullptr);
        EXPECT_EQ(third == nullptr, shortage == Shortage::lasting);
    }
}

TEST(FailingMemoryTest, CountsWhatIsAlive) {
    const long before = live_allocations();
    {
        const std::vector<char> one(1);
        void* const two = std::calloc(1, 1);
        void* const three = std::aligned_alloc(64, 64);
        void* four = nullptr;
        ASSERT_EQ(posix_memalign(&four, 64, 64), 0);
        EXPECT_EQ(live_allocations(), before + 4);
        for (void* memory : {two, three, four}) std::free(memory);
    }
    EXPECT_EQ(live_allocations(), before);
}

}  // namespace
