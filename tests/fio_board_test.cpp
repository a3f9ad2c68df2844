// The field I/O modules on the sync port of the simulated board: each type, and each fault in the
// counter, sample and log line that shows it.

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <iterator>
#include <utility>

#include "tests/board_run.h"
#include "tests/list_polling.h"

namespace {

constexpr size_t MISMATCHES = 0;
constexpr size_t FAILED = 1;
constexpr size_t REALIGNED = 2;

constexpr std::array<int64_t, 3> NONE = {0, 0, 0};

board_run modules(const std::string &list, std::vector<std::string> faults = {}) {
    std::vector<std::string> board = {"--fio", list};
    for (const std::string &fault : faults) {
        board.emplace_back("--fault");
        board.push_back(fault);
    }
    return board_run::stress(board, {"-d1", "-F"});
}

// The claim that the first module's error count has reached some.
struct first_module_counts {
    size_t error;
    int64_t count;
    bool operator()(const std::vector<result_line> &items) const {
        return items[0].errors[error] >= count;
    }
};

// Words of the status table, for table_probe.
std::vector<std::string> probed(const char *steps, std::vector<std::string> arguments) {
    std::vector<std::string> stress = own_program(HK_STRESS_PATH, arguments);
    stress.insert(stress.begin(), steps);
    return own_program(TABLE_PROBE_PATH, stress);
}

std::vector<std::string> texts(const board_run &run) {
    std::vector<std::string> all;
    for (const log_line &line : run.log)
        all.push_back(line.text);
    return all;
}

bool was_logged(const board_run &run, const std::string &text) {
    return std::ranges::count(texts(run), text) > 0;
}

TEST(FioLoop, each_module_type_passes_over_its_map_without_an_error) {
    struct {
        const char *modules;
        int64_t first_steps;
        int64_t second_steps;
    } const cases[] = {
        {"20=1,16=2", 64, 102}, {"20=219,16=220", 102, 112}, {"20=220,16=221", 112, 64}};
    for (const auto &c : cases) {
        board_run run = modules(c.modules);
        ASSERT_TRUE(run.wait_until_running());
        const auto items = lists_until(run, [&](const std::vector<result_line> &seen) {
            return seen[0].counts[1] > c.first_steps && seen[1].counts[1] > c.second_steps;
        });
        ASSERT_EQ(items.size(), 2U);
        EXPECT_EQ(items[0].name, "FIOloop sp5s");
        EXPECT_EQ(items[0].kind, 10);
        EXPECT_EQ(items[1].name, "sp5 consume");
        EXPECT_EQ(items[1].kind, 1);
        EXPECT_EQ(items[0].errors, NONE) << c.modules;
        EXPECT_EQ(items[1].errors, NONE) << c.modules;
        EXPECT_EQ(items[1].counts[0], items[1].counts[1]);
        EXPECT_EQ(run.stop(), 0);
        EXPECT_EQ(run.errors, "proc 2 bogus 1\nnumproc 1 indx 1\n") << "nothing odd was told";
    }
}

TEST(FioLoop, a_stuck_input_spoils_every_step_that_reads_its_byte_for_another_bit) {
    board_run run = modules("20=221,16=221", {"stuck:20:3.4"});
    ASSERT_TRUE(run.wait_until_running());
    const auto items = lists_until(run, first_module_counts{MISMATCHES, 7});
    for (const auto &[step, value] : items[0].samples) {
        EXPECT_GE(step, 24) << "the first step on byte 3";
        EXPECT_LE(step, 31);
        EXPECT_EQ(value, 1 << (step - 24) | 0x08);
        EXPECT_NE(step, 27) << "bit 4 reads as it should";
    }
    EXPECT_EQ(items[0].errors[FAILED], 0);
    EXPECT_EQ(items[1].errors, NONE) << "the other module is good";
}

TEST(FioLoop, a_dead_output_counts_its_step_once_a_pass) {
    board_run run = modules("20=2,16=220", {"dead:20:5.2", "dead:16:5.2", "dead:16:5.3"});
    ASSERT_TRUE(run.wait_until_running());
    const auto items = lists_until(run, [](const std::vector<result_line> &seen) {
        return seen[0].errors[MISMATCHES] >= 2 && seen[1].errors[MISMATCHES] >= 2;
    });
    // On module 220 output 5.2 goes to input byte 0, where a wrong byte is never counted.
    for (const auto &[item, step] : {std::pair<size_t, int>(0, 5), {1, 42}}) {
        for (const size_t newest : {size_t{0}, size_t{1}}) {
            EXPECT_EQ(items[item].samples[newest][0], step);
            EXPECT_EQ(items[item].samples[newest][1], 0) << "nothing was read";
        }
        EXPECT_EQ(items[item].errors[FAILED], 0);
    }
}

TEST(FioLoop, a_module_silent_to_one_command_fails_there_pass_after_pass) {
    struct {
        const char *fault;
        const char *text;
        int64_t wrote;
    } const cases[] = {
        {"silent:20:1", "<20 stat 0 0>", 0},
        {"silent:20:7", "<20 set 0 0>", 0},
        {"silent:20:4", "<20 read 0 1>", 1},
    };
    for (const auto &c : cases) {
        board_run run = modules("20=1,16=2", {c.fault});
        ASSERT_TRUE(run.wait_for_log(c.text)) << c.text;
        ASSERT_TRUE(run.wait_until_running());
        const auto items = lists_until(run, first_module_counts{FAILED, 2});
        EXPECT_EQ(items[0].counts[0] > 0, c.wrote > 0);
        EXPECT_EQ(items[0].counts[1], 0);
        EXPECT_EQ(items[0].errors[MISMATCHES], 0);
        EXPECT_EQ(items[1].errors, NONE) << "the other module is good";
    }
}

TEST(FioLoop, modules_that_are_not_there_or_not_known_are_asked_again_and_again) {
    struct {
        const char *modules;
        std::vector<std::string> faults;
        bool answers;
    } const cases[] = {
        {"30=1", {}, false},
        {"20=1", {"silent:20:12"}, false},
        {"20=3", {}, true},
        {"20=221", {"type:20:3"}, true},
    };
    for (const auto &c : cases) {
        board_run run = modules(c.modules, c.faults);
        ASSERT_TRUE(run.wait_until_running());
        const auto items = lists_until(run, [](const std::vector<result_line> &seen) {
            return seen[1].errors[FAILED] >= 6; // nobody is at address 16
        });
        EXPECT_EQ(items[0].counts[0], 0);
        EXPECT_EQ(items[1].counts[0], 0);
        EXPECT_EQ(items[0].errors[FAILED] >= 6, !c.answers) << c.modules;
        EXPECT_EQ(items[0].errors[REALIGNED], 0);
    }
}

TEST(FioLoop, a_module_that_says_it_is_another_does_not_take_the_other_s_frames) {
    board_run run = modules("20=1,16=2", {"type:16:221"});
    EXPECT_TRUE(run.wait_for_log("<16 set 0 0>"));
}

TEST(FioLoop, a_late_reply_fails_its_exchange_and_is_told_when_it_comes_after_all) {
    // The 50th reply is that of the read in step 23. Nobody is at 16: what comes late is read while
    // that module is asked what it is.
    board_run run = modules("20=221", {"late:20:50"});
    ASSERT_TRUE(run.wait_for_log("<20 read 23 24>"));
    EXPECT_TRUE(run.wait_for_log("<24 4 "));
    ASSERT_TRUE(run.wait_until_running());
    const auto items = lists_until(run, first_module_counts{FAILED, 1});
    EXPECT_EQ(items[0].errors[REALIGNED], 0);
}

TEST(FioLoop, stray_bytes_before_a_reply_are_skipped_counted_and_told) {
    board_run run = modules("20=221,16=1", {"stray:20:10"});
    ASSERT_TRUE(run.wait_until_running());
    const auto items = lists_until(run, first_module_counts{REALIGNED, 3});
    EXPECT_EQ(items[0].errors[MISMATCHES], 0);
    EXPECT_EQ(items[0].errors[FAILED], 0);
    EXPECT_EQ(items[1].errors, NONE);
    EXPECT_TRUE(was_logged(run, "<27 24 ")) << "the 10th reply is that of a read";
    EXPECT_TRUE(was_logged(run, " 3>"));
    EXPECT_TRUE(run.wait_until([&] { return run.errors.find("<27 24  3>") != std::string::npos; }));
}

TEST(FioLoop, long_and_short_replies_are_told_and_taken) {
    board_run run = modules("20=221,16=1", {"long:20:10", "short:16:10"});
    for (const char *text : {"[26 24]", "[14 15]"}) {
        EXPECT_TRUE(run.wait_until([&] {
            return was_logged(run, text) && run.errors.find(text) != std::string::npos;
        })) << text;
    }
    ASSERT_TRUE(run.wait_until_running());
    for (const result_line &item : list_now(run))
        EXPECT_EQ(item.errors, NONE);
}

TEST(FioLoop, the_sync_port_belongs_to_the_first_that_asks_for_it) {
    board_run run = board_run::stress({"--fio", "20=1,16=1"}, {"-d1", "-F", "-F"});
    ASSERT_TRUE(run.wait_until_running());
    EXPECT_EQ(list_now(run).size(), 2U);
    EXPECT_TRUE(run.wait_until([&] { return run.errors == "proc 2 bogus 1\nnumproc 1 indx 1\n"; }));
}

TEST(FioLoop, a_missing_port_holds_both_records_and_is_tried_again_after_the_hold) {
    board_run run = board_run::program(
        {}, probed("is 1 27 2 is 2 27 2 show 1 7 set 1 27 0 is 1 7 2 is 1 27 2 show 2 7",
                   {"-d1", "-F"}));
    EXPECT_EQ(run.finish(), 0);
    EXPECT_TRUE(was_logged(run, "record 1 word 7 is 1"));
    EXPECT_TRUE(was_logged(run, "record 2 word 7 is 0"));
}

TEST(FioLoop, after_a_hold_the_first_module_is_identified_anew) {
    // Every reply of the module is two bytes too long and tells its length in the log: 6 bytes for
    // identification and outputs, 12 for a status, 17 for inputs.
    board_run run = board_run::program({"--fio", "20=1,16=1", "--fault", "long:20:1"},
                                       probed("wait 1 4 70 set 1 27 1 is 1 27 2 is 2 27 2 "
                                              "show 1 27 set 1 27 0 wait 1 4 130",
                                              {"-d1", "-F"}));
    EXPECT_EQ(run.finish(), 0);
    const std::vector<std::string> lines = texts(run);
    const auto held = std::ranges::find(lines, "record 1 word 27 is 2");
    ASSERT_NE(held, lines.end());
    std::vector<std::string> told;
    std::copy_if(held, lines.end(), std::back_inserter(told),
                 [](const std::string &text) { return text.starts_with("["); });
    ASSERT_GE(told.size(), 4U);
    told.resize(4);
    EXPECT_EQ(told, (std::vector<std::string>{"[6 4]", "[12 10]", "[6 4]", "[17 15]"}));
}

} // namespace
