// The ports of the board as a program sees them by its system calls, compared with what was
// measured on the kernel's 8250 driver and n_tty (Linux 6.1, two ports cabled): see
// port_observer.cpp. The last closes are those of tty_port_close_start in the kernel's
// drivers/tty/tty_port.c.

#include <csignal>
#include <gtest/gtest.h>

#include "tests/support/board_run.h"
#include "tests/support/list_polling.h"

namespace {

constexpr const char *MEASURED = "first open: 1 1 1 1 1 1\n"
                                 "lines after open: 1 1\n"
                                 "lines after TIOCMSET 0: 0 0\n"
                                 "lines after a change of speed then: 0 0\n"
                                 "lines after a second open: 1 1\n"
                                 "lines after close and open: 1 1\n"
                                 "settings kept: 1\n"
                                 "synchronous mode without it: 1\n"
                                 "9600: 0 10 1\n"
                                 "38400: 0 10 1\n"
                                 "115200: 0 10 1\n"
                                 "TCSADRAIN: 10\n"
                                 "write of 20000: 4095 1\n"
                                 "TIOCOUTQ: 1 1\n"
                                 "arrived by then at most 600: 1\n"
                                 "12000 bytes unread: 4095 12000\n"
                                 "after XOFF: 0 3\n"
                                 "input after TCSANOW: 8\n"
                                 "input after TCSAFLUSH: 0\n"
                                 "input after the last close: 0\n"
                                 "close of a copy, of the last: 0 10 96\n"
                                 "last close by close: 10 1\n"
                                 "last close by dup2: 10 1\n"
                                 "last close by dup3: 10 1\n"
                                 "last close by close_range: 10 1\n"
                                 "last close by exit: 10 1\n"
                                 "last close by execve: 10 1\n"
                                 "last close by SIGKILL: 0 0\n"
                                 "last close by SIGTERM: 0 0\n";

TEST(PortFacts, a_port_of_the_board_behaves_as_the_kernels_driver_does) {
    board_run run = board_run::program({"--cable", "1-2"}, own_program(PORT_OBSERVER_PATH, {}));
    EXPECT_EQ(run.finish(), 0);
    EXPECT_EQ(run.output, MEASURED);
}

// POLLIN is 1, POLLOUT 4, POLLNVAL 32. From poll(2), select(2) and signal(7). In the machine's
// time, where the kernel itself waits; own_time_test.cpp has the calls that wait in the board's.
TEST(PortFacts, calls_wait_for_ports_and_other_files_at_once_and_until_a_signal_comes) {
    board_run run = board_run::program({"--clock", "real", "--cable", "1-2"},
                                       own_program(PORT_OBSERVER_PATH, {"waits"}));
    EXPECT_EQ(run.finish(), 0);
    EXPECT_EQ(run.output, "written before an exit: 96\n"
                          "nothing comes: poll 0 0 0, select 0 0 0\n"
                          "a byte in the pipe: poll 1 1 0, select 1 1 0\n"
                          "a byte in both: poll 2 1 1, select 2 1 1\n"
                          "a byte on the line: poll 1 0 1, select 1 0 1\n"
                          "several: 3 1 4 0 32\n"
                          "read, interrupted: -1 EINTR\n"
                          "read, restarted: 1 -\n"
                          "poll, interrupted: -1 EINTR\n"
                          "write, interrupted: 4095 -\n"
                          "tcdrain, interrupted: -1 EINTR\n"
                          "close, interrupted: 0 -\n"
                          "after the signal, before the output has left: 1 1\n");
}

// The terminal of a low copy has queues of its own; the line serves everything else.
TEST(PortFacts, descriptors_that_the_board_does_not_number_itself_are_served_or_reported) {
    if (sizeof(HK_EMULATOR) > 1)
        GTEST_SKIP() << "the emulator does not pass these calls on unchanged";
    board_run run = board_run::program({"--clock", "virtual", "--cable", "1-2"},
                                       own_program(PORT_OBSERVER_PATH, {"copies"}));
    EXPECT_EQ(run.finish(), 0);
    EXPECT_EQ(run.output, "beside a low copy: 1 1 1\n"
                          "a low copy: 0 1 1\n"
                          "after a low copy: 1 1 1\n"
                          "openat2: 1 1 1\n"
                          "epoll_ctl: -1 EPERM\n"
                          "at most 64 descriptors: 1\n");
    for (const char *message : {"port 1 is copied to descriptor 50", "adds port 1 to an epoll",
                                "its limit on open files is below"})
        EXPECT_NE(run.errors.find(message), std::string::npos) << run.errors;
}

TEST(PortFacts, a_shell_that_holds_a_port_open_does_no_harm) {
    std::string command = "exec 3<>/dev/sp2; exec";
    for (const std::string &word : own_program(HK_STRESS_PATH, {"-d1", "-l5", "-E28"}))
        command += " " + word;
    board_run run = board_run::program({"--clock", "virtual", "--cable", "2-8", "--for", "7"},
                                       {"/bin/sh", "-c", command});
    EXPECT_EQ(run.finish(), 0);
    for (const result_line &line : last_list(run)) {
        EXPECT_GE(line.counts[1], 1000);
        EXPECT_EQ(line.errors, (std::array<int64_t, 3>{})) << line.name;
    }
}

TEST(PortFacts, a_port_that_is_standard_input_can_be_opened_by_its_names_there) {
    for (const char *path : {"/dev/stdin", "/dev/fd/0", "/proc/thread-self/fd/0"}) {
        const std::string script =
            "for port in 1 2; do stty -F /dev/sp$port raw 9600 -echo; done; exec 0</dev/sp2; "
            "(sleep 0.1; printf hello >/dev/sp1) & head -c 5 " +
            std::string(path);
        board_run run = board_run::program({"--clock", "virtual", "--cable", "1-2"},
                                           {"/bin/bash", "-c", "(" + script + ")"});
        EXPECT_EQ(run.finish(), 0);
        EXPECT_EQ(run.output, "hello") << path;
    }
}

TEST(ForeignPrograms, are_ended_with_a_message) {
    if (sizeof(FOREIGN_PROGRAM_PATH) == 1)
        GTEST_SKIP() << "no program of another kind can be built here";
    board_run run = board_run::program({"--port", "1"}, {FOREIGN_PROGRAM_PATH});
    EXPECT_EQ(run.finish(), 128 + SIGKILL);
    EXPECT_NE(run.errors.find("is a 32-bit program"), std::string::npos) << run.errors;
}

} // namespace
