#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/ipc.h>
#include <sys/resource.h>
#include <sys/shm.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "runtime/clock.h"
#include "runtime/runner.h"
#include "runtime/settings.h"
#include "runtime/started_tests.h"
#include "supervisor/run_loop.h"
#include "tests/support/table_fixture.h"

namespace {

using Reaping = TableTest;

// The run counts ended processes, plus one.
TEST_F(Reaping, counts_the_record_of_the_ended_process_and_every_finished_one) {
    struct {
        std::vector<int32_t> pids;
        int32_t ended;
        std::vector<int32_t> pids_after;
        int32_t record_count;
        int32_t scanned = static_cast<int32_t>(pids.size());
    } const cases[] = {
        // two records hold the id of one process
        {{700001, 700001, 700002}, 700001, {PID_REAPED, 700001, 700002}, 2},
        // finished ones, whatever wait returned
        {{PID_FINISHED, 700002, PID_FINISHED}, 700099, {PID_REAPED, 700002, PID_REAPED}, 3},
        // a finished one found first takes the place of the process that ended
        {{PID_FINISHED, 700002}, 700002, {PID_REAPED, 700002}, 2},
        // an interrupted wait counts one test that stopped itself
        {{PID_STOP, PID_STOP}, -1, {PID_REAPED, PID_STOP}, 2},
        // none above the process count
        {{700001, 700002}, 700002, {700001, 700002}, 1, 1},
    };
    for (const auto &c : cases) {
        const auto count = static_cast<int>(c.pids.size());
        record_count = 1;
        process_count = c.scanned;
        for (int i = 0; i < count; ++i)
            record(i + 1).pid = c.pids[static_cast<size_t>(i)];
        reap_records(c.ended);
        EXPECT_EQ(record_count, c.record_count);
        for (int i = 0; i < count; ++i) {
            EXPECT_EQ(record(i + 1).pid, c.pids_after[static_cast<size_t>(i)]) << c.ended;
            record(i + 1).pid = PID_REAPED; // the ids are nobody's: nothing to kill
        }
    }
}

// Gives up in its first turn. The supervisor's wait fails at that moment.
struct giver_up {
    TestRecord &record;
    bool gave_up = false;
    int32_t turns = 0;

    void turn() {
        give_up(*this);
        if (++turns == 1)
            reap_records(-1);
    }
};

TEST_F(Reaping, a_test_that_gave_up_ends_although_the_supervisor_has_overwritten_its_stop_word) {
    process_count = 1;
    giver_up test = {record(1)};
    EXPECT_TRUE(runner_detail::run_test(test));
    EXPECT_EQ(test.turns, 1);
    EXPECT_EQ(record(1).pid, PID_FINISHED);
}

TEST_F(Reaping, with_no_process_left_to_wait_for_costs_no_processor_time) {
    record_count = process_count = 1;
    const pid_t supervisor = fork();
    if (supervisor == 0) {
        run_until_reaped(); // never: nobody is left to end
        _exit(0);
    }
    timespec while_it_waits = {0, 400'000'000};
    (void)nanosleep(&while_it_waits, nullptr);
    ASSERT_EQ(kill(supervisor, SIGKILL), 0);
    rusage used = {};
    ASSERT_EQ(wait4(supervisor, nullptr, 0, &used), supervisor);
    EXPECT_EQ(used.ru_utime.tv_sec + used.ru_stime.tv_sec, 0);
    EXPECT_LT(used.ru_utime.tv_usec + used.ru_stime.tv_usec, 200'000);
}

// The inode of a mapped segment is its id, see proc_pid_maps(5).
int mapped_segment() {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        int id = -1;
        if (line.find("/SYSV") != std::string::npos)
            (void)sscanf(line.c_str(), "%*s %*s %*s %*s %d", &id);
        if (id >= 0)
            return id;
    }
    return -1;
}

TEST(Table, is_detached_but_never_removed) {
    set_status_table(status_table_attach(TABLE_RECORDS));
    const int id = mapped_segment();
    status_table_detach();
    EXPECT_EQ(status_table, nullptr);
    EXPECT_EQ(mapped_segment(), -1);
    EXPECT_EQ(shmctl(id, IPC_RMID, nullptr), 0);
}

using Handler = TableTest;

TEST_F(Handler, leaves_errno_to_the_code_that_it_interrupts_and_ends_on_signals_of_others) {
    errno = 77;
    stress_signal(SIGALRM); // this machine has no LED to open
    EXPECT_EQ(errno, 77);
    for (const int number : {SIGINT, SIGSYS})
        EXPECT_EXIT(stress_signal(number), testing::ExitedWithCode(1), "");
}

using Countdown = TableTest;

// As a run without -d and -l finds them.
const int32_t FIRST_COUNTDOWN = log_countdown;
const int32_t USUAL_LED_PERIOD = led_period;
const int32_t USUAL_LOG_PERIOD = log_period;

TEST_F(Countdown, loses_the_led_period_an_alarm_and_begins_anew_with_each_list_but_a_stop_s) {
    struct {
        int32_t led_period;
        int32_t log_period;
        int32_t before;
        int signal;
        int32_t after;
    } const cases[] = {
        {USUAL_LED_PERIOD, USUAL_LOG_PERIOD, FIRST_COUNTDOWN, SIGALRM, 8},
        {USUAL_LED_PERIOD, USUAL_LOG_PERIOD, 7, SIGUSR1, 120},
        {2, 120, 3, SIGALRM, 1},
        {2, 120, 2, SIGALRM, 120},
        {2, 120, 0, SIGALRM, 118},
        {60, 5, 10, SIGALRM, 5}, // cut to the log period first
        {2, 5, 10, SIGALRM, 3},
        {2, 120, 7, SIGTERM, 7},
    };
    for (const auto &c : cases) {
        led_period = c.led_period;
        log_period = c.log_period;
        log_countdown = c.before;
        stress_signal(c.signal);
        EXPECT_EQ(log_countdown, c.after) << c.before << ", signal " << c.signal;
    }
}

TEST(Sleep, goes_on_after_an_interruption_but_not_for_that_of_an_earlier_call) {
    using std::chrono::steady_clock;
    (void)signal(SIGALRM, [](int) {});
    const itimerval soon = {{}, {0, 2000}};
    const auto start = steady_clock::now();
    ASSERT_EQ(setitimer(ITIMER_REAL, &soon, nullptr), 0);
    sleep_us(20000);
    EXPECT_GE(steady_clock::now() - start, std::chrono::microseconds(20000));
    (void)signal(SIGALRM, SIG_DFL);
    errno = EINTR;
    sleep_us(1000);
}

using StopSignals = TableTest;

// Starts a test of so many records that does nothing.
pid_t start_idle_test(int records = 1) {
    for (int i = 0; i < records; ++i)
        claim_record(record_letter::PRODUCER);
    const pid_t child = fork_test();
    if (child == 0) {
        pause();
        _exit(0);
    }
    return child;
}

TEST_F(StopSignals, each_kill_every_claimed_test_and_no_other_process) {
    for (const int number : {SIGQUIT, SIGUSR2, SIGTERM, SIGTSTP}) {
        record_count = 0;
        // Two tests, one of them above the process count, and a record that still holds an id which
        // was reaped and is somebody else's by now.
        const pid_t tests[] = {start_idle_test(), start_idle_test()};
        const pid_t stranger = start_idle_test();
        forget_process(stranger);
        record(1).pid = tests[0];
        record(2).pid = tests[1];
        record(3).pid = stranger;
        process_count = 2;
        bogus_count = 1;
        stress_signal(number);
        for (const pid_t test : tests) {
            int status = 0;
            EXPECT_EQ(waitpid(test, &status, 0), test);
            EXPECT_EQ(WTERMSIG(status), SIGKILL) << "signal " << number;
            forget_process(test);
        }
        EXPECT_EQ(waitpid(stranger, nullptr, WNOHANG), 0);
        ASSERT_EQ(kill(stranger, SIGKILL), 0);
        ASSERT_EQ(waitpid(stranger, nullptr, 0), stranger);
        record(1).pid = record(2).pid = record(3).pid = PID_REAPED;
    }
}

TEST_F(StopSignals, end_the_run_though_no_test_had_written_its_id) {
    (void)start_idle_test();
    (void)start_idle_test(2); // its last record is above those that are scanned
    bogus_count = 1;
    process_count = record_count - bogus_count;
    record_count = 1;
    stress_signal(SIGTERM);
    run_until_reaped();
    EXPECT_EQ(record_count, 3);
    EXPECT_EQ(record(1).pid, PID_REAPED);
    EXPECT_EQ(record(2).pid, PID_NONE);
    EXPECT_EQ(record(3).pid, PID_REAPED);
    EXPECT_EQ(started_process(1), 0) << "its id may be another's from now on";
}

TEST_F(StopSignals, that_come_after_the_table_is_gone_do_nothing) {
    StatusTable *const table = status_table;
    status_table = nullptr;
    stress_signal(SIGTERM);
    stress_signal(SIGUSR1);
    status_table = table;
}

} // namespace
