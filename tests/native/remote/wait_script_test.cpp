// The system calls of a wait, replaced by a script, and the tests of the script.
// The linker prefers the definitions of the program to those of the C library.
#include "remote/wait_script.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <numeric>
#include <utility>

namespace {

Nimbrel::Testing::WaitScript* running = nullptr;

constexpr std::size_t longest = 10000;  // more pauses than any wait of a test

}  // namespace

extern "C" ssize_t read(int descriptor, void* buffer, size_t size) {
    if (running != nullptr) return running->read(descriptor, buffer, size);
    return ::syscall(SYS_read, descriptor, buffer, size);
}

namespace Nimbrel::Testing {

WaitScript::WaitScript(std::vector<std::vector<ReadAnswer>> polls) : polls_(std::move(polls)) {
    ::clock_gettime(CLOCK_REALTIME, &start_);
    running = this;
    replace_time(this);
}

WaitScript::~WaitScript() {
    replace_time(nullptr);
    running = nullptr;
}

ssize_t WaitScript::read(int descriptor, void* buffer, std::size_t size) {
    descriptors.push_back(descriptor);
    const std::size_t poll = pauses.size();
    const std::size_t number = reads_of_polls.back()++;
    if (poll >= polls_.size() || number >= polls_[poll].size()) {
        errno = EAGAIN;
        return -1;
    }
    const ReadAnswer& answer = polls_[poll][number];
    if (answer.error != 0) {
        errno = answer.error;
        return -1;
    }
    EXPECT_LE(answer.bytes.size(), size) << "the script's answer does not fit the read";
    std::copy(answer.bytes.begin(), answer.bytes.end(), static_cast<char*>(buffer));
    return static_cast<ssize_t>(answer.bytes.size());
}

void WaitScript::pause(useconds_t microseconds) {
    pauses.push_back(microseconds);
    reads_of_polls.push_back(0);
    if (pauses.size() == longest) {
        ADD_FAILURE() << "a wait without end";
        start_.tv_sec += 1'000'000'000;
    }
    errno = EEXIST;  // an old error number must not affect the next read
}

timespec WaitScript::now() const {
    const long paused = std::accumulate(pauses.begin(), pauses.end(), 0L);
    const long microseconds = start_.tv_nsec / 1000 + paused;
    return {start_.tv_sec + microseconds / 1'000'000, microseconds % 1'000'000 * 1000};
}

TEST(WaitScript, MovesTheClockByItsPausesAlone) {
    using clock = std::chrono::system_clock;
    WaitScript script({});
    const clock::time_point start = clock::now();
    EXPECT_EQ(clock::now(), start);
    ::usleep(2'500'000);
    EXPECT_EQ(clock::now() - start, std::chrono::microseconds(2'500'000));
}

TEST(WaitScript, AnswersEachPollsReadsInTheirOrder) {
    WaitScript script({{{"ab"}, {"", ECONNRESET}}, {{""}}});
    char buffer[4] = {};
    EXPECT_EQ(::read(7, buffer, 4), 2);
    EXPECT_STREQ(buffer, "ab");
    EXPECT_EQ(::read(7, buffer, 4), -1);
    EXPECT_EQ(errno, ECONNRESET);
    EXPECT_EQ(::read(7, buffer, 4), -1);
    EXPECT_EQ(errno, EAGAIN);
    ::usleep(1);
    EXPECT_EQ(::read(8, buffer, 4), 0);
    EXPECT_EQ(script.reads_of_polls, (std::vector<std::size_t>{3, 1}));
    EXPECT_EQ(script.descriptors, (std::vector<int>{7, 7, 7, 8}));
}

}  // namespace Nimbrel::Testing
