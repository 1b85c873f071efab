#include "support/timing.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

TEST(Timing, TicStoresTheSystemClockInNanoseconds) {
    using namespace std::chrono;
    const auto now = [] {
        return duration_cast<nanoseconds>(system_clock::now().time_since_epoch()).count();
    };
    const long before = now();
    tic();
    EXPECT_LE(before, tic_time);
    EXPECT_LE(tic_time, now());
}

TEST(Timing, TocCountsSecondsFromTheStoredTime) {
    tic();
    tic_time -= 3'000'000'000L;  // as if started three seconds ago
    const double first = toc();
    EXPECT_GE(first, 3.0);
    EXPECT_GE(toc(), first);  // toc() does not change the start
}

}  // namespace
