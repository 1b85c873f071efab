/// A stopwatch for developers: one start time for the whole process, without a lock.
#pragma once

/// Time of the last `tic` in nanoseconds of the system clock.
extern long tic_time;

/// Starts the stopwatch.
void tic();

/// Seconds since the last `tic`.
double toc();
