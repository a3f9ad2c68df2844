// The walk over the command line with nothing started.
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

TEST(Corpus, every_command_line_stays_within_the_table) {
    EXPECT_GT(replay("option_walk", fuzz_option_walk), 0);
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
    }
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
