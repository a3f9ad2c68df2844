// The supervisor's own list of test processes, by record. The `pid` of a record is not enough: a
// test may not have written it yet, and after a reap the id may belong to another process.

#pragma once

#include <cstdint>
#include <sys/types.h>

// Notes the process that was started for the record claimed last.
void note_started(pid_t pid);

// Returns the process started for a record, also before it has written its own id there; 0 if none
// was started or it has been reaped. Of the two records of a test only the last one has it.
pid_t started_process(int32_t record_index);

// Returns the record for which a process was started, the last one of two; 0 if it is no test.
int32_t record_of_process(pid_t pid);

// Returns true for a test process of this supervisor that has been reaped.
bool was_reaped(pid_t pid);

// Notes that a process has been reaped: another process may soon get its id.
void forget_process(pid_t pid);

// Counts a test whose fork failed and prints the reason, an errno, to standard error. The test
// counts as ended, with one error in its last record.
void note_failed_start(int reason);

// Returns how many tests could not be started.
int32_t failed_starts();
