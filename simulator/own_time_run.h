// A run in the board's own time (--clock virtual), see own_time/scheduler.h.
#pragma once

#include "simulator/run_parts.h"

namespace simulator {

// Call it before the first time is read.
void start_own_time(const run_settings &settings);

// Runs the program and the devices until the program has ended.
void run_in_own_time(run_parts &parts);

} // namespace simulator
