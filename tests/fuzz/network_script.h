/// A scripted network: what each read of a wait finds, on a clock that only pauses move.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <sys/types.h>

#include "scripted_time.h"

namespace Nimbrel::Fuzzing {

/// What one read finds: bytes, an error number, or the end of the stream if there is neither.
struct ScriptedRead {
    std::string bytes = {};
    int error = 0;
};

/// While one exists, it takes the place of the socket `descriptor` and of the clock.
class NetworkScript final : public Testing::ScriptedTime {
  public:
    static constexpr int descriptor = 1 << 20;  ///< of no open file

    /// A list for each poll. A read behind the end of its list finds nothing.
    NetworkScript(std::vector<std::vector<ScriptedRead>> polls, ssize_t send_result);
    ~NetworkScript();
    NetworkScript(const NetworkScript&) = delete;
    NetworkScript& operator=(const NetworkScript&) = delete;

    ssize_t read(void* buffer, std::size_t size);
    ssize_t send(const void* bytes, std::size_t size);
    void pause(useconds_t microseconds) override;
    timespec now() const override;

    std::string delivered;  ///< all bytes that were read
    std::string sent;

  private:
    std::vector<std::vector<ScriptedRead>> polls_;
    ssize_t send_result_;
    std::size_t poll_ = 0;
    std::size_t next_read_ = 0;
    timespec now_{};
};

}  // namespace Nimbrel::Fuzzing
