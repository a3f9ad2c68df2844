// What a port does, as it was measured on the kernel's 8250 driver and n_tty (Linux 6.1, two ports
// cabled), and as ioctl_tty(2) and termios(3) have it.
#include "tests/simulator/line_bench.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <poll.h>

namespace simulator::line {

namespace {

struct line_facts : testing::Test, line_bench {};

TEST_F(line_facts, a_port_that_nobody_has_set_up_is_cooked_at_9600) {
    open(one);
    tty_settings found{};
    uint8_t memory[sizeof found];
    request_call call{.number = TCGETS2, .argument = memory};
    ASSERT_EQ(one.request(now, call).result, 0);
    memcpy(&found, memory, sizeof found);
    EXPECT_EQ(found.c_ospeed, 9600U);
    EXPECT_EQ(found.c_iflag, tcflag_t{ICRNL | IXON});
    EXPECT_EQ(found.c_oflag, tcflag_t{OPOST | ONLCR});
    EXPECT_EQ(found.c_cflag, tcflag_t{B9600 | CS8 | CREAD | HUPCL | CLOCAL});
    constexpr tcflag_t LOCAL = ICANON | ECHO | ISIG | IEXTEN;
    EXPECT_EQ(found.c_lflag & LOCAL, LOCAL);
}

TEST_F(line_facts, opening_raises_rts_and_dtr_and_the_last_close_drops_them) {
    constexpr uint32_t BOTH = TIOCM_RTS | TIOCM_DTR;
    constexpr uint32_t ARRIVING = TIOCM_CTS | TIOCM_CAR | TIOCM_DSR;
    open(one);
    open(two);
    EXPECT_TRUE(has_lines(one, BOTH | ARRIVING));
    request(one, TIOCMSET, 0);
    EXPECT_EQ(request(one, TIOCMGET), ARRIVING);
    EXPECT_EQ(request(two, TIOCMGET), BOTH); // with effect at once
    set_raw(one, 19200);
    EXPECT_EQ(request(one, TIOCMGET), ARRIVING);
    open(one);
    EXPECT_TRUE(has_lines(one, BOTH)) << "a second open raises them again";
    one.close(now);
    EXPECT_TRUE(has_lines(two, ARRIVING));
    one.close(now);
    EXPECT_FALSE(has_lines(two, TIOCM_CTS) || has_lines(two, TIOCM_DSR));
    open(one);
    EXPECT_TRUE(has_lines(one, BOTH));
}

TEST_F(line_facts, each_line_drives_its_own_inputs) {
    open_raw(9600);
    request(one, TIOCMBIC, TIOCM_RTS);
    EXPECT_EQ(request(two, TIOCMGET) & ~(TIOCM_RTS | TIOCM_DTR), TIOCM_DSR);
    request(one, TIOCMBIS, TIOCM_RTS);
    request(one, TIOCMBIC, TIOCM_DTR);
    EXPECT_EQ(request(two, TIOCMGET) & ~(TIOCM_RTS | TIOCM_DTR), TIOCM_CTS | TIOCM_CAR);
}

TEST_F(line_facts, speed_0_hangs_up_and_the_next_speed_raises_the_lines) {
    open_raw(9600);
    set(one, [](tty_settings &wanted) { wanted.c_cflag &= ~static_cast<tcflag_t>(CBAUD); });
    EXPECT_FALSE(has_lines(one, TIOCM_RTS) || has_lines(one, TIOCM_DTR));
    set_raw(one, 9600);
    EXPECT_TRUE(has_lines(one, TIOCM_RTS | TIOCM_DTR));
}

struct drain_case {
    uint32_t bps;
    size_t bytes;
    tcflag_t framing;
    int64_t bits;
};

TEST_F(line_facts, a_drain_lasts_until_the_last_stop_bit) {
    constexpr drain_case CASES[] = {
        {1200, 16, CS8, 10},          {9600, 96, CS8, 10},          {38400, 384, CS8, 10},
        {115200, 1152, CS8, 10},      {9600, 1, CS8, 10},           {9600, 96, CS8 | PARENB, 11},
        {9600, 96, CS7 | PARENB, 10}, {9600, 96, CS8 | CSTOPB, 11}, {4800, 17, CS5, 7},
    };
    open(one);
    for (const drain_case &each : CASES) {
        set(one, [&](tty_settings &wanted) {
            make_raw(wanted, each.bps);
            wanted.c_cflag &= ~static_cast<tcflag_t>(CSIZE | PARENB | CSTOPB);
            wanted.c_cflag |= each.framing;
        });
        const int64_t begin = now;
        EXPECT_EQ(write(one, std::string(each.bytes, 'x')), each.bytes);
        EXPECT_EQ(now, begin);
        drain(one);
        const int64_t exact = static_cast<int64_t>(each.bytes) * each.bits * SECOND / each.bps;
        EXPECT_NEAR(static_cast<double>(now - begin), static_cast<double>(exact), 1000)
            << each.bps << " bit/s";
    }
}

TEST_F(line_facts, a_queue_takes_4095_bytes_and_a_flush_leaves_the_fifo) {
    open_raw(9600);
    EXPECT_EQ(write(one, std::string(20000, 'x')), 4095);
    EXPECT_EQ(write(one, "y"), -EAGAIN);
    EXPECT_EQ(request(one, TIOCOUTQ), 4095);
    EXPECT_EQ(one.poll(now) & POLLOUT, 0);
    request(one, TCFLSH, TCOFLUSH);
    EXPECT_EQ(request(one, TIOCOUTQ), 0);
    EXPECT_NE(one.poll(now) & POLLOUT, 0);
    run(SECOND);
    EXPECT_EQ(read_all(two).size(), FIFO_BYTES);
}

// uart_write_wakeup: a waiting writer goes on when fewer than 256 bytes are left.
TEST_F(line_facts, a_blocking_write_returns_when_its_last_byte_is_queued) {
    open_raw(9600);
    const int64_t begin = now;
    EXPECT_EQ(write_blocking(one, std::string(5000, 'x')), 5000);
    const auto queued = static_cast<double>(request(one, TIOCOUTQ));
    EXPECT_NEAR(queued, 256 + 5000 - 4095, 2 * FIFO_BYTES);
    const double waited_bytes = static_cast<double>(now - begin) * 960 / SECOND;
    EXPECT_NEAR(waited_bytes, 5000 - queued, FIFO_BYTES);
}

// tty_write_lock in drivers/tty/tty_io.c, n_tty_poll.
TEST_F(line_facts, a_writer_that_waits_keeps_others_out_until_it_has_written_all) {
    open_raw(38400);
    const std::string many(9000, 'a');
    const std::string few(100, 'b');
    write_call first{.bytes = bytes_of(many), .nonblocking = false};
    write_call second{.bytes = bytes_of(few), .nonblocking = false};
    EXPECT_TRUE(one.write(now, first).is_waiting);
    run(SECOND); // the queue has room, in which the waiting write has not been made again
    EXPECT_TRUE(one.write(now, second).is_waiting);
    EXPECT_EQ(write(one, "c"), -EAGAIN);
    EXPECT_EQ(one.poll(now) & POLLOUT, 0);
    EXPECT_EQ(finish([&] { return one.write(now, first); }).result, 9000);
    EXPECT_EQ(finish([&] { return one.write(now, second); }).result, 100);
    run(5 * SECOND);
    EXPECT_NE(one.poll(now) & POLLOUT, 0);
    EXPECT_EQ(read_all(two), many + few);
}

TEST_F(line_facts, a_write_that_is_given_up_lets_others_in) {
    open_raw(38400);
    const std::string many(9000, 'a');
    write_call first{.bytes = bytes_of(many), .nonblocking = false};
    EXPECT_TRUE(one.write(now, first).is_waiting);
    run(SECOND);
    one.end_write(first);
    EXPECT_EQ(write(one, "c"), 1);
}

TEST_F(line_facts, tcsadrain_waits_for_the_output_and_tcsanow_does_not) {
    open_raw(115200);
    const int64_t begin = now;
    write(one, std::string(1152, 'x'));
    set_again(one, TCSETS2);
    EXPECT_EQ(now, begin);
    set_again(one, TCSETSW2);
    EXPECT_NEAR(static_cast<double>(now - begin), 100e6, 1e6);
}

TEST_F(line_facts, an_unread_port_keeps_4095_bytes_and_64_kib_more_and_then_loses) {
    open_raw(115200);
    write_blocking(one, std::string(12000, 'x'));
    drain(one);
    run(SECOND);
    EXPECT_EQ(request(two, FIONREAD), 4095);
    EXPECT_EQ(read_all(two).size(), 12000U);
    write_blocking(one, std::string(80000, 'x'));
    drain(one);
    run(SECOND);
    EXPECT_EQ(read_all(two).size(), READ_BUFFER_BYTES + FLIP_BUFFER_BYTES);
    EXPECT_EQ(two.counts().lost, static_cast<int>(80000 - READ_BUFFER_BYTES - FLIP_BUFFER_BYTES));
}

TEST_F(line_facts, output_is_held_after_xoff_until_xon_or_until_ixon_is_cleared) {
    open_raw(9600);
    set(one, [](tty_settings &wanted) { wanted.c_iflag |= IXON; });
    write(two, "\x13");
    run(SECOND);
    EXPECT_EQ(sent_across(*this, "abc"), "");
    write(two, "\x11");
    run(SECOND);
    EXPECT_EQ(read_all(two), "abc");
    write(two, "\x13");
    run(SECOND);
    EXPECT_EQ(sent_across(*this, "def"), "");
    set(one, [](tty_settings &wanted) { wanted.c_iflag &= ~static_cast<tcflag_t>(IXON); });
    run(SECOND);
    EXPECT_EQ(read_all(two), "def");
    EXPECT_EQ(read_all(one), "") << "XON and XOFF are no input";
}

TEST_F(line_facts, crtscts_holds_output_while_cts_is_off) {
    open_raw(9600);
    set(one, [](tty_settings &wanted) { wanted.c_cflag |= CRTSCTS; });
    request(two, TIOCMBIC, TIOCM_RTS);
    EXPECT_EQ(sent_across(*this, "abc"), "");
    request(two, TIOCMBIS, TIOCM_RTS);
    run(SECOND);
    EXPECT_EQ(read_all(two), "abc");
}

TEST_F(line_facts, a_full_reader_with_ixoff_or_crtscts_pauses_the_sender) {
    for (const bool by_lines : {false, true}) {
        line_bench bench;
        bench.open_raw(115200);
        for (port *each : {&bench.one, &bench.two})
            bench.set(*each, [&](tty_settings &wanted) {
                wanted.c_iflag |= by_lines ? 0 : IXON | IXOFF;
                wanted.c_cflag |= by_lines ? CRTSCTS : 0;
            });
        const std::string text(20000, 'x');
        write_call call{.bytes = bytes_of(text), .nonblocking = false};
        EXPECT_TRUE(bench.finish([&] { return bench.one.write(bench.now, call); }).is_waiting);
        EXPECT_LT(bench.request(bench.two, FIONREAD), 4095) << by_lines;
        std::string all;
        for (bool sends = true; sends; bench.run(SECOND / 2)) {
            all += bench.read_all(bench.two);
            sends = bench.one.write(bench.now, call).is_waiting ||
                    bench.request(bench.one, TIOCOUTQ) > 0;
        }
        EXPECT_EQ((all + bench.read_all(bench.two)).size(), 20000U) << by_lines;
    }
}

TEST_F(line_facts, settings_survive_a_close_and_waiting_input_does_not) {
    open_raw(19200);
    EXPECT_EQ(write(one, "abc"), 3);
    run(SECOND);
    EXPECT_EQ(request(two, FIONREAD), 3);
    two.close(now);
    write(one, "sent while it is closed");
    run(SECOND);
    open(two);
    EXPECT_EQ(two.current_settings().c_ospeed, 19200U);
    EXPECT_EQ(read_all(two), "");
    EXPECT_EQ(sent_across(*this, "def"), "def");
}

TEST_F(line_facts, the_last_close_lets_the_output_leave) {
    open_raw(9600);
    write(one, std::string(96, 'x'));
    one.close(now);
    EXPECT_TRUE(one.is_closing());
    EXPECT_TRUE(has_lines(two, TIOCM_CTS));
    const int64_t begin = now;
    EXPECT_EQ(open(one), 0) << "an open waits for it";
    EXPECT_NEAR(static_cast<double>(now - begin), 100e6, 1e6);
    run(SECOND);
    EXPECT_EQ(read_all(two).size(), 96U);
}

// As tty_port_close_start of the kernel: it does not wait for a line that tcflow(3) has stopped,
// but for one that the far end has stopped.
TEST_F(line_facts, the_last_close_drops_the_output_of_a_stopped_line) {
    open_raw(9600);
    request(one, TCXONC, TCOOFF);
    write(one, "abc");
    one.close(now);
    EXPECT_FALSE(one.is_closing());
    run(SECOND);
    EXPECT_EQ(read_all(two), "");
}

TEST_F(line_facts, the_last_close_waits_30_s_for_a_line_that_xoff_has_stopped) {
    open_raw(9600);
    set(one, [](tty_settings &wanted) { wanted.c_iflag |= IXON; });
    write(two, "\023");
    run(SECOND);
    write(one, "abc");
    const int64_t begin = now;
    one.close(now);
    while (one.is_closing() && now < begin + 100 * SECOND)
        run(SECOND);
    EXPECT_EQ(now - begin, 30 * SECOND);
    EXPECT_EQ(read_all(two), "");
}

TEST_F(line_facts, tcsaflush_discards_input_and_tcsanow_keeps_it) {
    open_raw(9600);
    write(one, "abc");
    run(SECOND);
    set_again(two, TCSETS2);
    EXPECT_EQ(request(two, FIONREAD), 3);
    write(two, std::string(96, 'x'));
    write(one, "late");
    set_again(two, TCSETSF2);
    EXPECT_EQ(read_all(two), "late") << "what arrives while the output drains is kept";
}

TEST_F(line_facts, requests_that_an_asynchronous_port_lacks_are_refused) {
    open(one);
    EXPECT_EQ(request(one, SYNC_MODE_REQUEST, 0), -ENOTTY);
    EXPECT_EQ(request(one, 0x1234), -ENOTTY);
    EXPECT_EQ(request(one, TCFLSH, 7), -EINVAL);
}

TEST_F(line_facts, the_old_form_of_the_settings_keeps_a_speed_without_a_code) {
    open_raw(153600);
    set_again(one, TCSETS);
    EXPECT_EQ(one.current_settings().c_ospeed, 153600U);
    set(
        one, [](tty_settings &wanted) { wanted.c_cflag = CS8 | CREAD | CLOCAL | B1200; }, TCSETS);
    EXPECT_EQ(one.current_settings().c_ospeed, 1200U);
}

// Without CLOCAL an open waits for the carrier, and a carrier that is lost is a hang-up.
TEST_F(line_facts, a_port_without_clocal_follows_the_carrier) {
    open(one);
    set(one, [](tty_settings &wanted) { wanted.c_cflag &= ~static_cast<tcflag_t>(CLOCAL); });
    one.close(now);
    open_call call{.nonblocking = false};
    EXPECT_TRUE(one.open(now, call).is_waiting);
    open(two);
    EXPECT_FALSE(one.open(now, call).is_waiting);
    two.close(now);
    EXPECT_EQ(one.poll(now) & POLLHUP, POLLHUP);
    EXPECT_EQ(write(one, "x"), -EIO);
    EXPECT_EQ(request(one, TIOCMGET), -EIO);
    EXPECT_EQ(read(one), "");
    one.close(now);
    open(two);
    EXPECT_EQ(open(one), 0);
    EXPECT_EQ(write(one, "x"), 1);
}

} // namespace

} // namespace simulator::line
