#include "simulator/devices/serial/port_node.h"

#include "simulator/base/message.h"
#include "simulator/time/event_loop.h"

#include <fcntl.h>
#include <sys/epoll.h>

namespace simulator {

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

bool port_node::is_abandoned() const {
    return (present_events(line.master.get(), 0) & POLLHUP) != 0;
}

} // namespace simulator
