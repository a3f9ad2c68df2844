// How the serial tests start and end where there is no port to be had.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include "serial/echo_test.h"
#include "serial/producer_test.h"
#include "serial/serial_loop_test.h"
#include "tests/table_fixture.h"

namespace {

constexpr char MISSING_PORT[] = "9none";

pid_t start_receiver(int no_fork) {
    return serial_loop_test(no_fork, MISSING_PORT, paren_pattern);
}
pid_t start_producer(int no_fork) {
    return producer_test(no_fork, MISSING_PORT, paren_pattern);
}
pid_t start_echo(int no_fork) {
    return echo_test(no_fork, MISSING_PORT, 0);
}

struct serial_test {
    const char *name;
    pid_t (*start)(int no_fork);
    char letter;
    int32_t errors;
    int32_t errors3;
};

constexpr serial_test SERIAL_TESTS[] = {
    {"receiver", start_receiver, 'C', 0, 1},
    {"producer", start_producer, 'P', 1, 0},
    {"echo", start_echo, 'E', 0, 0},
};

using SerialStart = TableTest;

int exit_status(pid_t child) {
    int status = 0;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(SerialStart, a_missing_port_ends_the_test_and_is_counted_where_its_record_counts_it) {
    for (const serial_test &test : SERIAL_TESTS) {
        SCOPED_TRACE(test.name);
        const pid_t child = test.start(0);
        ASSERT_GT(child, 0);
        EXPECT_EQ(exit_status(child), 2);
        const TestRecord &own = last_claimed_record();
        EXPECT_EQ(own.pid, PID_FINISHED);
        EXPECT_EQ(own.test_letter, test.letter);
        EXPECT_EQ(own.unit, 0) << "no port was opened";
        EXPECT_EQ(own.errors, test.errors);
        EXPECT_EQ(own.errors2, 0);
        EXPECT_EQ(own.errors3, test.errors3);
    }
    EXPECT_EQ(record_count, 3);
}

TEST_F(SerialStart, a_held_test_idles_until_its_release) {
    for (const serial_test &test : {SERIAL_TESTS[0], SERIAL_TESTS[1]}) {
        SCOPED_TRACE(test.name);
        TestRecord &own = record(record_count + 1);
        own.hold = HOLD_REQUESTED;
        const pid_t child = test.start(0);
        ASSERT_GT(child, 0);
        ASSERT_TRUE(wait_until([&] { return shared_word(own.hold) == HOLD_ACKNOWLEDGED; }));
        EXPECT_EQ(shared_word(own.pid), child) << "not tried the port, not ended";
        set_shared_word(own.hold, HOLD_NONE);
        ASSERT_TRUE(wait_until([&] { return shared_word(own.pid) == PID_FINISHED; }));
        EXPECT_EQ(exit_status(child), 2);
        EXPECT_EQ(own.errors + own.errors3, 1);
    }
}

TEST_F(SerialStart, claiming_only_starts_no_process) {
    for (const serial_test &test : SERIAL_TESTS) {
        EXPECT_EQ(test.start(7), 7) << test.name;
        EXPECT_EQ(last_claimed_record().test_letter, test.letter);
    }
    EXPECT_EQ(record_count, 3);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "there is no child";
}

} // namespace
