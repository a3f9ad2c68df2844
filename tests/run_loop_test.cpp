#include <csignal>
#include <ctime>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "supervisor/run_loop.h"
#include "supervisor/settings.h"
#include "supervisor/test_process.h"
#include "tests/table_fixture.h"

namespace {

class Reaping : public TableTest {
protected:
    void SetUp() override {
        TableTest::SetUp();
        record_count = 1; // the run has begun: it counts ended processes, plus one
    }

    void set_pids(std::initializer_list<int32_t> pids) {
        int index = 0;
        for (const int32_t pid : pids)
            record(++index).pid = pid;
        process_count = index;
    }

    void TearDown() override {
        for (int i = 1; i < TABLE_RECORDS; ++i)
            record(i).pid = PID_REAPED; // the ids of these cases are nobody's
        TableTest::TearDown();
    }

    static void expect_pids(std::initializer_list<int32_t> pids) {
        int index = 0;
        for (const int32_t pid : pids) {
            ++index;
            EXPECT_EQ(record(index).pid, pid) << "record " << index;
        }
    }
};

TEST_F(Reaping, a_process_counts_once_though_two_records_hold_its_id) {
    set_pids({700001, 700001, 700002});
    reap_records(700001);
    expect_pids({PID_REAPED, 700001, 700002});
    EXPECT_EQ(record_count, 2);
}

TEST_F(Reaping, every_finished_record_counts_whatever_wait_returned) {
    set_pids({PID_FINISHED, 700002, PID_FINISHED});
    reap_records(700099);
    expect_pids({PID_REAPED, 700002, PID_REAPED});
    EXPECT_EQ(record_count, 3);
}

TEST_F(Reaping, a_finished_record_found_first_takes_the_place_of_the_process_that_ended) {
    set_pids({PID_FINISHED, 700002});
    reap_records(700002);
    expect_pids({PID_REAPED, 700002});
    EXPECT_EQ(record_count, 2);
}

TEST_F(Reaping, an_interrupted_wait_counts_one_test_that_stopped_itself) {
    set_pids({PID_STOP, PID_STOP});
    reap_records(-1);
    expect_pids({PID_REAPED, PID_STOP});
    EXPECT_EQ(record_count, 2);
}

TEST_F(Reaping, a_record_without_a_process_is_never_another_s) {
    set_pids({700001, PID_NONE});
    reap_records(700001);
    expect_pids({PID_REAPED, PID_NONE});
    EXPECT_EQ(record_count, 2);
}

TEST_F(Reaping, records_above_the_process_count_are_not_looked_at) {
    set_pids({700001, 700002});
    process_count = 1;
    reap_records(700002);
    expect_pids({700001, 700002});
    EXPECT_EQ(record_count, 1);
}

TEST_F(Reaping, with_no_process_left_to_wait_for_costs_no_processor_time) {
    set_pids({700001});
    const pid_t supervisor = fork();
    if (supervisor == 0) {
        run_until_reaped(); // never: nobody has this id
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

class Countdown : public TableTest {
protected:
    void SetUp() override {
        TableTest::SetUp();
        log_countdown = 10;
        led_period = 2;
        log_period = 120;
    }
    void TearDown() override {
        led_period = 2;
        log_period = 120;
        log_countdown = 10;
        TableTest::TearDown();
    }
};

TEST_F(Countdown, with_the_default_periods_the_first_list_comes_at_the_fifth_alarm) {
    for (const int32_t left : {8, 6, 4, 2, 120, 118}) {
        stress_signal(SIGALRM);
        EXPECT_EQ(log_countdown, left);
    }
}

TEST_F(Countdown, a_short_log_period_bounds_it_from_the_first_alarm) {
    led_period = 60;
    log_period = 5;
    stress_signal(SIGALRM); // 5 - 60 is below 1: a list
    EXPECT_EQ(log_countdown, 5);
    led_period = 2;
    stress_signal(SIGALRM);
    EXPECT_EQ(log_countdown, 3);
}

TEST_F(Countdown, a_requested_list_restarts_it_and_a_stop_does_not) {
    log_countdown = 7;
    stress_signal(SIGUSR1);
    EXPECT_EQ(log_countdown, 120);
    log_countdown = 7;
    stress_signal(SIGTERM);
    EXPECT_EQ(log_countdown, 7);
}

using StopSignals = TableTest;

// Starts a test of so many records that does nothing.
pid_t start_idle_test(int records = 1) {
    for (int i = 0; i < records; ++i)
        claim_record('P');
    const pid_t child = start_test();
    if (child == 0) {
        pause();
        _exit(0);
    }
    return child;
}

int signal_that_ended(pid_t child) {
    int status = 0;
    if (waitpid(child, &status, 0) != child || !WIFSIGNALED(status))
        return 0;
    forget_process(child);
    return WTERMSIG(status);
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
        for (const pid_t test : tests)
            EXPECT_EQ(signal_that_ended(test), SIGKILL) << "signal " << number;
        EXPECT_EQ(waitpid(stranger, nullptr, WNOHANG), 0);
        ASSERT_EQ(kill(stranger, SIGKILL), 0);
        ASSERT_EQ(waitpid(stranger, nullptr, 0), stranger);
        record(1).pid = record(2).pid = record(3).pid = PID_REAPED;
    }
}

TEST_F(StopSignals, reach_a_test_that_has_not_written_its_id_yet) {
    const pid_t child = start_idle_test();
    process_count = 1;
    bogus_count = 0;
    stress_signal(SIGTERM);
    EXPECT_EQ(signal_that_ended(child), SIGKILL);
    EXPECT_EQ(started_process(1), 0) << "its id may be another's from now on";
}

TEST_F(StopSignals, end_the_run_though_no_test_had_written_its_id) {
    (void)start_idle_test();
    (void)start_idle_test(2); // its last record stands behind those that are scanned
    bogus_count = 1;
    process_count = record_count - bogus_count;
    record_count = 1;
    stress_signal(SIGTERM);
    run_until_reaped();
    EXPECT_EQ(record_count, 3);
    EXPECT_EQ(record(1).pid, PID_REAPED);
    EXPECT_EQ(record(2).pid, PID_NONE);
    EXPECT_EQ(record(3).pid, PID_REAPED);
}

TEST_F(StopSignals, that_come_after_the_table_is_gone_do_nothing) {
    StatusTable *const table = status_table;
    status_table = nullptr;
    stress_signal(SIGTERM);
    stress_signal(SIGUSR1);
    status_table = table;
}

} // namespace
