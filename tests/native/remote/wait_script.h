/// A scripted service: the result of each read of a wait, on a clock that only pauses advance.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <sys/types.h>

#include "scripted_time.h"

namespace Nimbrel::Testing {

/// The result of one read: bytes, an error number, or the end of the stream if there is neither.
struct ReadAnswer {
    std::string bytes;
    int error = 0;
};

/// While one exists, it replaces `read` and `usleep` of this program, and the clock advances only
/// in pauses. One at a time, on one thread.
class WaitScript final : public ScriptedTime {
  public:
    /// One list for each poll. A read past the end of its poll's list finds no data.
    explicit WaitScript(std::vector<std::vector<ReadAnswer>> polls);
    ~WaitScript();
    WaitScript(const WaitScript&) = delete;
    WaitScript& operator=(const WaitScript&) = delete;

    ssize_t read(int descriptor, void* buffer, std::size_t size);
    void pause(useconds_t microseconds) override;
    timespec now() const override;

    std::vector<std::size_t> reads_of_polls{0};  ///< number of reads of each poll
    std::vector<int> descriptors;                ///< the descriptor of each read
    std::vector<useconds_t> pauses;

  private:
    std::vector<std::vector<ReadAnswer>> polls_;
    timespec start_{};
};

}  // namespace Nimbrel::Testing
