// Ending the processes of a run and removing its segment.

#pragma once

#include "ctl/run/runs.h"

// Waits until no process of the run is left, those too that have started meanwhile, or until the
// time is up. Returns whether all have ended.
bool await_end(stress_run &run, int64_t limit_ms);

// Ends what is left of the run with SIGKILL and names each process. False when one remains.
bool end_what_is_left(stress_run &run);

// Names the segment and removes it if nobody has it attached; with `dry_run` only names it.
bool remove_table(const stress_run &run, bool dry_run);
