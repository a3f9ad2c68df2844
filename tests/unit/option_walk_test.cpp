// The walk over the command line with nothing started, and the inputs that the fuzzers have found
// worth keeping, with every compiler.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "runtime/settings.h"
#include "serial/port_access.h"
#include "supervisor/status_table.h"
#include "tests/fuzz/targets.h"

namespace {

void walk(const std::vector<std::string> &arguments) {
    std::string line;
    for (const std::string &argument : arguments)
        line += argument + '\0';
    fuzz_option_walk({reinterpret_cast<const uint8_t *>(line.data()), line.size() - 1});
}

std::vector<int32_t> kinds_of_records() {
    std::vector<int32_t> kinds;
    for (int32_t i = 1; i <= record_count; ++i)
        kinds.push_back(status_table->records[static_cast<size_t>(i)].kind_code);
    return kinds;
}

TEST(Corpus, every_command_line_and_every_reply_is_taken_or_refused) {
    EXPECT_GT(replay("option_walk", fuzz_option_walk), 0);
    EXPECT_GT(replay("fio_reply", fuzz_fio_reply), 0);
    EXPECT_GT(replay("spi_reply", fuzz_spi_reply), 0);
}

TEST(OptionWalk, tests_take_the_records_that_are_left_and_none_more) {
    struct {
        const char *option;
        int32_t records;
    } const cases[] = {{"-C1", 1}, {"-D", 1}, {"-E2", 1}, {"-E22", 1}, {"-E28", 2}, {"-F", 2},
                       {"-K", 1},  {"-L", 1}, {"-P1", 1}, {"-S1", 1},  {"-Yd", 1},  {"-Ma:b:0", 1}};
    for (const auto &c : cases) {
        std::vector<std::string> arguments(static_cast<size_t>(TEST_RECORDS - c.records), "-S3");
        arguments.emplace_back(c.option);
        walk(arguments);
        EXPECT_EQ(record_count, TEST_RECORDS) << c.option;
        arguments.front() = "-E28"; // one record more
        walk(arguments);
        EXPECT_EQ(record_count, TEST_RECORDS - c.records + 1) << c.option;
        EXPECT_EQ(last_claimed_record().kind_code, 7) << c.option;
        EXPECT_EQ(last_claimed_record().hold, HOLD_NONE) << c.option;
    }
}

TEST(OptionWalk, each_test_gets_its_kind_code_and_storage_and_memory_tests_are_held) {
    struct {
        std::vector<std::string> arguments;
        std::vector<int32_t> kinds;
        int32_t hold = HOLD_NONE; // of the last record
    } const cases[] = {
        {{"-C1", "-P2", "-C2", "-P1"}, {3, 3, 2, 2}},
        {{"-C8", "-P7", "-Ctext", "-P0"}, {4, 4, 4, 4}},
        {{"-C3", "-P5"}, {0, 0}},
        {{"-P3", "-C5"}, {1, 1}},
        {{"-E2", "-E28"}, {5, 0, 5}},
        {{"-L", "-S1", "-S2"}, {9, 6, 7}},
        {{"-D"}, {8}, HOLD_REQUESTED},
        {{"-Ysub"}, {11}, HOLD_REQUESTED},
        {{"-Ma:b:0"}, {5}, HOLD_REQUESTED},
        // An incomplete copy claims no record: it marks and holds the last one.
        {{"-L", "-Ma:b"}, {5}, HOLD_REQUESTED},
        // The first test on port 5 owns its synchronous side. A second producer there marks the
        // last record, any other test that needs it does nothing.
        {{"-F", "-E2", "-F", "-C3", "-P3", "-C5x"}, {10, 1, 5}},
        {{"-P5", "-E2", "-F", "-C3", "-P3", "-C5x"}, {0, 5}},
        {{"-C5", "-E2", "-P5"}, {1, 0}},
    };
    for (const auto &c : cases) {
        walk(c.arguments);
        EXPECT_EQ(kinds_of_records(), c.kinds) << c.arguments.back();
        EXPECT_EQ(last_claimed_record().hold, c.hold) << c.arguments.back();
    }
    walk({"-Ma"});
    EXPECT_EQ(status_table->records[0].kind_code, 5) << "without any test";
}

TEST(OptionWalk, a_receiver_is_followed_by_a_pause_started_or_not_dram_and_crossover_once_started) {
    struct {
        std::vector<std::string> arguments;
        uint32_t pauses;
    } const cases[] = {
        {{"-C5", "-C5", "-C3"}, 3},
        {{"-D", "-E28", "-E2"}, 3},
        {{"-P1", "-F", "-L", "-K", "-S1", "-Ysub", "-Ma:b:0", "-d1"}, 0},
        {std::vector<std::string>(TEST_RECORDS + 2, "-D"), TEST_RECORDS},
        {std::vector<std::string>(TEST_RECORDS + 2, "-C1"), TEST_RECORDS + 2},
    };
    for (const auto &c : cases) {
        walk(c.arguments);
        EXPECT_EQ(paused_us, c.pauses * 50000) << c.arguments.back();
    }
}

TEST(OptionWalk, a_held_test_is_held_before_its_process_starts) {
    for (const char *option : {"-D", "-Ysub", "-Ma:b:0"}) {
        walk({option});
        EXPECT_EQ(hold_at_fork, HOLD_REQUESTED) << option;
    }
    walk({"-L"});
    EXPECT_EQ(hold_at_fork, HOLD_NONE);
}

TEST(OptionWalk, a_test_whose_fork_failed_leaves_the_sync_port_free_and_is_recorded_all_the_same) {
    struct {
        std::vector<std::string> arguments;
        std::vector<int32_t> kinds;
        int32_t bogus;
    } const cases[] = {
        {{"-F", "-C3"}, {10, 1, 0}, 1}, {{"-C5", "-P3"}, {1, 1}, 0}, {{"-P5", "-C3"}, {0, 0}, 0}};
    forks_fail = true;
    for (const auto &c : cases) {
        walk(c.arguments);
        EXPECT_EQ(sync_owner, 0) << c.arguments.front();
        EXPECT_EQ(bogus_count, c.bogus);
        EXPECT_EQ(kinds_of_records(), c.kinds) << c.arguments.front();
    }
    forks_fail = false;
    walk({"-F"});
    EXPECT_EQ(sync_owner, 2);
}

TEST(OptionWalk, settings_take_their_values_and_periods_come_into_their_ranges) {
    walk({"-b9600", "-f7", "-h", "-e"});
    EXPECT_EQ(port_speed_code, 13u);
    EXPECT_EQ(xfer_length, 7);
    EXPECT_EQ(hdlc_mode, 1);
    EXPECT_EQ(error_flag, 1);
    walk({"-h", "-h", "-i"});
    EXPECT_EQ(hdlc_mode, 0);
    EXPECT_EQ(error_flag, 0);
    struct {
        const char *led;
        const char *log;
        int32_t led_period;
        int32_t log_period;
    } const periods[] = {{"-d-1", "-l4", 1, 5},
                         {"-d0", "-l5", 1, 5},
                         {"-d59", "-l599", 59, 599},
                         {"-d100", "-l601", 60, 600}};
    for (const auto &period : periods) {
        walk({period.led, period.log});
        clamp_periods();
        EXPECT_EQ(led_period, period.led_period) << period.led;
        EXPECT_EQ(log_period, period.log_period) << period.log;
    }
}

} // namespace
