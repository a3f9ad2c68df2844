// The board's clock: every time that the board knows is read here, and nowhere else. It is the
// machine's, or the board's own (--clock virtual), which stands still until it is set to the next
// moment at which something is due, see scheduler.h.
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
