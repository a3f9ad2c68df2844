// The bits on the wire: speeds, framing, what a receiver with other settings makes of them, and the
// receive FIFO. Sources: termios(3), the 16550 data sheet, and the wave forms themselves.
#include "tests/simulator/line_bench.h"

#include <gtest/gtest.h>
#include <random>

namespace simulator::line {

namespace {

constexpr tcflag_t FRAMING = CSIZE | PARENB | PARODD | CSTOPB | CMSPAR;

struct line_uart : testing::Test, line_bench {
    void set_framing(port &asked, uint32_t bps, tcflag_t framing, tcflag_t input = 0) {
        (void)set(
            asked,
            [&](tty_settings &wanted) {
                make_raw(wanted, bps);
                wanted.c_cflag = (wanted.c_cflag & ~FRAMING) | framing;
                wanted.c_iflag = input;
            });
    }
};

// Any bytes, in any pieces, at any speed and framing: what goes in comes out.
TEST_F(line_uart, ends_that_agree_carry_every_byte) {
    constexpr uint32_t SPEEDS[] = {1200, 2400, 4800, 9600, 19200, 38400, 57600, 115200, 153600};
    constexpr tcflag_t FRAMINGS[] = {CS8,          CS7,
                                     CS8 | PARENB, CS7 | PARENB | PARODD,
                                     CS5 | CSTOPB, CS8 | PARENB | CMSPAR | CSTOPB};
    std::mt19937 random(7);
    open_raw(9600);
    for (int round = 0; round < 60; round++) {
        const uint32_t bps = SPEEDS[random() % std::size(SPEEDS)];
        const tcflag_t framing = FRAMINGS[random() % std::size(FRAMINGS)];
        set_framing(one, bps, framing, INPCK);
        set_framing(two, bps, framing, INPCK);
        const unsigned mask = (1U << format_of(two.current_settings()).data_bits) - 1;
        std::string text(random() % 5000, '\0');
        for (char &each : text)
            each = static_cast<char>(random() & mask);
        std::string heard;
        for (size_t sent = 0; sent < text.size();) {
            const size_t piece = std::min(text.size() - sent, size_t{random() % 300});
            (void)write_blocking(one, text.substr(sent, piece));
            sent += piece;
            run(static_cast<int64_t>(random() % 20) * MILLISECOND);
            heard += read_all(two);
        }
        drain(one);
        run(SECOND);
        ASSERT_EQ(heard + read_all(two), text) << bps << " bit/s";
    }
    EXPECT_EQ(two.counts().framing_errors + two.counts().parity_errors + two.counts().breaks, 0);
}

TEST_F(line_uart, speeds_5_per_cent_apart_agree_and_6_per_cent_do_not) {
    open_raw(9600);
    const std::string text = "The quick brown fox";
    for (const uint32_t bps : {9120U, 9600U, 10080U}) {
        set_raw(one, bps);
        EXPECT_EQ(sent_across(*this, text), text) << bps;
    }
    for (const uint32_t bps : {8950U, 10250U, 1200U, 115200U}) {
        set_raw(one, bps);
        const receive_counts before = two.counts();
        EXPECT_NE(sent_across(*this, text), text) << bps;
        EXPECT_GT(two.counts().framing_errors + two.counts().breaks,
                  before.framing_errors + before.breaks)
            << bps;
    }
}

// The middles of its bits lie at 1.5, 4.5 and 7.5 bit times of the sender and then on the idle
// line: it sees the sender's data bits 0 (as its start bit), 3 and 6 and takes all others for ones.
TEST_F(line_uart, a_receiver_at_a_third_of_the_speed_samples_every_third_bit) {
    open_raw(9600);
    set_raw(two, 3200);
    EXPECT_EQ(sent_across(*this, "\x70"), "\xfe");
    EXPECT_EQ(sent_across(*this, "\x08"), "\xfd");
    EXPECT_EQ(sent_across(*this, "\x71"), "\xff") << "the first start bit is too short for it";
    EXPECT_EQ(two.counts().framing_errors, 0);
}

// Set break control of the 16550 forces the output low whatever the shift register holds.
TEST(Sampler, hears_a_break_at_once_in_the_middle_of_a_character) {
    const line_format format{.bps = 1000}; // 1 ms a bit
    sampler input;
    input.set_format(format);
    input.add({.start = 0, .end = 10 * MILLISECOND, .format = format, .data = 0xff});
    input.begin_break(4 * MILLISECOND);
    const auto cut = input.next(SECOND);
    ASSERT_TRUE(cut);
    EXPECT_EQ(cut->data, 0x07);
    EXPECT_TRUE(cut->framing_error && !cut->is_break);
    const auto low = input.next(SECOND);
    EXPECT_TRUE(low && low->is_break);
    EXPECT_FALSE(input.next(SECOND));
    EXPECT_EQ(input.time_of(1), NEVER) << "until the break ends";
    input.end_break(2 * SECOND);
    input.add({.start = 3 * SECOND, .end = 4 * SECOND, .format = format, .data = 'a'});
    const auto after = input.next(4 * SECOND);
    EXPECT_TRUE(after && after->data == 'a');
}

// Start bit and the low data bits of 0x00 last 9 bit times: at twice the speed 18, so the first
// character is a break, and nothing more is heard until the line is high.
TEST_F(line_uart, a_receiver_at_twice_the_speed_hears_a_break_in_a_zero) {
    open_raw(9600);
    set_raw(two, 19200);
    EXPECT_EQ(sent_across(*this, std::string(1, '\0')), std::string(1, '\0'));
    EXPECT_EQ(two.counts().breaks, 1);
}

TEST_F(line_uart, garbage_is_the_same_in_every_run) {
    std::string heard[2];
    for (std::string &each : heard) {
        line_bench bench;
        bench.open_raw(115200);
        bench.set_raw(bench.two, 38400);
        each = sent_across(bench, "some text that is not understood");
    }
    EXPECT_FALSE(heard[0].empty());
    EXPECT_EQ(heard[0], heard[1]);
}

TEST_F(line_uart, a_parity_that_differs_is_an_error_of_the_receiver) {
    open_raw(9600);
    set_framing(one, 9600, CS8 | PARENB);
    set_framing(two, 9600, CS8 | PARENB | PARODD, INPCK | IGNPAR);
    EXPECT_EQ(sent_across(*this, "abc"), "");
    EXPECT_EQ(two.counts().parity_errors, 3);
}

// The parity bit of an A is low. A receiver that expects the stop bit there takes it for the next
// start bit: after it come the stop bit, the second start bit and the first bits of the second A.
TEST_F(line_uart, a_low_stop_bit_is_taken_for_a_start_bit) {
    open_raw(9600);
    set_framing(one, 9600, CS8 | PARENB);
    EXPECT_EQ(sent_across(*this, "AA"), "A\x05\xfe");
    EXPECT_EQ(two.counts().framing_errors, 1);
}

// The fault `framing`: between a low stop bit and the next start bit the wire does not fall, so the
// bits of the next A are shifted by one. Its own last data bit is the stop bit then.
TEST(Sampler, loses_its_place_after_a_low_stop_bit) {
    const line_format format{.bps = 1000};
    const auto heard = [&](uint8_t damaged) {
        sampler input;
        input.set_format(format);
        for (const int64_t i : {0, 1, 2})
            input.add({.start = 10 * i * MILLISECOND,
                       .end = 10 * (i + 1) * MILLISECOND,
                       .format = format,
                       .data = i == 1 ? damaged : uint8_t{'A'},
                       .low_stop = i == 1});
        std::string all;
        for (int64_t now = 0; input.time_of(8) != NEVER && now <= SECOND;
             now = std::max(now + 1, input.time_of(8)))
            while (const auto received = input.next(now))
                all += received->is_break        ? "break "
                       : received->framing_error ? "bad " + std::to_string(received->data) + " "
                                                 : std::to_string(received->data) + " ";
        return all;
    };
    EXPECT_EQ(heard('A'), "65 bad 65 bad 130 255 ");
    EXPECT_EQ(heard(0), "65 break 208 ") << "the wire is high in the first data bit of the A";
}

// 8N1 heard as 7E1: the eighth data bit is taken for the parity.
TEST_F(line_uart, data_bits_and_parity_are_what_the_receiver_takes_for_them) {
    open_raw(9600);
    set_framing(two, 9600, CS7 | PARENB, INPCK | PARMRK);
    EXPECT_EQ(sent_across(*this, "A\xc3"), "AC") << "even: the eighth bits are right by chance";
    EXPECT_EQ(sent_across(*this, "C"), std::string("\xff\0C", 3));
}

// 16550A: an interrupt at 8 bytes, or after four character times of silence.
TEST_F(line_uart, the_driver_gets_8_bytes_at_a_time_and_the_rest_after_a_pause) {
    constexpr int64_t CHARACTER = SECOND / 960;
    open_raw(9600);
    write(one, std::string(12, 'x'));
    run(8 * CHARACTER - 100);
    EXPECT_EQ(request(two, FIONREAD), 0);
    run(200);
    EXPECT_EQ(request(two, FIONREAD), 8);
    run(7 * CHARACTER);
    EXPECT_EQ(request(two, FIONREAD), 8);
    run(CHARACTER);
    EXPECT_EQ(request(two, FIONREAD), 12);
}

// Without data to sample there is one event a load or a group, not one a byte.
TEST_F(line_uart, the_next_event_is_never_late_and_seldom_needless) {
    open_raw(115200);
    write(one, std::string(1600, 'x'));
    int events = 0;
    for (; joint.next_event_time() != NEVER; events++) {
        const int64_t next = joint.next_event_time();
        ASSERT_GT(next, now);
        const uint64_t before = one.changes() + two.changes();
        joint.advance(now = next - 1);
        ASSERT_EQ(one.changes() + two.changes(), before) << "something changed before its time";
        joint.advance(now = next);
    }
    EXPECT_EQ(request(two, FIONREAD), 1600);
    EXPECT_LT(events, 1600 / 8 + 1600 / 16 + 10);
}

TEST_F(line_uart, advancing_late_gives_the_same_as_advancing_in_time) {
    std::string heard[2];
    for (const bool in_time : {false, true}) {
        line_bench bench;
        bench.open_raw(9600);
        for (port *each : {&bench.one, &bench.two})
            bench.set(*each, [](tty_settings &wanted) { wanted.c_iflag |= IXON | IXOFF; });
        for (const char *piece : {"some text", "\x13", "more of it", "\x11"})
            bench.write(bench.two, piece);
        bench.write(bench.one, std::string(3000, 'x'));
        for (int i = 0; in_time && i < 4000; i++)
            bench.run(MILLISECOND);
        bench.run(in_time ? 0 : 4 * SECOND);
        heard[in_time] = bench.read_all(bench.one) + bench.read_all(bench.two) +
                         std::to_string(bench.one.changes());
    }
    EXPECT_EQ(heard[0], heard[1]);
}

// The chip's clock is one: what has not begun leaves at the new speed.
TEST_F(line_uart, a_change_of_speed_reaches_what_is_still_in_the_fifo) {
    open_raw(1200);
    write(one, std::string(16, 'x'));
    run(SECOND / 120); // the first has left
    const int64_t begin = now;
    set_raw(one, 9600);
    drain(one);
    EXPECT_NEAR(static_cast<double>(now - begin), (1.0 / 120 + 14.0 / 960) * SECOND, 5e4);
}

TEST_F(line_uart, a_loop_plug_returns_data_and_lines) {
    port looped{port_kind{}};
    cable plug(looped, looped);
    open_call call{.nonblocking = false};
    ASSERT_EQ(looped.open(now, call).result, 0);
    set_raw(looped, 9600);
    EXPECT_TRUE(has_lines(looped, TIOCM_RTS | TIOCM_DTR | TIOCM_CTS | TIOCM_CAR | TIOCM_DSR));
    request(looped, TIOCMSET, 0);
    EXPECT_EQ(request(looped, TIOCMGET), 0);
    write(looped, "around");
    plug.advance(now += SECOND);
    EXPECT_EQ(read_all(looped), "around");
}

} // namespace

} // namespace simulator::line
