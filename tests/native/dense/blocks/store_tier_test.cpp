/// The disk tier, which no register uses: its arithmetic, and its access to files that a test
/// provides.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "dense/blocks/block_support.h"
#include "dense/blocks/store.h"

namespace {

using Nimbrel::complex_t;
using Nimbrel::CoreBlock;
using Nimbrel::CoreBlockStore;
using Nimbrel::Testing::printed_by;

/// A descriptor of an empty unnamed file. The store closes it.
int new_file() {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::tmpfile(), &std::fclose);
    return dup(fileno(file.get()));
}

bool is_open(int file) { return fcntl(file, F_GETFD) != -1; }

TEST(StoreTier, KeepsItsFileNames) {
    EXPECT_STREQ(Nimbrel::block_path, "./data/tau_core_blocks%d%d.tsu");
}

TEST(StoreTier, OpensNoFiles) {
    const CoreBlockStore store(1, 2, 8, nullptr, false, false);
    for (const int file : store.block_files) EXPECT_EQ(file, -1);
    EXPECT_EQ(printed_by([&] { EXPECT_FALSE(store.self_check(240)); }),
              "Error: no block file at line 240\n");
}

TEST(StoreTier, IsContentWithAFirstFileOrWithEnoughMemory) {
    CoreBlockStore store(1, 2, 8, nullptr, false, false);
    store.block_files[0] = new_file();
    EXPECT_EQ(printed_by([&] { EXPECT_TRUE(store.self_check(1)); }), "");
    const CoreBlockStore as_many(1, 8, 8, nullptr, false, false);
    EXPECT_EQ(printed_by([&] { EXPECT_TRUE(as_many.self_check(1)); }), "");
}

TEST(StoreTier, MissesTheMemoryBeforeTheFiles) {
    const CoreBlockStore store(59, 1, 8, nullptr, false, false);
    EXPECT_EQ(printed_by([&] { EXPECT_FALSE(store.self_check(4)); }),
              "Error: NULL block_data at line 4\n");
}

TEST(StoreTier, ClosesTheFilesThatAreOpen) {
    const int first = new_file();
    const int second = new_file();
    {
        CoreBlockStore store(1, 2, 8, nullptr, false, false);
        store.block_files[0] = first;
        store.block_files[7] = second;
        store.deallocate_disk();
        EXPECT_FALSE(is_open(first));
        EXPECT_FALSE(is_open(second));
        for (const int file : store.block_files) EXPECT_EQ(file, -1);
    }
    const int third = new_file();
    {
        CoreBlockStore store(1, 2, 8, nullptr, false, false);
        store.block_files[3] = third;
    }
    EXPECT_FALSE(is_open(third));
}

TEST(StoreTier, SpreadsBlocksOverEightFilesInRuns) {
    const CoreBlockStore store(2, 1, 32, nullptr, false, false);
    const unsigned long numbers[] = {0, 0, 0, 0, 1, 1, 1, 1, 2};
    const unsigned long offsets[] = {0, 4, 8, 12, 0, 4, 8, 12, 0};
    for (unsigned long i = 0; i < 9; ++i) {
        EXPECT_EQ(store.get_disk_block_number(i), numbers[i]) << i;
        EXPECT_EQ(store.get_disk_block_offset(i), offsets[i]) << i;
    }
    EXPECT_EQ(store.get_disk_block_number(31), 7UL);
    EXPECT_EQ(store.get_disk_block_offset(31), 12UL);
}

// The offset counts amplitudes and is used as bytes, so neighbours in a file overlap.
TEST(StoreTier, WritesAndReadsAtTheOffsetInBytes) {
    CoreBlockStore store(1, 1, 16, nullptr, false, false);
    store.block_files[1] = new_file();
    const complex_t written[2] = {{1.0, 2.0}, {3.0, 4.0}};
    store.write_block(3, written);

    unsigned char bytes[64] = {};
    ASSERT_EQ(pread(store.block_files[1], bytes, sizeof bytes, 0), 2 + 32);
    EXPECT_EQ(std::memcmp(bytes + 2, written, 32), 0);
    EXPECT_EQ(bytes[0], 0);

    complex_t read_back[2] = {};
    store.read_block(3, read_back);
    EXPECT_EQ(std::memcmp(read_back, written, 32), 0);
}

TEST(StoreTier, HandsOutTheNextFreeSlot) {
    CoreBlockStore store(1, 3, 8, nullptr, false, false);
    store.block_files[0] = new_file();
    EXPECT_EQ(store.request_block(7), store.block_data);
    EXPECT_EQ(store.next_ram_block, 0UL);  // the cursor stays on the slot
    EXPECT_EQ(store.request_block(7), store.block_data + 2);
    EXPECT_EQ(store.request_block(0), store.block_data + 4);
    EXPECT_EQ(store.next_ram_block, 2UL);
    store.release_block(0, store.block_data + 2);
    EXPECT_TRUE(store.ram_block_in_use[0]);
    EXPECT_FALSE(store.ram_block_in_use[1]);
    EXPECT_EQ(store.request_block(5), store.block_data + 2);  // round the end
    EXPECT_EQ(store.next_ram_block, 1UL);
}

TEST(StoreTier, BringsABlockInAtTheOutermostLock) {
    CoreBlockStore store(1, 2, 8, nullptr, false, false);
    for (int& file : store.block_files) file = new_file();
    const complex_t kept[2] = {{1.0, 2.0}, {3.0, 4.0}};
    store.write_block(5, kept);

    CoreBlock block(5, 1, &store, nullptr, false, false);
    block.lock(true, nullptr);
    EXPECT_EQ(block.block_data, store.block_data);
    EXPECT_EQ(block.block_data[1].re, 3.0);
    block.block_data[1].re = 7.0;
    block.lock(true, nullptr);  // the second one changes nothing
    EXPECT_EQ(block.block_data[1].re, 7.0);
    EXPECT_EQ(block.lock_count, 2);
    block.unlock(true, nullptr);
    EXPECT_NE(block.block_data, nullptr);
    block.unlock(true, nullptr);
    EXPECT_EQ(block.block_data, nullptr);
    EXPECT_FALSE(store.ram_block_in_use[0]);

    complex_t now[2] = {};
    store.read_block(5, now);
    EXPECT_EQ(now[1].re, 7.0);
}

TEST(StoreTier, BringsTwoBlocksInAndWritesOnlyWhatChanged) {
    CoreBlockStore store(1, 2, 8, nullptr, false, false);
    for (int& file : store.block_files) file = new_file();
    const complex_t kept[2] = {{1.0, 2.0}, {3.0, 4.0}};
    store.write_block(2, kept);
    store.write_block(6, kept);

    CoreBlock lower(2, 1, &store, nullptr, false, false);
    CoreBlock upper(6, 1, &store, nullptr, false, false);
    lower.lock(false, &upper);  // nothing is read
    EXPECT_EQ(upper.block_data, store.block_data + 2);
    std::fill_n(store.block_data, 4, complex_t{9.0, 9.0});
    lower.unlock(false, &upper);
    EXPECT_EQ(upper.block_data, nullptr);

    lower.op_hadamard(1, {});  // through the task's own lock
    complex_t now[2] = {};
    store.read_block(6, now);
    EXPECT_EQ(now[0].re, 1.0);
    store.read_block(2, now);
    EXPECT_EQ(now[0].im, (2.0 + 4.0) * std::bit_cast<double>(0x3FE6A09E667F3BCCUL));
}

}  // namespace
