// The calls that read a time, answered with the board's.
#pragma once

#include "simulator/requests/request.h"

namespace simulator {

// clock_gettime(2), gettimeofday(2), time(2), times(2). Every clock is the board's calendar or the
// time since its start; processor time is that too, since computing costs nothing.
void answer_clock(const request &asked);

// sysinfo(2): the board's memory, and how long it is up.
void answer_sysinfo(const request &asked);

} // namespace simulator
