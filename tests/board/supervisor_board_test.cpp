// The supervisor on the simulated board: start-up, options, LED and log times, signals, the end.

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>

#include "tests/support/board_run.h"
#include "tests/support/list_polling.h"

namespace {

// What the program itself has logged, without the board's messages.
std::vector<log_line> program_log(const board_run &run) {
    std::vector<log_line> lines = run.log;
    std::erase_if(lines, [](const log_line &line) { return line.ident == "board"; });
    return lines;
}

TEST(StartUp, without_arguments_prints_the_usage_toggles_the_led_once_and_logs_nothing) {
    board_run run = board_run::stress({}, {});
    EXPECT_EQ(run.finish(), 0);
    const std::string start = "Options...<eihb:d:f:l:E:P:C:I:S:Y:M:FDLK>\n"
                              "-L for spifio   -F for fio\n"
                              "-h for hdlc -b9600 for 9600 baud\n"
                              "-S1 datakey  -S2 eeprom -D dram -K keyboard/display \n"
                              "-Exy serial test for port x to y and y to x\n"
                              "---------example:\n"
                              "set led to 1sec, logging to 10sec\n"
                              "crossover for SP2 and SP8, hdlc loopback on SP5s\n";
    ASSERT_EQ(run.output.substr(0, start.size()), start);
    const std::string last = run.output.substr(start.size());
    EXPECT_TRUE(last.ends_with("hk_stress -d1 -l10 -E28 -h -E55\n")) << last;
    EXPECT_EQ(run.notes(), "LED on\n");
    EXPECT_TRUE(program_log(run).empty());
}

TEST(StartUp, with_settings_alone_ends_at_once_with_an_empty_list_and_report) {
    board_run run = board_run::stress({}, {"-d1", "-l10"});
    EXPECT_EQ(run.finish(), 0);
    EXPECT_EQ(run.errors, "proc 0 bogus 0\nnumproc 0 indx 1\n");
    EXPECT_EQ(run.output, "\n");
    const auto log = program_log(run);
    ASSERT_GE(log.size(), 2U);
    EXPECT_EQ(log[0].text, "<OL>");
    EXPECT_EQ(log[1].text, "</OL><P>");
}

TEST(StartUp, names_the_log_after_the_interface_or_the_text_given_cut_to_31_characters) {
    struct {
        std::vector<std::string> arguments;
        const char *ident;
    } const cases[] = {
        {{"-d1"}, "Stress 0200deadbeef "},
        {{"-I", "rack 7", "-E77"}, "rack 7"}, // the test logs that its port is missing
        {{"-I", ""}, "Stress 0200deadbeef "},
        {{"-I", "7"}, "7"},
        {{"-I", "0123456789012345678901234567890123456789"}, "0123456789012345678901234567890"},
    };
    for (const auto &c : cases) {
        board_run run = board_run::stress({"--mac", "02:00:de:ad:be:ef"}, c.arguments);
        EXPECT_EQ(run.finish(), 0);
        const std::vector<log_line> lines = program_log(run);
        EXPECT_GE(lines.size(), 2U) << "the list at the end, if nothing else";
        for (const log_line &line : lines)
            EXPECT_EQ(line.ident, c.ident) << line.text;
    }
}

TEST(StartUp, drops_a_test_whose_records_do_not_fit_and_says_so) {
    // 23 crossovers of two records, one of one record: 47 of 49; then 2, and no more.
    std::vector<std::string> arguments = {"-h"};
    for (int i = 0; i < 23; ++i)
        arguments.push_back("-E73");
    arguments.insert(arguments.end(), {"-E7", "-E73", "-E73", "-E7"});
    arguments.insert(arguments.begin(), "-d60");
    board_run run = board_run::stress({}, arguments);
    EXPECT_TRUE(run.wait_until([&] {
        return run.errors.find("hk_stress: -E73 dropped: needs 2 record(s) of the status table, 0 "
                               "left\nhk_stress: -E7 dropped: needs 1 record(s) of the status "
                               "table, 0 left\nproc 49 bogus 24\n") != std::string::npos;
    })) << run.errors;
}

TEST(StartUp, reads_only_the_first_48_arguments_and_says_which_letters_it_does_not_know) {
    std::vector<std::string> arguments(47, "-e");
    arguments.insert(arguments.end(), {"-z", "-E22"});
    board_run run = board_run::stress({"--loop", "2"}, arguments);
    EXPECT_EQ(run.finish(), 0);
    EXPECT_NE(run.errors.find("invalid option -- 'z'\nproc 0 bogus 0\n"), std::string::npos);
}

// The times of the log lines that hold `part`, in milliseconds.
std::vector<int64_t> times_of(const std::vector<log_line> &log, const std::string &part) {
    std::vector<int64_t> times;
    for (const log_line &line : log)
        if (line.text.find(part) != std::string::npos)
            times.push_back(line.time_ms);
    return times;
}

// A list takes five alarms: the countdown is cut to 5 at the first and loses 1 with each. Start-up
// has switched the LED once before.
TEST(Timer, blinks_every_second_and_lists_every_five_at_the_lowest_periods) {
    board_run run = board_run::stress({"--show-led", "--loop", "5s", "--for", "12"},
                                      {"-d0", "-l1", "-h", "-E55"}); // clamped to 1 s and 5 s
    EXPECT_EQ(run.finish(), 0);
    const auto lists = times_of(run.log, "<OL>");
    const auto changes = times_of(run.log, "LED");
    ASSERT_GE(lists.size(), 2U);
    EXPECT_EQ(lists[1] - lists[0], 5000);
    ASSERT_GE(changes.size(), 12U);
    for (size_t i = 2; i < 12; i++)
        EXPECT_EQ(changes[i] - changes[i - 1], 1000) << i;
    EXPECT_EQ(std::count_if(changes.begin(), changes.end(),
                            [&](int64_t change) { return change <= lists[0]; }),
              6);
}

const std::vector<std::string> BOARD_OF_TWO_TESTS = {"--cable", "2-8", "--loop", "5s"};
const std::vector<std::string> TWO_TESTS = {"-d1", "-l600", "-h", "-E55", "-h", "-E28"};

size_t count_lines(const board_run &run, const std::string &text) {
    return static_cast<size_t>(std::count_if(
        run.log.begin(), run.log.end(), [&](const log_line &line) { return line.text == text; }));
}

TEST(Stopping, each_stop_signal_kills_lists_twice_reports_and_exits_with_0) {
    for (const int number : {SIGTERM, SIGQUIT, SIGUSR2, SIGTSTP}) {
        board_run run = board_run::stress(BOARD_OF_TWO_TESTS, TWO_TESTS);
        lists_until(run, second_count_is_at_least{1});
        run.signal(number);
        EXPECT_EQ(run.finish(), 0) << "signal " << number;
        EXPECT_EQ(run.output, "\n") << "crossovers have no line in the report";
        // One list from the handler, one at the end; a first periodic one may have come before.
        EXPECT_GE(count_lines(run, "<OL>"), 2U);
        EXPECT_EQ(count_lines(run, "<OL>"), count_lines(run, "</OL><P>"));
        EXPECT_EQ(program_log(run).back().text, "</OL><P>");
    }
}

TEST(Stopping, does_not_end_while_a_process_above_the_counted_records_is_left) {
    board_run run = board_run::stress({"--cable", "2-8", "--loop", "5s", "--for", "2"},
                                      {"-d1", "-l600", "-E28", "-h", "-E55"});
    EXPECT_EQ(run.finish(), 124);
    EXPECT_EQ(run.output, "") << "no report";
    EXPECT_EQ(program_log(run).back().text, "</OL><P>") << "but the list of the stop signal";
}

std::vector<std::string> in_machine_time(std::vector<std::string> board) {
    board.insert(board.begin(), {"--clock", "real"});
    return board;
}

// Checks that lists are whole and that none begins inside another.
void expect_whole_lists(const std::vector<log_line> &log, size_t items) {
    bool open = false;
    size_t seen = 0;
    for (const log_line &line : log) {
        if (line.text == "<OL>") {
            ASSERT_FALSE(open) << "a list inside a list";
            open = true;
            seen = 0;
        } else if (line.text == "</OL><P>") {
            ASSERT_TRUE(open);
            ASSERT_EQ(seen, items);
            open = false;
        } else if (line.text.starts_with("<LI>")) {
            ASSERT_TRUE(open);
            ++seen;
        }
    }
    EXPECT_FALSE(open);
}

// Storms run in the machine's time: a signal may come between any two instructions, which the
// board's own time does not allow.

// Producers are started without a pause between them: their storms meet tests that have only just
// been forked. HK_STORM_RUNS asks for a longer row, which may need HK_WAIT_SECONDS as well.
TEST(Requests, storms_of_signals_at_any_moment_leave_no_process_and_whole_lists) {
    const char *asked_for = getenv("HK_STORM_RUNS");
    const std::string few = sizeof(HK_EMULATOR) > 1 ? "60" : "300";
    const std::string runs = asked_for != nullptr ? asked_for : few;
    struct {
        std::vector<std::string> board;
        std::vector<std::string> arguments; // of hk_stress
        std::vector<std::string> storms;    // of many_runs
        size_t least_lists;
    } const cases[] = {
        {{"--port", "2"}, {"-d1", "-l600", "-P2", "-P2", "-P2"}, {"1", runs, "20", "12", "0"}, 2},
        // One run, some ten thousand signals.
        {BOARD_OF_TWO_TESTS, TWO_TESTS, {"20", "1", "600", "20000", "0"}, 10},
    };
    for (const auto &c : cases) {
        std::vector<std::string> arguments = own_program(HK_STRESS_PATH, c.arguments);
        arguments.insert(arguments.begin(), c.storms.begin(), c.storms.end());
        board_run run =
            board_run::program(in_machine_time(c.board), own_program(MANY_RUNS_PATH, arguments));
        EXPECT_EQ(run.finish(), 0) << run.output;
        EXPECT_NE(run.output.find(", bad 0\n"), std::string::npos);
        expect_whole_lists(run.log, 3);
        const size_t end = run.output.rfind("handled ");
        ASSERT_NE(end, std::string::npos);
        const auto handled = strtoull(run.output.c_str() + end + 8, nullptr, 10);
        EXPECT_GE(handled, 1U);
        EXPECT_GE(count_lines(run, "<OL>"), c.least_lists * handled);
    }
}

// Each ioctl takes longer (slow_calls.cpp): a stop or a failure meets tests that still open their
// ports. On a board without the port a test gives up: a list asked for meanwhile, or the first
// alarm, makes the supervisor count it, and it must nevertheless end by itself.
TEST(Requests, storms_of_signals_on_slow_devices_leave_no_process) {
#if defined(HK_SANITIZED)
    GTEST_SKIP() << "the sanitizer's own library has to be the first one";
#endif
    if (sizeof(HK_EMULATOR) > 1)
        GTEST_SKIP() << "a library cannot be loaded before an emulated program";
    struct {
        const char *ioctl_ms;
        std::vector<std::string> board;
        std::vector<std::string> arguments; // of hk_stress
        std::vector<std::string> storms;    // of many_runs
    } const cases[] = {
        {"150",
         {"--port", "2"},
         {"-d1", "-l600", "-P2", "-P2", "-P2"},
         {"1", "10", "300", "12", "0"}},
        {"20", {}, {"-d1", "-l600", "-E9"}, {"1", "20", "300", "12", "5000"}},
        // Its own alarm alone, which comes each second: the set-up takes two.
        {"150", {}, {"-d1", "-l600", "-E9"}, {"1", "4", "1", "0", "5000"}},
    };
    for (const auto &c : cases) {
        std::vector<std::string> command = {MANY_RUNS_PATH};
        command.insert(command.end(), c.storms.begin(), c.storms.end());
        command.insert(command.end(), {"/usr/bin/env", std::string("LD_PRELOAD=") + SLOW_CALLS_PATH,
                                       std::string("HK_IOCTL_MS=") + c.ioctl_ms, HK_STRESS_PATH});
        command.insert(command.end(), c.arguments.begin(), c.arguments.end());
        board_run run = board_run::program(in_machine_time(c.board), command);
        EXPECT_EQ(run.finish(), 0) << run.output;
        EXPECT_NE(run.output.find(", bad 0\n"), std::string::npos) << run.output;
    }
}

} // namespace
