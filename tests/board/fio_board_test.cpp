// The field I/O modules and the SPI memories on the simulated board: what only time or a hold
// shows.

#include <algorithm>
#include <csignal>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/board_run.h"
#include "tests/support/list_polling.h"

namespace {

using Words = std::vector<std::string>;

// The log of a run of hk_stress in whose status table table_probe takes its steps.
std::vector<log_line> probed(Words board, const std::string &steps, const Words &arguments) {
    Words stress = own_program(HK_STRESS_PATH, arguments);
    stress.insert(stress.begin(), steps);
    board_run run = board_run::program(std::move(board), own_program(TABLE_PROBE_PATH, stress));
    EXPECT_EQ(run.finish(), 0);
    return run.log;
}

// The texts of the log that begin so, from the first one that is `after`.
Words logged(const std::vector<log_line> &log, const std::string &start,
             const std::string &after = "") {
    Words found;
    bool passed = after.empty();
    for (const log_line &line : log) {
        passed = passed || line.text == after;
        if (passed && line.text.starts_with(start))
            found.push_back(line.text);
    }
    return found;
}

// Three turns under a hold: each acknowledges it anew.
constexpr char HELD_TURNS[] = " set 1 27 1 is 1 27 2 set 1 27 1 is 1 27 2 set 1 27 1 is 1 27 2 ";

class SpiFioLoop : public testing::Test {
    void SetUp() override {
        if (sizeof(HK_EMULATOR) > 1)
            GTEST_SKIP() << "the emulator does not know the requests of SPI devices";
    }
};

TEST(FioLoop, a_missing_port_holds_both_records_and_is_tried_again_after_the_hold) {
    const auto log = probed(
        {}, "is 1 27 2 is 2 27 2 show 1 7 set 1 27 0 is 1 7 2 is 1 27 2 show 2 7", {"-d1", "-F"});
    EXPECT_EQ(logged(log, "record"), (Words{"record 1 word 7 is 1", "record 2 word 7 is 0"}));
}

// Every reply of one module is two bytes too long, and the log shows its length: 6 bytes for
// identification and outputs, 12 for a status, 17 for inputs.
TEST(FioLoop, after_a_hold_the_first_module_is_identified_anew_and_the_second_goes_on) {
    struct {
        const char *fault;
        Words reported;
    } const cases[] = {{"long:20:1", {"[6 4]", "[12 10]", "[6 4]", "[17 15]"}},
                       {"long:16:1", {"[12 10]", "[6 4]", "[17 15]", "[6 4]"}}};
    for (const auto &c : cases) {
        const auto log = probed({"--fio", "20=1,16=1", "--fault", c.fault},
                                "wait 1 4 70 set 1 27 1 is 1 27 2 is 2 27 2 show 1 27 "
                                "set 1 27 0 wait 1 4 200",
                                {"-d1", "-F"});
        Words reported = logged(log, "[", "record 1 word 27 is 2");
        ASSERT_GE(reported.size(), c.reported.size()) << c.fault;
        reported.resize(c.reported.size());
        EXPECT_EQ(reported, c.reported) << c.fault;
    }
}

TEST_F(SpiFioLoop, a_module_of_another_type_counts_nothing_until_the_hold_is_taken_off) {
    const auto log = probed({"--spi", "1"},
                            "is 1 27 2" + std::string(HELD_TURNS) +
                                "show 1 4 set 1 27 0 wait 1 3 65 show 1 8 show 1 9",
                            {"-d1", "-L"});
    EXPECT_EQ(logged(log, "record"),
              (Words{"record 1 word 4 is 2", "record 1 word 8 is 0", "record 1 word 9 is 0"}));
}

TEST_F(SpiFioLoop, a_hold_takes_effect_between_two_passes) {
    const auto log = probed({"--spi", "221"}, "wait 1 4 10" + std::string(HELD_TURNS) + "show 1 4",
                            {"-d1", "-L"});
    EXPECT_EQ(logged(log, "record"), (Words{"record 1 word 4 is 130"}))
        << "two requests a step, and two before";
}

TEST(SpiMemory, is_not_read_while_the_test_is_held) {
    const auto log = probed({"--datakey", "present"},
                            "wait 1 3 2" + std::string(HELD_TURNS) + "show 1 3" + HELD_TURNS +
                                "show 1 3 set 1 27 0",
                            {"-d1", "-S1"});
    const Words counts = logged(log, "record");
    ASSERT_EQ(counts.size(), 2U);
    EXPECT_EQ(counts[0], counts[1]);
}

TEST(SpiMemory, one_slow_pass_is_reported_and_ends_the_reads_of_an_eeprom) {
    // The machine's time goes on while the process is stopped.
    board_run run =
        board_run::stress({"--clock", "real", "--eeprom", "good"}, {"-d1", "-l600", "-S2"});
    (void)lists_until(run, second_count_is_at_least{2});
    pid_t test = run.board_id();
    for (pid_t child; (child = child_of(test)) > 0;)
        test = child;
    ASSERT_EQ(kill(test, SIGSTOP), 0);
    (void)usleep(1'200'000); // over the end of a second and more than 100 ms
    ASSERT_EQ(kill(test, SIGCONT), 0);
    EXPECT_TRUE(run.wait_for_log("eeprom too long"));
    const auto after = list_now(run);
    ASSERT_EQ(after.size(), 1U);
    pause_between_lists();
    EXPECT_EQ(list_now(run).at(0).counts, after[0].counts);
    EXPECT_EQ(after[0].errors, (std::array<int64_t, 3>{}));
}

} // namespace
