// The calls that read a time, answered with the board's.
#pragma once

#include "simulator/requests/request.h"

#include <ctime>

namespace simulator {

// What a clock is on the board. Processor time is the time since the start, since computing costs
// nothing: a spin on it ends.
enum class board_clock { none, calendar, since_start };
board_clock find_clock(clockid_t clock);
// False for those that can only be read.
bool has_timers(clockid_t clock);

// clock_gettime(2), gettimeofday(2), time(2), times(2).
void answer_clock(const request &asked);

// sysinfo(2): the board's memory, and how long it is up.
void answer_sysinfo(const request &asked);

} // namespace simulator
