// The calls of receiver, producer and echo.

#include "tests/calls/call_trace.h"

#include <algorithm>
#include <poll.h>

#include "panel/front_panel.h"
#include "serial/port_access.h"
#include "serial/port_settings.h"
#include "serial/start.h"

namespace {

using SerialCalls = CallTrace;

// Every second poll reports a long block.
TEST_F(SerialCalls, a_receiver_drops_what_was_there_before_and_during_a_hold) {
    static int polls;
    polls = 0;
    device.has_input = [](const std::string &) { return ++polls % 3 != 2; };
    device.read = [](const std::string &, std::span<uint8_t> room) {
        std::ranges::fill(room.first(16), uint8_t{')'});
        return size_t{16};
    };
    device.shows_cleared = true;
    const auto start = [] { return serial_loop_test(0, "1", paren_pattern); };
    EXPECT_EQ(joined(run(start, {{"read sp1", 2, hold_it},
                                 {"nap 5000", 1, release_it},
                                 {"poll sp1 in pri 40", 4, stop_it}})),
              opened("sp1") + R"(poll sp1 in pri 5
read sp1 512, 512 clear
poll sp1 in pri 5
poll sp1 in pri 40
read sp1 512, 32 clear
poll sp1 in pri 40
nap 5000
poll sp1 in pri 5
poll sp1 in pri 40
read sp1 512, 32 clear
poll sp1 in pri 40
nap 5000 finished
)");
}

TEST_F(SerialCalls, a_producer_drains_and_pauses_2_ms_after_each_block) {
    const auto start = [] { return producer_test(0, "1", paren_pattern); };
    EXPECT_EQ(joined(run(start, {{"nap 2000", 2, stop_it}})), opened("sp1") + R"-(poll sp1 out 10
write sp1 "))))))))))))))))"
drain sp1
nap 2000
poll sp1 out 10
write sp1 "))))))))))))))))"
drain sp1
nap 2000
nap 5000 finished
)-");
}

TEST_F(SerialCalls, an_echo_drains_before_it_waits) {
    waiting.assign(16, ')');
    device.has_input = is_waiting;
    device.read = read_waiting;
    device.shows_cleared = true;
    const auto start = [] { return echo_test(0, "1", 0); };
    EXPECT_EQ(joined(run(start, {{"drain sp1", 3, stop_it}})), opened("sp1") + R"-(drain sp1
poll sp1 in pri 100
read sp1 512, 512 clear
write sp1 "))))))))))))))))"
drain sp1
poll sp1 in pri 100
drain sp1
poll sp1 in pri 100 stopped
nap 5000 finished
)-");
}

// Such a port has input at once, each time, and every read fails.
TEST_F(SerialCalls, a_port_that_has_hung_up_costs_a_pause_with_each_read) {
    struct {
        pid_t (*start)();
        std::string lines;
    } const cases[] = {
        {[] { return serial_loop_test(0, "1", paren_pattern); },
         "poll sp1 in pri 40\nread sp1 512\npoll sp1 0\nnap 80000\n"},
        {[] { return echo_test(0, "1", 0); },
         "drain sp1\npoll sp1 in pri 100\nread sp1 512\npoll sp1 0\nnap 100000\n"},
        {[] { return front_panel_test(0); },
         "poll sp6 in pri 100\nread sp6 10\npoll sp6 0\nnap 100000\n"},
    };
    for (const auto &c : cases)
        for (const int event : {POLLHUP, POLLERR, POLLNVAL}) {
            device.other_events = static_cast<short>(event);
            const std::string lines = joined(
                run(c.start, {{"nap", 1, stop_it}, {"nap", 1, [] { device.other_events = 0; }}}));
            EXPECT_NE(lines.find(c.lines), std::string::npos) << lines;
        }
}

TEST_F(SerialCalls, the_console_port_of_board_variant_219_opens_at_9600_as_does_every_later_port) {
    platform_code = 219;
    (void)trace_of([] {
        (void)open_async_port("2", 0);
        record(1).unit = static_cast<int32_t>(port_speed_code);
        (void)open_async_port("1", 0);
        record(2).unit = static_cast<int32_t>(port_speed_code);
    });
    platform_code = 0;
    EXPECT_EQ(record(1).unit, static_cast<int32_t>(SPEED_115200));
    EXPECT_EQ(record(2).unit, static_cast<int32_t>(SPEED_9600));
}

} // namespace
