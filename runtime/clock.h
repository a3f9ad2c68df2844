#pragma once

#include <cstdint>
#include <sys/time.h>

constexpr int32_t US_PER_S = 1000000;

// Sleeps the whole time given, in microseconds (0 or more), whatever signals arrive meanwhile; see
// nanosleep(2). All pacing in the tests goes through here.
void sleep_us(int32_t microseconds);

// The time of day, see gettimeofday(2). It may be set back while a test runs.
timeval time_of_day();
