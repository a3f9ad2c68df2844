// The calls of a crossover, and what it counts of a script of lost and spoiled frames.

#include "tests/calls/call_trace.h"

#include <algorithm>
#include <array>

#include "serial/port_access.h"
#include "serial/port_settings.h"
#include "serial/start.h"

namespace {

class CrossoverCalls : public CallTrace {
protected:
    // Each frame comes back whole, on both ports.
    void SetUp() override {
        CallTrace::SetUp();
        device.has_input = [](const std::string &port) {
            return turn <= lost_from || turn > lost_until || !port.starts_with(lost_port);
        };
        device.written = [](const std::string &port, std::span<const uint8_t> sent) {
            turn += port == "sp2" ? 1 : 0;
            waiting.assign(sent.begin(), sent.end());
            waiting[0] ^= is_spoiled ? 1 : 0;
        };
        device.read = [](const std::string &, std::span<uint8_t> room) {
            std::ranges::copy(waiting, room.begin());
            return waiting.size();
        };
        turn = 0;
        lost_from = 0;
        lost_until = 1000;
        lost_port = "none";
        is_spoiled = false;
    }

    static int turn;
    static int lost_from;  // the last turn before frames are lost on `lost_port`
    static int lost_until; // the last turn in which they are
    static std::string lost_port;
    static bool is_spoiled;
};

int CrossoverCalls::turn;
int CrossoverCalls::lost_from;
int CrossoverCalls::lost_until;
std::string CrossoverCalls::lost_port;
bool CrossoverCalls::is_spoiled;

pid_t start_2_to_8() {
    return crossover_test(0, "2", "8", frame_sample_pattern);
}

constexpr const char *FIRST_TWO_TURNS = R"(sp2 get lines
sp2 rts off
sp8 get lines
sp8 rts off
sp8 get lines x2
sp2 get lines x3
sp2 rts on
sp8 get lines
sp8 rts on
sp8 get lines x2
sp2 get lines x2
nap 9000
write sp2 ")('"
write sp8 ")('"
drain sp2
drain sp8
nap 3125
poll sp8 in pri 4
read sp8 512, 512 clear
poll sp2 in pri 4
read sp2 512, 100 clear
write sp2 03 03 0c 20 12 c7 58 2b 0c
write sp8 03 03 0c 20 12 c7 58 2b 0c
drain sp2
drain sp8
nap 3645
poll sp8 in pri 4
read sp8 512, 100 clear
poll sp2 in pri 4 stopped
read sp2 512, 100 clear stopped
nap 5000 stopped
)";

// The driver may change what it is given to send: the second port and the check need the frame.
TEST_F(CrossoverCalls, set_the_lines_then_send_drain_wait_and_read_in_each_turn) {
    device.changes_what_it_sends = true;
    device.shows_cleared = true;
    const auto compare_ids = [] {
        record(1).kind_code = record(1).pid == record(2).pid && record(1).pid > 0;
    };
    EXPECT_EQ(joined(run(start_2_to_8, {{"nap 9000", 1, compare_ids}, {"read sp8", 2, stop_it}})),
              opened("sp2") + opened("sp8") + FIRST_TWO_TURNS);
    EXPECT_EQ(record(1).kind_code, 1) << "both records have the id of the process";
    for (const int index : {1, 2}) {
        EXPECT_EQ(record(index).unit, index == 1 ? 2 : 8);
        EXPECT_EQ(record(index).write_count, 2u);
        EXPECT_EQ(record(index).read_count, 2u);
        EXPECT_EQ(record(index).errors + record(index).errors2 + record(index).errors3, 0);
    }
}

TEST_F(CrossoverCalls, without_its_port_mark_the_end_at_once_and_log_it) {
    const auto start = [] { return crossover_test(0, "none", "none", frame_sample_pattern); };
    const std::string lines = joined(run(start, {}));
    EXPECT_TRUE(lines.starts_with("open /dev/spnone rw\nlog 6\n-1 get lines stopped\n"));
    EXPECT_TRUE(lines.ends_with("nap 9000 stopped\nnap 5000 finished\n")) << lines;
}

TEST_F(CrossoverCalls, wait_for_the_line_time_and_poll_until_as_much_has_passed_again) {
    struct {
        uint32_t speed;
        int64_t time_us;
        traced_event event;
        const char *waits;
    } const cases[] = {
        {9, 5'000'000, {"", 0, nullptr}, "nap 300000\npoll sp2 in pri 301 x3\n"},
        {33, 5'000'000, {"", 0, nullptr}, "nap 2000\npoll sp2 in pri 3 x3\n"},
        // Polls before the deadline do not count.
        {17, 5'000'000, {"poll", 1, set_clock_back}, "nap 3125\npoll sp2 in pri 4 x6\n"},
        {17, 5'985'875, {"poll", 1, set_clock_back}, "nap 3125\npoll sp2 in pri 4 x6\n"},
    };
    lost_port = "sp2";
    lost_from = 0;
    for (const auto &c : cases) {
        port_speed_code = c.speed;
        device.time_us = c.time_us;
        turn = 0;
        const auto start = [] { return crossover_test(0, "2", "2", frame_sample_pattern); };
        auto all = run(start, {c.event, {"write sp2", 2, stop_it}});
        ASSERT_GT(all.size(), 4u);
        EXPECT_EQ(lines_with(all, "open"), "open /dev/sp2 rw\n");
        all.resize(static_cast<size_t>(
            std::ranges::find(all, "write sp2 03 03 0c 20 12 c7 58 2b 0c") - all.begin()));
        std::erase(all, "nap 9000");
        EXPECT_EQ(lines_with(all, "nap") + lines_with(all, "poll"), c.waits) << c.speed;
    }
    port_speed_code = SPEED_115200;
}

TEST_F(CrossoverCalls, count_runs_of_silence_and_samples_by_direction) {
    struct {
        const char *name;
        const char *y;
        const char *lost_port;
        bool is_spoiled;
        int lost_until;
        int hold_turn;
        int stop_turn;
        std::array<int32_t, 2> errors2;
        std::array<int32_t, 2> hist_next;
    } const cases[] = {
        {"x to y lost", "8", "sp8", false, 99, 0, 12, {0, 0}, {0, 0}},
        {"y to x lost: one failed read at the end", "8", "sp2", false, 99, 0, 12, {0, 1}, {0, 0}},
        // The first three frames of x are let pass; the index of y sets that of x back.
        {"both spoiled", "8", "none", true, 99, 0, 12, {9, 12}, {0, 12}},
        {"both lost, two silent turns before a hold", "8", "sp", false, 99, 4, 5, {0, 6}, {0, 0}},
        {"both lost, one silent turn before a hold", "8", "sp", false, 99, 3, 4, {0, 2}, {0, 0}},
        {"three frames lost on one port", "2", "sp", false, 5, 0, 12, {0, 0}, {0, 0}},
        {"four frames lost on one port", "2", "sp", false, 6, 0, 12, {4, 0}, {0, 0}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        turn = 0;
        lost_port = c.lost_port;
        lost_from = 2;
        lost_until = c.lost_until;
        is_spoiled = c.is_spoiled;
        const auto start = [&c] { return crossover_test(0, "2", c.y, frame_sample_pattern); };
        (void)run(start, {{"write sp2", c.hold_turn, hold_it},
                          {"nap 50000", 1, release_it},
                          {"write sp2", c.stop_turn, stop_it}});
        for (const size_t index : {0U, 1U}) {
            EXPECT_EQ(record(static_cast<int>(index) + 1).errors2, c.errors2[index]) << index;
            EXPECT_EQ(record(static_cast<int>(index) + 1).hist_next, c.hist_next[index]) << index;
        }
    }
}

} // namespace
