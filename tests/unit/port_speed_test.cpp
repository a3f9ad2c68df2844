#include <array>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <termios.h>

#include "runtime/unique_fd.h"
#include "serial/port_settings.h"
#include "tests/support/table_fixture.h"

namespace {

TEST(SpeedCodes, map_nine_rates_both_ways_any_other_rate_to_1200_and_any_other_code_to_1) {
    struct {
        int32_t bps;
        uint32_t code;
    } const rates[] = {{1200, 9},   {2400, 11},   {4800, 12},   {9600, 13},  {38400, 15},
                       {57600, 16}, {115200, 17}, {153600, 32}, {614400, 33}};
    for (const auto &rate : rates) {
        EXPECT_EQ(baud_to_speed_code(rate.bps), rate.code);
        EXPECT_EQ(speed_code_to_baud(rate.code), rate.bps);
    }
    for (const int32_t bps : {0, -1, 300, 9601, 230400})
        EXPECT_EQ(baud_to_speed_code(bps), 9u) << bps;
    for (const uint32_t code : {0u, 8u, 14u, 18u, 34u})
        EXPECT_EQ(speed_code_to_baud(code), 1) << code;
}

termios settings_of(const unique_fd &port) {
    termios settings = {};
    EXPECT_EQ(tcgetattr(port.get(), &settings), 0);
    return settings;
}

TEST(RawPort, hands_every_byte_through_until_its_speed_is_set_which_drops_what_waits) {
    int ends[2];
    ASSERT_EQ(openpty(&ends[0], &ends[1], nullptr, nullptr, nullptr), 0);
    const unique_fd master(ends[0]);
    const unique_fd slave(ends[1]);
    ASSERT_EQ(set_raw_mode(slave.get()), 0);
    termios settings = settings_of(slave);
    EXPECT_EQ(settings.c_cflag & CRTSCTS, 0u);
    EXPECT_NE(settings.c_cflag & CREAD, 0u);
    EXPECT_NE(settings.c_cflag & CLOCAL, 0u);

    const std::array<char, 6> special = {'\r', '\n', 3, 4, 0x11, 0};
    ASSERT_EQ(write(master.get(), special.data(), special.size()), 6);
    std::array<char, 6> received = {};
    ASSERT_EQ(read(slave.get(), received.data(), received.size()), 6);
    EXPECT_EQ(received, special);

    settings.c_cflag |= CSTOPB | PARENB;
    ASSERT_EQ(tcsetattr(slave.get(), TCSANOW, &settings), 0);
    ASSERT_EQ(write(master.get(), "stale", 5), 5);
    int waiting = 0;
    ASSERT_TRUE(
        wait_until([&] { return ioctl(slave.get(), FIONREAD, &waiting) == 0 && waiting == 5; }));
    EXPECT_EQ(set_port_speed(slave.get(), 15), 0);
    EXPECT_EQ(ioctl(slave.get(), FIONREAD, &waiting), 0);
    EXPECT_EQ(waiting, 0);
    settings = settings_of(slave);
    EXPECT_EQ(cfgetospeed(&settings), static_cast<speed_t>(B38400));
    EXPECT_EQ(settings.c_cflag & CSIZE, static_cast<tcflag_t>(CS8));
    EXPECT_EQ(settings.c_cflag & PARENB, 0u);
    EXPECT_NE(settings.c_cflag & CSTOPB, 0u);
}

} // namespace
