#include "simulator/world/log/log_forward.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>

namespace simulator {

namespace {

constexpr size_t WAITING_MESSAGES = 4096; // some 80 full lists

} // namespace

bool log_forward::connect_to(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        dprintf(STDERR_FILENO, "hk_board: the path of a socket has at most %zu bytes: %s\n",
                sizeof address.sun_path - 1, path.c_str());
        return false;
    }
    memcpy(address.sun_path, path.data(), path.size());
    socket.reset(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket.is_open() ||
        connect(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        dprintf(STDERR_FILENO, "hk_board: cannot forward the log to %s: %s\n", path.c_str(),
                strerror(errno));
        return false;
    }
    return true;
}

void log_forward::send(std::string_view message) {
    if (!socket.is_open())
        return;
    if (waiting.size() >= WAITING_MESSAGES) {
        lost++;
        return;
    }
    waiting.emplace_back(message);
    send_waiting();
}

void log_forward::send_waiting() {
    while (!waiting.empty()) {
        const std::string &message = waiting.front();
        if (::send(socket.get(), message.data(), message.size(), MSG_NOSIGNAL) < 0) {
            if (errno == EAGAIN)
                return;
            lost++; // the receiver has gone, and the message is for nobody else
        }
        waiting.pop_front();
    }
}

void log_forward::finish(int64_t limit_us) {
    const int64_t latest_us = monotonic_us() + limit_us;
    while (!waiting.empty() && monotonic_us() < latest_us) {
        pollfd out{socket.get(), POLLOUT, 0};
        (void)poll(&out, 1, 50);
        send_waiting();
    }
    lost += waiting.size();
    if (lost > 0)
        dprintf(STDERR_FILENO, "hk_board: %zu log messages could not be forwarded\n", lost);
}

void log_forward::add_polls(std::vector<pollfd> &polls) const {
    if (!waiting.empty())
        polls.push_back({socket.get(), POLLOUT, 0});
}

void log_forward::ready(const pollfd &) {
    send_waiting();
}

} // namespace simulator
