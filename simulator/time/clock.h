// The board's clock: every time that the board knows is read here, and nowhere else. The event loop
// is the only other place that deals with time: it waits for it.
#pragma once

#include <cstdint>

namespace simulator {

constexpr int64_t US_PER_SECOND = 1'000'000;
constexpr int64_t US_PER_MS = 1000;
constexpr int64_t NS_PER_US = 1000;

constexpr int64_t NEVER = INT64_MAX; // a time that does not come

// Microseconds since some moment before the start of the run; never goes back (CLOCK_MONOTONIC).
// Times on the board are given in these unless they say otherwise.
int64_t now_us();

// Microseconds since the start of 1970, for the stamps of the log. An operator may set this clock
// back (CLOCK_REALTIME).
int64_t calendar_us();

} // namespace simulator
