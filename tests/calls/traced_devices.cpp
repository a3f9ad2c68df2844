// The calls on descriptors and on the clock, which devices of a case's own answer.

#include <algorithm>
#include <asm/termbits.h>
#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/time.h>
#include <unistd.h>

#include "tests/calls/traced_process.h"

using namespace traced;

namespace {

int modem_lines = 0;

bool is_device(int fd) {
    return fd >= FIRST_DEVICE || (names.contains(fd) && names[fd].starts_with("sp"));
}

std::string hex(std::span<const uint8_t> bytes) {
    std::string text;
    char one[4];
    for (const uint8_t byte : bytes) {
        (void)snprintf(one, sizeof one, " %02x", byte);
        text += one;
    }
    return text;
}

// As text where it can be read, otherwise in hexadecimal.
std::string shown(std::span<const uint8_t> bytes) {
    std::string text = " \"";
    for (const uint8_t byte : bytes) {
        if (isprint(byte) == 0 && byte != '\r' && byte != '\n' && byte != '\033')
            return hex(bytes);
        text += byte == '\r'     ? "\\r"
                : byte == '\n'   ? "\\n"
                : byte == '\033' ? "\\e"
                                 : std::string(1, static_cast<char>(byte));
    }
    return text + "\"";
}

std::string flags_of(int flags, mode_t mode) {
    constexpr flag_name NAMES[] = {{O_RDWR, "rw"}, {O_WRONLY, "wo"}, {O_NONBLOCK, "nonblock"}};
    const std::string text = (flags & O_ACCMODE) == O_RDONLY ? " ro" : "";
    char bits[16];
    (void)snprintf(bits, sizeof bits, " create %o", mode);
    return text + names_of(flags & ~O_CREAT, NAMES) + ((flags & O_CREAT) != 0 ? bits : "");
}

int keep_name(int fd, const std::string &path) {
    if (fd >= 0)
        names[fd] = path.substr(path.rfind('/') + 1);
    return fd;
}

size_t cleared(std::span<const uint8_t> room) {
    const auto *end = std::find_if(room.data(), room.data() + room.size(),
                                   [](uint8_t byte) { return byte != 0; });
    return static_cast<size_t>(end - room.data());
}

std::string request_line(unsigned long request, const uint8_t *argument) {
    uint32_t word = 0;
    memcpy(&word, argument, request == SPI_IOC_WR_MAX_SPEED_HZ ? sizeof word : 1);
    switch (request) {
#ifdef TCGETS2
    case TCGETS2:
#endif
    case TCGETS:
        return "get settings";
#ifdef TCSETS2
    case TCSETS2:
#endif
    case TCSETS:
        return "set settings at once";
#ifdef TCSETSF2
    case TCSETSF2:
#endif
    case TCSETSF:
        return "set settings and flush";
    case TIOCMGET:
        return "get lines";
    case TIOCMSET:
        return (*reinterpret_cast<const int *>(argument) & TIOCM_RTS) != 0 ? "rts on" : "rts off";
    case FIONREAD:
        return "count waiting bytes";
    case SPI_IOC_WR_MODE:
        return "mode" + hex({argument, 1});
    case SPI_IOC_WR_BITS_PER_WORD:
        return "bits" + hex({argument, 1});
    case SPI_IOC_WR_MAX_SPEED_HZ:
        return "speed " + number(word);
    default:
        char text[20];
        (void)snprintf(text, sizeof text, "request %lx", request);
        return text + hex({argument, 4});
    }
}

int transfer(const std::string &name, const spi_ioc_transfer &message) {
    const std::span sent(reinterpret_cast<const uint8_t *>(static_cast<uintptr_t>(message.tx_buf)),
                         message.len);
    note("transfer " + name + " " + number(message.len) + " at " + number(message.speed_hz) + "/" +
         number(message.bits_per_word) + hex(sent.first(std::min<size_t>(message.len, 8))));
    if (devices->transfer)
        devices->transfer(
            sent,
            {reinterpret_cast<uint8_t *>(static_cast<uintptr_t>(message.rx_buf)), message.len});
    return static_cast<int>(message.len);
}

} // namespace

// With 64-bit time on a 32-bit machine the C library calls these by other names.
#if __SIZEOF_LONG__ == 4
#define __real_nanosleep __real___nanosleep64
#define __wrap_nanosleep __wrap___nanosleep64
#define __real_ioctl __real___ioctl_time64
#define __wrap_ioctl __wrap___ioctl_time64
#define __real_gettimeofday __real___gettimeofday64
#define __wrap_gettimeofday __wrap___gettimeofday64
#endif

extern "C" {

int __real_open64(const char *, int, ...);
int __wrap_open64(const char *, int, ...);
int __wrap_open64(const char *path, int flags, ...) {
    va_list list;
    va_start(list, flags);
    const auto mode = static_cast<mode_t>((flags & O_CREAT) != 0 ? va_arg(list, unsigned) : 0);
    va_end(list);
    if (!is_on())
        return __real_open64(path, flags, mode);
    const bool is_there = strstr(path, "none") == nullptr;
    note("open " + std::string(path) + flags_of(flags, mode));
    if (strncmp(path, "/dev/", 5) != 0)
        return keep_name(__real_open64(path, flags, mode), path);
    if (!is_there) {
        errno = ENOENT;
        return -1;
    }
    int fd = FIRST_DEVICE;
    while (names.contains(fd))
        ++fd;
    return keep_name(fd, path);
}

int __real_close(int);
int __wrap_close(int);
int __wrap_close(int fd) {
    if (!is_on())
        return __real_close(fd);
    note("close " + name_of(fd));
    names.erase(fd);
    return fd >= FIRST_DEVICE ? 0 : __real_close(fd);
}

int __real_dup2(int, int);
int __wrap_dup2(int, int);
int __wrap_dup2(int fd, int copy) {
    if (!is_on())
        return __real_dup2(fd, copy);
    note("dup " + name_of(fd) + " " + number(copy));
    names[copy] = name_of(fd);
    return copy;
}

ssize_t __real_read(int, void *, size_t);
ssize_t __wrap_read(int, void *, size_t);
ssize_t __wrap_read(int fd, void *room, size_t size) {
    if (!is_on())
        return __real_read(fd, room, size);
    const std::span bytes(static_cast<uint8_t *>(room), size);
    std::string line = "read " + name_of(fd) + " " + number(static_cast<int64_t>(size));
    if (devices->shows_cleared)
        line += ", " + number(static_cast<int64_t>(cleared(bytes))) + " clear";
    note(line);
    if (!is_device(fd))
        return __real_read(fd, room, size);
    const size_t count = devices->read ? devices->read(name_of(fd), bytes) : 0;
    if (devices->shows_cleared)
        std::ranges::fill(bytes.subspan(count), uint8_t{0xEE}); // as a longer block before would
    return static_cast<ssize_t>(count);
}

ssize_t __real_write(int, const void *, size_t);
ssize_t __wrap_write(int, const void *, size_t);
ssize_t __wrap_write(int fd, const void *data, size_t size) {
    if (!is_on())
        return __real_write(fd, data, size);
    const std::span bytes(static_cast<const uint8_t *>(data), size);
    note("write " + name_of(fd) + shown(bytes.first(std::min<size_t>(size, 40))));
    if (!is_device(fd))
        return __real_write(fd, data, size);
    if (devices->written)
        devices->written(name_of(fd), bytes);
    if (devices->changes_what_it_sends)
        memset(const_cast<void *>(data), 0xEE, size);
    return static_cast<ssize_t>(size);
}

int __real_poll(pollfd *, nfds_t, int);
int __wrap_poll(pollfd *, nfds_t, int);
int __wrap_poll(pollfd *polls, nfds_t count, int timeout_ms) {
    if (!is_on())
        return __real_poll(polls, count, timeout_ms);
    const std::string name = name_of(polls[0].fd);
    const bool wants_input = (polls[0].events & POLLIN) != 0;
    const bool wants_output = (polls[0].events & POLLOUT) != 0;
    constexpr flag_name NAMES[] = {{POLLIN, "in"}, {POLLPRI, "pri"}, {POLLOUT, "out"}};
    note("poll " + name + names_of(polls[0].events, NAMES) + " " + number(timeout_ms));
    const bool has_input = wants_input && devices->has_input && devices->has_input(name);
    polls[0].revents = static_cast<short>(devices->other_events | (has_input ? POLLIN : 0) |
                                          (wants_output ? POLLOUT : 0));
    now_us += polls[0].revents == 0 ? timeout_ms * 1000 : 0;
    return polls[0].revents != 0 ? 1 : 0;
}

int __real_ioctl(int, unsigned long, void *);
int __wrap_ioctl(int, unsigned long, ...);
int __wrap_ioctl(int fd, unsigned long request, ...) {
    va_list list;
    va_start(list, request);
    auto *argument = va_arg(list, uint8_t *);
    va_end(list);
    if (!is_on())
        return __real_ioctl(fd, request, argument);
    if (request == SPI_IOC_MESSAGE(1))
        return transfer(name_of(fd), *reinterpret_cast<const spi_ioc_transfer *>(argument));
    note(request_line(request, argument).insert(0, name_of(fd) + " "));
    if (request == TIOCMSET)
        memcpy(&modem_lines, argument, sizeof modem_lines);
    if (request == TIOCMGET) {
        const bool is_on = (modem_lines & TIOCM_RTS) != 0;
        const int seen = modem_lines | (is_on ? TIOCM_CTS | TIOCM_CAR : 0);
        memcpy(argument, &seen, sizeof seen);
    }
    return 0;
}

int __real_nanosleep(const timespec *, timespec *);
int __wrap_nanosleep(const timespec *, timespec *);
int __wrap_nanosleep(const timespec *wanted, timespec *left) {
    if (!is_on())
        return __real_nanosleep(wanted, left);
    const int64_t us = int64_t{wanted->tv_sec} * 1000000 + wanted->tv_nsec / 1000;
    note("nap " + number(us));
    now_us += us;
    return 0;
}

int __real_gettimeofday(timeval *, void *);
int __wrap_gettimeofday(timeval *, void *);
int __wrap_gettimeofday(timeval *now, void *zone) {
    if (!is_on())
        return __real_gettimeofday(now, zone);
    *now = {static_cast<time_t>(now_us / 1000000), static_cast<suseconds_t>(now_us % 1000000)};
    return 0;
}
}
