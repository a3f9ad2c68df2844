// The supervisor's run: the interval timer that blinks the LED and asks for results lists, the stop
// and request signals, and the reaping of test processes.

#pragma once

#include <csignal>
#include <cstdint>

// Seconds until the next periodic results list. It starts at 10, so that the first list comes
// early, before `log_period` takes over.
extern int32_t log_countdown;

// Undoes what a script may have left to its children: an ignored SIGCHLD, with which wait(2) never
// returns a test that has ended, and blocked signals.
void restore_default_signals();

// Lets the handled signals wait in the kernel. Returns the mask to go back to, see sigprocmask(2).
sigset_t block_handled_signals();

// Installs `stress_signal` for SIGUSR1, SIGUSR2, SIGALRM, SIGQUIT, SIGTERM and SIGTSTP (and tries
// SIGSTOP, which cannot be caught). Nothing is masked and no call restarted, see sigaction(2).
void install_signals();

// The one handler. Stop signals kill every test process and write the results list; SIGALRM toggles
// the LED and counts down to the next list; SIGUSR1 writes the list at once.
//
// It may interrupt the run loop anywhere, itself too (with another signal). It reads the table and
// writes `log_countdown`, the LED and the log; results_log guards the log's lock.
void stress_signal(int signal_number);

// Arms the interval timer: the first alarm after 10 us, then one every `led_period` seconds.
void start_timer();

// Waits until as many tests have ended as were started, then writes the last results list and the
// status report. `record_count` counts the ended ones, plus one.
void run_until_reaped();

// What one return of wait(2) means for the table: marks as reaped, and counts, the record whose
// `pid` is `ended` and every record that says it has finished. `ended` may be -1, when wait failed,
// which matches a test that has stopped itself.
void reap_records(int32_t ended);
