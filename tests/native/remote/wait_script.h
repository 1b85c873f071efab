/// A service written down: what each read of a wait gets, on a clock that only its pauses move.
#pragma once

#include <cstddef>
#include <ctime>
#include <string>
#include <vector>

#include <sys/types.h>

namespace Nimbrel::Testing {

/// What one read gets: bytes, or an error number, or, without both, the end of the stream.
struct ReadAnswer {
    std::string bytes;
    int error = 0;
};

/// While one exists, this program's `read` and `usleep` are answered from it and its clock stands
/// still between the pauses. One at a time, on one thread.
class WaitScript {
  public:
    /// One list for each poll. A read behind its poll's list finds nothing to read.
    explicit WaitScript(std::vector<std::vector<ReadAnswer>> polls);
    ~WaitScript();
    WaitScript(const WaitScript&) = delete;
    WaitScript& operator=(const WaitScript&) = delete;

    ssize_t read(int descriptor, void* buffer, std::size_t size);
    void pause(useconds_t microseconds);
    timespec now() const;

    std::vector<std::size_t> reads_of_polls{0};  ///< how many reads each poll has made
    std::vector<int> descriptors;                ///< what they read from
    std::vector<useconds_t> pauses;

  private:
    std::vector<std::vector<ReadAnswer>> polls_;
    timespec start_{};
};

}  // namespace Nimbrel::Testing
