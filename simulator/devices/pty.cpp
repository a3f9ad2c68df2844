#include "simulator/devices/pty.h"

#include "simulator/base/message.h"
#include "simulator/time/event_loop.h"
#include "simulator/world/root.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <termios.h>

namespace simulator {

namespace {

constexpr size_t CHUNK_BYTES = 4096;

void set_raw(int terminal) {
    termios settings{};
    if (tcgetattr(terminal, &settings) == 0) {
        cfmakeraw(&settings);
        (void)tcsetattr(terminal, TCSANOW, &settings); // cannot fail on the terminal just read
    }
}

} // namespace

bool pty::open(const char *node) {
    master.reset(::open("/dev/ptmx", O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    unsigned index = 0;
    int locked = 0;
    if (!master.is_open() || ioctl(master.get(), TIOCSPTLCK, &locked) != 0 ||
        ioctl(master.get(), TIOCGPTN, &index) != 0)
        return cannot("get a pseudo-terminal for", node);
    slave_path = "/dev/pts/" + std::to_string(index);
    slave.reset(::open(slave_path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    if (!slave.is_open() || fstat(slave.get(), &slave_node) != 0)
        return cannot("open", slave_path);
    set_raw(slave.get());
    return publish_node(slave_path.c_str(), node);
}

std::vector<uint8_t> take_written(const pty &line) {
    std::vector<uint8_t> bytes(CHUNK_BYTES);
    size_t count = 0;
    while (count < CHUNK_BYTES) {
        const ssize_t got = read(line.master.get(), bytes.data() + count, CHUNK_BYTES - count);
        if (got <= 0)
            break;
        count += static_cast<size_t>(got);
    }
    bytes.resize(count);
    return bytes;
}

size_t unread_bytes(const pty &line) {
    int count = 0;
    (void)ioctl(line.slave.get(), FIONREAD, &count); // every terminal knows it
    return static_cast<size_t>(count);
}

bool nothing_under_way(const pty &line) {
    return present_events(line.slave.get(), POLLIN) == 0;
}

size_t give(const pty &line, std::span<const uint8_t> bytes) {
    const ssize_t given = write(line.master.get(), bytes.data(), bytes.size());
    (void)nothing_under_way(line); // lets the worker finish: who waits for the bytes is awake now
    return given > 0 ? static_cast<size_t>(given) : 0;
}

void take_back(const pty &line) {
    (void)tcflush(line.slave.get(), TCIFLUSH); // every terminal can
}

// The kernel reports the master as writable again when the slave was read. The master is always
// writable, so only an edge-triggered watch shows that.
unique_fd watch_reader(const pty &line) {
    unique_fd watch(epoll_create1(EPOLL_CLOEXEC));
    epoll_event edge{};
    edge.events = EPOLLOUT | EPOLLET;
    if (!watch.is_open() || epoll_ctl(watch.get(), EPOLL_CTL_ADD, line.master.get(), &edge) != 0)
        watch.reset();
    return watch;
}

void forget_read(const unique_fd &watch) {
    epoll_event edge{};
    (void)epoll_wait(watch.get(), &edge, 1, 0);
}

} // namespace simulator
