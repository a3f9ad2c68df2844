#include "supervisor/run_loop.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <sched.h>
#include <sys/time.h>
#include <sys/wait.h>

#include "runtime/clock.h"
#include "runtime/settings.h"
#include "runtime/started_tests.h"
#include "supervisor/led.h"
#include "supervisor/lists/rates.h"
#include "supervisor/lists/results_log.h"
#include "supervisor/lists/status_report.h"
#include "supervisor/status_table.h"

int32_t log_countdown = 10;

namespace {

// The numbers are the board's own interface: production scripts send them as numbers.
constexpr int HANDLED_SIGNALS[] = {
    10, // SIGUSR1  results list now
    12, // SIGUSR2  stop
    14, // SIGALRM  LED and countdown
    3,  // SIGQUIT  stop
    19, // SIGSTOP  cannot be caught: the call fails
    15, // SIGTERM  stop
    20, // SIGTSTP  stop
};
constexpr int LAST_SIGNAL = 20;
constexpr uint32_t STOP_SIGNALS = 0x189008; // bits 3, 12, 15, 19 and 20
static_assert(SIGUSR1 == 10 && SIGUSR2 == 12 && SIGALRM == 14 && SIGQUIT == 3);
static_assert(SIGSTOP == 19 && SIGTERM == 15 && SIGTSTP == 20);

constexpr int32_t NO_CHILD_NAP_US = 5000;

volatile sig_atomic_t tests_killed = 0; // by a stop signal

// A new test may not have written its id yet: the supervisor's own list has it.
int32_t process_of_record(int32_t index) {
    const int32_t pid = shared_word(status_table->records[static_cast<size_t>(index)].pid);
    return pid == PID_NONE ? started_process(index) : pid;
}

void kill_all_tests() {
    std::array<int32_t, TABLE_RECORDS> pids = {};
    const int32_t claimed = process_count + bogus_count;
    for (int32_t i = 1; i <= claimed; ++i)
        pids[static_cast<size_t>(i)] = process_of_record(i);
    (void)sched_yield();
    (void)sched_yield();
    // A record may still contain the id of a reaped process: by now it may be any process.
    for (const int32_t pid : pids)
        if (pid > 0 && !was_reaped(pid))
            (void)kill(pid, SIGKILL); // no effect if it has just ended
    tests_killed = 1;
}

// Counts a test that was killed before it wrote its id, so that no record's `pid` matches.
void reap_unnamed(pid_t ended) {
    const int32_t index = record_of_process(ended);
    int32_t &pid = status_table->records[static_cast<size_t>(index)].pid;
    if (tests_killed == 0 || index == 0 || shared_word(pid) != PID_NONE)
        return;
    set_shared_word(pid, PID_REAPED);
    ++record_count;
}

void log_and_restart_countdown() {
    results_log();
    log_countdown = log_period;
}

} // namespace

sigset_t block_handled_signals() {
    sigset_t handled;
    sigset_t before;
    sigemptyset(&handled);
    for (const int number : HANDLED_SIGNALS)
        sigaddset(&handled, number);
    (void)sigprocmask(SIG_BLOCK, &handled, &before);
    return before;
}

void restore_default_signals() {
    (void)signal(SIGCHLD, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    (void)sigprocmask(SIG_SETMASK, &none, nullptr);
}

void install_signals() {
    struct sigaction action = {};
    action.sa_handler = stress_signal;
    for (const int number : HANDLED_SIGNALS)
        (void)sigaction(number, &action, nullptr);
}

void stress_signal(int signal_number) {
    if (status_table == nullptr)
        return; // the run has ended and detached the table
    const int interrupted_errno = errno;

    if (log_countdown <= 0)
        log_countdown = log_period;
    if (log_countdown > log_period)
        log_countdown = log_period;

    if (signal_number > LAST_SIGNAL) { // the handler's exits: no installed signal takes them
        status_table_detach();
        exit(1);
    }
    if ((STOP_SIGNALS & 1u << signal_number) != 0) {
        kill_all_tests();
        results_log();
    } else if (signal_number == SIGALRM) {
        (void)led_toggle();
        log_countdown -= led_period;
        if (log_countdown <= 0)
            log_and_restart_countdown();
    } else if (signal_number == SIGUSR1) {
        log_and_restart_countdown();
    } else {
        status_table_detach();
        exit(1);
    }
    errno = interrupted_errno;
}

void start_timer() {
    itimerval timer = {};
    timer.it_interval.tv_sec = led_period;
    timer.it_value.tv_usec = 10;
    (void)setitimer(ITIMER_REAL, &timer, nullptr);
}

void reap_records(int32_t ended) {
    bool matched = false; // one process ends one record, even if two contain its id
    for (int32_t i = 1; i <= process_count; ++i) {
        TestRecord &record = status_table->records[static_cast<size_t>(i)];
        const int32_t pid = shared_word(record.pid);
        const bool is_ended = !matched && pid == ended;
        if (!is_ended && pid != PID_FINISHED)
            continue;
        ++record_count;
        set_shared_word(record.pid, PID_REAPED);
        matched = true;
    }
}

void run_until_reaped() {
    last_report_time = time_of_day();
    record_count += failed_starts();
    while (process_count >= record_count) {
        const pid_t ended = wait(nullptr);
        const bool no_child = ended < 0 && errno == ECHILD;
        reap_unnamed(ended);
        forget_process(ended);
        reap_records(ended);
        // If no child is left, wait fails immediately: a record that can no longer be counted must
        // not make the supervisor spin.
        if (no_child)
            sleep_us(NO_CHILD_NAP_US);
    }
    results_log();
    status_report();
}
