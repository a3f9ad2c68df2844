// What every test process does alike: start, look at its stop and hold words, nap, end.
//
// A test routine reads: claim its record, `start_test`, and in the child set-up, loop, end. Its
// loop has this shape:
//
//     while (!told_to_stop(record)) {
//         if (is_held(record)) {
//             hold_nap(record, HOLD_NAP_US);
//             continue;
//         }
//         ... one turn ...
//     }
//     mark_finished(record);
//     exit(TEST_EXIT_STATUS);

#pragma once

#include <cstdint>
#include <sys/types.h>

#include "supervisor/status_table.h"

constexpr int32_t HOLD_NAP_US = 50000;
constexpr int32_t SHORT_HOLD_NAP_US = 5000; // the serial receiver and producer resume faster
constexpr int TEST_EXIT_STATUS = 2;         // of every test process that ends by itself

// Forks the test's process. Returns the child's id in the supervisor and 0 in the child, whose
// present pages are locked in memory and whose messages go to the system log under the run's ident.
// Returns -1 when fork(2) failed, after saying so on standard error; the test then counts as ended,
// with one count in `errors` of its last record.
pid_t start_test();

// Tests that start_test could not start.
int32_t failed_starts();

// The process started for a record, also before it has written its own id there; 0 when there was
// none or it has been reaped. For a test of two records it is the last one that has it.
pid_t started_process(int32_t record_index);

// The record for which a process was started, the last one of two; 0 when it is no test's.
int32_t record_of_process(pid_t pid);

// True for a test process of this supervisor that has been reaped.
bool was_reaped(pid_t pid);

// A process has been reaped: its id may soon be another's.
void forget_process(pid_t pid);

// True once the stop word stands in the record.
inline bool told_to_stop(const TestRecord &record) {
    return shared_word(record.pid) == PID_STOP;
}

// True while the record is held.
inline bool is_held(const TestRecord &record) {
    return shared_word(record.hold) != HOLD_NONE;
}

// Acknowledges the hold and naps.
void hold_nap(TestRecord &record, int32_t nap_us);

// Writes PID_FINISHED and gives the supervisor 5 ms to see it. The caller then releases what it
// opened and exits with TEST_EXIT_STATUS.
void mark_finished(TestRecord &record);
