/// `FailingThreads`, which lets the creation of threads fail from a chosen one on.
#pragma once

namespace Nimbrel::Testing {

/// While it exists, the thread number `first` to be created, counted from 0, and all after it are
/// not created. One at a time.
class FailingThreads {
  public:
    explicit FailingThreads(long first);
    ~FailingThreads();
    FailingThreads(const FailingThreads&) = delete;
    FailingThreads& operator=(const FailingThreads&) = delete;

    /// Whether a thread was not created.
    static bool has_failed();
};

}  // namespace Nimbrel::Testing
