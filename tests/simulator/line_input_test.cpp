// What c_iflag, c_lflag, VMIN and VTIME make of input. Source: termios(3); where it leaves a
// choice, the kernel's n_tty.
#include "tests/simulator/line_bench.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <poll.h>

namespace simulator::line {

namespace {

struct line_input : testing::Test, line_bench {
    void SetUp() override {
        open_raw(9600);
    }
    serial_icounter_struct counts_of(port &asked) {
        uint8_t memory[REQUEST_BYTES];
        request_call call{.number = TIOCGICOUNT, .argument = memory};
        EXPECT_EQ(asked.request(now, call).result, 0);
        serial_icounter_struct counts{};
        memcpy(&counts, memory, sizeof counts);
        return counts;
    }
    void set_flags(tcflag_t input, tcflag_t local = 0, tcflag_t output = 0) {
        (void)set(
            two,
            [&](tty_settings &wanted) {
                wanted.c_iflag = input;
                wanted.c_lflag = local;
                wanted.c_oflag = output;
            });
    }
};

// What is sent arrives with a wrong parity, with a low stop bit, or as a break.
struct error_case {
    tcflag_t input;
    const char *parity;
    size_t parity_bytes;
    const char *broken;
    size_t broken_bytes;
};

TEST_F(line_input, errors_become_what_c_iflag_says) {
    constexpr error_case CASES[] = {
        {0, "a", 1, "\0", 1},
        {INPCK, "\0", 1, "\0", 1},
        {INPCK | IGNPAR, "", 0, "\0", 1},
        {INPCK | PARMRK, "\xff\0a", 3, "\xff\0\0", 3},
        {PARMRK, "a", 1, "\xff\0\0", 3},
        {IGNPAR, "a", 1, "\0", 1},
        {IGNBRK, "a", 1, "", 0},
        {BRKINT, "a", 1, "", 0},
        {IGNBRK | PARMRK | INPCK, "\xff\0a", 3, "", 0},
    };
    set(
        one, [](tty_settings &wanted) { wanted.c_cflag |= PARENB; });
    set(two, [](tty_settings &wanted) { wanted.c_cflag |= PARENB | PARODD; });
    for (const error_case &each : CASES) {
        set_flags(each.input);
        EXPECT_EQ(sent_across(*this, "a"), std::string(each.parity, each.parity_bytes))
            << each.input;
        const int64_t begin = now;
        request(one, TCSBRK, 0);
        EXPECT_EQ(now - begin, 250 * MILLISECOND);
        run(SECOND);
        EXPECT_EQ(read_all(two), std::string(each.broken, each.broken_bytes)) << each.input;
    }
}

// The line is low until the break is ended, by a request or by the last close.
TEST_F(line_input, a_break_is_one_zero_and_what_is_written_meanwhile_is_lost) {
    write(one, "a");
    request(one, TIOCSBRK);
    run(SECOND);
    EXPECT_EQ(read_all(two), std::string("a\0", 2));
    EXPECT_EQ(two.counts().breaks, 1);
    EXPECT_EQ(sent_across(*this, "lost"), "");
    request(one, TIOCCBRK);
    EXPECT_EQ(sent_across(*this, "b"), "b");
    request(one, TIOCSBRK);
    run(SECOND);
    one.close(now);
    open(one);
    EXPECT_EQ(sent_across(*this, "c"), std::string("\0c", 2));
}

// The chip goes on shifting during a break. Only what begins after the break is received.
TEST_F(line_input, a_break_hides_what_is_shifted_out_until_it_ends) {
    set_raw(one, 1000); // 1 ms a bit, 10 ms a character
    set_raw(two, 1000);
    request(one, TIOCSBRK);
    write(one, "\xff\xff"
               "b");
    run(15 * MILLISECOND + MILLISECOND / 2); // in the middle of a bit of the second one
    request(one, TIOCCBRK);
    run(SECOND);
    EXPECT_EQ(read_all(two), std::string("\0b", 2));
}

// The line is high again when a signal interrupts tcsendbreak(3), which then fails with EINTR.
TEST_F(line_input, an_interrupted_break_ends_at_once) {
    request_call call{.number = TCSBRK};
    EXPECT_TRUE(one.request(now, call).is_waiting);
    run(100 * MILLISECOND);
    EXPECT_FALSE(one.interrupt_request(now, call));
    EXPECT_EQ(sent_across(*this, "a"), std::string("\0a", 2));
}

TEST_F(line_input, the_driver_counts_characters_errors_breaks_and_changes_of_modem_lines) {
    const serial_icounter_struct before = counts_of(two);
    EXPECT_EQ(sent_across(*this, "abc"), "abc");
    request(one, TCSBRK, 0);
    request(one, TIOCMBIC, TIOCM_RTS);
    set(
        one, [](tty_settings &wanted) { wanted.c_cflag |= PARENB; });
    set(two, [](tty_settings &wanted) { wanted.c_cflag |= PARENB | PARODD; });
    (void)sent_across(*this, "a");
    const serial_icounter_struct after = counts_of(two);
    EXPECT_EQ(counts_of(one).tx, 4);
    EXPECT_EQ(after.rx - before.rx, 5) << "a break is one character";
    EXPECT_EQ(after.brk - before.brk, 1);
    EXPECT_EQ(after.parity - before.parity, 1);
    EXPECT_EQ(after.cts - before.cts, 1);
    EXPECT_EQ(after.dcd - before.dcd, 1);
    EXPECT_EQ(after.dsr - before.dsr, 0);
}

struct mapping_case {
    tcflag_t input;
    std::string sent;
    std::string read;
};

TEST_F(line_input, characters_are_mapped_as_c_iflag_says) {
    const mapping_case cases[] = {
        {0, "a\r\n\x93", "a\r\n\x93"},
        {ICRNL, "a\r\n", "a\n\n"},
        {IGNCR, "a\r\n", "a\n"},
        {INLCR, "a\r\n", "a\r\r"},
        {ISTRIP, "a\xe1\xff", "aa\x7f"},
        {PARMRK, "a\xff", "a\xff\xff"},
        {IXON,
         "a\x13"
         "b\x11",
         "ab"},
    };
    for (const mapping_case &each : cases) {
        set_flags(each.input);
        EXPECT_EQ(sent_across(*this, each.sent), each.read) << each.input;
    }
}

TEST_F(line_input, a_port_without_cread_hears_nothing) {
    set(two, [](tty_settings &wanted) { wanted.c_cflag &= ~static_cast<tcflag_t>(CREAD); });
    EXPECT_EQ(sent_across(*this, "abc"), "");
}

TEST_F(line_input, canonical_mode_gives_one_line_a_read) {
    set_flags(ICRNL, ICANON);
    write(one, "first\rsecond\nthi");
    run(SECOND);
    EXPECT_EQ(request(two, FIONREAD), 13);
    EXPECT_EQ(read(two), "first\n");
    EXPECT_EQ(read(two, 3), "sec");
    EXPECT_EQ(read(two), "ond\n");
    EXPECT_EQ(two.poll(now) & POLLIN, 0);
    EXPECT_EQ(read(two), "");
    write(one, "rd\x7f\x7frd\x04\x04");
    run(SECOND);
    EXPECT_EQ(read(two), "third");
    EXPECT_NE(two.poll(now) & POLLIN, 0);
    EXPECT_EQ(read(two), "") << "end of file";
    write(one, "gone\x15kept\n");
    run(SECOND);
    EXPECT_EQ(read(two), "kept\n");
    std::string longer(5000, 'x');
    longer.back() = '\n';
    write_blocking(one, longer);
    run(10 * SECOND);
    EXPECT_EQ(read(two), longer.substr(5000 - 4096)) << "the end of a long line is lost";
}

TEST_F(line_input, half_a_line_can_be_read_once_canonical_mode_is_off) {
    set_flags(0, ICANON);
    write(one, "half");
    run(SECOND);
    EXPECT_EQ(read(two), "");
    set_flags(0);
    EXPECT_EQ(read(two), "half");
}

TEST_F(line_input, cooked_mode_echoes) {
    set_flags(ICRNL, ICANON | ECHO | ECHOE | ECHOK | ECHOCTL | ECHOKE, OPOST | ONLCR);
    write(one, "ab\x7f\x01\x7f\r");
    run(SECOND);
    EXPECT_EQ(read_all(one), "ab\b \b^A\b \b\b \b\r\n");
    EXPECT_EQ(read(two), "a\n");
    set_flags(0, ECHO);
    EXPECT_EQ(sent_across(*this, "xy"), "xy");
    EXPECT_EQ(read_all(one), "xy");
}

TEST_F(line_input, a_signal_character_flushes_both_queues) {
    set_flags(0, ICANON | ISIG);
    write(two, std::string(100, 'o'));
    write(one, "lost\x03kept\n");
    run(SECOND);
    EXPECT_EQ(read(two), "kept\n");
    EXPECT_LT(read_all(one).size(), 50U);
}

TEST_F(line_input, output_in_cooked_mode_gets_carriage_returns) {
    set(one, [](tty_settings &wanted) { wanted.c_oflag = OPOST | ONLCR; });
    EXPECT_EQ(sent_across(*this, "a\nb\n"), "a\r\nb\r\n");
    EXPECT_EQ(write(one, std::string(4000, '\n')), 2047);
    EXPECT_EQ(request(one, TIOCOUTQ), 4094) << "both bytes or none";
}

struct sending {
    int64_t at_ms;
    const char *text;
};

// A blocking read that begins now, while the far end sends at its times.
struct timed_read {
    std::string text;
    int64_t returned_ms = 0;

    timed_read(line_bench &bench, std::span<const sending> sendings) : text(100, ' ') {
        read_call call{.bytes = {reinterpret_cast<uint8_t *>(text.data()), text.size()},
                       .nonblocking = false};
        const int64_t begin = bench.now;
        outcome answer = bench.two.read(begin, call);
        for (size_t sent = 0; answer.is_waiting;) {
            const int64_t send_at =
                sent < sendings.size() ? begin + sendings[sent].at_ms * MILLISECOND : NEVER;
            bench.now = std::min({send_at, answer.until, bench.joint.next_event_time()});
            if (bench.now == send_at)
                bench.write(bench.one, sendings[sent++].text);
            answer = bench.two.read(bench.now, call);
        }
        returned_ms = (bench.now - begin) / MILLISECOND;
        text.resize(static_cast<size_t>(answer.result));
    }
};

struct read_case {
    cc_t least, tenths;
    int64_t returned_ms;
    std::string text;
    bool is_readable; // as poll sees three bytes
};

TEST_F(line_input, vmin_and_vtime_say_when_a_read_returns) {
    constexpr sending SENDINGS[] = {{100, "abc"}, {250, "def"}};
    const read_case cases[] = {
        {0, 0, 0, "", true},        {1, 0, 100, "a", true},    {3, 0, 100, "abc", true},
        {4, 0, 250, "abcd", false}, {0, 1, 100, "", true},     {0, 2, 100, "a", true},
        {4, 1, 200, "abc", true},   {4, 2, 250, "abcd", true},
    };
    set_raw(one, 1'000'000); // 10 µs a byte
    set_raw(two, 1'000'000);
    two.input.trigger = 1;
    for (const read_case &each : cases) {
        const auto set_read = [&](tty_settings &wanted) {
            wanted.c_cc[VMIN] = each.least;
            wanted.c_cc[VTIME] = each.tenths;
        };
        (void)set(two, set_read);
        const timed_read done(*this, SENDINGS);
        EXPECT_EQ(done.text, each.text) << int{each.least} << ' ' << int{each.tenths};
        EXPECT_EQ(done.returned_ms, each.returned_ms) << int{each.least} << ' ' << int{each.tenths};
        run(SECOND);
        request(two, TCFLSH, TCIFLUSH);
        write(one, "abc");
        run(MILLISECOND);
        EXPECT_EQ((two.poll(now) & POLLIN) != 0, each.is_readable) << int{each.least};
        EXPECT_EQ(read(two), "abc") << "a descriptor that does not block takes what there is";
    }
}

} // namespace

} // namespace simulator::line
