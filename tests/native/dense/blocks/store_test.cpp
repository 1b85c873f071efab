#include "dense/blocks/store.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "dense/blocks/block_support.h"

namespace {

using Nimbrel::complex_t;
using Nimbrel::CoreBlockStore;
using Nimbrel::Testing::printed_by;

std::string allocation_line(const char* size, const CoreBlockStore& store) {
    char text[200];
    std::snprintf(text, sizeof text, "> Blockstore RAM alloc (%s) %p %p\n", size,
                  static_cast<void*>(store.block_data), static_cast<void*>(store.ram_block_in_use));
    return text;
}

TEST(Store, KeepsWhatItIsMadeWith) {
    const CoreBlockStore store(3, 4, 0, nullptr, true, false);
    EXPECT_TRUE(store.use_threads);
    EXPECT_FALSE(store.verbose);
    EXPECT_EQ(store.num_block_qubits, 3UL);
    EXPECT_EQ(store.terms_per_block, 8UL);
    EXPECT_EQ(store.num_ram_blocks, 4UL);
    EXPECT_EQ(store.num_disk_blocks, 0UL);
    EXPECT_NE(store.block_data, nullptr);
    EXPECT_EQ(store.next_ram_block, 0UL);
    EXPECT_FALSE(store.external_buffer);
    for (const int file : store.block_files) EXPECT_EQ(file, -1);
    for (int slot = 0; slot < 4; ++slot) EXPECT_FALSE(store.ram_block_in_use[slot]);
}

TEST(Store, LiesAtAMultipleOf32Bytes) {
    for (unsigned long qubits = 0; qubits < 8; ++qubits) {
        const CoreBlockStore store(qubits, 3, 0, nullptr, false, false);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(store.block_data) % 32, 0UL);
    }
}

TEST(Store, GivesEachSlotItsRunOfAmplitudes) {
    CoreBlockStore store(3, 4, 0, nullptr, false, false);
    for (unsigned long i = 0; i < 4; ++i) {
        EXPECT_EQ(store.get_ram_block_ptr(i), store.block_data + 8 * i);
        EXPECT_EQ(store.request_block(i), store.block_data + 8 * i);
        EXPECT_FALSE(store.ram_block_in_use[i]);
        store.release_block(i, store.block_data);
    }
    EXPECT_EQ(store.next_ram_block, 0UL);
}

TEST(Store, OfOneBlockHasOneSlotAtTheStart) {
    CoreBlockStore store(5, 1, 0, nullptr, false, false);
    EXPECT_EQ(store.terms_per_block, 32UL);
    EXPECT_EQ(store.request_block(0), store.block_data);
    EXPECT_TRUE(store.self_check(1));
}

TEST(Store, AllocatesOnce) {
    alignas(32) complex_t first[4] = {};
    alignas(32) complex_t second[4] = {};
    CoreBlockStore store(1, 2, 0, first, false, false);
    store.next_ram_block = 1;
    EXPECT_EQ(printed_by([&] { store.allocate_ram(second, true); }), "");
    EXPECT_EQ(store.block_data, first);
    store.allocate_ram(nullptr, false);
    EXPECT_EQ(store.block_data, first);
    EXPECT_TRUE(store.external_buffer);
    EXPECT_EQ(store.next_ram_block, 1UL);
}

TEST(Store, LeavesACallersBufferToTheCaller) {
    alignas(32) complex_t buffer[4] = {{1.0, 2.0}, {}, {}, {3.0, 4.0}};
    {
        CoreBlockStore store(1, 2, 0, buffer, false, false);
        EXPECT_TRUE(store.external_buffer);
        EXPECT_NE(store.ram_block_in_use, nullptr);
        EXPECT_EQ(store.request_block(1), buffer + 2);
        store.deallocate_ram();
        EXPECT_FALSE(store.external_buffer);
        EXPECT_EQ(store.block_data, nullptr);
        EXPECT_EQ(store.ram_block_in_use, nullptr);
        store.deallocate_ram();
    }
    EXPECT_EQ(buffer[0].re, 1.0);
    EXPECT_EQ(buffer[3].im, 4.0);
}

TEST(Store, TakesANewBufferAfterTheOldOneIsGone) {
    alignas(32) complex_t buffer[2] = {};
    CoreBlockStore store(1, 1, 0, nullptr, false, false);
    store.deallocate_ram();
    store.allocate_ram(buffer, false);
    EXPECT_EQ(store.block_data, buffer);
    store.deallocate_ram();
    store.allocate_ram(nullptr, false);
    EXPECT_NE(store.block_data, nullptr);
    EXPECT_FALSE(store.external_buffer);
}

TEST(Store, TellsOfItsMemoryWhenVerbose) {
    testing::internal::CaptureStdout();
    const CoreBlockStore store(3, 4, 0, nullptr, false, true);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), allocation_line("512 bytes", store));
    testing::internal::CaptureStdout();
    const CoreBlockStore larger(10, 8, 0, nullptr, false, true);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), allocation_line("128 KB", larger));

    alignas(32) complex_t buffer[2] = {};
    testing::internal::CaptureStdout();
    const CoreBlockStore lent(0, 2, 0, buffer, false, true);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), allocation_line("32 bytes", lent));
    EXPECT_EQ(lent.block_data, buffer);
}

TEST(Store, ThatFindsNoMemoryTellsWhenItIsAsked) {
    testing::internal::CaptureStdout();
    {
        CoreBlockStore store(59, 1, 0, nullptr, false, true);
        EXPECT_EQ(store.block_data, nullptr);
        EXPECT_EQ(store.ram_block_in_use, nullptr);
        EXPECT_FALSE(store.external_buffer);
        EXPECT_FALSE(store.self_check(17));
        EXPECT_FALSE(store.self_check(-3));
        EXPECT_EQ(store.request_block(0), nullptr);
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Error: NULL block_data at line 17\n"
              "Error: NULL block_data at line -3\n"
              "Error: NULL block_data at line 0\n");
}

// Sizes that overflow must not become a small buffer.
TEST(Store, OfAnImpossibleSizeHasNoMemory) {
    for (const unsigned long qubits : {59UL, 60UL, 63UL, 64UL, 70UL}) {
        const CoreBlockStore one(qubits, 1, 0, nullptr, false, false);
        EXPECT_EQ(one.block_data, nullptr) << qubits;
        const CoreBlockStore sixteen(qubits, 16, 0, nullptr, false, false);
        EXPECT_EQ(sixteen.block_data, nullptr) << qubits;
    }
    const CoreBlockStore many(4, 1UL << 60, 0, nullptr, false, false);
    EXPECT_EQ(many.block_data, nullptr);
}

}  // namespace
