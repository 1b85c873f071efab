// An export filter whose file takes no more bytes.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>

#include "faults/scenario.h"
#include "remote/export_filter.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

const std::string connected = R"({"connected":true})";

std::string status_of(OpFilter& filter) {
    std::string status;
    filter.get_status(status);
    return status;
}

void put_records(OpFilter& filter, int count) {
    const QPUOp op = record(OP_X, {.target_mask = 1});
    for (int i = 0; i < count; ++i) filter.put_instructions(&op, 1);
}

TEST(FullDisk, TheExportFilterGoesOn) {
    constexpr int more_than_a_buffer = 100;
    OpFilter_cuQuantum_Export filter;
    filter.out = std::fopen("/dev/full", "w");
    ASSERT_NE(filter.out, nullptr);
    put_records(filter, more_than_a_buffer);
    EXPECT_EQ(status_of(filter), connected);
    EXPECT_NE(std::ferror(filter.out), 0);
    OpFilter::filter_registry.erase(filter.handle);
}

/// The largest size of a file, for as long as it exists. SIGXFSZ is ignored, so that writes fail.
class LargestFile {
  public:
    explicit LargestFile(rlim_t bytes) {
        getrlimit(RLIMIT_FSIZE, &before_);
        rlimit limit = before_;
        limit.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~LargestFile() {
        setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }
    LargestFile(const LargestFile&) = delete;
    LargestFile& operator=(const LargestFile&) = delete;

  private:
    rlimit before_{};
    void (*handler_)(int) = std::signal(SIGXFSZ, SIG_IGN);
};

TEST(FullDisk, AFileThatIsFullKeepsItsFirstLinesAndHasNoEnd) {
    constexpr std::size_t line_bytes = 11 * 22 + 1;
    constexpr std::size_t whole_lines = 3;
    const std::string path = testing::TempDir() + "full_table_" + std::to_string(getpid());
    std::FILE* const file = std::fopen(path.c_str(), "w+");
    ASSERT_NE(file, nullptr);
    {
        const LargestFile limit(whole_lines * line_bytes + 10);
        OpFilter_cuQuantum_Export filter;
        filter.out = file;
        put_records(filter, 5);
        OpFilter::filter_registry.erase(filter.handle);
    }
    std::FILE* const written = std::fopen(path.c_str(), "r");
    ASSERT_NE(written, nullptr);
    std::string text(10 * line_bytes, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), written));
    std::fclose(written);
    unlink(path.c_str());
    EXPECT_EQ(text.size(), whole_lines * line_bytes + 10);
    for (std::size_t line = 0; line < whole_lines; ++line) {
        EXPECT_EQ(text.substr(line * line_bytes, line_bytes), text.substr(0, line_bytes));
    }
    EXPECT_FALSE(text.ends_with("};\n"));
}

}  // namespace
