#pragma once

#include <cstdint>
#include <sys/time.h>

constexpr int32_t US_PER_S = 1000000;

// Sleeps for `microseconds` (0 or more) and continues after a signal, see nanosleep(2).
void sleep_us(int32_t microseconds);

// Returns the time of day, see gettimeofday(2). Somebody may set it back while a test runs.
timeval time_of_day();
