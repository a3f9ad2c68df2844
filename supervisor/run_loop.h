// The supervisor's run: the interval timer for the LED and the results lists, the stop and request
// signals, and the reaping of test processes.

#pragma once

#include <csignal>
#include <cstdint>

// Seconds until the next periodic results list. It starts at 10 for an early first list, then
// restarts at `log_period`.
extern int32_t log_countdown;

// Undoes signal settings that a script may pass to its children: blocked signals, and an ignored
// SIGCHLD, with which wait(2) never returns an ended test.
void restore_default_signals();

// Blocks the handled signals. Returns the previous mask, see sigprocmask(2).
sigset_t block_handled_signals();

// Installs `stress_signal` for SIGUSR1, SIGUSR2, SIGALRM, SIGQUIT, SIGTERM and SIGTSTP (and tries
// SIGSTOP, which cannot be caught). The handler masks no signal and no call restarts, see
// sigaction(2).
void install_signals();

// The handler of every signal. Stop signals kill every test process and write the results list;
// SIGALRM toggles the LED and counts down to the next list; SIGUSR1 writes the list immediately.
//
// It may interrupt the run loop anywhere, and itself (with another signal). It reads the table and
// writes `log_countdown`, the LED and the log; results_log guards the log's lock.
void stress_signal(int signal_number);

// Starts the interval timer: the first alarm after 10 us, then one every `led_period` seconds.
void start_timer();

// Waits until all started tests have ended, then writes the last results list and the status
// report. `record_count` is the number of ended tests plus one.
void run_until_reaped();

// Updates the table after wait(2) returned `ended`: marks as reaped and counts the record whose
// `pid` is `ended` and every finished record. After a failed wait `ended` is -1, which matches a
// test that has stopped itself.
void reap_records(int32_t ended);
