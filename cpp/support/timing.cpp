#include "support/timing.h"

#include <chrono>

long tic_time = 0;

namespace {

long now_in_nanoseconds() {
    using std::chrono::duration_cast, std::chrono::nanoseconds, std::chrono::system_clock;
    return duration_cast<nanoseconds>(system_clock::now().time_since_epoch()).count();
}

}  // namespace

void tic() { tic_time = now_in_nanoseconds(); }

double toc() { return static_cast<double>(now_in_nanoseconds() - tic_time) / 1e9; }
