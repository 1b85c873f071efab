// The linker prefers the definitions of the program to those of the C library.
#include "scripted_time.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace {

Nimbrel::Testing::ScriptedTime* running = nullptr;

}  // namespace

extern "C" int usleep(useconds_t microseconds) {
    if (running != nullptr) {
        running->pause(microseconds);
        return 0;
    }
    const timespec time{microseconds / 1'000'000, microseconds % 1'000'000 * 1000};
    return ::nanosleep(&time, nullptr);
}

// The clocks of the C++ library use it too, although they are in another library.
extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t clock,
                                                                    timespec* time) noexcept {
    if (running != nullptr && clock == CLOCK_REALTIME) {
        *time = running->now();
        return 0;
    }
    return static_cast<int>(::syscall(SYS_clock_gettime, clock, time));
}

namespace Nimbrel::Testing {

void replace_time(ScriptedTime* script) { running = script; }

}  // namespace Nimbrel::Testing
