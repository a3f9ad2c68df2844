// The field I/O module behind SPI, the SPI memories and loopbacks on the simulated board.

#include <algorithm>
#include <gtest/gtest.h>

#include "tests/board_run.h"
#include "tests/list_polling.h"

namespace {

constexpr size_t MISMATCHES = 0; // of the module; of memories and loopbacks: bad reads
constexpr size_t FAILED = 1;     // exchanges; opens of a memory

constexpr std::array<int64_t, 3> NONE = {0, 0, 0};

class Spi : public testing::Test {
protected:
    void SetUp() override {
        if (sizeof(HK_EMULATOR) > 1)
            GTEST_SKIP() << "the emulator does not know the requests of SPI devices";
    }

    static board_run module_with(const std::string &type, const std::string &fault) {
        return board_run::stress({"--spi", type, "--fault", fault}, {"-d1", "-L"});
    }

    static board_run probed(std::vector<std::string> board, const char *steps) {
        std::vector<std::string> stress = own_program(HK_STRESS_PATH, {"-d1", "-L"});
        stress.insert(stress.begin(), steps);
        return board_run::program(std::move(board), own_program(TABLE_PROBE_PATH, stress));
    }
};

using SpiFioLoop = Spi;
using SpiDevices = Spi;

// Waits until the test has opened its device: before that its line has no letter and ends early.
bool wait_until_open(board_run &run) {
    bool open = false;
    for (int tries = 0; run.wait_until_running() && !open && tries < 600; ++tries) {
        const std::vector<std::string> list = run.request_list();
        open = !list.empty() && parse_result_line(list[0]).has_value();
        pause_between_lists();
    }
    return open;
}

bool was_logged(const board_run &run, const std::string &text) {
    return std::ranges::any_of(run.log, [&](const log_line &line) { return line.text == text; });
}

TEST_F(SpiFioLoop, modules_219_and_221_pass_over_their_maps_without_an_error) {
    struct {
        const char *type;
        int64_t steps;
    } const cases[] = {{"219", 117}, {"221", 64}};
    for (const auto &c : cases) {
        board_run run = board_run::stress({"--spi", c.type}, {"-d1", "-L"});
        ASSERT_TRUE(wait_until_open(run));
        const auto items = lists_until(run, second_count_is_at_least{c.steps + 1});
        EXPECT_EQ(items[0].name, "SpiFIOloop spBs");
        EXPECT_EQ(items[0].kind, 9);
        EXPECT_EQ(items[0].errors, NONE) << c.type;
        EXPECT_NEAR(static_cast<double>(items[0].counts[0]),
                    static_cast<double>(2 + 2 * items[0].counts[1]), 2);
        EXPECT_EQ(run.stop(), 0);
    }
}

TEST_F(SpiFioLoop, other_modules_and_a_missing_device_hold_the_test_after_two_requests) {
    struct {
        std::vector<std::string> board;
        const char *errors;
        const char *failed;
    } const cases[] = {
        {{"--spi", "1"}, "record 1 word 7 is 0", "record 1 word 9 is 0"},
        {{"--spi", "2"}, "record 1 word 7 is 0", "record 1 word 9 is 0"},
        {{"--spi", "220"}, "record 1 word 7 is 0", "record 1 word 9 is 0"},
        {{"--spi", "219", "--fault", "type:manufacturer:3"},
         "record 1 word 7 is 0",
         "record 1 word 9 is 0"},
        {{"--spi", "219", "--fault", "silent:manufacturer:12"},
         "record 1 word 7 is 0",
         "record 1 word 9 is 1"},
        {{}, "record 1 word 7 is 1", "record 1 word 9 is 2"},
    };
    for (const auto &c : cases) {
        board_run run = probed(c.board, "is 1 27 2 show 1 4 show 1 7 show 1 9");
        EXPECT_EQ(run.finish(), 0);
        EXPECT_TRUE(was_logged(run, "record 1 word 4 is 2"));
        EXPECT_TRUE(was_logged(run, c.errors));
        EXPECT_TRUE(was_logged(run, c.failed)) << c.failed;
    }
}

TEST_F(SpiFioLoop, a_module_of_another_type_is_tested_once_the_hold_is_taken_off) {
    board_run run = probed({"--spi", "1"}, "is 1 27 2 set 1 27 0 wait 1 3 65 show 1 8 show 1 9");
    EXPECT_EQ(run.finish(), 0);
    EXPECT_TRUE(was_logged(run, "record 1 word 8 is 0"));
    EXPECT_TRUE(was_logged(run, "record 1 word 9 is 0"));
}

TEST_F(SpiFioLoop, a_hold_takes_effect_between_two_passes) {
    board_run run = probed({"--spi", "221"}, "wait 1 4 10 set 1 27 1 is 1 27 2 show 1 4");
    EXPECT_EQ(run.finish(), 0);
    EXPECT_TRUE(was_logged(run, "record 1 word 4 is 130")) << "two requests a step, and two before";
}

TEST_F(SpiFioLoop, a_stuck_input_spoils_every_step_that_reads_its_byte_for_another_bit) {
    board_run run = module_with("221", "stuck:manufacturer:3.4");
    ASSERT_TRUE(wait_until_open(run));
    const auto items = lists_until(
        run, [](const std::vector<result_line> &seen) { return seen[0].errors[MISMATCHES] >= 7; });
    for (const auto &[step, input_byte] : items[0].samples) {
        EXPECT_GE(step, 24) << "the first step on byte 3";
        EXPECT_LE(step, 31);
        EXPECT_NE(step, 27) << "bit 4 reads as it should";
        EXPECT_EQ(input_byte, 3);
    }
    EXPECT_EQ(items[0].errors[FAILED], 0);
}

TEST_F(SpiFioLoop, a_dead_output_counts_its_step_once_a_pass) {
    board_run run = module_with("219", "dead:manufacturer:0.1");
    ASSERT_TRUE(wait_until_open(run));
    const auto items = lists_until(run, second_count_is_at_least{118});
    constexpr std::array<int64_t, 2> FIRST_STEP = {0, 11};
    EXPECT_EQ(items[0].errors[MISMATCHES], 2);
    EXPECT_EQ(items[0].samples[0], FIRST_STEP);
    EXPECT_EQ(items[0].errors[FAILED], 0);
}

TEST_F(SpiFioLoop,
       an_output_that_cannot_be_set_counts_two_failures_an_input_that_cannot_be_read_one) {
    struct {
        const char *fault;
        double failures_a_request;
    } const cases[] = {{"silent:manufacturer:7", 1}, {"silent:manufacturer:4", 0.5}};
    for (const auto &c : cases) {
        board_run run = module_with("221", c.fault);
        ASSERT_TRUE(wait_until_open(run));
        const auto items = lists_until(
            run, [](const std::vector<result_line> &seen) { return seen[0].errors[FAILED] >= 20; });
        EXPECT_NEAR(static_cast<double>(items[0].errors[FAILED]),
                    static_cast<double>(items[0].counts[0] - 2) * c.failures_a_request, 2);
        EXPECT_EQ(items[0].counts[1], 0);
        EXPECT_EQ(items[0].errors[MISMATCHES], 0);
    }
}

TEST_F(SpiFioLoop, bad_check_bytes_and_replies_beyond_the_transfer_are_failures_not_mismatches) {
    for (const char *fault : {"check:manufacturer:10", "late:manufacturer:10"}) {
        board_run run = module_with("221", fault);
        ASSERT_TRUE(wait_until_open(run));
        const auto items = lists_until(
            run, [](const std::vector<result_line> &seen) { return seen[0].errors[FAILED] >= 5; });
        EXPECT_EQ(items[0].errors[MISMATCHES], 0) << fault;
        EXPECT_GT(items[0].counts[1], items[0].errors[FAILED]) << fault;
    }
}

TEST_F(SpiDevices, a_loopback_that_sends_back_what_it_gets_counts_reads) {
    struct {
        const char *plug;
        const char *selector;
    } const cases[] = {{"loop", "-S8"}, {"reserved=loop", "-S4"}};
    for (const auto &c : cases) {
        board_run run = board_run::stress({"--spi", c.plug}, {"-d1", c.selector});
        ASSERT_TRUE(run.wait_until_running());
        const auto items = lists_until(run, second_count_is_at_least{100});
        EXPECT_EQ(items[0].name, "eeprom spi");
        EXPECT_EQ(items[0].kind, 7);
        EXPECT_EQ(items[0].errors, NONE);
        EXPECT_LE(items[0].counts[0] - items[0].counts[1], 1);
    }
}

TEST_F(SpiDevices, a_loopback_that_is_not_there_or_sends_back_something_else_counts_errors) {
    struct {
        const char *plug;
        bool opens;
    } const cases[] = {{"219", true}, {"reserved=loop", false}};
    for (const auto &c : cases) {
        board_run run = board_run::stress({"--spi", c.plug}, {"-d1", "-S8"});
        ASSERT_TRUE(run.wait_until_running());
        const auto items = lists_until(run, [](const std::vector<result_line> &seen) {
            return seen[0].errors[MISMATCHES] >= 10;
        });
        EXPECT_EQ(items[0].counts[0] > 0, c.opens);
        EXPECT_EQ(items[0].counts[1], 0);
        EXPECT_EQ(items[0].errors[FAILED], 0);
    }
}

TEST(SpiMemories, are_read_while_they_are_there) {
    board_run run =
        board_run::stress({"--datakey", "present", "--eeprom", "good"}, {"-d1", "-S1", "-S2"});
    ASSERT_TRUE(run.wait_until_running());
    const auto items = lists_until(run, second_count_is_at_least{10});
    EXPECT_EQ(items[0].name, "Datakey spi");
    EXPECT_EQ(items[0].kind, 6);
    EXPECT_EQ(items[1].name, "eeprom spi");
    EXPECT_EQ(items[1].kind, 7);
    for (const result_line &item : items) {
        EXPECT_EQ(item.counts[0], 0);
        EXPECT_EQ(item.errors, NONE);
    }
    EXPECT_EQ(run.stop(), 0);
}

TEST(SpiMemories, a_short_eeprom_counts_bad_reads_and_a_missing_one_failed_opens) {
    struct {
        const char *eeprom;
        size_t counted;
        size_t not_counted;
    } const cases[] = {{"short", MISMATCHES, FAILED}, {"missing", FAILED, MISMATCHES}};
    for (const auto &c : cases) {
        board_run run = board_run::stress({"--eeprom", c.eeprom}, {"-d1", "-S2"});
        ASSERT_TRUE(run.wait_until_running());
        const auto items = lists_until(run, [&](const std::vector<result_line> &seen) {
            return seen[0].errors[c.counted] >= 10;
        });
        EXPECT_EQ(items[0].errors[c.not_counted], 0) << c.eeprom;
        EXPECT_EQ(items[0].counts[1], 0);
    }
}

TEST(SpiMemories, a_datakey_that_is_absent_counts_nothing) {
    for (const std::vector<std::string> &board :
         {std::vector<std::string>{"--datakey", "absent"}, std::vector<std::string>{}}) {
        board_run run = board_run::stress(board, {"-d1", "-S1"});
        ASSERT_TRUE(run.wait_until_running());
        (void)lists_until(run, [](const std::vector<result_line> &seen) {
            return seen[0].name == "Datakey spi";
        });
        for (int lists = 0; lists < 3; ++lists) {
            const auto items = list_now(run);
            ASSERT_EQ(items.size(), 1U);
            EXPECT_EQ(items[0].counts[1], 0);
            EXPECT_EQ(items[0].errors, NONE);
        }
    }
}

} // namespace
