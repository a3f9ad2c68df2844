// Devices and other things of the machine that go away or were never there: nothing crashes, the
// supervisor goes on, and the counters say what happened.

#include <algorithm>
#include <csignal>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/board_run.h"
#include "tests/support/list_polling.h"

namespace {

using Words = std::vector<std::string>;
using Results = std::vector<result_line>;

// Runs hk_stress from a line of shell that ends with `exec "$@"` and what goes with it.
board_run stress_from(const std::string &script, Words board_options, const Words &arguments) {
    Words command = {"/bin/sh", "-c", script, "sh"};
    const Words program = own_program(HK_STRESS_PATH, arguments);
    command.insert(command.end(), program.begin(), program.end());
    return board_run::program(std::move(board_options), command);
}

size_t occurrences(const std::string &text, const std::string &part) {
    size_t found = 0;
    for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at)
        ++found;
    return found;
}

// Shows what the standard descriptors of the program are once its LED is open. In the board's own
// time the kernel shows the LED as a terminal.
constexpr char SHOW_DESCRIPTORS[] = "(until readlink /proc/$$/fd/* | grep -q cpuactive; do :; done;"
                                    " readlink /proc/$$/fd/0 /proc/$$/fd/1 /proc/$$/fd/2) & ";

TEST(StandardDescriptors, that_are_closed_are_never_a_device_s) {
    if (sizeof(HK_EMULATOR) > 1)
        GTEST_SKIP() << "the emulator has descriptors of its own";
    struct {
        const char *closed;
        size_t count;
    } const cases[] = {{"<&-", 1}, {">&-", 1}, {"2>&-", 1}, {"<&- >&- 2>&-", 3}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.closed);
        board_run run =
            stress_from(std::string(SHOW_DESCRIPTORS) + "exec \"$@\" </dev/zero " + c.closed,
                        {"--clock", "real", "--loop", "5s"}, {"-d1", "-z", "-h", "-E55"});
        EXPECT_TRUE(run.wait_until([&] {
            return occurrences(run.output, "/dev/null\n") == c.count;
        })) << run.output;
        lists_until(run, second_count_is_at_least{1});
        EXPECT_EQ(run.stop(), 0);
    }
}

TEST(SystemLog, that_is_not_there_changes_nothing_but_the_log) {
    board_run run = stress_from("rm /dev/log; exec \"$@\"", {"--port", "2"}, {"-d1", "-P2", "-P7"});
    // Only the LED shows how far it is: a second after the first alarm both tests are under way.
    ASSERT_TRUE(run.wait_for_log("LED off") && run.wait_for_log("LED on"));
    for (int i = 0; i < 20; ++i)
        run.signal(SIGUSR1);
    EXPECT_EQ(run.stop(), 0);
    EXPECT_NE(run.output.find("\nsp2, pid   -7 produce, wrote 0"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("produce, wrote 00000000, errors 0001"), std::string::npos);
}

TEST(SharedMemory, that_is_used_up_is_reported_and_nothing_started) {
    board_run run = board_run::program(
        {}, own_program(SHARED_MEMORY_FILLER_PATH, own_program(HK_STRESS_PATH, {"-d1", "-P2"})));
    EXPECT_EQ(run.finish(), 1);
    EXPECT_NE(run.errors.find("hk_stress: no shared memory for the status table"),
              std::string::npos);
}

// Another user, since the limit does not hold for root. Ports and log stay open to it. A sanitizer
// must not look for leaks: it would have to start a process for that. The program is a copy, since
// a folder above the original may be closed to that user, as /root is.
constexpr char WITH_PROCESSES[] =
    "export ASAN_OPTIONS=detect_leaks=0; chmod 666 /dev/sp* /dev/log /dev/cpuactive && "
    "cp \"$1\" /run/program && shift && "
    "exec setpriv --reuid=64123 --clear-groups prlimit --nproc=";

TEST(Processes, that_cannot_be_forked_count_as_ended_with_one_error_each) {
    if (geteuid() != 0 || sizeof(HK_EMULATOR) > 1)
        GTEST_SKIP() << "needs another user, and no emulator that has threads of its own";
    struct {
        const char *processes;
        size_t not_started;
    } const cases[] = {{"1", 3}, {"2", 2}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.processes);
        board_run run =
            stress_from(WITH_PROCESSES + std::string(c.processes) + " /run/program \"$@\"",
                        {"--port", "2"}, {"-d1", "-P2", "-P2", "-E28"});
        if (c.not_started < 3) {
            const Results items =
                lists_until(run, [](const Results &now) { return now.at(0).counts[0] >= 10; });
            ASSERT_EQ(items.size(), 4U);
            EXPECT_EQ(items[0].errors[2], 0);
            EXPECT_EQ(items[1].errors[2], 1);
            EXPECT_EQ(items[3].errors[1], 1) << "the second record of the crossover";
            EXPECT_EQ(run.stop(), 0);
        } else {
            EXPECT_EQ(run.finish(), 0) << "nothing to wait for";
        }
        EXPECT_EQ(occurrences(run.errors, "hk_stress: cannot fork the test of record "),
                  c.not_started)
            << run.errors;
    }
}

TEST(ReadOnlyFileSystem, that_becomes_so_in_mid_run_is_an_error_for_each_file_and_pass) {
    board_run run =
        stress_from("mkdir /r0/files && exec \"$@\"", {"--release", "--fault", "readonly:r0@1-"},
                    {"-d1", "-Y", "/r0/files"});
    const Results before = lists_until(
        run, [](const Results &now) { return now.at(0).errors[0] >= 16; });
    const Results items = lists_until(
        run, [&](const Results &now) { return now.at(0).errors[0] >= before[0].errors[0] + 16; });
    EXPECT_EQ(items[0].counts[0], 16) << "laid once";
    EXPECT_EQ(items[0].counts[1], before[0].counts[1]) << "no file could be opened";
    EXPECT_EQ(run.stop(), 0);
}

// The process that could not lay its files becomes a second supervisor: it reads the rest of the
// command line and counts its own record as ended. The first supervisor never counts that test as
// ended: signals that are caught do not end it, the board does.
TEST(FailedSetUp, is_one_error_and_makes_a_second_supervisor_and_both_can_be_ended) {
    struct {
        Words arguments;
        const char *report; // of the second supervisor, which ends if it has no other test
        int kind;
    } const cases[] = {
        {{"-Y", "/r0/missing/files"}, "filesys, wrote 00000000, read 00000000, errors 0001", 11},
        {{"-h", "-E55", "-Y", "/r0"}, "", 11},
        {{"-M", "/r0/missing/a:/r0/b:0"}, "file copy,  read 00000000, errors 0001", 5},
        {{"-h", "-E55", "-M", "/r0/a:/r0/b:0"}, "", 5},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.arguments.back());
        board_run run = board_run::stress({"--loop", "5s", "--fault", "readonly:r0"}, c.arguments);
        EXPECT_TRUE(run.wait_for_output(c.report));
        EXPECT_TRUE(run.wait_until([&] { return occurrences(run.errors, "numproc ") == 2; }));
        const Results items = lists_until(run, [](const Results &now) {
            return now.size() == 1 || now[0].counts[1] >= 10; // the crossover goes on
        });
        EXPECT_EQ(items.back().kind, c.kind);
        EXPECT_EQ(items.back().errors[0], 1);
        EXPECT_EQ(items.back().counts[0], 0);
        EXPECT_EQ(items[0].errors[0], items.size() == 1 ? 1 : 0);
        if (&c == cases) { // once: the board gives them some seconds
            run.signal(SIGINT);
            EXPECT_EQ(run.finish(), 124) << "ended by the board";
        }
    }
}

} // namespace
