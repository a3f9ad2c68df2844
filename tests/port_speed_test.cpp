#include <array>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <termios.h>

#include "serial/port_access.h"
#include "supervisor/unique_fd.h"
#include "tests/table_fixture.h"

namespace {

TEST(SpeedCodes, map_the_nine_rates_both_ways) {
    struct {
        int32_t bps;
        uint32_t code;
    } const rates[] = {{1200, 9},   {2400, 11},   {4800, 12},   {9600, 13},  {38400, 15},
                       {57600, 16}, {115200, 17}, {153600, 32}, {614400, 33}};
    for (const auto &rate : rates) {
        EXPECT_EQ(baud_to_speed_code(rate.bps), rate.code);
        EXPECT_EQ(speed_code_to_baud(rate.code), rate.bps);
    }
}

TEST(SpeedCodes, any_other_rate_is_1200_and_any_other_code_is_1) {
    for (const int32_t bps : {0, -1, 300, 9601, 19200, 230400})
        EXPECT_EQ(baud_to_speed_code(bps), 9u) << bps;
    for (const uint32_t code : {0u, 8u, 10u, 14u, 18u, 31u, 34u})
        EXPECT_EQ(speed_code_to_baud(code), 1) << code;
}

struct pty_pair {
    unique_fd master;
    unique_fd slave;
};

pty_pair open_pair() {
    int master = -1;
    int slave = -1;
    EXPECT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
    return {unique_fd(master), unique_fd(slave)};
}

termios settings_of(int fd) {
    termios settings = {};
    EXPECT_EQ(tcgetattr(fd, &settings), 0);
    return settings;
}

TEST(PortSpeed, is_set_with_8_bits_and_no_parity_and_leaves_the_stop_bits) {
    const pty_pair pair = open_pair();
    termios before = settings_of(pair.slave.get());
    before.c_cflag |= CSTOPB | PARENB;
    ASSERT_EQ(tcsetattr(pair.slave.get(), TCSANOW, &before), 0);

    EXPECT_EQ(set_port_speed(pair.slave.get(), 15), 0);
    const termios after = settings_of(pair.slave.get());
    EXPECT_EQ(cfgetospeed(&after), static_cast<speed_t>(B38400));
    EXPECT_EQ(after.c_cflag & CSIZE, static_cast<tcflag_t>(CS8));
    EXPECT_EQ(after.c_cflag & PARENB, 0u);
    EXPECT_NE(after.c_cflag & CSTOPB, 0u);
}

TEST(PortSpeed, drops_input_that_waited) {
    const pty_pair pair = open_pair();
    ASSERT_EQ(set_raw_mode(pair.slave.get()), 0);
    ASSERT_EQ(write(pair.master.get(), "stale", 5), 5);
    ASSERT_TRUE(wait_until([&] {
        int waiting = 0;
        return ioctl(pair.slave.get(), FIONREAD, &waiting) == 0 && waiting == 5;
    }));
    EXPECT_EQ(set_port_speed(pair.slave.get(), 17), 0);
    ASSERT_EQ(fcntl(pair.slave.get(), F_SETFL, O_NONBLOCK), 0);
    char byte;
    EXPECT_EQ(read(pair.slave.get(), &byte, 1), -1);
}

TEST(RawMode, hands_every_byte_through_and_switches_hardware_flow_control_off) {
    const pty_pair pair = open_pair();
    ASSERT_EQ(set_raw_mode(pair.slave.get()), 0);
    const termios settings = settings_of(pair.slave.get());
    EXPECT_EQ(settings.c_cflag & CRTSCTS, 0u);
    EXPECT_NE(settings.c_cflag & CREAD, 0u);
    EXPECT_NE(settings.c_cflag & CLOCAL, 0u);

    const std::array<char, 6> special = {'\r', '\n', 3, 4, 0x11, 0};
    ASSERT_EQ(write(pair.master.get(), special.data(), special.size()), 6);
    std::array<char, 6> received = {};
    ASSERT_EQ(read(pair.slave.get(), received.data(), received.size()), 6);
    EXPECT_EQ(received, special);
}

TEST(OpeningAPort, that_is_missing_fails_whatever_the_length_of_its_name) {
    EXPECT_EQ(open_async_port("none", O_RDWR), -1);
    EXPECT_EQ(open_sync_port("none"), -1);
    EXPECT_EQ(open_async_port("a-name-longer-than-any-device-has", O_RDWR), -1);
}

} // namespace
