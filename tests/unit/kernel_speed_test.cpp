// The codes of speeds, and what the kernel is asked for when a speed is set, and then holds. The C
// library's termios structure has the same name as the kernel's: it stays out of this file.

#include <asm/termbits.h>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>

#include "runtime/unique_fd.h"
#include "serial/port_settings.h"

namespace {

#ifdef TCGETS2
using kernel_settings = struct termios2;
constexpr unsigned long GET_SETTINGS = TCGETS2;
constexpr unsigned long SET_AT_ONCE = TCSETS2;
constexpr unsigned long SET_AND_FLUSH = TCSETSF2;
#else
using kernel_settings = struct termios;
constexpr unsigned long GET_SETTINGS = TCGETS;
constexpr unsigned long SET_AT_ONCE = TCSETS;
constexpr unsigned long SET_AND_FLUSH = TCSETSF;
#endif

#ifdef CIBAUD
constexpr tcflag_t SPEED_BITS = CBAUD | CIBAUD;
#else
constexpr tcflag_t SPEED_BITS = CBAUD;
#endif

kernel_settings asked = {};   // by the last request that sets
kernel_settings flushed = {}; // by the last one that also flushes
bool is_full = false;         // the port holds every flag

} // namespace

// With 64-bit time on a 32-bit machine the C library calls ioctl(2) by another name.
#if __SIZEOF_LONG__ == 4
#define __real_ioctl __real___ioctl_time64
#define __wrap_ioctl __wrap___ioctl_time64
#endif
extern "C" {
int __real_ioctl(int, unsigned long, void *);
int __wrap_ioctl(int, unsigned long, ...);
int __wrap_ioctl(int fd, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    if (request == SET_AND_FLUSH)
        flushed = *static_cast<const kernel_settings *>(argument);
    if (request == SET_AND_FLUSH || request == SET_AT_ONCE)
        asked = *static_cast<const kernel_settings *>(argument);
    if (!is_full)
        return __real_ioctl(fd, request, argument);
    if (request == GET_SETTINGS)
        memset(argument, 0xFF, sizeof(kernel_settings));
    return 0;
}
}

namespace {

class KernelSpeed : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(unlockpt(master_.get()), 0);
        slave.reset(open(ptsname(master_.get()), O_RDWR | O_NOCTTY));
        ASSERT_TRUE(slave);
    }

    // Of the line, as the kernel computes it from what it was given. An emulator loses rates.
    static void expect_rate(int fd, uint32_t bps) {
#ifdef TCGETS2
        kernel_settings held = {};
        ASSERT_EQ(ioctl(fd, TCGETS2, &held), 0);
        EXPECT_EQ(held.c_ospeed, bps);
        EXPECT_EQ(held.c_ispeed, bps);
#else
        (void)fd;
        EXPECT_EQ(flushed.c_cflag & CBAUD, baud_to_speed_code(static_cast<int32_t>(bps)));
#endif
    }

    unique_fd slave;

private:
    unique_fd master_{posix_openpt(O_RDWR | O_NOCTTY)};
};

constexpr struct {
    uint32_t code;
    uint32_t bps;
} RATES[] = {{9, 1200},   {11, 2400},   {12, 4800},   {13, 9600},   {15, 38400},
             {16, 57600}, {17, 115200}, {32, 153600}, {33, 614400}, {13, 9600}};

TEST_F(KernelSpeed, each_of_the_nine_rates_is_set_and_nothing_else_of_the_speed_is_left) {
    for (const auto &rate : RATES) {
        EXPECT_EQ(set_port_speed(slave.get(), rate.code), 0);
        expect_rate(slave.get(), rate.bps);
    }
}

TEST_F(KernelSpeed, raw_mode_leaves_the_rate_as_it_is_and_the_sync_settings_set_614400) {
    EXPECT_EQ(set_port_speed(slave.get(), 32), 0);
    EXPECT_EQ(set_raw_mode(slave.get()), 0);
    expect_rate(slave.get(), 153600);
    EXPECT_EQ(set_sync_settings(slave.get()), 0);
    expect_rate(slave.get(), 614400);
}

// Each gets a port that holds every flag, and clears these and no others.
TEST(PortSettings, clear_what_they_are_for_and_keep_the_rest) {
    const struct {
        const char *name;
        int (*set)();
        tcflag_t input;
        tcflag_t output;
        tcflag_t local;
        tcflag_t control; // but for the speed
    } cases[] = {
        {"raw mode", [] { return set_raw_mode(-1); },
         IGNBRK | BRKINT | PARMRK | ISTRIP | INLCR | IGNCR | ICRNL | IXON, OPOST,
         ECHO | ECHONL | ICANON | ISIG | IEXTEN, (CSIZE & ~CS8) | PARENB | CRTSCTS},
        {"speed", [] { return set_port_speed(-1, SPEED_115200); }, 0, 0, 0,
         (CSIZE & ~CS8) | PARENB},
        {"sync port", [] { return set_sync_settings(-1); }, BRKINT | INPCK | ISTRIP | ICRNL | IXON,
         OPOST, ICANON | ECHO | ISIG | IEXTEN, 0},
    };
    is_full = true;
    for (const auto &c : cases) {
        EXPECT_EQ(c.set(), 0) << c.name;
        EXPECT_EQ(~asked.c_iflag, c.input) << c.name;
        EXPECT_EQ(~asked.c_oflag, c.output) << c.name;
        EXPECT_EQ(~asked.c_lflag, c.local) << c.name;
        EXPECT_EQ(~asked.c_cflag & ~SPEED_BITS, c.control) << c.name;
        EXPECT_EQ(asked.c_cc[VMIN], c.set == cases[0].set ? 1 : 0xFF) << c.name;
        EXPECT_EQ(asked.c_cc[VTIME], c.set == cases[0].set ? 0 : 0xFF) << c.name;
    }
    is_full = false;
}

// Raw mode brings the receiver and the carrier lines into the state that a port needs.
TEST(PortSettings, raw_mode_switches_the_receiver_on_and_ignores_the_carrier) {
    EXPECT_EQ(set_raw_mode(-1), -1) << "no port: settings that were empty";
    EXPECT_EQ(asked.c_cflag, static_cast<tcflag_t>(CS8 | CREAD | CLOCAL));
    EXPECT_EQ(set_port_speed(-1, 0), -1);
    EXPECT_EQ(asked.c_cflag, static_cast<tcflag_t>(CS8));
}

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

} // namespace
