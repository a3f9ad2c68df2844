#include "simulator/world/entrance.h"

#include "simulator/base/message.h"
#include "simulator/requests/descriptor_passing.h"
#include "simulator/world/board_name.h"
#include "simulator/world/namespaces.h"

#include <algorithm>
#include <sched.h>
#include <sys/socket.h>
#include <sys/syscall.h>

namespace simulator {

namespace {

constexpr size_t IOCTLS_MAX = 1024;

unique_fd own_process() {
    return unique_fd(static_cast<int>(syscall(SYS_pidfd_open, getpid(), 0)));
}

} // namespace

void entrance::add_polls(std::vector<pollfd> &polls) const {
    if (door.is_open())
        polls.push_back({door.get(), POLLIN, 0});
    for (const unique_fd &visitor : visitors)
        polls.push_back({visitor.get(), POLLIN, 0});
    for (const request_channel &channel : channels)
        channel.add_polls(polls);
}

void entrance::ready(const pollfd &event) {
    if (event.fd == door.get())
        return let_in();
    const auto visitor = std::ranges::find(visitors, event.fd, &unique_fd::get);
    if (visitor != visitors.end()) {
        channels.emplace_back();
        channels.back().takers = takers;
        channels.back().listener = receive_descriptor(visitor->get()); // none if it has gone
        visitors.erase(visitor);
    } else {
        for (request_channel &channel : channels)
            if (channel.listener.get() == event.fd)
                channel.ready(event);
    }
    channels.remove_if([](const request_channel &each) { return !each.listener.is_open(); });
}

void entrance::let_in() {
    unique_fd visitor(accept4(door.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!visitor.is_open() || !is_same_user(visitor.get()))
        return;
    request_channel every;
    every.takers = takers;
    const std::vector<uint32_t> numbers = every.stopped_ioctls();
    if (send_descriptor(visitor.get(), own_process().get()) &&
        send(visitor.get(), numbers.data(), numbers.size() * sizeof numbers[0], MSG_NOSIGNAL) >= 0)
        visitors.push_back(std::move(visitor));
}

bool move_in(int connection, std::vector<uint32_t> &stopped_ioctls) {
    const unique_fd board = receive_descriptor(connection);
    stopped_ioctls.resize(IOCTLS_MAX);
    const ssize_t bytes =
        recv(connection, stopped_ioctls.data(), IOCTLS_MAX * sizeof stopped_ioctls[0], 0);
    if (!board.is_open() || bytes < 0)
        return complain("the board has ended");
    stopped_ioctls.resize(static_cast<size_t>(bytes) / sizeof stopped_ioctls[0]);
    // A board that root runs has no user namespace of its own: it cannot be entered, see setns(2).
    return setns(board.get(), static_cast<int>(NAMESPACES | CLONE_NEWUSER)) == 0 ||
           setns(board.get(), static_cast<int>(NAMESPACES)) == 0 || cannot("enter", "the board");
}

} // namespace simulator
