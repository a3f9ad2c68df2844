// Synchronous ports, devices at the other end of a cable, and faults of a cable.
#include "simulator/line/device_end.h"
#include "tests/simulator/line_bench.h"

#include <cerrno>
#include <gtest/gtest.h>

namespace simulator::line {

namespace {

constexpr int32_t RIGHT_MODE = 1 | 10 << 8; // in memory 1, 10, 0, 0 on a little-endian host

struct line_frames : testing::Test, line_bench {
    line_frames() : line_bench({.is_synchronous = true}) {}

    void set_up(port &asked, int32_t mode = RIGHT_MODE) {
        (void)open(asked);
        set_raw(asked, FRAME_BPS);
        (void)request(asked, SYNC_MODE_REQUEST, mode);
    }
};

TEST_F(line_frames, one_write_is_one_frame_is_one_read) {
    set_up(one);
    set_up(two);
    const int64_t begin = now;
    write(one, "first");
    write(one, "second frame");
    drain(one);
    EXPECT_NEAR(static_cast<double>(now - begin), (5 + 12 + 8) * 8e9 / FRAME_BPS, 10);
    EXPECT_EQ(request(two, FIONREAD), 5);
    EXPECT_EQ(read(two, 3), "fir");
    EXPECT_EQ(read(two), "st");
    EXPECT_EQ(read(two), "second frame");
    EXPECT_EQ(read(two), "");
    EXPECT_EQ(write(one, std::string(4096, 'x')), -EMSGSIZE);
    EXPECT_EQ(write(one, std::string(4000, 'x')), 4000);
    EXPECT_EQ(write(one, std::string(96, 'x')), -EAGAIN) << "a frame is taken whole or not at all";
    EXPECT_EQ(write_blocking(one, std::string(96, 'x')), 96);
}

TEST_F(line_frames, nothing_is_carried_without_the_right_request_raw_mode_and_speed) {
    const auto arrives = [](auto spoil_one, auto spoil_two) {
        line_bench bench({.is_synchronous = true});
        for (port *each : {&bench.one, &bench.two}) {
            bench.open(*each);
            bench.set_raw(*each, FRAME_BPS);
            bench.request(*each, SYNC_MODE_REQUEST, RIGHT_MODE);
        }
        spoil_one(bench, bench.one);
        spoil_two(bench, bench.two);
        EXPECT_EQ(bench.write(bench.one, "frame"), 5);
        bench.drain(bench.one);
        bench.run(SECOND);
        return bench.read(bench.two) == "frame";
    };
    const auto good = [](line_bench &, port &) {};
    const auto wrong_bytes = [](line_bench &bench, port &end) {
        bench.request(end, SYNC_MODE_REQUEST, 1 | 11 << 8);
    };
    const auto cooked = [](line_bench &bench, port &end) {
        bench.set(
            end, [](tty_settings &wanted) { wanted.c_lflag |= ECHO | ICANON; });
    };
    const auto slow = [](line_bench &bench, port &end) { bench.set_raw(end, 9600); };
    EXPECT_TRUE(arrives(good, good));
    EXPECT_TRUE(arrives(slow, slow));
    EXPECT_FALSE(arrives(wrong_bytes, good));
    EXPECT_FALSE(arrives(good, wrong_bytes));
    EXPECT_FALSE(arrives(wrong_bytes, wrong_bytes));
    EXPECT_FALSE(arrives(cooked, good));
    EXPECT_FALSE(arrives(good, cooked));
    EXPECT_FALSE(arrives(slow, good));
}

TEST_F(line_frames, unread_frames_are_kept_up_to_64) {
    set_up(one);
    set_up(two);
    for (int i = 0; i < 70; i++)
        write_blocking(one, std::to_string(100 + i));
    drain(one);
    int frames_read = 0;
    while (!read(two).empty())
        frames_read++;
    EXPECT_EQ(frames_read, 64);
    EXPECT_EQ(two.counts().lost, 6 * 3);
}

// Strikes at numbered characters and frames.
struct numbered_faults final : line_faults {
    int passed = 0;
    bool damages_frames = false;
    int clock_percent = 0;
    int64_t stall_until = 0;
    int64_t cts_cut_from = NEVER;

    void strike(passing_character &passing) override {
        passed++;
        passing.lost = passed == 2;
        passing.data ^= passed == 4 ? 0x20 : 0;
        if (passed == 6)
            passing.inserted = {'+', '-'};
        passing.framing_error = passed == 8;
    }
    void strike(passing_frame &passing) override {
        passed++;
        passing.damaged = damages_frames && passed == 2;
        passing.lost = passed == 3;
        if (passed == 4)
            passing.bytes[0] ^= 1; // after the check
    }
    bool stalls(int64_t time) const override {
        return time < stall_until;
    }
    int clock_error_percent(int64_t) const override {
        return clock_percent;
    }
    uint32_t modem_lines(int64_t time, uint32_t driven) const override {
        return time < cts_cut_from ? driven : driven & ~uint32_t{TIOCM_CTS};
    }
    int64_t next_change(int64_t time) const override {
        return time < stall_until ? stall_until : time < cts_cut_from ? cts_cut_from : NEVER;
    }
};

TEST_F(line_frames, a_damaged_frame_is_dropped_and_one_garbled_after_its_check_is_not) {
    numbered_faults faults;
    faults.damages_frames = true;
    joint.set_faults(one, faults);
    set_up(one);
    set_up(two);
    for (const char *frame : {"A1", "A2", "A3", "A4", "A5"})
        write(one, frame);
    run(SECOND);
    EXPECT_EQ(read(two), "A1");
    EXPECT_EQ(read(two), "@4");
    EXPECT_EQ(read(two), "A5");
}

TEST_F(line_frames, a_stalled_line_holds_its_frames) {
    numbered_faults faults;
    faults.stall_until = now + 3 * SECOND;
    joint.set_faults(one, faults);
    set_up(one);
    set_up(two);
    write(one, "frame");
    drain(one);
    EXPECT_GT(now, faults.stall_until);
    EXPECT_EQ(read(two), "frame");
}

struct line_faulty : testing::Test, line_bench {
    numbered_faults faults;

    line_faulty() {
        joint.set_faults(one, faults);
        open_raw(9600);
    }
};

TEST_F(line_faulty, characters_are_lost_changed_inserted_and_broken) {
    set(two, [](tty_settings &wanted) { wanted.c_iflag = INPCK | PARMRK; });
    EXPECT_EQ(sent_across(*this, "abcdefghi"), std::string("acDef+-g\xff\0h\xff\0\xd2\xff\xff", 16))
        << "the i begins in the low stop bit of the h";
    EXPECT_EQ(two.counts().framing_errors, 2);
}

TEST_F(line_faulty, a_clock_that_is_off_makes_garbage) {
    faults.passed = 100;
    faults.clock_percent = 4;
    EXPECT_EQ(sent_across(*this, "abcdefghi"), "abcdefghi");
    faults.clock_percent = 9;
    run(1);
    EXPECT_NE(sent_across(*this, "abcdefghi"), "abcdefghi");
}

TEST_F(line_faulty, a_stalled_line_holds_its_output) {
    faults.passed = 100;
    faults.stall_until = now + 3 * SECOND;
    run(1);
    write(one, "abc");
    run(SECOND);
    EXPECT_EQ(read(two), "");
    drain(one);
    EXPECT_GT(now, faults.stall_until);
    run(SECOND);
    EXPECT_EQ(read(two), "abc");
}

TEST_F(line_faulty, a_cut_modem_line_does_not_arrive) {
    faults.cts_cut_from = now + 1;
    run(1);
    EXPECT_EQ(request(two, TIOCMGET) & (TIOCM_CTS | TIOCM_CAR), TIOCM_CAR);
    EXPECT_TRUE(has_lines(one, TIOCM_CTS | TIOCM_CAR)) << "the other direction is good";
}

TEST(line_device, a_device_hears_bytes_at_their_last_bit_and_answers) {
    line_bench bench;
    port plugged{port_kind{}};
    device_end device(false);
    cable joint(plugged, device);
    std::string heard;
    int64_t heard_at = 0;
    device.on_receive = [&](int64_t now, std::span<const uint8_t> bytes) {
        heard.append(bytes.begin(), bytes.end());
        heard_at = now;
        device.send(now, bytes);
    };
    open_call call{.nonblocking = true};
    ASSERT_EQ(plugged.open(bench.now, call).result, 0);
    bench.set_raw(plugged, 9600);
    const int64_t begin = bench.now;
    bench.write(plugged, "ping");
    joint.advance(bench.now += SECOND);
    EXPECT_EQ(heard, "ping");
    EXPECT_NEAR(static_cast<double>(heard_at - begin), 4e10 / 9600, 10);
    EXPECT_EQ(bench.read_all(plugged), "ping");
    EXPECT_TRUE(bench.has_lines(plugged, TIOCM_CTS | TIOCM_CAR | TIOCM_DSR));
}

TEST(line_device, a_device_answers_frames_with_frames) {
    line_bench bench;
    port plugged{{.is_synchronous = true, .has_modem_lines = false}};
    device_end device(true);
    cable joint(plugged, device);
    device.on_receive = [&](int64_t now, std::span<const uint8_t> frame) {
        device.send(now, frame.first(2));
    };
    open_call call{.nonblocking = true};
    ASSERT_EQ(plugged.open(bench.now, call).result, 0);
    bench.set_raw(plugged, FRAME_BPS);
    bench.request(plugged, SYNC_MODE_REQUEST, RIGHT_MODE);
    EXPECT_FALSE(bench.has_lines(plugged, TIOCM_CTS));
    const int64_t begin = bench.now;
    bench.write(plugged, "request");
    EXPECT_EQ(joint.next_event_time(), begin + 143229);
    joint.advance(bench.now += SECOND);
    EXPECT_EQ(bench.read(plugged), "re");
}

} // namespace

} // namespace simulator::line
