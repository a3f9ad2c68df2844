// What the requests of ioctl_tty(2) and the bits of c_oflag do, as in the kernel's tty layer: files
// tty_io.c, tty_ioctl.c, n_tty.c and serial/serial_core.c in drivers/tty.

#include "tests/simulator/line_bench.h"

#include <gtest/gtest.h>

namespace simulator::line {

namespace {

struct line_requests : testing::Test, line_bench {
    line_requests() {
        open_raw(9600);
    }

    void stop_one() {
        set(one, [](tty_settings &wanted) { wanted.c_iflag |= IXON; });
        write(two, "\x13");
        run(SECOND);
        write(one, "held");
        run(SECOND);
        EXPECT_EQ(read_all(two), "");
    }

    serial_struct driver_settings() {
        serial_struct told{};
        uint8_t memory[sizeof told];
        request_call call{.number = TIOCGSERIAL, .argument = memory};
        EXPECT_EQ(one.request(now, call).result, 0);
        memcpy(&told, memory, sizeof told);
        return told;
    }
    void set_closing_wait(unsigned short hundredths) {
        serial_struct wanted = driver_settings();
        wanted.closing_wait = hundredths;
        uint8_t memory[sizeof wanted];
        memcpy(memory, &wanted, sizeof wanted);
        request_call call{.number = TIOCSSERIAL, .argument = memory};
        EXPECT_EQ(one.request(now, call).result, 0);
        EXPECT_EQ(driver_settings().closing_wait, hundredths);
    }
};

struct output_case {
    tcflag_t flags;
    std::string sent;
    std::string arrives;
};

// do_output_char in n_tty.c.
TEST_F(line_requests, output_is_processed_as_c_oflag_says) {
    const output_case cases[] = {
        {ONLCR | XTABS | OLCUC, "a\n\r\t", "a\n\r\t"}, // without OPOST
        {OPOST, "a\n\r\t", "a\n\r\t"},
        {OPOST | ONLCR, "a\nb\n", "a\r\nb\r\n"},
        {OPOST | OCRNL, "a\rb\r", "a\nb\n"},
        {OPOST | OLCUC, "aZ1{", "AZ1{"},
        {OPOST | ONOCR, "\rab\r\rc\r", "ab\rc\r"},
        {OPOST | ONOCR | ONLRET, "a\n\rb", "a\nb"},
        {OPOST | XTABS, "a\tb\n\tc\r\td", "a       b\n       c\r        d"},
        {OPOST | XTABS | ONLCR, "12345678\tx\n\ty", "12345678        x\r\n        y"},
        {OPOST | XTABS, "\rab\b\tc", "\rab\b       c"},
    };
    for (const output_case &each : cases) {
        set(one, [&](tty_settings &wanted) { wanted.c_oflag = OPOST; });
        (void)sent_across(*this, "\r"); // to the first column
        set(one, [&](tty_settings &wanted) { wanted.c_oflag = each.flags; });
        EXPECT_EQ(sent_across(*this, each.sent), each.arrives) << each.flags;
    }
}

// tty_ioctl in tty_io.c flushes the flip buffers too, set_termios in tty_ioctl.c does not.
TEST_F(line_requests, tcflush_discards_all_input_and_tcsaflush_what_a_read_would_return) {
    write_blocking(one, std::string(6000, 'x'));
    drain(one);
    run(SECOND);
    EXPECT_EQ(request(two, FIONREAD), 4095);
    set_again(two, TCSETSF2);
    EXPECT_EQ(request(two, FIONREAD), 6000 - 4095);
    write_blocking(one, std::string(6000, 'x'));
    drain(one);
    run(SECOND);
    request(two, TCFLSH, TCIFLUSH);
    EXPECT_EQ(request(two, FIONREAD), 0);
}

// n_tty_ioctl_helper in tty_ioctl.c; start_tty in tty_io.c.
TEST_F(line_requests, tcoon_ends_what_tcooff_and_xoff_have_stopped) {
    stop_one();
    request(one, TCXONC, TCOON);
    run(SECOND);
    EXPECT_EQ(read_all(two), "") << "without TCOOFF it does nothing";
    request(one, TCXONC, TCOOFF);
    write(two, "\x11");
    run(SECOND);
    EXPECT_EQ(read_all(two), "") << "XON does not end TCOOFF";
    write(two, "\x13");
    run(SECOND);
    request(one, TCXONC, TCOON);
    run(SECOND);
    EXPECT_EQ(read_all(two), "held");
    EXPECT_EQ(request(one, TCXONC, 4), -EINVAL);
}

TEST_F(line_requests, tcioff_and_tcion_send_the_characters_of_the_settings) {
    request(one, TCXONC, TCOOFF); // which holds neither
    request(one, TCXONC, TCIOFF);
    run(SECOND);
    request(one, TCXONC, TCION);
    run(SECOND);
    set(one, [](tty_settings &wanted) { wanted.c_cc[VSTOP] = 0; }); // disabled
    request(one, TCXONC, TCIOFF);
    run(SECOND);
    EXPECT_EQ(read_all(two), "\x13\x11");
}

TEST_F(line_requests, tiocsti_puts_a_character_into_the_input) {
    request(one, TIOCSTI, __BYTE_ORDER == __BIG_ENDIAN ? 'a' << 24 : 'a');
    EXPECT_EQ(read_all(one), "a");
}

// tty_change_softcar in tty_ioctl.c, uart_get_lsr_info in serial_core.c.
TEST_F(line_requests, older_requests_tell_clocal_and_whether_all_has_left) {
    EXPECT_EQ(request(one, TIOCGSOFTCAR), 1);
    EXPECT_EQ(request(one, TIOCSSOFTCAR, 0), 0);
    EXPECT_EQ(request(one, TIOCGSOFTCAR), 0);
    EXPECT_EQ(one.current_settings().c_cflag & CLOCAL, 0U);
    EXPECT_EQ(request(one, TIOCSERGETLSR), 1);
    write(one, "a");
    EXPECT_EQ(request(one, TIOCSERGETLSR), 0);
    drain(one);
    EXPECT_EQ(request(one, TIOCSERGETLSR), 1);
}

// uart_wait_modem_status in serial_core.c.
TEST_F(line_requests, tiocmiwait_returns_when_one_of_its_lines_has_changed) {
    request_call dsr{.number = TIOCMIWAIT, .value = TIOCM_DSR};
    request_call cts{.number = TIOCMIWAIT, .value = TIOCM_CTS | TIOCM_RNG};
    EXPECT_TRUE(one.request(now, dsr).is_waiting);
    EXPECT_TRUE(one.request(now, cts).is_waiting);
    const uint64_t changes_before = one.changes();
    request(two, TIOCMBIC, TIOCM_RTS);
    request(two, TIOCMBIS, TIOCM_RTS);
    EXPECT_NE(one.changes(), changes_before);
    EXPECT_TRUE(one.request(now, dsr).is_waiting);
    const outcome answer = one.request(now, cts);
    EXPECT_TRUE(!answer.is_waiting && answer.result == 0) << "though the line is as before";
    EXPECT_TRUE(one.interrupt_request(now, dsr)) << "is made again with SA_RESTART";
}

// tcdrain(3) and tcsendbreak(3) are not (tty_ioctl in tty_io.c); a change of the settings is.
TEST_F(line_requests, an_interrupted_drain_is_not_made_again) {
    for (const uint32_t number : {uint32_t{TCSBRK}, uint32_t{TCSBRKP}, uint32_t{TIOCSBRK}})
        EXPECT_FALSE(one.interrupt_request(now, {.number = number, .value = 1}));
    EXPECT_TRUE(one.interrupt_request(now, {.number = TCSETSW}));
}

// uart_set_info and tty_port_close_start in tty_port.c; serial_struct in linux/serial.h.
TEST_F(line_requests, tiocsserial_sets_how_long_the_last_close_waits) {
    EXPECT_EQ(driver_settings().type, PORT_16550A);
    EXPECT_EQ(driver_settings().xmit_fifo_size, 16);
    EXPECT_EQ(driver_settings().closing_wait, 3000);
    constexpr unsigned short WAITS[] = {200, 65535, 0}; // 2 s, not at all, until it has left
    constexpr int64_t SECONDS[] = {2, 0, 50};
    set(one, [](tty_settings &wanted) { wanted.c_cflag |= CRTSCTS; });
    for (size_t i = 0; i < std::size(WAITS); i++) {
        set_closing_wait(WAITS[i]);
        request(two, TIOCMBIC, TIOCM_RTS); // which stops the output
        write(one, "abc");
        const int64_t begin = now;
        one.close(now);
        while (one.is_closing() && now < begin + 50 * SECOND)
            run(SECOND);
        EXPECT_EQ(now - begin, SECONDS[i] * SECOND) << WAITS[i];
        request(two, TIOCMBIS, TIOCM_RTS);
        run(SECOND);
        EXPECT_EQ(read_all(two), WAITS[i] == 0 ? "abc" : "");
        open(one);
    }
}

} // namespace

} // namespace simulator::line
