/// A process that may have a given amount of memory more, whatever the machine has.
#pragma once

#include "support/available_memory.h"

namespace Nimbrel::Testing {

/// Answers every question for memory with a fixed number while it lives, one at a time.
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
