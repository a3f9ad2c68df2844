// The board's clock: the only place that reads the time. The event loop is the only place that
// waits for a time.
#pragma once

#include <cstdint>

namespace simulator {

constexpr int64_t US_PER_SECOND = 1'000'000;
constexpr int64_t US_PER_MS = 1000;
constexpr int64_t NS_PER_US = 1000;

constexpr int64_t NEVER = INT64_MAX; // a time that never comes

// Microseconds since an arbitrary moment before the run; never goes back (CLOCK_MONOTONIC). Times
// on the board use this clock and unit unless stated otherwise.
int64_t now_us();

// Microseconds since the start of 1970, for the stamps of the log. An operator may set this clock
// back (CLOCK_REALTIME).
int64_t calendar_us();

} // namespace simulator
