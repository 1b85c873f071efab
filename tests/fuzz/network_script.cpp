#include "network_script.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <utility>

namespace {

Nimbrel::Fuzzing::NetworkScript* running = nullptr;

}  // namespace

// The linker prefers these to the functions of the C library.
extern "C" ssize_t read(int descriptor, void* buffer, std::size_t size) {
    if (running != nullptr && descriptor == Nimbrel::Fuzzing::NetworkScript::descriptor) {
        return running->read(buffer, size);
    }
    return ::syscall(SYS_read, descriptor, buffer, size);
}

extern "C" ssize_t send(int descriptor, const void* bytes, std::size_t size, int flags) {
    if (running != nullptr && descriptor == Nimbrel::Fuzzing::NetworkScript::descriptor) {
        return running->send(bytes, size);
    }
    return ::syscall(SYS_sendto, descriptor, bytes, size, flags, nullptr, 0);
}

namespace Nimbrel::Fuzzing {

NetworkScript::NetworkScript(std::vector<std::vector<ScriptedRead>> polls, ssize_t send_result)
    : polls_(std::move(polls)), send_result_(send_result) {
    // Near the clock of the process, by which the fuzzer tells that an input takes too long.
    ::clock_gettime(CLOCK_REALTIME, &now_);
    running = this;
    Testing::replace_time(this);
}

NetworkScript::~NetworkScript() {
    Testing::replace_time(nullptr);
    running = nullptr;
}

ssize_t NetworkScript::read(void* buffer, std::size_t size) {
    if (poll_ >= polls_.size() || next_read_ >= polls_[poll_].size()) {
        errno = EAGAIN;
        return -1;
    }
    ScriptedRead& found = polls_[poll_][next_read_];
    if (found.error != 0) {
        ++next_read_;
        errno = found.error;
        return -1;
    }
    const std::size_t count = std::min(size, found.bytes.size());
    std::copy_n(found.bytes.data(), count, static_cast<char*>(buffer));
    delivered.append(found.bytes, 0, count);
    found.bytes.erase(0, count);
    if (found.bytes.empty()) ++next_read_;
    return static_cast<ssize_t>(count);
}

ssize_t NetworkScript::send(const void* bytes, std::size_t size) {
    sent.append(static_cast<const char*>(bytes), size);
    errno = EAGAIN;
    return std::min(send_result_, static_cast<ssize_t>(size));
}

// After the script's polls nothing more comes, so a long wait need not be lived through.
void NetworkScript::pause(useconds_t microseconds) {
    constexpr std::size_t polls_to_live_through = 20;
    ++poll_;
    next_read_ = 0;
    now_.tv_nsec += static_cast<long>(microseconds) * 1000;
    now_.tv_sec += now_.tv_nsec / 1'000'000'000;
    now_.tv_nsec %= 1'000'000'000;
    if (poll_ > polls_.size() + polls_to_live_through) now_.tv_sec += 3;
    errno = EEXIST;  // an old error number must not affect the next read
}

timespec NetworkScript::now() const { return now_; }

}  // namespace Nimbrel::Fuzzing
