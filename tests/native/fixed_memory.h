/// `FixedMemory`, which fixes the available memory of the process for a test.
#pragma once

#include "support/available_memory.h"

namespace Nimbrel::Testing {

/// While it exists, the available memory is a fixed number. One at a time.
class FixedMemory {
  public:
    explicit FixedMemory(unsigned long bytes) {
        answer = bytes;
        ask_available_memory = [] { return answer; };
    }
    ~FixedMemory() { ask_available_memory = before_; }
    FixedMemory(const FixedMemory&) = delete;
    FixedMemory& operator=(const FixedMemory&) = delete;

  private:
    static inline unsigned long answer = 0;
    unsigned long (*before_)() = ask_available_memory;
};

}  // namespace Nimbrel::Testing
