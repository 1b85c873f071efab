#include "support/available_memory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <limits>

#include "fixed_memory.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

constexpr unsigned long unlimited = std::numeric_limits<unsigned long>::max();

/// A directory with the files of a system, a new one for each test.
class AvailableMemory : public testing::Test {
  protected:
    AvailableMemory() { std::filesystem::create_directories(root_); }
    ~AvailableMemory() override { std::filesystem::remove_all(root_); }

    void write(const std::string& path, const std::string& text) {
        const std::filesystem::path file(root_ + path);
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file) << text;
    }

    /// A machine with 1,000,000 kB of free memory.
    void write_meminfo() {
        write("/proc/meminfo",
              "MemTotal:        4000000 kB\n"
              "MemFree:             500 kB\n"
              "MemAvailable:    1000000 kB\n"
              "HugePages_Total:       0\n");
    }

    /// The group of the process in version 1, mounted from the group `top`.
    void write_version_1(const std::string& group, const std::string& top = "/") {
        write("/proc/self/cgroup",
              "9:name=systemd:/init\n4:cpu,memory:" + group + "\n1:cpuset:/other\n");
        write("/proc/self/mountinfo",
              "23 1 8:1 / / rw,relatime - ext4 /dev/root rw\n"
              "33 23 0:3 / /groups/cpuset rw shared:4 - cgroup cgroup rw,cpuset\n"
              "34 23 0:4 " +
                  top +
                  " /groups/memory rw shared:5 master:2 - cgroup cgroup "
                  "rw,cpu,memory\n");
    }

    void write_version_2(const std::string& group, const std::string& top = "/") {
        write("/proc/self/cgroup", "0::" + group + "\n");
        write("/proc/self/mountinfo",
              "30 23 0:5 " + top + " /sys/fs/cgroup rw,nosuid - cgroup2 cgroup2 rw,nsdelegate\n");
    }

    void write_limit_1(const std::string& group, unsigned long limit, unsigned long usage,
                       const std::string& statistics = "") {
        write("/groups/memory" + group + "/memory.limit_in_bytes", std::to_string(limit) + "\n");
        write("/groups/memory" + group + "/memory.usage_in_bytes", std::to_string(usage) + "\n");
        write("/groups/memory" + group + "/memory.stat", statistics);
    }

    void write_limit_2(const std::string& group, const std::string& limit, unsigned long usage,
                       const std::string& statistics = "") {
        write("/sys/fs/cgroup" + group + "/memory.max", limit + "\n");
        write("/sys/fs/cgroup" + group + "/memory.current", std::to_string(usage) + "\n");
        write("/sys/fs/cgroup" + group + "/memory.stat", statistics);
    }

    unsigned long available() const { return available_memory(root_); }

  private:
    const std::string root_ = testing::TempDir() + "available_memory_" +
                              testing::UnitTest::GetInstance()->current_test_info()->name();
};

TEST_F(AvailableMemory, NothingToReadLimitsNothing) { EXPECT_EQ(available(), unlimited); }

TEST_F(AvailableMemory, APhysicalMachineGivesWhatIsFreeWithItsCache) {
    write_meminfo();
    EXPECT_EQ(available(), 1000000UL * 1024);
}

TEST_F(AvailableMemory, AGroupOfVersion1GivesWhatIsLeftOfItsLimit) {
    write_meminfo();
    write_version_1("/a/b");
    write_limit_1("/a/b", 5000, 1500);
    EXPECT_EQ(available(), 3500UL);
}

TEST_F(AvailableMemory, AGroupOfVersion2GivesWhatIsLeftOfItsLimit) {
    write_meminfo();
    write_version_2("/a/b");
    write_limit_2("/a/b", "5000", 1500);
    EXPECT_EQ(available(), 3500UL);
}

TEST_F(AvailableMemory, CacheOfAGroupIsFree) {
    write_version_1("/a");
    write_limit_1("/a", 5000, 4000,
                  "cache 900\nactive_file 7\ninactive_file 7\n"
                  "total_active_file 300\ntotal_inactive_file 500\n");
    EXPECT_EQ(available(), 1800UL);
    write_version_2("/a");
    write_limit_2("/a", "5000", 4000,
                  "anon 3000\nfile 900\ninactive_file 500\nactive_file 300\nslab_reclaimable 50\n");
    EXPECT_EQ(available(), 1850UL);
}

TEST_F(AvailableMemory, TheSmallestLimitOnThePathCounts) {
    write_version_1("/a/b/c");
    write_limit_1("/a/b/c", 9000, 0);
    write_limit_1("/a/b", 4000, 1000);
    write_limit_1("/a", 7000, 2000);
    write_limit_1("/a/sibling", 1, 1);
    EXPECT_EQ(available(), 3000UL);
    write_version_2("/a/b/c");
    write_limit_2("/a/b/c", "max", 0);
    write_limit_2("/a/b", "6000", 100);
    write_limit_2("/a", "8000", 7900);
    EXPECT_EQ(available(), 100UL);
}

TEST_F(AvailableMemory, TheMountedGroupIsPartOfThePath) {
    write_version_2("/");
    write_limit_2("", "700", 100);
    EXPECT_EQ(available(), 600UL);
    write_version_2("/a");
    EXPECT_EQ(available(), 600UL) << "a group that shows no files";
}

TEST_F(AvailableMemory, ThePathBeginsAtTheGroupThatIsMounted) {
    write_version_1("/docker/1f/inner", "/docker/1f");
    write_limit_1("", 5000, 1000);
    write_limit_1("/inner", 3000, 1000);
    write_limit_1("/docker/1f/inner", 1, 1);
    EXPECT_EQ(available(), 2000UL);
    write_version_1("/docker/1f", "/docker/1f");
    EXPECT_EQ(available(), 4000UL);
}

TEST_F(AvailableMemory, AMountOfOtherGroupsDoesNotCount) {
    write_version_1("/docker/1f2", "/docker/1f");
    write_limit_1("", 5000, 1000);
    EXPECT_EQ(available(), unlimited);
}

TEST_F(AvailableMemory, AMountFromOutsideTheNamespaceCounts) {
    write_version_2("/a", "/../..");
    write_limit_2("", "900", 100);
    write_limit_2("/a", "1", 1);
    EXPECT_EQ(available(), 800UL);
}

TEST_F(AvailableMemory, AnUnlimitedGroupLeavesTheMachine) {
    write_meminfo();
    write_version_2("/a");
    write_limit_2("/a", "max", 1500);
    EXPECT_EQ(available(), 1000000UL * 1024);
    write_version_1("/a");
    write_limit_1("/a", 9223372036854771712UL, 1500);
    EXPECT_EQ(available(), 1000000UL * 1024);
}

TEST_F(AvailableMemory, AGroupOverItsLimitHasNothingLeft) {
    write_version_2("/a");
    write_limit_2("/a", "1000", 1500, "inactive_file 200\n");
    EXPECT_EQ(available(), 0UL);
    write_limit_2("/a", "1000", 1500, "inactive_file 2000\n");
    EXPECT_EQ(available(), 1000UL) << "counters that were read at different times";
}

TEST_F(AvailableMemory, BothVersionsSideBySide) {
    write_version_1("/a");
    write("/proc/self/cgroup", "4:memory:/a\n0::/b\n");
    write_limit_1("/a", 5000, 1000);
    EXPECT_EQ(available(), 4000UL);
}

TEST(ThisMachine, HasSomeMemoryAndNotAllThatCanBeCounted) {
    EXPECT_GT(available_memory(""), 0UL);
    EXPECT_LT(available_memory(""), unlimited);
}

TEST(Shortage, SmallStepsAskNobody) {
    const FixedMemory none(0);
    EXPECT_FALSE(find_shortage(0));
    EXPECT_FALSE(find_shortage(large_step - 1));
    EXPECT_TRUE(find_shortage(large_step));
}

TEST(Shortage, AStepMayTakeAllThatThereIs) {
    const FixedMemory memory(3UL << 30);
    EXPECT_FALSE(find_shortage(3UL << 30));
    EXPECT_TRUE(find_shortage((3UL << 30) + 1));
}

TEST(Shortage, TellsBothSizes) {
    const FixedMemory memory(3UL << 30);
    const auto shortage = find_shortage(1UL << 40);
    ASSERT_TRUE(shortage);
    EXPECT_EQ(shortage->text(), " It needs 1 TB, and the process may have 3 GB more.");
}

}  // namespace
