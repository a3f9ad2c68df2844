#include "serial/port_access.h"

#include <array>
#include <cstdio>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>

#include "runtime/number.h"
#include "runtime/settings.h"
#include "serial/custom_speed.h"

uint32_t port_speed_code = SPEED_115200;
uint32_t platform_code = 0;

namespace {

// `host` is this machine's constant for the rate, B0 if it has none. On the board the codes are the
// constants.
struct line_speed {
    int32_t bps;
    uint32_t code;
    speed_t host;
};

constexpr line_speed LINE_SPEEDS[] = {
    {1200, 9, B1200},      {2400, 11, B2400},   {4800, 12, B4800},
    {9600, 13, B9600},     {38400, 15, B38400}, {57600, 16, B57600},
    {115200, 17, B115200}, {153600, 32, B0},    {614400, 33, B0},
};

#ifdef __powerpc__
static_assert(B1200 == 9 && B2400 == 11 && B4800 == 12 && B9600 == 13 && B38400 == 15 &&
              B57600 == 16 && B115200 == 17 && CBAUD == 0xff && (CBAUD | CSIZE | PARENB) == 0x13ff);
constexpr bool CODES_ARE_HOST_CONSTANTS = true;
#else
constexpr bool CODES_ARE_HOST_CONSTANTS = false;
#endif

constexpr int NAME_BYTES = 15; // of a device name, the closing zero included

// Driver request that puts a port into synchronous mode. The driver defines the four argument
// bytes.
constexpr unsigned long SP_SYNC_CONFIG = 0x40047300;
constexpr std::array<uint8_t, 4> SYNC_ARGUMENT = {1, 10, 0, 0};

// Can override the speed of every raw port; no option sets it.
constexpr speed_t speed_override = 0;

const line_speed *find_speed(uint32_t code) {
    for (const line_speed &speed : LINE_SPEEDS)
        if (speed.code == code)
            return &speed;
    return nullptr;
}

// Returns the constant for c_cflag, or B0 if this machine has none for the code.
speed_t host_speed(uint32_t code) {
    if (CODES_ARE_HOST_CONSTANTS)
        return code;
    const line_speed *speed = find_speed(code);
    return speed != nullptr ? speed->host : static_cast<speed_t>(B0);
}

// Sets a rate for which this machine's termios has no constant, if the kernel supports it.
void set_rate_without_constant(int fd, uint32_t code) {
    const line_speed *speed = find_speed(code);
    if (!CODES_ARE_HOST_CONSTANTS && speed != nullptr && speed->host == B0)
        (void)set_custom_speed(fd, static_cast<uint32_t>(speed->bps));
}

int modem_lines(int fd) {
    int lines = 0;
    (void)ioctl(fd, TIOCMGET, &lines);
    return lines;
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

int32_t port_number(const char *port) {
    return number_of(port);
}

int open_async_port(const char *port, int oflag) {
    if (hdlc_mode != 0)
        return open_sync_port(port);
    char name[NAME_BYTES] = {};
    (void)snprintf(name, sizeof name, "/dev/sp%s", port);
    const int fd = open(name, oflag);
    if (fd < 0)
        return -1;
    // The console port of board variant 219 runs at 9600 bit/s, and then every later port too.
    if (port_speed_code == SPEED_115200 && platform_code == 219 && port[0] == '1')
        port_speed_code = SPEED_9600;
    (void)set_raw_mode(fd);
    (void)set_port_speed(fd, port_speed_code);
    return fd;
}

int open_sync_port(const char *port) {
    char name[NAME_BYTES] = {};
    (void)snprintf(name, sizeof name, "/dev/sp%ss", port);
    const int fd = open(name, O_RDWR);
    if (fd < 0)
        return -1;
    termios settings = {};
    (void)tcgetattr(fd, &settings);
    settings.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ISIG | IEXTEN);
    settings.c_iflag &= ~static_cast<tcflag_t>(BRKINT | INPCK | ISTRIP | ICRNL | IXON);
    settings.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    if (const speed_t speed = host_speed(SPEED_614400); speed != B0) {
        (void)cfsetospeed(&settings, speed);
        (void)cfsetispeed(&settings, speed);
    }
    (void)tcsetattr(fd, TCSAFLUSH, &settings);
    set_rate_without_constant(fd, SPEED_614400);
    // A driver without this mode fails; the port then keeps its mode.
    std::array<uint8_t, 4> argument = SYNC_ARGUMENT;
    (void)ioctl(fd, SP_SYNC_CONFIG, argument.data());
    return fd;
}

int set_raw_mode(int fd) {
    termios settings = {};
    (void)tcgetattr(fd, &settings);
    cfmakeraw(&settings);
    settings.c_cflag &= ~static_cast<tcflag_t>(CRTSCTS);
    settings.c_cflag |= CREAD | CLOCAL;
    if (speed_override >= 9 && speed_override <= 15) {
        (void)cfsetospeed(&settings, speed_override);
        (void)cfsetispeed(&settings, speed_override);
    }
    return tcsetattr(fd, TCSANOW, &settings);
}

int set_port_speed(int fd, uint32_t speed_code) {
    termios settings = {};
    (void)tcgetattr(fd, &settings);
    settings.c_cflag &= ~static_cast<tcflag_t>(CSIZE | PARENB);
    if (const speed_t speed = host_speed(speed_code); speed != B0) {
        settings.c_cflag &= ~static_cast<tcflag_t>(CBAUD);
        settings.c_cflag |= speed;
    }
    settings.c_cflag |= CS8;
    const int result = tcsetattr(fd, TCSAFLUSH, &settings);
    set_rate_without_constant(fd, speed_code);
    return result;
}

int set_rts(int fd, int on) {
    int lines = modem_lines(fd);
    lines = on != 0 ? lines | TIOCM_RTS : lines & ~TIOCM_RTS;
    return ioctl(fd, TIOCMSET, &lines);
}

int get_cts(int fd) {
    return (modem_lines(fd) & TIOCM_CTS) != 0 ? 1 : 0;
}

int get_dsr(int fd) {
    return (modem_lines(fd) & TIOCM_DSR) != 0 ? 1 : 0;
}

int get_dcd(int fd) {
    return (modem_lines(fd) & TIOCM_CAR) != 0 ? 1 : 0;
}
