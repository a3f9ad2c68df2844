// Every record of the status table in use: 47 tests of one record and a crossover of two, last, in
// the 48 arguments that are read.

#include <algorithm>
#include <gtest/gtest.h>
#include <iterator>

#include "tests/support/board_run.h"
#include "tests/support/list_polling.h"

namespace {

constexpr size_t RECORDS = 49;

const std::vector<std::string> BOARD = {
    // clang-format off
    "--cable", "1-2", "--cable", "3-5", "--cable", "7-8", "--loop", "4", "--loop", "6",
    "--spi", "loop", "--spi", "reserved=loop", "--datakey", "present", "--eeprom", "good",
    // clang-format on
};

std::vector<std::string> full_plan() {
    std::vector<std::string> plan = {"-C1", "-P2", "-C3", "-P5", "-E4", "-E6", "-S4", "-S8"};
    for (int i = 0; i < 8; ++i) {
        const std::string number = std::to_string(i);
        plan.insert(plan.end(), {"-S1", "-S2", "-Y/r0/" + number,
                                 "-M/r0/a" + number + ":/r0/b" + number + ":0"});
    }
    plan.insert(plan.end(), 7, "-D");
    plan.emplace_back("-E78");
    return plan;
}

// Runs hk_stress below a shell, which passes the signals of a case on and has the last word: it
// says what is left of the program, with which the board will go. `wait` returns a number above 128
// for each signal.
constexpr char COUNT_LEFT[] =
    "for name in USR1 TERM; do trap \"kill -$name \\$program\" $name; done; "
    "\"$@\" & program=$!; until wait $program; status=$?; [ $status -le 128 ]; do :; done; "
    "echo $(grep -lxs hk_stress /proc/[0-9]*/comm | wc -l) left >&2; exit $status";

// From the command line these three are set up and then idle.
bool is_idle(const result_line &item) {
    return (item.name == "filesys opt" && item.counts[0] == 16) ||
           (item.name == "bbsram file_copy" && item.counts[0] == 1) || item.name == "dram user";
}

void expect_no_error(const std::vector<result_line> &items) {
    for (const result_line &item : items)
        EXPECT_EQ(item.errors, (std::array<int64_t, 3>{})) << item.name;
}

TEST(FullTable, runs_without_an_error_and_leaves_no_process_after_a_stop_signal) {
    if (sizeof(HK_EMULATOR) > 1)
        GTEST_SKIP() << "the emulator does not know the requests of SPI devices";
    std::vector<std::string> command = full_plan();
    command.insert(command.begin(), {"/bin/sh", "-c", COUNT_LEFT, "sh", HK_STRESS_PATH});
    board_run run = board_run::program(BOARD, command);
    const auto items = lists_until(run, [](const std::vector<result_line> &seen) {
        return seen.size() == RECORDS && std::ranges::all_of(seen, [](const result_line &item) {
                   return is_idle(item) || item.counts[1] >= 20;
               });
    });
    expect_no_error(items);

    EXPECT_EQ(run.stop(), 0);
    expect_no_error(last_list(run));
    EXPECT_EQ(last_list(run).size(), RECORDS);
    // Each line begins with its line break; crossovers have none.
    EXPECT_EQ(std::ranges::count(run.output, '\n'), 1 + 47 - 2);
    int reaped = 0;
    for (size_t at = 0; (at = run.output.find("pid   -7 ", at)) != std::string::npos; ++at)
        ++reaped;
    EXPECT_EQ(reaped, 47 - 2);
    EXPECT_EQ(run.errors, "proc 49 bogus 1\nnumproc 48 indx 1\n0 left\n");
}

} // namespace
