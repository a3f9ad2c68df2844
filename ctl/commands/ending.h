// Ends the processes of a run and removes its segment.

#pragma once

#include "ctl/run/runs.h"

// Waits until no process of the run is left, including those that start meanwhile, or until the
// time is up. True if all have ended.
bool await_end(stress_run &run, int64_t limit_ms);

// Ends what is left of the run with SIGKILL and prints each process. False if one remains.
bool end_what_is_left(stress_run &run);

// Prints the segment and removes it if no process has it attached; with `dry_run` only prints it.
bool remove_table(const stress_run &run, bool dry_run);
