/// A stopwatch for the developer of the engine: one start time for the whole process, no lock.
#pragma once

/// Start time in nanoseconds of the system clock, as `tic` left it.
extern long tic_time;

/// Starts the stopwatch.
void tic();

/// Seconds since the last `tic`.
double toc();
