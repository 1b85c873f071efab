/// Pauses and the clock of a test program, replaced by a script. Needs `scripted_time.cpp` in the
/// program.
#pragma once

#include <ctime>

#include <sys/types.h>

namespace Nimbrel::Testing {

/// What pauses do and what the clock shows.
class ScriptedTime {
  public:
    virtual void pause(useconds_t microseconds) = 0;
    virtual timespec now() const = 0;

  protected:
    ~ScriptedTime() = default;
};

/// From now on `usleep` and the real-time clock are those of `script`; null: of the system.
void replace_time(ScriptedTime* script);

}  // namespace Nimbrel::Testing
