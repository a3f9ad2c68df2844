#include "simulator/devices/serial/port_node.h"

#include "simulator/base/message.h"
#include "simulator/time/event_loop.h"

#include <asm/termbits.h>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>

namespace simulator {

namespace {

size_t readable_bytes(const unique_fd &terminal) {
    int count = 0;
    (void)ioctl(terminal.get(), FIONREAD, &count); // every terminal knows it
    return static_cast<size_t>(count);
}

} // namespace

bool port_node::open(const std::string &wanted_path) {
    path = wanted_path;
    if (!line.open(path.c_str()))
        return false;
    line.slave.reset();
    return true;
}

// The master reports a hang-up while no slave is open, so only an edge-triggered watch can be
// polled all the time.
bool port_node::watch(int epoll, uint32_t number) const {
    epoll_event edge{};
    edge.events = EPOLLIN | EPOLLET;
    edge.data.u32 = number;
    return epoll_ctl(epoll, EPOLL_CTL_ADD, line.master.get(), &edge) == 0 || cannot("watch", path);
}

unique_fd port_node::open_slave(int flags) const {
    return unique_fd(::open(path.c_str(), flags | O_NOCTTY | O_CLOEXEC));
}

size_t port_node::untaken_bytes() const {
    return readable_bytes(line.master);
}

size_t port_node::unread_bytes() const {
    return readable_bytes(open_slave(O_RDWR | O_NONBLOCK));
}

void port_node::drop_unread() const {
    const unique_fd slave = open_slave(O_RDWR | O_NONBLOCK);
    (void)ioctl(slave.get(), TCFLSH, TCIFLUSH); // every terminal can
}

bool port_node::is_abandoned() const {
    return (present_events(line.master.get(), 0) & POLLHUP) != 0;
}

} // namespace simulator
