// The field I/O modules on the sync port of the simulated board: who has the port, and holds.

#include <algorithm>
#include <gtest/gtest.h>
#include <iterator>

#include "tests/board_run.h"
#include "tests/list_polling.h"

namespace {

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

TEST(FioLoop, odd_replies_are_told_on_standard_error_too) {
    board_run run = board_run::stress(
        {"--fio", "20=221,16=1", "--fault", "stray:20:10", "--fault", "short:16:10"},
        {"-d1", "-F"});
    for (const char *text : {"<27 24  3>", "[14 15]"})
        EXPECT_TRUE(run.wait_until([&] { return run.errors.find(text) != std::string::npos; }))
            << text;
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
