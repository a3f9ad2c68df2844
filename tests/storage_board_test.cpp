// The storage and memory tests on the simulated board, started as an operator starts them.

#include <csignal>
#include <gtest/gtest.h>

#include "tests/board_run.h"
#include "tests/list_polling.h"

namespace {

using result_lines = std::vector<result_line>;

const std::vector<std::string> ALL_THREE = {"-d1", "-Y", "/r0/files", "-M", "/r0/a:/r0/b:0", "-D"};

TEST(Held, from_the_command_line_they_are_set_up_and_stand_still) {
    board_run run = board_run::stress({}, ALL_THREE);
    (void)lists_until(run, [](const result_lines &items) {
        return items.size() == 3 && items[0].counts[0] == 16 && items[1].counts[0] == 1;
    });
    pause_between_lists();
    const result_lines items = list_now(run);
    ASSERT_EQ(items.size(), 3U);
    struct {
        int kind;
        const char *name;
        int64_t first_count;
    } const expected[] = {{11, "filesys opt", 16}, {5, "bbsram file_copy", 1}, {8, "dram user", 0}};
    for (size_t i = 0; i < items.size(); ++i) {
        EXPECT_EQ(items[i].kind, expected[i].kind);
        EXPECT_EQ(items[i].name, expected[i].name);
        EXPECT_EQ(items[i].counts[0], expected[i].first_count) << items[i].name;
        EXPECT_EQ(items[i].counts[1], 0) << items[i].name;
        EXPECT_EQ(items[i].errors[0], 0) << items[i].name;
    }
    EXPECT_EQ(run.stop(), 0);
}

// The process that could not lay its files reads the rest of the command line, finds its record
// stopped and prints a report. The first supervisor is then left without a test that it could count
// as ended: signals that are caught do not end it, the board does.
TEST(FailedSetUp, makes_a_second_supervisor_and_both_can_be_ended) {
    board_run run = board_run::stress({}, {"-d1", "-Y", "/r0/missing/files"});
    const std::string lines = "proc 1 bogus 0\nnumproc 1 indx 1\n";
    EXPECT_TRUE(run.wait_for_output("filesys, wrote 00000000, read 00000000, errors 0001"));
    EXPECT_TRUE(run.wait_until([&] { return run.errors.size() >= 2 * lines.size(); }));
    const result_lines items = list_now(run);
    ASSERT_EQ(items.size(), 1U);
    EXPECT_EQ(items[0].kind, 11);
    EXPECT_EQ(items[0].errors[0], 1);
    run.signal(SIGINT);
    EXPECT_EQ(run.finish(), 124) << "ended by the board";
}

} // namespace
