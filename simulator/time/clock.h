// The board's clock: the only place that reads the time. It is the machine's clock, or the board's
// own (--clock virtual), which is still until it is set to the next moment at which something is
// due, see scheduler.h.
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

// Microseconds since the start of 1970, for the stamps of the log. An operator may set the
// machine's clock back (CLOCK_REALTIME).
int64_t calendar_us();

// Starts the board's own clock: `now_us` is BOOT_US, and `calendar_us` the given time. It moves
// when it is set, and never back.
constexpr int64_t BOOT_US = 10 * US_PER_SECOND; // the program may look at its machine's up-time
void start_own_clock(int64_t calendar_start_us);
bool has_own_clock();
void set_own_clock(int64_t time_us);

// The machine's time in any case: for what happens between the board and its operator.
int64_t machine_us();

} // namespace simulator
