// What the supervisor knows of the test processes that it has started, by record. A test may not
// have written its id into its record yet, and the id of one that was reaped may be another's.

#pragma once

#include <cstdint>
#include <sys/types.h>

// Remembers a process that was started for the record claimed last.
void note_started(pid_t pid);

// The process started for a record, also before it has written its own id there; 0 when there was
// none or it has been reaped. For a test of two records it is the last one that has it.
pid_t started_process(int32_t record_index);

// The record for which a process was started, the last one of two; 0 when it is no test's.
int32_t record_of_process(pid_t pid);

// True for a test process of this supervisor that has been reaped.
bool was_reaped(pid_t pid);

// A process has been reaped: its id may soon be another's.
void forget_process(pid_t pid);

// Counts a test that no process could be had for, and reports it on standard error with the reason,
// an errno. The test counts as ended, with one count in `errors` of its last record.
void note_failed_start(int reason);

// Tests that could not be started.
int32_t failed_starts();
