// The supervisor on the simulated board: start-up, options, LED and log times, signals, the end.

#include <algorithm>
#include <csignal>
#include <gtest/gtest.h>

#include "tests/board_run.h"
#include "tests/list_polling.h"

namespace {

constexpr char MAC_IDENT[] = "Stress 020000001234 ";

// What the program itself has logged, without the board's messages.
std::vector<log_line> program_log(const board_run &run) {
    std::vector<log_line> lines = run.log;
    std::erase_if(lines, [](const log_line &line) { return line.ident == "board"; });
    return lines;
}

TEST(StartUp, without_arguments_prints_the_usage_toggles_the_led_once_and_logs_nothing) {
    board_run run = board_run::stress({"--show-led"}, {});
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
    ASSERT_EQ(run.log.size(), 1U);
    EXPECT_EQ(run.log[0].text, "LED on");
}

TEST(StartUp, counts_records_and_processes_on_standard_error) {
    struct {
        const char *option;
        const char *lines;
    } const cases[] = {
        {"-E22", "proc 1 bogus 0\nnumproc 1 indx 1\n"},
        {"-E2", "proc 1 bogus 0\nnumproc 1 indx 1\n"},
        {"-E28", "proc 2 bogus 1\nnumproc 1 indx 1\n"},
    };
    for (const auto &c : cases) {
        board_run run = board_run::stress({"--cable", "2-8"}, {"-d1", c.option});
        ASSERT_TRUE(
            run.wait_until([&run] { return run.errors.find("indx 1\n") != std::string::npos; }));
        EXPECT_EQ(run.errors, c.lines) << c.option;
    }
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
    EXPECT_EQ(log[0].ident, MAC_IDENT);
}

TEST(StartUp, names_the_log_after_the_interface_or_the_text_given_cut_to_31_characters) {
    struct {
        std::vector<std::string> arguments;
        const char *ident;
    } const cases[] = {
        {{"-d1"}, "Stress 0200deadbeef "},
        {{"-I", "rack 7"}, "rack 7"},
        {{"-I", ""}, "Stress 0200deadbeef "},
        {{"-I", "0123456789012345678901234567890123456789"}, "0123456789012345678901234567890"},
    };
    for (const auto &c : cases) {
        board_run run = board_run::stress({"--mac", "02:00:de:ad:be:ef"}, c.arguments);
        EXPECT_EQ(run.finish(), 0);
        const auto log = program_log(run);
        ASSERT_FALSE(log.empty());
        EXPECT_EQ(log[0].ident, c.ident);
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
    ASSERT_TRUE(run.wait_for_output("") &&
                run.wait_until([&] { return run.errors.find("numproc") != std::string::npos; }));
    EXPECT_NE(run.errors.find("hk_stress: -E73 dropped: needs 2 record(s) of the status table, 0 "
                              "left\nhk_stress: -E7 dropped: needs 1 record(s) of the status "
                              "table, 0 left\nproc 49 bogus 24\n"),
              std::string::npos)
        << run.errors;
}

TEST(StartUp, reads_only_the_first_48_arguments) {
    std::vector<std::string> arguments(48, "-e");
    arguments.push_back("-E22");
    board_run run = board_run::stress({"--loop", "2"}, arguments);
    EXPECT_EQ(run.finish(), 0);
    EXPECT_NE(run.errors.find("proc 0 bogus 0"), std::string::npos);
}

TEST(StartUp, ignores_unknown_letters_after_the_message_of_getopt) {
    board_run run = board_run::stress({}, {"-z", "-d1", "stray"});
    EXPECT_EQ(run.finish(), 0);
    EXPECT_NE(run.errors.find("invalid option -- 'z'"), std::string::npos);
}

// Times between the log lines that hold `part`, in milliseconds.
std::vector<int64_t> intervals_ms(const std::vector<log_line> &log, const std::string &part) {
    std::vector<int64_t> intervals;
    const log_line *before = nullptr;
    for (const log_line &line : log) {
        if (line.text.find(part) == std::string::npos)
            continue;
        if (before != nullptr)
            intervals.push_back(line.time_ms - before->time_ms);
        before = &line;
    }
    return intervals;
}

TEST(Timer, blinks_every_second_and_lists_every_five_at_the_lowest_periods) {
    board_run run = board_run::stress({"--show-led", "--loop", "5s"},
                                      {"-d0", "-l1", "-h", "-E55"}); // clamped to 1 s and 5 s
    ASSERT_TRUE(run.wait_for_log("</OL>"));
    ASSERT_TRUE(run.wait_for_log("</OL>"));
    const std::vector<log_line> log = run.log;
    run.stop();

    const auto lists = intervals_ms(log, "<OL>");
    ASSERT_EQ(lists.size(), 1U);
    EXPECT_NEAR(static_cast<double>(lists[0]), 5000, 600);

    const auto changes = intervals_ms(log, "LED");
    ASSERT_GE(changes.size(), 9U);
    // The first is start-up to first alarm: as long as the tests take to start.
    for (size_t i = 1; i < changes.size(); ++i)
        EXPECT_NEAR(static_cast<double>(changes[i]), 1000, 600);
    // The first list stands at the fifth alarm, 4 s after the first one: the countdown is cut to 5
    // there and loses 1 with each.
    const auto first_list = std::find_if(log.begin(), log.end(),
                                         [](const log_line &line) { return line.text == "<OL>"; });
    int64_t first_alarm_ms = 0;
    for (const log_line &line : log)
        if (line.text == "LED off" && first_alarm_ms == 0)
            first_alarm_ms = line.time_ms;
    EXPECT_NEAR(static_cast<double>(first_list->time_ms - first_alarm_ms), 4000, 600);
}

TEST(Timer, with_a_led_period_beyond_the_countdown_lists_with_the_first_alarm) {
    board_run run = board_run::stress({"--loop", "5s"}, {"-d100", "-l5", "-h", "-E55"});
    EXPECT_TRUE(run.wait_for_log("</OL>"));
}

const std::vector<std::string> BOARD_OF_TWO_TESTS = {"--cable", "2-8", "--loop", "5s"};
const std::vector<std::string> TWO_TESTS = {"-d1", "-l600", "-h", "-E55", "-h", "-E28"};

// A crossover that is killed before it has written its id into its first record is never counted:
// a case that wants to see the end waits until every test has done something.
void wait_until_under_way(board_run &run) {
    ASSERT_TRUE(run.wait_until_running());
    lists_until(run, second_count_is_at_least{1});
}

size_t count_lines(const board_run &run, const std::string &text) {
    return static_cast<size_t>(std::count_if(
        run.log.begin(), run.log.end(), [&](const log_line &line) { return line.text == text; }));
}

TEST(Stopping, each_stop_signal_kills_lists_twice_reports_and_exits_with_0) {
    for (const int number : {SIGTERM, SIGQUIT, SIGUSR2, SIGTSTP}) {
        board_run run = board_run::stress(BOARD_OF_TWO_TESTS, TWO_TESTS);
        wait_until_under_way(run);
        run.signal(number);
        EXPECT_EQ(run.finish(), 0) << "signal " << number;
        EXPECT_EQ(run.output, "\n") << "crossovers have no line in the report";
        // One list from the handler, one at the end; a first periodic one may have come before.
        EXPECT_GE(count_lines(run, "<OL>"), 2U);
        EXPECT_EQ(count_lines(run, "<OL>"), count_lines(run, "</OL><P>"));
        EXPECT_EQ(program_log(run).back().text, "</OL><P>");
    }
}

TEST(Stopping, never_comes_to_an_end_for_a_process_behind_the_counted_records) {
    board_run run = board_run::stress({"--cable", "2-8", "--loop", "5s", "--for", "2"},
                                      {"-d1", "-l600", "-E28", "-h", "-E55"});
    EXPECT_EQ(run.finish(), 124);
    EXPECT_EQ(run.output, "") << "no report";
    EXPECT_EQ(program_log(run).back().text, "</OL><P>") << "but the list of the stop signal";
}

TEST(Stopping, the_tests_that_end_by_themselves_end_the_run) {
    board_run run = board_run::stress({}, {"-d1", "-E77"});
    EXPECT_EQ(run.finish(), 0);
    const auto it = std::find_if(run.log.begin(), run.log.end(), [](const log_line &line) {
        return line.text == "Couldn't open SP7";
    });
    ASSERT_NE(it, run.log.end());
    EXPECT_EQ(it->ident, MAC_IDENT) << "a test's own messages carry the run's ident";
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

TEST(Requests, a_list_comes_at_once_and_restarts_the_countdown) {
    board_run run = board_run::stress(BOARD_OF_TWO_TESTS, TWO_TESTS);
    wait_until_under_way(run);
    const auto list = run.request_list();
    ASSERT_EQ(list.size(), 3U);
    const auto first = parse_result_line(list[0]);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->name, "sp5 loop");
    EXPECT_EQ(first->kind, 5);
    EXPECT_EQ(parse_result_line(list[1])->kind, 0) << "the first record of two has no kind code";
    EXPECT_EQ(run.stop(), 0);
}

// Producers are started without a pause between them: their storms meet tests that have only just
// been forked. A longer row of other seeds is a command in tests/many_runs.cpp.
TEST(Requests, storms_of_signals_at_any_moment_leave_no_process_and_whole_lists) {
    const std::string runs = sizeof(HK_EMULATOR) > 1 ? "60" : "300";
    struct {
        std::vector<std::string> board;
        std::vector<std::string> arguments; // of hk_stress
        std::vector<std::string> storms;    // of many_runs
        size_t least_lists;
    } const cases[] = {
        {{"--port", "2"}, {"-d1", "-l600", "-P2", "-P2", "-P2"}, {"1", runs, "20", "12"}, 2},
        // One run, some ten thousand signals.
        {BOARD_OF_TWO_TESTS, TWO_TESTS, {"20", "1", "600", "20000"}, 100},
    };
    for (const auto &c : cases) {
        std::vector<std::string> arguments = own_program(HK_STRESS_PATH, c.arguments);
        arguments.insert(arguments.begin(), c.storms.begin(), c.storms.end());
        board_run run = board_run::program(c.board, own_program(MANY_RUNS_PATH, arguments));
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

} // namespace
