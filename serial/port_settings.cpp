// This file includes no <termios.h>: its structure has the same name as the kernel's.

#include "serial/port_settings.h"

#include <asm/termbits.h>
#include <sys/ioctl.h>

namespace {

// `host` is this machine's kernel code for the rate, BOTHER where it has none: the rate itself then
// goes to the kernel. On the board the first code goes there as it is, to a driver that knows it.
struct line_speed {
    int32_t bps;
    uint32_t code;
    tcflag_t host;
};

constexpr line_speed LINE_SPEEDS[] = {
    {1200, 9, B1200},      {2400, 11, B2400},    {4800, 12, B4800},
    {9600, 13, B9600},     {38400, 15, B38400},  {57600, 16, B57600},
    {115200, 17, B115200}, {153600, 32, BOTHER}, {614400, 33, BOTHER},
};

#ifdef TCGETS2
using kernel_settings = struct termios2;
constexpr unsigned long GET_SETTINGS = TCGETS2;
constexpr unsigned long SET_AT_ONCE = TCSETS2;
constexpr unsigned long SET_AND_FLUSH = TCSETSF2; // after output, input dropped
#else
using kernel_settings = struct termios; // has the speeds in it
constexpr unsigned long GET_SETTINGS = TCGETS;
constexpr unsigned long SET_AT_ONCE = TCSETS;
constexpr unsigned long SET_AND_FLUSH = TCSETSF;
#endif

// Kept of a library that could override the speed of every raw port; no option sets it.
constexpr uint32_t speed_override = 0;

const line_speed *find_speed(uint32_t code) {
    for (const line_speed &speed : LINE_SPEEDS)
        if (speed.code == code)
            return &speed;
    return nullptr;
}

constexpr void clear(tcflag_t &flags, tcflag_t cleared) {
    flags &= ~cleared;
}

#ifdef __powerpc__
static_assert(CBAUD == 0xff && (CBAUD | CSIZE | PARENB) == 0x13ff);

void put_speed(kernel_settings &settings, uint32_t code) {
    clear(settings.c_cflag, CBAUD);
    settings.c_cflag |= code;
}
#else
void put_speed(kernel_settings &settings, uint32_t code) {
    const line_speed *speed = find_speed(code);
    if (speed == nullptr)
        return;
    // Without input bits of its own the input runs at the output's speed.
    clear(settings.c_cflag, CBAUD | CIBAUD);
    settings.c_cflag |= speed->host;
    settings.c_ispeed = settings.c_ospeed = static_cast<speed_t>(speed->bps);
}
#endif

// Of a port that has none, such as a file, the settings stay empty, and setting them fails.
kernel_settings settings_of(int fd) {
    kernel_settings settings = {};
    (void)ioctl(fd, GET_SETTINGS, &settings);
    return settings;
}

} // namespace

uint32_t baud_to_speed_code(int32_t bps) {
    for (const line_speed &speed : LINE_SPEEDS)
        if (speed.bps == bps)
            return speed.code;
    return LINE_SPEEDS[0].code;
}

int32_t speed_code_to_baud(uint32_t code) {
    const line_speed *speed = find_speed(code);
    return speed != nullptr ? speed->bps : 1;
}

int set_raw_mode(int fd) {
    kernel_settings settings = settings_of(fd);
    clear(settings.c_iflag, IGNBRK | BRKINT | PARMRK | ISTRIP | INLCR | IGNCR | ICRNL | IXON);
    clear(settings.c_oflag, OPOST);
    clear(settings.c_lflag, ECHO | ECHONL | ICANON | ISIG | IEXTEN);
    clear(settings.c_cflag, CSIZE | PARENB | CRTSCTS);
    settings.c_cflag |= CS8 | CREAD | CLOCAL;
    settings.c_cc[VMIN] = 1;
    settings.c_cc[VTIME] = 0;
    if (speed_override >= 9 && speed_override <= 15)
        put_speed(settings, speed_override);
    return ioctl(fd, SET_AT_ONCE, &settings);
}

int set_port_speed(int fd, uint32_t speed_code) {
    kernel_settings settings = settings_of(fd);
    clear(settings.c_cflag, CSIZE | PARENB);
    put_speed(settings, speed_code);
    settings.c_cflag |= CS8;
    return ioctl(fd, SET_AND_FLUSH, &settings);
}

int set_sync_settings(int fd) {
    kernel_settings settings = settings_of(fd);
    clear(settings.c_lflag, ICANON | ECHO | ISIG | IEXTEN);
    clear(settings.c_iflag, BRKINT | INPCK | ISTRIP | ICRNL | IXON);
    clear(settings.c_oflag, OPOST);
    put_speed(settings, SPEED_614400);
    return ioctl(fd, SET_AND_FLUSH, &settings);
}
