#include "serial/port_access.h"

#include <array>
#include <cstdio>
#include <fcntl.h>
#include <sys/ioctl.h>

#include "runtime/number.h"
#include "runtime/settings.h"
#include "serial/port_settings.h"

uint32_t port_speed_code = SPEED_115200;
uint32_t platform_code = 0;

namespace {

constexpr int NAME_BYTES = 15; // of a device name, the closing zero included

// Driver request that puts a port into synchronous mode. The driver defines the four argument
// bytes.
constexpr unsigned long SP_SYNC_CONFIG = 0x40047300;
constexpr std::array<uint8_t, 4> SYNC_ARGUMENT = {1, 10, 0, 0};

int modem_lines(int fd) {
    int lines = 0;
    (void)ioctl(fd, TIOCMGET, &lines);
    return lines;
}

} // namespace

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
    (void)set_sync_settings(fd);
    // A driver without this mode fails; the port then keeps its mode.
    std::array<uint8_t, 4> argument = SYNC_ARGUMENT;
    (void)ioctl(fd, SP_SYNC_CONFIG, argument.data());
    return fd;
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
